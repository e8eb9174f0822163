// The open tabs of one workspace, scripts and data views, in tab order with one selected. The only
// place that opens, saves, reverts, reloads and closes scripts, watches their files for outside
// changes, and autosaves dirty texts. Questions go out as data (`presentAlert`), so a test can answer
// them; so do the open and save dialogs.
#pragma once

#include "AutosaveQueue.h"
#include "Base/Alert.h"
#include "Base/SessionFiles.h"
#include "DataDocument.h"
#include "EditorDocument.h"
#include "FileTypes.h"

#include <QFileSystemWatcher>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QTimer>

#include <chrono>
#include <functional>
#include <optional>

class Settings;

// A tab: a script or a data view. Its identity is the id of what it holds.
struct OpenItem {
    EditorDocument *script = nullptr;
    DataDocument *data = nullptr;

    QUuid id() const { return script ? script->id() : data ? data->id() : QUuid(); }
    QString title() const { return script ? script->title() : data ? data->title() : QString(); }
};

class DocumentStore : public QObject {
    Q_OBJECT
public:
    using Completion = std::function<void(bool)>;

    // Files above this many bytes are not opened in the editor; decimal on purpose.
    static constexpr qint64 editorSizeLimit = 50'000'000;
    // Unsaved text is written once edits pause this long, and at the latest this long after the
    // first edit the written text lacks, however steadily the user types.
    static constexpr std::chrono::milliseconds autosaveQuietDelay{2000};
    static constexpr std::chrono::milliseconds autosaveLongestDelay{5000};

    explicit DocumentStore(Settings &settings, QObject *parent = nullptr);
    ~DocumentStore() override;

    // The folder of the open project, where open and save dialogs start; the workspace keeps it.
    void setProjectFolder(const std::optional<QString> &folder) { m_projectFolder = folder; }
    const std::optional<QString> &projectFolder() const { return m_projectFolder; }

    // How the store reaches the user. Unset hooks mean: no question can be asked (nothing is
    // discarded then), no dialog chosen, no beep.
    std::function<void(const Alert &)> presentAlert;
    std::function<std::optional<QString>(const QString &proposedName, const QString &folder)> chooseSavePath;
    std::function<QStringList(const QString &folder)> chooseOpenPaths;
    // The desktop's default application; false when none takes the file.
    std::function<bool(const QString &path)> openExternally;
    // The viewer pane; until there is one, the default application.
    std::function<void(const QString &path)> showInViewer;
    std::function<void(const QString &path)> importData;
    std::function<void()> beep;

    // Tabs.
    const QList<OpenItem> &items() const { return m_items; }
    QList<EditorDocument *> scripts() const;
    std::optional<QUuid> selectedID() const { return m_selectedID; }
    std::optional<OpenItem> selected() const;
    std::optional<OpenItem> item(const QUuid &id) const;
    void select(const std::optional<QUuid> &id);
    // The open document of a file, compared by standardised path.
    EditorDocument *script(const QString &path) const;
    int untitledCounter() const { return m_untitledCounter; }

    // Opening.
    void open(const QString &path, bool asText = false);
    void openPanel();
    EditorDocument *newScript(const QString &text = QString(),
                              const std::optional<QString> &suggestedName = std::nullopt);
    void reveal(const QString &path, int line);
    void openData(const QString &expr, const QString &title);

    // Saving. The completion tells whether the document was written.
    void save(EditorDocument *document, bool as = false, Completion done = {});
    void saveAll(Completion done = {});
    void reviewUnsaved(const QList<EditorDocument *> &documents, Completion done);

    // Outside changes.
    void revert(EditorDocument *document);
    void reload(EditorDocument *document);
    void keepMine(EditorDocument *document);

    // Closing.
    void close(const QUuid &id);
    void remove(const QUuid &id);
    // Takes tabs away without a question and without touching their autosave files, which the
    // stored session still names.
    void putAway(const QList<QUuid> &ids);
    void fileMoved(const QString &from, const QString &to);

    // Disk and session.
    void checkDisk();
    void refreshDataViews();
    void scheduleAutosave();
    // Hands every unsaved text and the session to the autosave writer; returns before they are on
    // disk.
    void flushAutosave();
    // Waits until what the writer was handed is on disk.
    void finishAutosaves();
    void setAutosaveDelays(std::chrono::milliseconds quiet, std::chrono::milliseconds longest);
    const std::optional<QString> &sessionKey() const { return m_sessionKey; }
    bool restoringSession() const { return m_restoringSession; }
    // Stores the tabs of the session in use, then restores those of `key`.
    void beginSession(const QString &key);
    void endSession();
    void restore(const SessionState &state);
    SessionState sessionState() const;

    // Whether a close or review question is waiting for its answer.
    bool isAsking() const { return m_asking > 0; }

signals:
    void itemsChanged();
    void selectionChanged();
    // Show the line of a document (one-based), as error links and the debugger ask.
    void revealRequested(EditorDocument *document, int line);
    // A data view went; R may let go of the object it pinned.
    void dataViewClosed(const QString &expr, bool heldPinnedObject);

private:
    FileOpenRoute routeByType(const QString &path) const;
    void openInEditor(const QString &path, bool isKnownText);
    void openOutside(const QString &path);
    void showProblem(const QString &title, const QString &detail);
    void ask(const Alert &alert);
    void doBeep();
    void addItem(const OpenItem &item, std::optional<qsizetype> replacing = std::nullopt);
    void adopt(EditorDocument *document);
    void addRecentFile(const QString &path);

    void saveTo(QPointer<EditorDocument> document, const QString &target, bool chosenInDialog,
                Completion done);
    void encodeAndWrite(QPointer<EditorDocument> document, const QString &target, Completion done);
    bool write(EditorDocument *document, const QString &target, const QByteArray &data,
               TextFileEncoding encoding);
    void saveEach(QList<QPointer<EditorDocument>> documents, Completion done);
    void dropAutosave(EditorDocument *document);
    EditorDocument *restoredDocument(const SessionState::Tab &tab);
    void watchFiles();

    Settings &m_settings;
    std::optional<QString> m_projectFolder;
    QList<OpenItem> m_items;
    std::optional<QUuid> m_selectedID;
    int m_untitledCounter = 0;
    std::optional<QString> m_sessionKey;
    bool m_restoringSession = false;
    int m_asking = 0;
    QTimer m_autosaveTimer;
    QTimer m_autosaveDeadline;
    AutosaveQueue m_autosaves{this};
    QTimer m_diskCheckTimer;
    QFileSystemWatcher m_watcher;
};
