#include "DocumentStore.h"

#include "Base/RecentProjects.h"
#include "Base/Settings.h"
#include "DecodedText.h"
#include "TextFileCodec.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QLocale>
#include <QMimeDatabase>
#include <QSaveFile>

#include <algorithm>

namespace {

QString quotedName(const QString &name)
{
    return u'“' + name + u'”';
}

QString standardised(const QString &path)
{
    return QDir::cleanPath(QFileInfo(path).absoluteFilePath());
}

// What reading a file gave: the decoded text, or why there is none.
struct FileRead {
    std::optional<DecodedText> decoded;
    bool readFailed = false;
    QString error;
};

// `decodeIf` sees the bytes and says whether to try decoding them at all.
FileRead readFile(const QString &path, const std::function<bool(QByteArrayView)> &decodeIf = {})
{
    FileRead result;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        result.readFailed = true;
        result.error = file.errorString();
        return result;
    }
    QByteArray copy;
    QByteArrayView data;
    const qint64 size = file.size();
    if (uchar *mapped = size > 0 ? file.map(0, size) : nullptr) {
        data = QByteArrayView(reinterpret_cast<const char *>(mapped), size);
    } else {
        copy = file.readAll();
        if (file.error() != QFileDevice::NoError) {
            result.readFailed = true;
            result.error = file.errorString();
            return result;
        }
        data = copy;
    }
    if (!decodeIf || decodeIf(data))
        result.decoded = TextFileCodec::decode(data);
    return result;
}

// A data type of the platform's type database that isn't text.
bool isKnownBinaryType(const QString &path)
{
    const QMimeType type = QMimeDatabase().mimeTypeForFile(path, QMimeDatabase::MatchExtension);
    return type.isValid() && !type.isDefault() && !type.inherits(QStringLiteral("text/plain"));
}

} // namespace

DocumentStore::DocumentStore(Settings &settings, QObject *parent) : QObject(parent), m_settings(settings)
{
    for (QTimer *timer : {&m_autosaveTimer, &m_autosaveDeadline}) {
        timer->setSingleShot(true);
        connect(timer, &QTimer::timeout, this, &DocumentStore::flushAutosave);
    }
    setAutosaveDelays(autosaveQuietDelay, autosaveLongestDelay);
    // Saves by other programs come in bursts (write, rename, touch): one check after they settle.
    m_diskCheckTimer.setSingleShot(true);
    m_diskCheckTimer.setInterval(250);
    connect(&m_diskCheckTimer, &QTimer::timeout, this, &DocumentStore::checkDisk);
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, &m_diskCheckTimer, qOverload<>(&QTimer::start));
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, &m_diskCheckTimer,
            qOverload<>(&QTimer::start));
    if (auto *app = qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
        connect(app, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
            if (state == Qt::ApplicationActive)
                checkDisk();
            else
                flushAutosave();
        });
    }
}

// No autosave file is removed here: a store that goes away without `endSession` is a crash, and
// what was autosaved must stay for the next start. Writes already handed over are finished.
DocumentStore::~DocumentStore() = default;

QList<EditorDocument *> DocumentStore::scripts() const
{
    QList<EditorDocument *> result;
    for (const OpenItem &item : m_items)
        if (item.script)
            result.append(item.script);
    return result;
}

std::optional<OpenItem> DocumentStore::selected() const
{
    return m_selectedID ? item(*m_selectedID) : std::nullopt;
}

std::optional<OpenItem> DocumentStore::item(const QUuid &id) const
{
    for (const OpenItem &entry : m_items)
        if (entry.id() == id)
            return entry;
    return std::nullopt;
}

void DocumentStore::select(const std::optional<QUuid> &id)
{
    if (id == m_selectedID)
        return;
    m_selectedID = id;
    emit selectionChanged();
    // The selection is part of the stored session.
    scheduleAutosave();
}

EditorDocument *DocumentStore::script(const QString &path) const
{
    const QString wanted = standardised(path);
    for (const OpenItem &entry : m_items)
        if (entry.script && entry.script->path() && *entry.script->path() == wanted)
            return entry.script;
    return nullptr;
}

