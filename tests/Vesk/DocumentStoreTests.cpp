// The document store against files in a temporary folder: byte-exact round trips, outside
// changes, the questions of saving and closing, and autosave with restore after a crash.
#include "App/RecentProjects.h"
#include "App/SessionFiles.h"
#include "App/Settings.h"
#include "Documents/DocumentStore.h"
#include "TestSupport.h"
#include "TextFileCodec.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>

namespace {

QByteArray bytesOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeBytes(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
}

// Another program's save: new bytes and a later date, so the change shows even within a millisecond.
void writeOutside(const QString &path, const QByteArray &bytes)
{
    const QDateTime before = QFileInfo(path).lastModified();
    writeBytes(path, bytes);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    file.setFileTime((before.isValid() ? before : QDateTime::currentDateTime()).addSecs(5),
                     QFileDevice::FileModificationTime);
}

struct StoreFixture {
    QTemporaryDir dir;
    std::unique_ptr<Settings> settings;
    std::unique_ptr<DocumentStore> store;
    QList<DocumentStore::Alert> alerts;
    QStringList externallyOpened;
    std::optional<QString> savePath;
    int beeps = 0;

    StoreFixture()
    {
        QStandardPaths::setTestModeEnabled(true);
        settings = std::make_unique<Settings>(dir.filePath(QStringLiteral("settings.ini")));
        store = makeStore();
    }
    std::unique_ptr<DocumentStore> makeStore()
    {
        auto made = std::make_unique<DocumentStore>(*settings);
        made->presentAlert = [this](const DocumentStore::Alert &alert) { alerts.append(alert); };
        made->openExternally = [this](const QString &path) {
            externallyOpened.append(path);
            return true;
        };
        made->chooseSavePath = [this](const QString &, const QString &) { return savePath; };
        made->beep = [this] { ++beeps; };
        return made;
    }
    QString path(const QString &name) const { return dir.filePath(name); }
    QString file(const QString &name, const QByteArray &bytes)
    {
        writeBytes(path(name), bytes);
        return path(name);
    }
    EditorDocument *open(const QString &filePath)
    {
        store->open(filePath);
        return store->script(filePath);
    }
    // Answers the latest question with the button of that title.
    void answer(const QString &button)
    {
        ASSERT_FALSE(alerts.isEmpty());
        const DocumentStore::Alert alert = alerts.takeLast();
        const qsizetype index = alert.buttons.indexOf(button);
        ASSERT_GE(index, 0) << button.toStdString();
        alert.onChoice(int(index));
    }
    // The save's answer so far; one that waits for a question stays empty until it is answered.
    std::optional<bool> lastSaved;
    std::optional<bool> saved(EditorDocument *document, bool as = false)
    {
        lastSaved.reset();
        store->save(document, as, [this](bool ok) { lastSaved = ok; });
        return lastSaved;
    }
};

} // namespace

TEST(DocumentStoreFiles, EveryEncodingAndEndingSavesBackByteForByte)
{
    StoreFixture f;
    // Characters each encoding can hold: the euro sign only where Windows-1252 has it.
    const QString unicode = QStringLiteral("x <- \"café € 𝜋\"\ny <- 1\n\nz");
    const QString western = QStringLiteral("x <- \"café € ü\"\ny <- 1\n\nz");
    const QString latin = QStringLiteral("x <- \"café ü ÿ\"\ny <- 1\n\nz");
    int checked = 0;
    for (const TextFileEncoding::Case encoding : TextFileEncoding::allCases) {
        for (const LineEnding::Case ending : LineEnding::allCases) {
            const TextFileEncoding enc(encoding);
            const QString text = enc == TextFileEncoding::windows1252 ? western
                                 : enc == TextFileEncoding::latin1    ? latin
                                                                      : unicode;
            const auto bytes = TextFileCodec::encode(text, enc, ending);
            ASSERT_TRUE(bytes);
            const QString name = QStringLiteral("%1-%2.R").arg(enc.rawValue(), LineEnding(ending).rawValue());
            EditorDocument *document = f.open(f.file(name, *bytes));
            ASSERT_NE(document, nullptr) << name.toStdString();
            EXPECT_EQ(document->text(), text) << name.toStdString();
            EXPECT_EQ(document->lineEnding(), LineEnding(ending));
            // A Latin-1 file without the five undefined bytes reads as Windows-1252, and writes the same.
            if (enc != TextFileEncoding::latin1)
                EXPECT_EQ(document->encoding(), enc) << name.toStdString();
            EXPECT_EQ(f.saved(document), std::optional<bool>(true));
            EXPECT_EQ(bytesOf(f.path(name)), *bytes) << name.toStdString();
            ++checked;
        }
    }
    EXPECT_EQ(checked, 18);
    EXPECT_TRUE(f.alerts.isEmpty());

    // An edit keeps the file's form: CRLF and the BOM stay.
    EditorDocument *bom = f.store->script(f.path(QStringLiteral("utf8BOM-crlf.R")));
    bom->setText(bom->text() + QStringLiteral("\nw <- 2"));
    EXPECT_EQ(f.saved(bom), std::optional<bool>(true));
    const QByteArray written = bytesOf(f.path(QStringLiteral("utf8BOM-crlf.R")));
    EXPECT_TRUE(written.startsWith("\xEF\xBB\xBF"));
    EXPECT_TRUE(written.endsWith("z\r\nw <- 2"));
    EXPECT_FALSE(bom->needsSave());
}

