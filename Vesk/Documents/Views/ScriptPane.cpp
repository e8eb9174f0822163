#include "ScriptPane.h"

#include "Documents/DocumentStore.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

ScriptPane::ScriptPane(DocumentStore &store, EditorDocument &document, QWidget *editor, QWidget *parent)
    : QWidget(parent), m_store(store), m_document(&document), m_editor(editor)
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    m_changedBar = new QWidget(this);
    m_changedBar->setAutoFillBackground(true);
    QPalette warm = m_changedBar->palette();
    warm.setColor(QPalette::Window, QColor(0xff, 0xf1, 0xc9));
    warm.setColor(QPalette::WindowText, QColor(0x4a, 0x3b, 0x10));
    m_changedBar->setPalette(warm);
    auto *bar = new QHBoxLayout(m_changedBar);
    bar->setContentsMargins(10, 4, 6, 4);
    m_changedText = new QLabel(m_changedBar);
    m_keepMine = new QPushButton(QStringLiteral("Keep Mine"), m_changedBar);
    m_keepMine->setToolTip(QStringLiteral("Keep your version; saving replaces the file on disk"));
    m_reload = new QPushButton(QStringLiteral("Reload"), m_changedBar);
    m_reload->setToolTip(QStringLiteral("Discard your changes and show the file on disk"));
    bar->addWidget(m_changedText, 1);
    bar->addWidget(m_keepMine);
    bar->addWidget(m_reload);
    connect(m_keepMine, &QPushButton::clicked, this, [this] {
        if (m_document)
            m_store.keepMine(m_document);
    });
    connect(m_reload, &QPushButton::clicked, this, [this] {
        if (m_document)
            m_store.reload(m_document);
    });

    m_deleted = new QLabel(QStringLiteral("⚠ The file was deleted or moved. Save to write it again."), this);
    m_deleted->setContentsMargins(10, 4, 10, 4);

    m_format = new QLabel(this);
    m_format->setContentsMargins(10, 2, 10, 2);
    QFont small = m_format->font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    m_format->setFont(small);
    m_format->setForegroundRole(QPalette::PlaceholderText);

    layout->addWidget(m_changedBar);
    layout->addWidget(m_deleted);
    layout->addWidget(m_editor, 1);
    layout->addWidget(m_format);
    connect(&document, &EditorDocument::stateChanged, this, &ScriptPane::update);
    update();
}

void ScriptPane::update()
{
    if (!m_document)
        return;
    const EditorDocument &document = *m_document;
    m_changedText->setText(QStringLiteral("“%1” changed on disk.").arg(document.title()));
    m_changedBar->setVisible(document.diskState() == DiskState::changed);
    m_deleted->setVisible(document.path() && document.diskState() == DiskState::deleted);
    QString format = QStringLiteral("Saved as %1 with %2")
                         .arg(document.encoding().displayName(), document.lineEnding().displayName());
    if (document.path())
        format += QStringLiteral(", like the file on disk");
    m_format->setText(format);
}