void DocumentStore::ask(const Alert &alert)
{
    if (!presentAlert) {
        // Nobody can answer: the safe answer is the last button ("Cancel", or the only "OK").
        if (alert.onChoice)
            alert.onChoice(-1);
        return;
    }
    ++m_asking;
    Alert wrapped = alert;
    auto answered = std::make_shared<bool>(false);
    wrapped.onChoice = [self = QPointer<DocumentStore>(this), answered,
                        onChoice = alert.onChoice](int choice) {
        if (*answered)
            return;
        *answered = true;
        if (self)
            --self->m_asking;
        if (onChoice)
            onChoice(choice);
    };
    presentAlert(wrapped);
}

void DocumentStore::showProblem(const QString &title, const QString &detail)
{
    ask(Alert{title, detail, {QStringLiteral("OK")}, {}});
}

void DocumentStore::doBeep()
{
    if (beep)
        beep();
}

void DocumentStore::addRecentFile(const QString &path)
{
    RecentFiles::add(m_settings, path);
}

void DocumentStore::adopt(EditorDocument *document)
{
    document->setParent(this);
    connect(document, &EditorDocument::textChanged, this, &DocumentStore::scheduleAutosave);
}

void DocumentStore::addItem(const OpenItem &item, std::optional<qsizetype> replacing)
{
    if (replacing && *replacing >= 0 && *replacing < m_items.size()) {
        const OpenItem old = m_items[*replacing];
        m_items[*replacing] = item;
        if (old.script) {
            dropAutosave(old.script);
            old.script->deleteLater();
        }
        if (old.data)
            old.data->deleteLater();
    } else {
        m_items.append(item);
    }
    emit itemsChanged();
    watchFiles();
}

// ---- Opening

FileOpenRoute DocumentStore::routeByType(const QString &path) const
{
    if (QFileInfo(path).suffix().isEmpty())
        return FileOpenRoute::sniff;
    const QMimeType type = QMimeDatabase().mimeTypeForFile(path, QMimeDatabase::MatchExtension);
    if (!type.isValid() || type.isDefault())
        return FileOpenRoute::sniff;
    if (type.inherits(QStringLiteral("text/html")) || type.name().startsWith(QStringLiteral("image/")) ||
        type.inherits(QStringLiteral("application/pdf")))
        return FileOpenRoute::viewer;
    if (type.inherits(QStringLiteral("text/plain")))
        return FileOpenRoute::editor;
    return FileOpenRoute::external;
}

void DocumentStore::open(const QString &path, bool asText)
{
    const QString clean = standardised(path);
    if (EditorDocument *existing = script(clean)) {
        select(existing->id());
        return;
    }
    if (QFileInfo(clean).isDir())
        return;
    FileOpenRoute route = asText ? FileOpenRoute::editor : FileTypes::route(QFileInfo(clean).suffix());
    if (route == FileOpenRoute::sniff)
        route = routeByType(clean);
    switch (route) {
    case FileOpenRoute::editor:
        openInEditor(clean, true);
        break;
    case FileOpenRoute::sniff:
        openInEditor(clean, false);
        break;
    case FileOpenRoute::viewer:
        if (showInViewer)
            showInViewer(clean);
        else
            openOutside(clean);
        addRecentFile(clean);
        break;
    case FileOpenRoute::importData:
        if (importData)
            importData(clean);
        break;
    case FileOpenRoute::external:
        openOutside(clean);
        break;
    }
}

void DocumentStore::openInEditor(const QString &path, bool isKnownText)
{
    const QFileInfo info(path);
    const QString name = info.fileName();
    if (info.exists() && info.size() > editorSizeLimit) {
        showProblem(quotedName(name) + QStringLiteral(" is too large to edit."),
                    QStringLiteral("Vesk opens text files up to ") +
                        // Decimal units, as the limit is decimal: "50 MB".
                        QLocale().formattedDataSize(editorSizeLimit, 0, QLocale::DataSizeSIFormat) + u'.');
        return;
    }
    const FileRead read = readFile(path, [&](QByteArrayView data) {
        return TextFileCodec::isUTF8Prefix(data) || !isKnownBinaryType(path);
    });
    if (read.readFailed) {
        showProblem(quotedName(name) + QStringLiteral(" can’t be opened."), read.error);
        return;
    }
    if (!read.decoded) {
        if (!isKnownText)
            openOutside(path);
        else
            showProblem(quotedName(name) + QStringLiteral(" can’t be opened as text."),
                        QStringLiteral("The file contains binary data."));
        return;
    }
    auto *document = new EditorDocument(this);
    document->setPath(path);
    document->load(*read.decoded, FileStamp::read(path));
    adopt(document);

    std::optional<qsizetype> replacing;
    if (const auto current = selected();
        current && current->script && !current->script->path() && current->script->text().isEmpty()) {
        for (qsizetype i = 0; i < m_items.size(); ++i)
            if (m_items[i].id() == current->id())
                replacing = i;
    }
    addItem(OpenItem{document, nullptr}, replacing);
    select(document->id());
    addRecentFile(path);
    scheduleAutosave();
}