TEST(DocumentStoreFiles, BinaryAndOversizedFilesAreRefusedInTheirWords)
{
    StoreFixture f;
    f.store->open(f.file(QStringLiteral("data.R"), QByteArray("abc\0def", 7)));
    ASSERT_EQ(f.alerts.size(), 1);
    EXPECT_EQ(f.alerts[0].title, QStringLiteral("“data.R” can’t be opened as text."));
    EXPECT_EQ(f.alerts[0].text, QStringLiteral("The file contains binary data."));
    EXPECT_TRUE(f.store->items().isEmpty());

    // An extension that says nothing: binary bytes go to the default application.
    const QString blob = f.file(QStringLiteral("blob.unknownext"), QByteArray("\x01\x02\x03\0\0", 5));
    f.store->open(blob);
    EXPECT_EQ(f.externallyOpened, QStringList{blob});
    f.store->open(f.file(QStringLiteral("notes.unknownext"), "plain words\n"));
    EXPECT_EQ(f.store->items().size(), 1);

    // The limit is decimal and inclusive: one byte more is refused before anything is read.
    const QString big = f.path(QStringLiteral("big.txt"));
    {
        QFile file(big);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_TRUE(file.resize(DocumentStore::editorSizeLimit + 1));
    }
    f.alerts.clear();
    f.store->open(big);
    ASSERT_EQ(f.alerts.size(), 1);
    EXPECT_EQ(f.alerts[0].title, QStringLiteral("“big.txt” is too large to edit."));
    EXPECT_EQ(f.alerts[0].text, QStringLiteral("Vesk opens text files up to 50 MB."));
    {
        QFile file(big);
        ASSERT_TRUE(file.resize(DocumentStore::editorSizeLimit));
    }
    f.alerts.clear();
    f.store->open(big);
    ASSERT_EQ(f.alerts.size(), 1);
    EXPECT_EQ(f.alerts[0].title, QStringLiteral("“big.txt” can’t be opened as text."))
        << "at the limit the file is read (and these zero bytes are binary)";
}

TEST(DocumentStoreFiles, OpeningReplacesAnEmptyUntitledTabAndSelectsKnownFiles)
{
    StoreFixture f;
    EditorDocument *untitled = f.store->newScript();
    EXPECT_EQ(untitled->title(), QStringLiteral("Untitled"));
    const QString a = f.file(QStringLiteral("a.R"), "a\n");
    EditorDocument *opened = f.open(a);
    ASSERT_EQ(f.store->items().size(), 1) << "the empty untitled tab made way";
    EXPECT_EQ(f.store->selectedID(), opened->id());
    EXPECT_EQ(RecentFiles::all(*f.settings), QStringList{a});

    EditorDocument *second = f.store->newScript(QStringLiteral("x"));
    EXPECT_EQ(second->title(), QStringLiteral("Untitled 2"));
    EXPECT_FALSE(second->needsSave()) << "an untitled document with its initial text is clean";
    f.store->open(a + QStringLiteral("/../a.R"));
    EXPECT_EQ(f.store->items().size(), 2) << "the same file by another spelling is the open tab";
    EXPECT_EQ(f.store->selectedID(), opened->id());
}

