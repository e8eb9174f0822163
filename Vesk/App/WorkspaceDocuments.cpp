// Workspace: the document store and the project's file tree.
#include "Base/SessionFiles.h"
#include "Documents/DocumentStore.h"
#include "Files/FileTreeModel.h"
#include "RLiteral.h"
#include "Workspace.h"

#include <QFileInfo>

void Workspace::setUpDocuments()
{
    m_documents = new DocumentStore(m_settings, this);
    connect(this, &Workspace::projectChanged, m_documents,
            [this] { m_documents->setProjectFolder(m_projectPath); });
    // R may let go of what a closed view pinned; a busy R keeps it until the session ends.
    connect(m_documents, &DocumentStore::dataViewClosed, this, [this](const QString &expr, bool pinned) {
        if (pinned && m_session.status().kind == RSessionStatus::Kind::Idle)
            m_session.request(QStringLiteral("dropView"), {RArgument(expr)}, {},
                              [](const RRequestResult &) {});
    });
    // The window answers through the workspace's presenter unless it sets one for the store.
    m_documents->presentAlert = [this](const Alert &alert) {
        if (presentAlert)
            presentAlert(alert);
        else if (alert.onChoice)
            alert.onChoice(-1);
    };
    m_documents->importData = [this](const QString &path) { importData(path); };

    m_files = new FileTreeModel(this);
    connect(m_files, &FileTreeModel::fileMoved, m_documents, &DocumentStore::fileMoved);
    connect(m_files, &FileTreeModel::trashed, m_documents, [this] { m_documents->checkDisk(); });
}

void Workspace::beginDocumentSession()
{
    m_files->setRootPath(m_projectPath);
    m_documents->beginSession(SessionFiles::key(m_projectPath));
}

void Workspace::endDocumentSession()
{
    m_documents->endSession();
}

void Workspace::handleDocumentEvent(const SessionEvent &event)
{
    if (event.kind == SessionEvent::Kind::View) {
        m_documents->openData(event.expr, event.title);
    } else if (event.kind == SessionEvent::Kind::OpenFile) {
        const QString path = event.url.isLocalFile() ? event.url.toLocalFile() : event.url.toString();
        if (!path.isEmpty())
            m_documents->open(path);
    }
}

void Workspace::importData(const QString &path)
{
    const QFileInfo info(path);
    const QString extension = info.suffix().toLower();
    const QString file = RLiteral::string(info.absoluteFilePath());
    if (extension == u"rdata" || extension == u"rda") {
        // Objects come back under their own names; the workspace list shows them.
        run(QStringLiteral("load(%1)").arg(file), ExecOrigin::console());
        return;
    }
    // A syntactic name from the file's name: "sales 2024.csv" becomes sales_2024.
    QString name;
    for (const QChar c : info.completeBaseName())
        name += (c.isLetterOrNumber() || c == u'_' || c == u'.') ? c : u'_';
    if (name.isEmpty() || !RLiteral::isSyntacticName(name))
        name = QStringLiteral("data_") + name;
    if (!RLiteral::isSyntacticName(name))
        name = QStringLiteral("imported");
    QString reader;
    if (extension == u"csv")
        reader = QStringLiteral("read.csv(%1)");
    else if (extension == u"tsv")
        reader = QStringLiteral("read.delim(%1)");
    else if (extension == u"rds")
        reader = QStringLiteral("readRDS(%1)");
    else if (extension == u"xlsx" || extension == u"xls")
        reader = QStringLiteral("readxl::read_excel(%1)");
    else
        reader = QStringLiteral("read.table(%1, header = TRUE)");
    run(QStringLiteral("%1 <- %2\nView(%1)").arg(name, reader.arg(file)), ExecOrigin::console());
}