void DocumentStore::openOutside(const QString &path)
{
    if (openExternally && openExternally(path))
        return;
    showProblem(QStringLiteral("Vesk can’t open ") + quotedName(QFileInfo(path).fileName()) + u'.',
                QStringLiteral("It isn’t a text file, and no other app is set to open it."));
}

void DocumentStore::openPanel()
{
    if (!chooseOpenPaths)
        return;
    const QStringList paths = chooseOpenPaths(projectFolder().value_or(QDir::homePath()));
    for (const QString &path : paths)
        open(path);
}

EditorDocument *DocumentStore::newScript(const QString &text, const std::optional<QString> &suggestedName)
{
    ++m_untitledCounter;
    auto *document = new EditorDocument(this);
    document->setUntitledIndex(m_untitledCounter);
    document->setSuggestedName(suggestedName);
    document->replaceText(text);
    document->setSavedText(text);
    adopt(document);
    addItem(OpenItem{document, nullptr});
    select(document->id());
    scheduleAutosave();
    return document;
}

void DocumentStore::reveal(const QString &path, int line)
{
    open(path, true);
    if (EditorDocument *document = script(path)) {
        select(document->id());
        emit revealRequested(document, line);
    }
}

void DocumentStore::openData(const QString &expr, const QString &title)
{
    for (const OpenItem &entry : m_items) {
        if (entry.data && entry.data->expr() == expr) {
            select(entry.id());
            entry.data->reload();
            return;
        }
    }
    auto *data = new DataDocument(expr, title, this);
    addItem(OpenItem{nullptr, data});
    select(data->id());
}

// ---- Saving

void DocumentStore::save(EditorDocument *document, bool as, Completion done)
{
    if (!done)
        done = [](bool) {};
    if (!document) {
        done(false);
        return;
    }
    if (document->path() && !as) {
        saveTo(document, *document->path(), false, std::move(done));
        return;
    }
    QString proposed;
    if (document->path())
        proposed = QFileInfo(*document->path()).fileName();
    else if (document->suggestedName())
        proposed = *document->suggestedName();
    else
        proposed = document->title() + QStringLiteral(".R");
    const QString folder = projectFolder().value_or(
        document->path() ? QFileInfo(*document->path()).absolutePath() : QDir::homePath());
    const std::optional<QString> chosen = chooseSavePath ? chooseSavePath(proposed, folder) : std::nullopt;
    if (!chosen || chosen->isEmpty()) {
        done(false);
        return;
    }
    // The dialog has asked about replacing a file already.
    saveTo(document, standardised(*chosen), true, std::move(done));
}

void DocumentStore::saveTo(QPointer<EditorDocument> document, const QString &target, bool chosenInDialog,
                           Completion done)
{
    if (!chosenInDialog &&
        FileStamp::change(document->diskStamp, FileStamp::read(target)) == FileStamp::Change::modified) {
        Alert alert;
        alert.title = quotedName(document->title()) + QStringLiteral(" changed on disk.");
        alert.text = QStringLiteral("Another app changed the file since you opened it. Saving replaces those "
                                    "changes with yours.");
        alert.buttons = {QStringLiteral("Save Anyway"), QStringLiteral("Cancel")};
        alert.onChoice = [this, self = QPointer<DocumentStore>(this), document, target, done](int choice) {
            if (!self || !document || choice != 0) {
                done(false);
                return;
            }
            encodeAndWrite(document, target, done);
        };
        ask(alert);
        return;
    }
    encodeAndWrite(document, target, std::move(done));
}