TEST(DocumentStoreDisk, OutsideChangesReloadAskOrMarkTheDocument)
{
    StoreFixture f;
    const QString path = f.file(QStringLiteral("s.R"), "one\n");
    EditorDocument *document = f.open(path);

    // Clean: reloads silently.
    writeOutside(path, "two\n");
    f.store->checkDisk();
    EXPECT_EQ(document->text(), QStringLiteral("two\n"));
    EXPECT_EQ(document->diskState(), DiskState::current);

    // Dirty: the user decides; saving asks first, and "Cancel" changes nothing.
    document->setText(QStringLiteral("mine\n"));
    writeOutside(path, "theirs\n");
    f.store->checkDisk();
    EXPECT_EQ(document->diskState(), DiskState::changed);
    EXPECT_EQ(document->text(), QStringLiteral("mine\n"));
    EXPECT_EQ(f.saved(document), std::nullopt) << "waits for the answer";
    ASSERT_EQ(f.alerts.size(), 1);
    EXPECT_EQ(f.alerts[0].title, QStringLiteral("“s.R” changed on disk."));
    EXPECT_EQ(f.alerts[0].text, QStringLiteral("Another app changed the file since you opened it. Saving "
                                               "replaces those changes with yours."));
    f.answer(QStringLiteral("Cancel"));
    EXPECT_EQ(bytesOf(path), QByteArray("theirs\n"));
    EXPECT_EQ(document->diskState(), DiskState::changed);

    // Keep Mine forgets the outside change: the next save asks nothing.
    f.store->keepMine(document);
    EXPECT_EQ(document->diskState(), DiskState::current);
    EXPECT_EQ(f.saved(document), std::optional<bool>(true));
    EXPECT_TRUE(f.alerts.isEmpty());
    EXPECT_EQ(bytesOf(path), QByteArray("mine\n"));

    // "Save Anyway" writes over the change.
    document->setText(QStringLiteral("mine again\n"));
    writeOutside(path, "theirs again\n");
    EXPECT_EQ(f.saved(document), std::nullopt);
    f.answer(QStringLiteral("Save Anyway"));
    EXPECT_EQ(bytesOf(path), QByteArray("mine again\n"));

    // Reload takes the disk's version.
    document->setText(QStringLiteral("scratch\n"));
    writeOutside(path, "fresh\n");
    f.store->checkDisk();
    f.store->reload(document);
    EXPECT_EQ(document->text(), QStringLiteral("fresh\n"));
    EXPECT_FALSE(document->needsSave());

    // Revert asks first; a clean document has nothing to revert.
    f.store->revert(document);
    EXPECT_EQ(f.beeps, 1);
    document->setText(QStringLiteral("typo\n"));
    f.store->revert(document);
    ASSERT_EQ(f.alerts.size(), 1);
    EXPECT_EQ(f.alerts[0].title, QStringLiteral("Do you want to revert “s.R” to the saved version?"));
    EXPECT_EQ(f.alerts[0].text, QStringLiteral("Your current changes will be lost."));
    f.answer(QStringLiteral("Revert"));
    EXPECT_EQ(document->text(), QStringLiteral("fresh\n"));
}

