// The document store against files in a temporary folder: byte-exact round trips, outside
// changes, the questions of saving and closing, and autosave with restore after a crash.
#include "Base/RecentProjects.h"
#include "Base/SessionFiles.h"
#include "Base/Settings.h"
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

void writeBytes(const QString &path, const QByteArray &bytes, const QDateTime &modified = {})
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
    // Written out first, or the buffered write would stamp the file again on close.
    ASSERT_TRUE(file.flush());
    if (modified.isValid()) {
        ASSERT_TRUE(file.setFileTime(modified, QFileDevice::FileModificationTime));
    }
}

// Another program's save: new bytes and a later date, so the change shows even within a millisecond.
void writeOutside(const QString &path, const QByteArray &bytes)
{
    const QDateTime before = QFileInfo(path).lastModified();
    writeBytes(path, bytes, (before.isValid() ? before : QDateTime::currentDateTime()).addSecs(5));
}

struct StoreFixture {
    QTemporaryDir dir;
    std::unique_ptr<Settings> settings;
    std::unique_ptr<DocumentStore> store;
    QList<Alert> alerts;
    QStringList externallyOpened;
    std::optional<QString> savePath;
    int beeps = 0;

    StoreFixture()
    {
        QStandardPaths::setTestModeEnabled(true);
        settings = std::make_unique<Settings>(dir.filePath(u"settings.ini"_qs));
        store = makeStore();
    }
    std::unique_ptr<DocumentStore> makeStore()
    {
        auto made = std::make_unique<DocumentStore>(*settings);
        made->presentAlert = [this](const Alert &alert) { alerts.append(alert); };
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
    // Exactly one question is up, in these words.
    void expectAlert(const QString &title, const QString &text)
    {
        ASSERT_EQ(alerts.size(), 1);
        EXPECT_EQ(alerts[0].title, title);
        EXPECT_EQ(alerts[0].text, text);
    }
    // Answers the latest question with the button of that title.
    void answer(const QString &button)
    {
        ASSERT_FALSE(alerts.isEmpty());
        const Alert alert = alerts.takeLast();
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
    const QString unicode = u"x <- \"café € 𝜋\"\ny <- 1\n\nz"_qs;
    const QString western = u"x <- \"café € ü\"\ny <- 1\n\nz"_qs;
    const QString latin = u"x <- \"café ü ÿ\"\ny <- 1\n\nz"_qs;
    for (const TextFileEncoding::Case encoding : TextFileEncoding::allCases) {
        for (const LineEnding::Case ending : LineEnding::allCases) {
            const TextFileEncoding enc(encoding);
            const QString text = enc == TextFileEncoding::windows1252 ? western
                                 : enc == TextFileEncoding::latin1    ? latin
                                                                      : unicode;
            const auto bytes = TextFileCodec::encode(text, enc, ending);
            ASSERT_TRUE(bytes);
            const QString name = u"%1-%2.R"_qs.arg(enc.rawValue(), LineEnding(ending).rawValue());
            EditorDocument *document = f.open(f.file(name, *bytes));
            ASSERT_NE(document, nullptr) << name.toStdString();
            EXPECT_EQ(document->text(), text) << name.toStdString();
            EXPECT_EQ(document->lineEnding(), LineEnding(ending));
            // A Latin-1 file without the five undefined bytes reads as Windows-1252, and writes the same.
            if (enc != TextFileEncoding::latin1) {
                EXPECT_EQ(document->encoding(), enc) << name.toStdString();
            }
            EXPECT_EQ(f.saved(document), std::optional<bool>(true));
            EXPECT_EQ(TestSupport::readFile(f.path(name)), *bytes) << name.toStdString();
        }
    }
    EXPECT_TRUE(f.alerts.isEmpty());

    // An edit keeps the file's form: CRLF and the BOM stay.
    EditorDocument *bom = f.store->script(f.path(u"utf8BOM-crlf.R"_qs));
    bom->setText(bom->text() + u"\nw <- 2"_qs);
    EXPECT_EQ(f.saved(bom), std::optional<bool>(true));
    const QByteArray written = TestSupport::readFile(f.path(u"utf8BOM-crlf.R"_qs));
    EXPECT_TRUE(written.startsWith("\xEF\xBB\xBF"));
    EXPECT_TRUE(written.endsWith("z\r\nw <- 2"));
    EXPECT_FALSE(bom->needsSave());
}

TEST(DocumentStoreFiles, BinaryAndOversizedFilesAreRefusedInTheirWords)
{
    StoreFixture f;
    f.store->open(f.file(u"data.R"_qs, QByteArray("abc\0def", 7)));
    f.expectAlert(u"“data.R” can’t be opened as text."_qs, u"The file contains binary data."_qs);
    EXPECT_TRUE(f.store->items().isEmpty());

    // An extension that says nothing: binary bytes go to the default application.
    const QString blob = f.file(u"blob.unknownext"_qs, QByteArray("\x01\x02\x03\0\0", 5));
    f.store->open(blob);
    EXPECT_EQ(f.externallyOpened, QStringList{blob});
    f.store->open(f.file(u"notes.unknownext"_qs, "plain words\n"));
    EXPECT_EQ(f.store->items().size(), 1);

    // The limit is decimal and inclusive: one byte more is refused before anything is read.
    const QString big = f.file(u"big.txt"_qs, {});
    ASSERT_TRUE(QFile::resize(big, DocumentStore::editorSizeLimit + 1));
    f.alerts.clear();
    f.store->open(big);
    f.expectAlert(u"“big.txt” is too large to edit."_qs, u"Vesk opens text files up to 50 MB."_qs);
    ASSERT_TRUE(QFile::resize(big, DocumentStore::editorSizeLimit));
    f.alerts.clear();
    f.store->open(big);
    ASSERT_EQ(f.alerts.size(), 1);
    EXPECT_EQ(f.alerts[0].title, u"“big.txt” can’t be opened as text."_qs)
        << "at the limit the file is read (and these zero bytes are binary)";
}

TEST(DocumentStoreFiles, OpeningReplacesAnEmptyUntitledTabAndSelectsKnownFiles)
{
    StoreFixture f;
    EditorDocument *untitled = f.store->newScript();
    EXPECT_EQ(untitled->title(), u"Untitled"_qs);
    const QString a = f.file(u"a.R"_qs, "a\n");
    EditorDocument *opened = f.open(a);
    ASSERT_EQ(f.store->items().size(), 1) << "the empty untitled tab made way";
    EXPECT_EQ(f.store->selectedID(), opened->id());
    EXPECT_EQ(RecentFiles::all(*f.settings), QStringList{a});

    EditorDocument *second = f.store->newScript(u"x"_qs);
    EXPECT_EQ(second->title(), u"Untitled 2"_qs);
    EXPECT_FALSE(second->needsSave()) << "an untitled document with its initial text is clean";
    f.store->open(a + u"/../a.R"_qs);
    EXPECT_EQ(f.store->items().size(), 2) << "the same file by another spelling is the open tab";
    EXPECT_EQ(f.store->selectedID(), opened->id());
}

TEST(DocumentStoreDisk, OutsideChangesReloadAskOrMarkTheDocument)
{
    StoreFixture f;
    const QString path = f.file(u"s.R"_qs, "one\n");
    EditorDocument *document = f.open(path);

    // Clean: reloads silently.
    writeOutside(path, "two\n");
    f.store->checkDisk();
    EXPECT_EQ(document->text(), u"two\n"_qs);
    EXPECT_EQ(document->diskState(), DiskState::current);

    // Dirty: the user decides; saving asks first, and "Cancel" changes nothing.
    document->setText(u"mine\n"_qs);
    writeOutside(path, "theirs\n");
    f.store->checkDisk();
    EXPECT_EQ(document->diskState(), DiskState::changed);
    EXPECT_EQ(document->text(), u"mine\n"_qs);
    EXPECT_EQ(f.saved(document), std::nullopt) << "waits for the answer";
    f.expectAlert(
        u"“s.R” changed on disk."_qs,
        u"Another app changed the file since you opened it. Saving replaces those changes with yours."_qs);
    f.answer(u"Cancel"_qs);
    EXPECT_EQ(TestSupport::readFile(path), QByteArray("theirs\n"));
    EXPECT_EQ(document->diskState(), DiskState::changed);

    // Keep Mine forgets the outside change: the next save asks nothing.
    f.store->keepMine(document);
    EXPECT_EQ(document->diskState(), DiskState::current);
    EXPECT_EQ(f.saved(document), std::optional<bool>(true));
    EXPECT_TRUE(f.alerts.isEmpty());
    EXPECT_EQ(TestSupport::readFile(path), QByteArray("mine\n"));

    // "Save Anyway" writes over the change.
    document->setText(u"mine again\n"_qs);
    writeOutside(path, "theirs again\n");
    EXPECT_EQ(f.saved(document), std::nullopt);
    f.answer(u"Save Anyway"_qs);
    EXPECT_EQ(TestSupport::readFile(path), QByteArray("mine again\n"));

    // Revert asks first; a clean document has nothing to revert.
    f.store->revert(document);
    EXPECT_EQ(f.beeps, 1);
    document->setText(u"typo\n"_qs);
    f.store->revert(document);
    f.expectAlert(u"Do you want to revert “s.R” to the saved version?"_qs,
                  u"Your current changes will be lost."_qs);
    f.answer(u"Revert"_qs);
    EXPECT_EQ(document->text(), u"mine again\n"_qs);
}

TEST(DocumentStoreDisk, ADeletedFileShowsAsDeletedAndComesBack)
{
    StoreFixture f;
    const QString path = f.file(u"gone.R"_qs, "text\n");
    EditorDocument *clean = f.open(path);
    const QByteArray bytes = TestSupport::readFile(path);
    const QDateTime date = QFileInfo(path).lastModified();
    ASSERT_TRUE(QFile::remove(path));
    f.store->checkDisk();
    EXPECT_EQ(clean->diskState(), DiskState::deleted);
    EXPECT_EQ(clean->text(), u"text\n"_qs) << "the text stays";
    EXPECT_TRUE(clean->needsSave()) << "saving writes it again";

    // Closing it asks in the words for a deleted file.
    f.store->close(clean->id());
    f.expectAlert(u"“gone.R” was deleted. Do you want to save it again?"_qs,
                  u"Its text will be lost if you don’t save it."_qs);
    f.answer(u"Cancel"_qs);
    EXPECT_EQ(f.store->items().size(), 1);

    // Back with the same stamp: current again, and a dirty text stays dirty.
    clean->setText(u"edited\n"_qs);
    writeBytes(path, bytes, date);
    f.store->checkDisk();
    EXPECT_EQ(clean->diskState(), DiskState::current);
    EXPECT_TRUE(clean->isDirty());
}

TEST(DocumentStoreSave, UnencodableTextOffersUTF8)
{
    StoreFixture f;
    // Byte 81 is undefined in Windows-1252, so this file reads as Latin 1.
    const QString path = f.file(u"l1.R"_qs, QByteArray("caf\xE9 \x81\n"));
    EditorDocument *document = f.open(path);
    ASSERT_EQ(document->encoding(), TextFileEncoding(TextFileEncoding::latin1));
    document->setText(document->text() + u"π\n"_qs);

    EXPECT_EQ(f.saved(document), std::nullopt);
    f.expectAlert(u"“l1.R” can’t be saved as Western (ISO Latin 1)."_qs,
                  u"Some characters can’t be stored in this encoding. Save the file as UTF-8 instead?"_qs);
    EXPECT_EQ(f.alerts[0].buttons, (QStringList{u"Save as UTF-8"_qs, u"Cancel"_qs}));
    f.answer(u"Cancel"_qs);
    EXPECT_EQ(document->encoding(), TextFileEncoding(TextFileEncoding::latin1));
    EXPECT_EQ(TestSupport::readFile(path), QByteArray("caf\xE9 \x81\n"));

    EXPECT_EQ(f.saved(document), std::nullopt);
    f.answer(u"Save as UTF-8"_qs);
    EXPECT_EQ(f.lastSaved, std::optional<bool>(true));
    EXPECT_EQ(document->encoding(), TextFileEncoding(TextFileEncoding::utf8));
    EXPECT_EQ(TestSupport::readFile(path), u"café \u0081\nπ\n"_qs.toUtf8());
}

TEST(DocumentStoreSave, LinksStayLinksAndPermissionsStay)
{
    StoreFixture f;
    const QString target = f.file(u"real.sh"_qs, "echo 1\n");
    ASSERT_TRUE(QFile::setPermissions(target, QFile::permissions(target) | QFileDevice::ExeOwner));
    const QString link = f.path(u"link.sh"_qs);
    ASSERT_TRUE(QFile::link(target, link));
    EditorDocument *document = f.open(link);
    document->setText(u"echo 2\n"_qs);
    EXPECT_EQ(f.saved(document), std::optional<bool>(true));
    EXPECT_TRUE(QFileInfo(link).isSymLink());
    EXPECT_EQ(TestSupport::readFile(target), QByteArray("echo 2\n"));
    EXPECT_TRUE(QFile::permissions(target) & QFileDevice::ExeOwner);
}

TEST(DocumentStoreClose, DirtyTabsAskAndTheAnswersDoWhatTheySay)
{
    StoreFixture f;
    EditorDocument *a = f.store->newScript();
    a->setText(u"x <- 1"_qs);
    f.store->close(a->id());
    f.expectAlert(u"Do you want to save the changes you made to “Untitled”?"_qs,
                  u"Your changes will be lost if you don’t save them."_qs);
    EXPECT_EQ(f.alerts[0].buttons, (QStringList{u"Save"_qs, u"Cancel"_qs, u"Don’t Save"_qs}));
    // A second close while the question is up only beeps.
    f.store->close(a->id());
    EXPECT_EQ(f.beeps, 1);
    EXPECT_EQ(f.alerts.size(), 1);

    // "Save" runs the save dialog for an untitled document; cancelling it keeps the tab.
    f.answer(u"Save"_qs);
    EXPECT_EQ(f.store->items().size(), 1);
    f.store->close(a->id());
    f.savePath = f.path(u"kept.R"_qs);
    f.answer(u"Save"_qs);
    EXPECT_TRUE(f.store->items().isEmpty());
    EXPECT_EQ(TestSupport::readFile(f.path(u"kept.R"_qs)), QByteArray("x <- 1"));

    EditorDocument *b = f.store->newScript();
    EditorDocument *c = f.store->newScript();
    b->setText(u"b"_qs);
    c->setText(u"c"_qs);
    std::optional<bool> reviewed;
    f.store->reviewUnsaved({b, c}, [&](bool ok) { reviewed = ok; });
    EXPECT_EQ(f.alerts.last().title, u"Do you want to save the changes you made to 2 documents?"_qs);
    EXPECT_EQ(f.alerts.last().buttons.first(), u"Save All"_qs);
    f.answer(u"Don’t Save"_qs);
    EXPECT_EQ(reviewed, std::optional<bool>(true));

    // Don't Save closes; the selection moves to the neighbour.
    f.store->select(b->id());
    f.store->close(b->id());
    f.answer(u"Don’t Save"_qs);
    EXPECT_EQ(f.store->items().size(), 1);
    EXPECT_EQ(f.store->selectedID(), c->id());

    f.store->revert(c);
    EXPECT_EQ(f.beeps, 2) << "an untitled document has nothing to revert to";
}

TEST(DocumentStoreSession, UnsavedTextTabsAndSelectionSurviveACrash)
{
    StoreFixture f;
    const QString key = SessionFiles::key(f.dir.path());
    const QString path = f.file(u"analysis.R"_qs, "x <- 1\n");
    const QString other = f.file(u"other.R"_qs, "y <- 2\n");
    f.store->beginSession(key);
    EditorDocument *saved = f.open(path);
    f.open(other);
    EditorDocument *untitled = f.store->newScript();
    untitled->setText(u"plot(1:10)\n"_qs);
    saved->setText(u"x <- 1\nsummary(x)\n"_qs);
    saved->setBreakpoints({2});
    f.store->select(saved->id());

    // The timer writes two seconds after the last edit; nothing else is needed before the crash.
    ASSERT_TRUE(TestSupport::waitUntil([&] { return saved->autosavedEdits == saved->edits(); },
                                       std::chrono::seconds(6)));
    const auto autosaved = [](const QString &name) {
        return QFile::exists(AutosaveStore::autosaves() + u'/' + name);
    };
    const QString untitledName = *untitled->autosaveName;
    f.store->finishAutosaves();
    EXPECT_TRUE(autosaved(untitledName));
    EXPECT_FALSE(f.store->script(other)->autosaveName) << "a clean document has no autosave file";
    f.store.reset(); // no endSession: a crash

    f.store = f.makeStore();
    f.store->beginSession(key);
    const QList<EditorDocument *> scripts = f.store->scripts();
    ASSERT_EQ(scripts.size(), 3);
    EXPECT_EQ(scripts[0]->path(), std::optional<QString>(path));
    EXPECT_EQ(scripts[0]->text(), u"x <- 1\nsummary(x)\n"_qs);
    EXPECT_EQ(scripts[0]->savedText(), u"x <- 1\n"_qs);
    EXPECT_EQ(scripts[0]->breakpoints(), QSet<int>{2});
    EXPECT_EQ(scripts[1]->text(), u"y <- 2\n"_qs);
    EXPECT_FALSE(scripts[1]->needsSave());
    EXPECT_EQ(scripts[2]->title(), u"Untitled"_qs);
    EXPECT_EQ(scripts[2]->text(), u"plot(1:10)\n"_qs);
    EXPECT_TRUE(scripts[2]->needsSave());
    EXPECT_EQ(f.store->selectedID(), scripts[0]->id());
    EXPECT_EQ(f.store->newScript()->title(), u"Untitled 2"_qs) << "untitled numbers go on";

    // Closing with "Don’t Save" deletes the autosave file; saving deletes it as well.
    f.store->close(scripts[2]->id());
    f.answer(u"Don’t Save"_qs);
    f.store->finishAutosaves();
    EXPECT_FALSE(autosaved(untitledName));
    const QString savedName = *scripts[0]->autosaveName;
    EXPECT_EQ(f.saved(scripts[0]), std::optional<bool>(true));
    f.store->finishAutosaves();
    EXPECT_FALSE(autosaved(savedName));
}

TEST(DocumentStoreSession, RestoreKeepsUnsavedTextWhenTheFileChangedOrWentAway)
{
    StoreFixture f;
    const QString key = SessionFiles::key(f.dir.filePath(u"project"_qs));
    const QString changed = f.file(u"changed.R"_qs, "old\n");
    const QString gone = f.file(u"gone.R"_qs, "old\n");
    const QString untouched = f.file(u"untouched.R"_qs, "same\n");
    f.store->beginSession(key);
    f.open(changed)->setText(u"mine\n"_qs);
    f.open(gone)->setText(u"kept\n"_qs);
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
    EXPECT_EQ(scripts[0]->text(), u"mine\n"_qs);
    EXPECT_EQ(scripts[0]->savedText(), u"theirs\n"_qs);
    EXPECT_EQ(scripts[0]->diskState(), DiskState::changed);
    EXPECT_EQ(scripts[1]->text(), u"kept\n"_qs);
    EXPECT_EQ(scripts[1]->diskState(), DiskState::deleted);
    EXPECT_TRUE(scripts[1]->isDirty()) << "dirty, so the next flush keeps its autosave file";
    f.store->flushAutosave();
    f.store->finishAutosaves();
    EXPECT_TRUE(AutosaveStore::read(*scripts[1]->autosaveName));

    // Another project: these tabs are put away with their autosave files, and come back.
    const QString name = *scripts[1]->autosaveName;
    f.store->beginSession(SessionFiles::key(f.dir.filePath(u"elsewhere"_qs)));
    EXPECT_TRUE(f.store->items().isEmpty());
    EXPECT_TRUE(AutosaveStore::read(name));
    f.store->beginSession(key);
    EXPECT_EQ(f.store->scripts().size(), 2);
}

TEST(DocumentStoreSession, SteadyTypingIsWrittenBeforeItPauses)
{
    StoreFixture f;
    f.store->beginSession(SessionFiles::key(f.dir.path()));
    // The quiet delay as in use; a short longest delay keeps the test short.
    f.store->setAutosaveDelays(DocumentStore::autosaveQuietDelay, std::chrono::milliseconds(500));
    EditorDocument *document = f.store->newScript();
    QString typed;
    std::optional<QString> written;
    for (int key = 0; key < 60 && !written; ++key) {
        typed += QChar(u'a' + key % 26);
        document->setText(typed);
        TestSupport::spin(std::chrono::milliseconds(50));
        if (document->autosaveName)
            written = AutosaveStore::read(*document->autosaveName);
    }
    ASSERT_TRUE(written) << "nothing was written while the keys kept coming";
    EXPECT_FALSE(written->isEmpty());
    EXPECT_TRUE(typed.startsWith(*written)) << written->toStdString();
}

TEST(DocumentStoreSession, AutosaveFileEndsAsTheLastStepLeftIt)
{
    // A large text, so that its write is still on its way when the next step comes.
    const QString big(8'000'000, u'x');
    const struct {
        const char *steps; // w: a new text handed to the writer, c: closed without saving
        bool fileStays;
    } cases[] = {{"www", true}, {"wc", false}, {"wwc", false}};
    for (const auto &test : cases) {
        StoreFixture f;
        f.store->beginSession(SessionFiles::key(f.dir.path()));
        EditorDocument *document = f.store->newScript();
        const QString name = SessionFiles::autosaveName(document->id());
        QString last;
        for (const char *step = test.steps; *step; ++step) {
            if (*step == 'w') {
                last = big + QString::number(step - test.steps);
                document->setText(last);
                f.store->flushAutosave();
            } else {
                f.store->close(document->id());
                f.answer(u"Don’t Save"_qs);
            }
        }
        f.store->finishAutosaves();
        const std::optional<QString> kept = AutosaveStore::read(name);
        EXPECT_EQ(kept.has_value(), test.fileStays) << test.steps;
        if (test.fileStays && kept)
            EXPECT_TRUE(*kept == last) << test.steps;
    }
}

TEST(SessionFiles, FormerDataFolderMovesInWithoutOverwriting)
{
    QStandardPaths::setTestModeEnabled(true);
    QTemporaryDir dir;
    const QString former = dir.filePath(u"Vesk"_qs);
    const QString unique = QUuid::createUuid().toString(QUuid::WithoutBraces);
    const QString moved = AutosaveStore::autosaves() + u'/' + unique + u".txt"_qs;
    const QString kept = AutosaveStore::autosaves() + u"/k-"_qs + unique + u".txt"_qs;
    const QString history = u"History-"_qs + unique;
    for (const QString &folder :
         {former + u"/Autosave"_qs, former + u'/' + history, AutosaveStore::autosaves()})
        ASSERT_TRUE(QDir().mkpath(folder));
    TestSupport::writeFile(former + u"/Autosave"_qs, unique + u".txt"_qs, "moved");
    TestSupport::writeFile(former + u"/Autosave"_qs, u"k-"_qs + unique + u".txt"_qs, "old");
    TestSupport::writeFile(former + u'/' + history, u"h.json"_qs, "[]");
    TestSupport::writeFile(AutosaveStore::autosaves(), u"k-"_qs + unique + u".txt"_qs, "new");

    AutosaveStore::adoptFormerFolder(former);
    EXPECT_EQ(TestSupport::readFile(moved), QByteArray("moved"));
    EXPECT_EQ(TestSupport::readFile(kept), QByteArray("new")) << "what the new folder has stays";
    EXPECT_EQ(TestSupport::readFile(AutosaveStore::base() + u'/' + history + u"/h.json"_qs),
              QByteArray("[]"));
    EXPECT_EQ(TestSupport::readFile(former + u"/Autosave/k-"_qs + unique + u".txt"_qs), QByteArray("old"))
        << "what could not move is not lost";
    EXPECT_FALSE(QFile::exists(former + u'/' + history));

    // Once the former folder has nothing left, it goes.
    ASSERT_TRUE(QFile::remove(former + u"/Autosave/k-"_qs + unique + u".txt"_qs));
    AutosaveStore::adoptFormerFolder(former);
    EXPECT_FALSE(QFileInfo::exists(former));
    QFile::remove(moved);
    QFile::remove(kept);
    QDir(AutosaveStore::base() + u'/' + history).removeRecursively();
}

TEST(SessionFiles, OnlyAutosaveNamesReachTheAutosaveFolder)
{
    EXPECT_TRUE(SessionFiles::isAutosaveName(SessionFiles::autosaveName(QUuid::createUuid())));
    EXPECT_FALSE(SessionFiles::isAutosaveName(u"../../x.txt"_qs));
    EXPECT_FALSE(SessionFiles::isAutosaveName(u"{"_qs + QUuid::createUuid().toString(QUuid::WithoutBraces) +
                                              u"}.txt"_qs));
    EXPECT_FALSE(AutosaveStore::write(u"x"_qs, u"../escape.txt"_qs));
}

TEST(RecentList, TitlesTellEntriesOfOneNameApartByTheirFolders)
{
    const QStringList titles =
        RecentList::titles({u"/a/x/analysis"_qs, u"/b/x/analysis"_qs, u"/c/report"_qs, u"/d/analysis"_qs});
    EXPECT_EQ(titles,
              (QStringList{u"analysis — a/x"_qs, u"analysis — b/x"_qs, u"report"_qs, u"analysis — d"_qs}));
}