void DocumentStore::encodeAndWrite(QPointer<EditorDocument> document, const QString &target, Completion done)
{
    const std::optional<QByteArray> data =
        TextFileCodec::encode(document->text(), document->encoding(), document->lineEnding());
    if (data) {
        done(write(document, target, *data, document->encoding()));
        return;
    }
    Alert alert;
    alert.title = quotedName(document->title()) + QStringLiteral(" can’t be saved as ") +
                  document->encoding().displayName() + u'.';
    alert.text =
        QStringLiteral("Some characters can’t be stored in this encoding. Save the file as UTF-8 instead?");
    alert.buttons = {QStringLiteral("Save as UTF-8"), QStringLiteral("Cancel")};
    alert.onChoice = [this, self = QPointer<DocumentStore>(this), document, target, done](int choice) {
        if (!self || !document || choice != 0) {
            done(false);
            return;
        }
        const std::optional<QByteArray> utf8 =
            TextFileCodec::encode(document->text(), TextFileEncoding::utf8, document->lineEnding());
        done(utf8 && write(document, target, *utf8, TextFileEncoding::utf8));
    };
    ask(alert);
}

bool DocumentStore::write(EditorDocument *document, const QString &target, const QByteArray &data,
                          TextFileEncoding encoding)
{
    const QString text = document->text();
    // A link stays a link: the file it leads to is replaced.
    QString real = target;
    const QFileInfo info(target);
    if (info.isSymLink()) {
        const QString canonical = info.canonicalFilePath();
        real = canonical.isEmpty() ? info.symLinkTarget() : canonical;
    }
    const bool existed = QFileInfo::exists(real);
    const QFileDevice::Permissions permissions =
        existed ? QFile::permissions(real) : QFileDevice::Permissions();
    QSaveFile file(real);
    bool ok = file.open(QIODevice::WriteOnly);
    ok = ok && file.write(data) == data.size();
    if (!ok)
        file.cancelWriting();
    ok = ok && file.commit();
    if (!ok) {
        showProblem(QStringLiteral("The document ") + quotedName(document->title()) +
                        QStringLiteral(" couldn’t be saved."),
                    file.errorString());
        return false;
    }
    if (existed)
        QFile::setPermissions(real, permissions);

    document->setPath(target);
    document->setEncoding(encoding);
    document->setSavedText(text);
    document->diskStamp = FileStamp::read(target);
    document->setDiskState(DiskState::current);
    dropAutosave(document);
    addRecentFile(target);
    scheduleAutosave();
    watchFiles();
    return true;
}

void DocumentStore::saveEach(QList<QPointer<EditorDocument>> documents, Completion done)
{
    while (!documents.isEmpty() && !documents.first())
        documents.removeFirst();
    if (documents.isEmpty()) {
        done(true);
        return;
    }
    QPointer<EditorDocument> first = documents.takeFirst();
    save(first, false, [self = QPointer<DocumentStore>(this), documents, done](bool ok) {
        if (!ok || !self) {
            done(false);
            return;
        }
        self->saveEach(documents, done);
    });
}

void DocumentStore::saveAll(Completion done)
{
    if (!done)
        done = [](bool) {};
    QList<QPointer<EditorDocument>> pending;
    for (EditorDocument *document : scripts())
        if (document->needsSave())
            pending.append(document);
    if (pending.isEmpty()) {
        doBeep();
        done(true);
        return;
    }
    saveEach(pending, std::move(done));
}

void DocumentStore::reviewUnsaved(const QList<EditorDocument *> &documents, Completion done)
{
    if (documents.isEmpty()) {
        done(true);
        return;
    }
    Alert alert;
    alert.text = QStringLiteral("Your changes will be lost if you don’t save them.");
    if (documents.size() == 1) {
        const EditorDocument *document = documents.first();
        const QString title = quotedName(document->title());
        if (document->text() == document->savedText()) {
            alert.title = title + QStringLiteral(" was deleted. Do you want to save it again?");
            alert.text = QStringLiteral("Its text will be lost if you don’t save it.");
        } else {
            alert.title = QStringLiteral("Do you want to save the changes you made to ") + title + u'?';
        }
        alert.buttons = {QStringLiteral("Save"), QStringLiteral("Cancel"), QStringLiteral("Don’t Save")};
    } else {
        alert.title =
            QStringLiteral("Do you want to save the changes you made to %1 documents?").arg(documents.size());
        alert.buttons = {QStringLiteral("Save All"), QStringLiteral("Cancel"), QStringLiteral("Don’t Save")};
    }
    QList<QPointer<EditorDocument>> guarded;
    for (EditorDocument *document : documents)
        guarded.append(document);
    alert.onChoice = [self = QPointer<DocumentStore>(this), guarded, done](int choice) {
        if (choice == 0 && self)
            self->saveEach(guarded, done);
        else
            done(choice == 2);
    };
    ask(alert);
}