TEST(DocumentStoreDisk, ADeletedFileShowsAsDeletedAndComesBack)
{
    StoreFixture f;
    const QString path = f.file(QStringLiteral("gone.R"), "text\n");
    EditorDocument *clean = f.open(path);
    const QByteArray bytes = bytesOf(path);
    const QDateTime date = QFileInfo(path).lastModified();
    ASSERT_TRUE(QFile::remove(path));
    f.store->checkDisk();
    EXPECT_EQ(clean->diskState(), DiskState::deleted);
    EXPECT_EQ(clean->text(), QStringLiteral("text\n")) << "the text stays";
    EXPECT_TRUE(clean->needsSave()) << "saving writes it again";

    // Closing it asks in the words for a deleted file.
    f.store->close(clean->id());
    ASSERT_EQ(f.alerts.size(), 1);
    EXPECT_EQ(f.alerts[0].title, QStringLiteral("“gone.R” was deleted. Do you want to save it again?"));
    EXPECT_EQ(f.alerts[0].text, QStringLiteral("Its text will be lost if you don’t save it."));
    f.answer(QStringLiteral("Cancel"));
    EXPECT_EQ(f.store->items().size(), 1);

    // Back with the same stamp: current again, and a dirty text stays dirty.
    clean->setText(QStringLiteral("edited\n"));
    writeBytes(path, bytes);
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        file.setFileTime(date, QFileDevice::FileModificationTime);
    }
    f.store->checkDisk();
    EXPECT_EQ(clean->diskState(), DiskState::current);
    EXPECT_TRUE(clean->isDirty());
}

TEST(DocumentStoreSave, UnencodableTextOffersUTF8)
{
    StoreFixture f;
    // Byte 81 is undefined in Windows-1252, so this file reads as Latin 1.
    const QString path = f.file(QStringLiteral("l1.R"), QByteArray("caf\xE9 \x81\n"));
    EditorDocument *document = f.open(path);
    ASSERT_EQ(document->encoding(), TextFileEncoding(TextFileEncoding::latin1));
    document->setText(document->text() + QStringLiteral("π\n"));

    EXPECT_EQ(f.saved(document), std::nullopt);
    ASSERT_EQ(f.alerts.size(), 1);
    EXPECT_EQ(f.alerts[0].title, QStringLiteral("“l1.R” can’t be saved as Western (ISO Latin 1)."));
    EXPECT_EQ(
        f.alerts[0].text,
        QStringLiteral("Some characters can’t be stored in this encoding. Save the file as UTF-8 instead?"));
    EXPECT_EQ(f.alerts[0].buttons, (QStringList{QStringLiteral("Save as UTF-8"), QStringLiteral("Cancel")}));
    f.answer(QStringLiteral("Cancel"));
    EXPECT_EQ(document->encoding(), TextFileEncoding(TextFileEncoding::latin1));
    EXPECT_EQ(bytesOf(path), QByteArray("caf\xE9 \x81\n"));

    std::optional<bool> result;
    f.store->save(document, false, [&](bool ok) { result = ok; });
    f.answer(QStringLiteral("Save as UTF-8"));
    EXPECT_EQ(result, std::optional<bool>(true));
    EXPECT_EQ(document->encoding(), TextFileEncoding(TextFileEncoding::utf8));
    EXPECT_EQ(bytesOf(path), QStringLiteral("café \u0081\nπ\n").toUtf8());
}

TEST(DocumentStoreSave, LinksStayLinksAndPermissionsStay)
{
    StoreFixture f;
    const QString target = f.file(QStringLiteral("real.sh"), "echo 1\n");
    ASSERT_TRUE(QFile::setPermissions(target, QFile::permissions(target) | QFileDevice::ExeOwner));
    const QString link = f.path(QStringLiteral("link.sh"));
    ASSERT_TRUE(QFile::link(target, link));
    EditorDocument *document = f.open(link);
    document->setText(QStringLiteral("echo 2\n"));
    EXPECT_EQ(f.saved(document), std::optional<bool>(true));
    EXPECT_TRUE(QFileInfo(link).isSymLink());
    EXPECT_EQ(bytesOf(target), QByteArray("echo 2\n"));
    EXPECT_TRUE(QFile::permissions(target) & QFileDevice::ExeOwner);
}

TEST(DocumentStoreClose, DirtyTabsAskAndTheAnswersDoWhatTheySay)
{
    StoreFixture f;
    EditorDocument *a = f.store->newScript();
    a->setText(QStringLiteral("x <- 1"));
    f.store->close(a->id());
    ASSERT_EQ(f.alerts.size(), 1);
    EXPECT_EQ(f.alerts[0].title, QStringLiteral("Do you want to save the changes you made to “Untitled”?"));
    EXPECT_EQ(f.alerts[0].text, QStringLiteral("Your changes will be lost if you don’t save them."));
    EXPECT_EQ(f.alerts[0].buttons,
              (QStringList{QStringLiteral("Save"), QStringLiteral("Cancel"), QStringLiteral("Don’t Save")}));
    // A second close while the question is up only beeps.
    f.store->close(a->id());
    EXPECT_EQ(f.beeps, 1);
    EXPECT_EQ(f.alerts.size(), 1);

    // "Save" runs the save dialog for an untitled document; cancelling it keeps the tab.
    f.answer(QStringLiteral("Save"));
    EXPECT_EQ(f.store->items().size(), 1);
    f.store->close(a->id());
    f.savePath = f.path(QStringLiteral("kept.R"));
    f.answer(QStringLiteral("Save"));
    EXPECT_TRUE(f.store->items().isEmpty());
    EXPECT_EQ(bytesOf(f.path(QStringLiteral("kept.R"))), QByteArray("x <- 1"));

    EditorDocument *b = f.store->newScript();
    EditorDocument *c = f.store->newScript();
    b->setText(QStringLiteral("b"));
    c->setText(QStringLiteral("c"));
    std::optional<bool> reviewed;
    f.store->reviewUnsaved({b, c}, [&](bool ok) { reviewed = ok; });
    EXPECT_EQ(f.alerts.last().title,
              QStringLiteral("Do you want to save the changes you made to 2 documents?"));
    EXPECT_EQ(f.alerts.last().buttons.first(), QStringLiteral("Save All"));
    f.answer(QStringLiteral("Don’t Save"));
    EXPECT_EQ(reviewed, std::optional<bool>(true));

    // Don't Save closes; the selection moves to the neighbour.
    f.store->select(b->id());
    f.store->close(b->id());
    f.answer(QStringLiteral("Don’t Save"));
    EXPECT_EQ(f.store->items().size(), 1);
    EXPECT_EQ(f.store->selectedID(), c->id());

    f.store->revert(c);
    EXPECT_EQ(f.beeps, 2) << "an untitled document has nothing to revert to";
}

TEST(DocumentStoreSession, UnsavedTextTabsAndSelectionSurviveACrash)
{
    StoreFixture f;
    const QString key = SessionFiles::key(f.dir.path());
    const QString path = f.file(QStringLiteral("analysis.R"), "x <- 1\n");
    const QString other = f.file(QStringLiteral("other.R"), "y <- 2\n");
    f.store->beginSession(key);
    EditorDocument *saved = f.open(path);
    f.open(other);
    EditorDocument *untitled = f.store->newScript();
    untitled->setText(QStringLiteral("plot(1:10)\n"));
    saved->setText(QStringLiteral("x <- 1\nsummary(x)\n"));
    saved->setBreakpoints({2});
    f.store->select(saved->id());

    // The timer writes two seconds after the last edit; nothing else is needed before the crash.
    ASSERT_TRUE(TestSupport::waitUntil([&] { return saved->autosavedEdits == saved->edits(); },
                                       std::chrono::seconds(6)));
    const QString untitledName = *untitled->autosaveName;
    EXPECT_TRUE(QFile::exists(AutosaveStore::autosaves() + u'/' + untitledName));
    EXPECT_FALSE(f.store->script(other)->autosaveName) << "a clean document has no autosave file";
    f.store.reset(); // no endSession: a crash

    f.store = f.makeStore();
    f.store->beginSession(key);
    const QList<EditorDocument *> scripts = f.store->scripts();
    ASSERT_EQ(scripts.size(), 3);
    EXPECT_EQ(scripts[0]->path(), std::optional<QString>(path));
    EXPECT_EQ(scripts[0]->text(), QStringLiteral("x <- 1\nsummary(x)\n"));
    EXPECT_EQ(scripts[0]->savedText(), QStringLiteral("x <- 1\n"));
    EXPECT_EQ(scripts[0]->breakpoints(), QSet<int>{2});
    EXPECT_EQ(scripts[1]->text(), QStringLiteral("y <- 2\n"));
    EXPECT_FALSE(scripts[1]->needsSave());
    EXPECT_EQ(scripts[2]->title(), QStringLiteral("Untitled"));
    EXPECT_EQ(scripts[2]->text(), QStringLiteral("plot(1:10)\n"));
    EXPECT_TRUE(scripts[2]->needsSave());
    EXPECT_EQ(f.store->selectedID(), scripts[0]->id());
    EXPECT_EQ(f.store->newScript()->title(), QStringLiteral("Untitled 2")) << "untitled numbers go on";

    // Closing with "Don’t Save" deletes the autosave file; saving deletes it as well.
    f.store->close(scripts[2]->id());
    f.answer(QStringLiteral("Don’t Save"));
    EXPECT_FALSE(QFile::exists(AutosaveStore::autosaves() + u'/' + untitledName));
    const QString savedName = *scripts[0]->autosaveName;
    EXPECT_EQ(f.saved(scripts[0]), std::optional<bool>(true));
    EXPECT_FALSE(QFile::exists(AutosaveStore::autosaves() + u'/' + savedName));
}