// ---- Outside changes

void DocumentStore::reload(EditorDocument *document)
{
    if (!document || !document->path())
        return;
    const FileRead read = readFile(*document->path());
    const QString title = quotedName(document->title());
    if (read.readFailed) {
        showProblem(title + QStringLiteral(" can’t be read."), read.error);
        return;
    }
    if (!read.decoded) {
        showProblem(title + QStringLiteral(" can’t be opened as text."),
                    QStringLiteral("The file now contains binary data."));
        return;
    }
    document->load(*read.decoded, FileStamp::read(*document->path()));
    dropAutosave(document);
    scheduleAutosave();
    watchFiles();
}

void DocumentStore::revert(EditorDocument *document)
{
    if (!document || !document->path() ||
        (!document->isDirty() && document->diskState() == DiskState::current)) {
        doBeep();
        return;
    }
    Alert alert;
    alert.title = QStringLiteral("Do you want to revert ") + quotedName(document->title()) +
                  QStringLiteral(" to the saved version?");
    alert.text = QStringLiteral("Your current changes will be lost.");
    alert.buttons = {QStringLiteral("Revert"), QStringLiteral("Cancel")};
    alert.onChoice = [self = QPointer<DocumentStore>(this),
                      guarded = QPointer<EditorDocument>(document)](int choice) {
        if (self && guarded && choice == 0)
            self->reload(guarded);
    };
    ask(alert);
}

void DocumentStore::keepMine(EditorDocument *document)
{
    if (!document || !document->path())
        return;
    document->diskStamp = FileStamp::read(*document->path());
    document->setDiskState(DiskState::current);
}

void DocumentStore::checkDisk()
{
    for (EditorDocument *document : scripts()) {
        if (!document->path())
            continue;
        const std::optional<FileStamp> stamp = FileStamp::read(*document->path());
        switch (FileStamp::change(document->diskStamp, stamp)) {
        case FileStamp::Change::unchanged:
            if (!document->diskStamp)
                document->diskStamp = stamp;
            if (document->diskState() == DiskState::deleted)
                document->setDiskState(DiskState::current);
            break;
        case FileStamp::Change::modified:
            if (!document->isDirty()) {
                const FileRead read = readFile(*document->path());
                // What can't be read now stays as it is; a later check tries again.
                if (read.decoded)
                    document->load(*read.decoded, stamp);
            } else {
                document->setDiskState(DiskState::changed);
            }
            break;
        case FileStamp::Change::deleted:
            document->setDiskState(DiskState::deleted);
            break;
        }
    }
    watchFiles();
}

void DocumentStore::refreshDataViews()
{
    // An open grid follows its object as code changes it; it keeps its cells until new ones come.
    for (const OpenItem &entry : m_items)
        if (entry.data)
            entry.data->reload();
    checkDisk();
}

void DocumentStore::watchFiles()
{
    QStringList wanted;
    for (EditorDocument *document : scripts()) {
        if (!document->path())
            continue;
        // The folder too: a save by rename replaces the file the watch was on, and a deleted file
        // that comes back is seen only there.
        const QString folder = QFileInfo(*document->path()).absolutePath();
        if (QFileInfo(folder).isDir())
            wanted.append(folder);
        if (QFileInfo::exists(*document->path()))
            wanted.append(*document->path());
    }
    wanted.removeDuplicates();
    QStringList watched = m_watcher.files() + m_watcher.directories();
    QStringList stale;
    for (const QString &path : watched)
        if (!wanted.contains(path))
            stale.append(path);
    if (!stale.isEmpty())
        m_watcher.removePaths(stale);
    QStringList fresh;
    for (const QString &path : wanted)
        if (!watched.contains(path))
            fresh.append(path);
    if (!fresh.isEmpty())
        m_watcher.addPaths(fresh);
}

// ---- Closing

void DocumentStore::close(const QUuid &id)
{
    const std::optional<OpenItem> entry = item(id);
    if (!entry)
        return;
    if (entry->script && entry->script->needsSave()) {
        if (isAsking()) {
            doBeep();
            return;
        }
        select(id);
        reviewUnsaved({entry->script}, [self = QPointer<DocumentStore>(this), id](bool ok) {
            if (self && ok)
                self->remove(id);
        });
        return;
    }
    remove(id);
}

void DocumentStore::remove(const QUuid &id)
{
    qsizetype index = -1;
    for (qsizetype i = 0; i < m_items.size(); ++i)
        if (m_items[i].id() == id)
            index = i;
    if (index < 0)
        return;
    const OpenItem entry = m_items.takeAt(index);
    if (entry.data) {
        emit dataViewClosed(entry.data->expr(), entry.data->holdsPinnedObject());
        entry.data->deleteLater();
    }
    if (entry.script) {
        dropAutosave(entry.script);
        entry.script->deleteLater();
    }
    if (m_selectedID == id) {
        m_selectedID.reset();
        if (!m_items.isEmpty())
            m_selectedID = m_items[std::min(index, m_items.size() - 1)].id();
        emit selectionChanged();
    }
    emit itemsChanged();
    watchFiles();
    scheduleAutosave();
}

void DocumentStore::putAway(const QList<QUuid> &ids)
{
    bool changed = false;
    for (const QUuid &id : ids) {
        for (qsizetype i = 0; i < m_items.size(); ++i) {
            if (m_items[i].id() != id)
                continue;
            const OpenItem entry = m_items.takeAt(i);
            if (entry.script)
                entry.script->deleteLater();
            if (entry.data)
                entry.data->deleteLater();
            changed = true;
            break;
        }
    }
    if (!changed)
        return;
    if (m_selectedID && !item(*m_selectedID)) {
        m_selectedID = m_items.isEmpty() ? std::nullopt : std::optional<QUuid>(m_items.last().id());
        emit selectionChanged();
    }
    emit itemsChanged();
    watchFiles();
}

void DocumentStore::fileMoved(const QString &from, const QString &to)
{
    const QString source = standardised(from);
    const QString destination = standardised(to);
    for (EditorDocument *document : scripts()) {
        if (!document->path())
            continue;
        const QString &path = *document->path();
        if (path == source)
            document->setPath(destination);
        else if (path.startsWith(source + u'/'))
            document->setPath(destination + path.mid(source.size()));
        else
            continue;
        document->diskStamp = FileStamp::read(*document->path());
    }
    watchFiles();
    scheduleAutosave();
}

// ---- Autosave and session

void DocumentStore::dropAutosave(EditorDocument *document)
{
    // Through the writer, so that a write of this file still waiting can't bring it back.
    if (document->autosaveName)
        m_autosaves.remove(*document->autosaveName);
    document->autosaveName.reset();
    document->autosavedEdits = -1;
}

void DocumentStore::setAutosaveDelays(std::chrono::milliseconds quiet, std::chrono::milliseconds longest)
{
    m_autosaveTimer.setInterval(quiet);
    m_autosaveDeadline.setInterval(longest);
}

void DocumentStore::scheduleAutosave()
{
    if (!m_sessionKey || m_restoringSession)
        return;
    m_autosaveTimer.start();
    // Every key restarts the quiet wait; the deadline runs from the first change not yet written.
    if (!m_autosaveDeadline.isActive())
        m_autosaveDeadline.start();
}

void DocumentStore::flushAutosave()
{
    m_autosaveTimer.stop();
    m_autosaveDeadline.stop();
    if (!m_sessionKey)
        return;
    for (EditorDocument *document : scripts()) {
        if (!document->isDirty()) {
            if (document->autosaveName && SessionFiles::isAutosaveName(*document->autosaveName))
                m_autosaves.remove(*document->autosaveName);
            document->autosaveName.reset();
            document->autosavedEdits = -1;
            continue;
        }
        if (!document->autosaveName)
            document->autosaveName = SessionFiles::autosaveName(document->id());
        else if (document->autosavedEdits == document->edits())
            continue;
        // Counted as written when handed over; a failed write puts the count back, so the next
        // flush tries again.
        const int before = document->autosavedEdits;
        const int handed = document->edits();
        document->autosavedEdits = handed;
        m_autosaves.write(*document->autosaveName, document->text(),
                          [this, target = QPointer<EditorDocument>(document), before, handed] {
                              if (!target || target->autosavedEdits != handed)
                                  return;
                              target->autosavedEdits = before;
                              scheduleAutosave();
                          });
    }
    if (!m_restoringSession)
        m_autosaves.writeSession(sessionState(), *m_sessionKey);
}

void DocumentStore::finishAutosaves()
{
    m_autosaves.finish();
}