TEST(DocumentStoreSession, RestoreKeepsUnsavedTextWhenTheFileChangedOrWentAway)
{
    StoreFixture f;
    const QString key = SessionFiles::key(f.dir.filePath(QStringLiteral("project")));
    const QString changed = f.file(QStringLiteral("changed.R"), "old\n");
    const QString gone = f.file(QStringLiteral("gone.R"), "old\n");
    const QString untouched = f.file(QStringLiteral("untouched.R"), "same\n");
    f.store->beginSession(key);
    f.open(changed)->setText(QStringLiteral("mine\n"));
    f.open(gone)->setText(QStringLiteral("kept\n"));
    f.open(untouched);
    f.store->endSession();
    f.store.reset();

    writeOutside(changed, "theirs\n");
    ASSERT_TRUE(QFile::remove(gone));
    ASSERT_TRUE(QFile::remove(untouched));

    f.store = f.makeStore();
    f.store->beginSession(key);
    const QList<EditorDocument *> scripts = f.store->scripts();
    ASSERT_EQ(scripts.size(), 2) << "a missing file with no unsaved text is dropped";
    EXPECT_EQ(scripts[0]->text(), QStringLiteral("mine\n"));
    EXPECT_EQ(scripts[0]->savedText(), QStringLiteral("theirs\n"));
    EXPECT_EQ(scripts[0]->diskState(), DiskState::changed);
    EXPECT_EQ(scripts[1]->text(), QStringLiteral("kept\n"));
    EXPECT_EQ(scripts[1]->diskState(), DiskState::deleted);
    EXPECT_TRUE(scripts[1]->isDirty()) << "dirty, so the next flush keeps its autosave file";
    f.store->flushAutosave();
    EXPECT_TRUE(AutosaveStore::read(*scripts[1]->autosaveName));

    // Another project: these tabs are put away with their autosave files, and come back.
    const QString name = *scripts[1]->autosaveName;
    f.store->beginSession(SessionFiles::key(f.dir.filePath(QStringLiteral("elsewhere"))));
    EXPECT_TRUE(f.store->items().isEmpty());
    EXPECT_TRUE(AutosaveStore::read(name));
    f.store->beginSession(key);
    EXPECT_EQ(f.store->scripts().size(), 2);
}

TEST(SessionFiles, OnlyAutosaveNamesReachTheAutosaveFolder)
{
    EXPECT_TRUE(SessionFiles::isAutosaveName(SessionFiles::autosaveName(QUuid::createUuid())));
    EXPECT_FALSE(SessionFiles::isAutosaveName(QStringLiteral("../../x.txt")));
    EXPECT_FALSE(SessionFiles::isAutosaveName(
        QStringLiteral("{") + QUuid::createUuid().toString(QUuid::WithoutBraces) + QStringLiteral("}.txt")));
    EXPECT_FALSE(AutosaveStore::write(QStringLiteral("x"), QStringLiteral("../escape.txt")));
}

TEST(RecentList, TitlesTellEntriesOfOneNameApartByTheirFolders)
{
    const QStringList titles =
        RecentList::titles({QStringLiteral("/a/x/analysis"), QStringLiteral("/b/x/analysis"),
                            QStringLiteral("/c/report"), QStringLiteral("/d/analysis")});
    EXPECT_EQ(titles, (QStringList{QStringLiteral("analysis — a/x"), QStringLiteral("analysis — b/x"),
                                   QStringLiteral("report"), QStringLiteral("analysis — d")}));
}