SessionState DocumentStore::sessionState() const
{
    SessionState state;
    for (const OpenItem &entry : m_items) {
        // Data views are not stored: their objects live in an R session that is gone by then.
        if (!entry.script)
            continue;
        const EditorDocument *document = entry.script;
        SessionState::Tab tab;
        tab.path = document->path();
        // Only a name whose file holds the text; one about to be written comes with the next flush.
        if (document->autosaveName && document->autosavedEdits >= 0)
            tab.autosave = document->autosaveName;
        tab.untitledIndex = document->untitledIndex();
        tab.suggestedName = document->suggestedName();
        if (!document->breakpoints().isEmpty()) {
            QList<int> lines = document->breakpoints().values();
            std::sort(lines.begin(), lines.end());
            tab.breakpoints = lines;
        }
        tab.stamp = document->diskStamp;
        if (m_selectedID == document->id())
            state.selectedIndex = int(state.tabs.size());
        state.tabs.append(std::move(tab));
    }
    return state;
}

EditorDocument *DocumentStore::restoredDocument(const SessionState::Tab &tab)
{
    const std::optional<QString> autosaved = tab.autosave ? AutosaveStore::read(*tab.autosave) : std::nullopt;
    auto *document = new EditorDocument(this);
    if (tab.path) {
        if (!QFileInfo(*tab.path).isAbsolute() || script(*tab.path)) {
            delete document;
            return nullptr;
        }
        const QString path = standardised(*tab.path);
        document->setPath(path);
        const std::optional<FileStamp> stamp = FileStamp::read(path);
        std::optional<DecodedText> decoded;
        if (stamp && stamp->size.value_or(0) <= editorSizeLimit)
            decoded = readFile(path).decoded;
        if (!decoded && !autosaved) {
            // Nothing to show: the file is gone or no longer text, and no unsaved text was kept.
            delete document;
            return nullptr;
        }
        if (decoded)
            document->load(*decoded, stamp);
        if (autosaved) {
            document->replaceText(*autosaved);
            if (!decoded) {
                // The saved version is unknown: keep the text dirty, so its autosave is never dropped.
                document->diskStamp = tab.stamp;
                document->setDiskState(stamp ? DiskState::changed : DiskState::deleted);
            } else if (FileStamp::change(tab.stamp, stamp) == FileStamp::Change::modified &&
                       document->isDirty()) {
                // Changed on disk under unsaved text: the user decides, as with any outside change.
                document->diskStamp = tab.stamp;
                document->setDiskState(DiskState::changed);
            }
        }
    } else {
        int index = tab.untitledIndex;
        if (index <= 0)
            index = m_untitledCounter + 1;
        document->setUntitledIndex(index);
        document->setSuggestedName(tab.suggestedName);
        if (autosaved)
            document->replaceText(*autosaved);
        m_untitledCounter = std::max(m_untitledCounter, index);
    }
    if (autosaved && document->isDirty()) {
        document->autosaveName = tab.autosave;
        document->autosavedEdits = document->edits();
    }
    if (tab.breakpoints)
        document->setBreakpoints(QSet<int>(tab.breakpoints->begin(), tab.breakpoints->end()));
    adopt(document);
    return document;
}

void DocumentStore::restore(const SessionState &state)
{
    m_restoringSession = true;
    std::optional<QUuid> toSelect;
    bool added = false;
    for (qsizetype i = 0; i < state.tabs.size(); ++i) {
        EditorDocument *document = restoredDocument(state.tabs[i]);
        if (!document)
            continue;
        m_items.append(OpenItem{document, nullptr});
        added = true;
        if (state.selectedIndex == i)
            toSelect = document->id();
    }
    m_restoringSession = false;
    if (!added)
        return;
    emit itemsChanged();
    if (!toSelect && !m_selectedID && !m_items.isEmpty())
        toSelect = m_items.last().id();
    if (toSelect)
        select(toSelect);
    watchFiles();
}

void DocumentStore::beginSession(const QString &key)
{
    if (m_sessionKey == key)
        return;
    if (m_sessionKey) {
        flushAutosave();
        finishAutosaves();
        QList<QUuid> ids;
        for (const OpenItem &entry : m_items)
            ids.append(entry.id());
        putAway(ids);
    }
    m_sessionKey = key;
    if (const std::optional<SessionState> state = AutosaveStore::readSession(key))
        restore(*state);
}

void DocumentStore::endSession()
{
    flushAutosave();
    finishAutosaves();
}
