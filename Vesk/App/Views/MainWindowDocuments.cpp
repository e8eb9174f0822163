// MainWindow: the document tabs, the file tree, their menu commands and the dialogs of the store.
#include "App/EditorRun.h"
#include "App/Workspace.h"
#include "Base/RecentProjects.h"
#include "Base/Settings.h"
#include "Documents/DocumentStore.h"
#include "Documents/Views/DocumentTabs.h"
#include "Editor/CodeEditorController.h"
#include "Editor/Views/CodeEditorPane.h"
#include "Files/Views/FileTreeView.h"
#include "LineTarget.h"
#include "MainWindow.h"

#include <QAction>
#include <QApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QInputDialog>
#include <QMenu>
#include <QMenuBar>
#include <QSplitter>
#include <QUrl>

QWidget *MainWindow::buildDocumentArea(QWidget *console)
{
    m_fileTree = new FileTreeView(m_workspace, this);
    m_tabs = new DocumentTabs(m_workspace.documents(), &m_workspace, this);
    auto *column = new QSplitter(Qt::Vertical, this);
    column->addWidget(m_tabs);
    column->addWidget(console);
    column->setStretchFactor(0, 3);
    column->setStretchFactor(1, 2);
    column->setHandleWidth(1);
    column->setSizes({420, 300});
    auto *row = new QSplitter(Qt::Horizontal, this);
    row->addWidget(m_fileTree);
    row->addWidget(column);
    row->setStretchFactor(0, 0);
    row->setStretchFactor(1, 1);
    row->setHandleWidth(1);
    row->setSizes({200, 680});
    bindDocumentDialogs();
    return row;
}

void MainWindow::bindDocumentDialogs()
{
    DocumentStore &store = m_workspace.documents();
    store.chooseSavePath = [this](const QString &proposed, const QString &folder) -> std::optional<QString> {
        const QString path = QFileDialog::getSaveFileName(
            this, QStringLiteral("Save"), QDir(folder).filePath(proposed),
            QStringLiteral(
                "R Script (*.R *.r);;R Markdown (*.Rmd *.qmd *.rmarkdown);;Plain Text (*.txt);;All "
                "Files (*)"));
        return path.isEmpty() ? std::nullopt : std::optional<QString>(path);
    };
    store.chooseOpenPaths = [this](const QString &folder) {
        return QFileDialog::getOpenFileNames(this, QStringLiteral("Open"), folder);
    };
    store.openExternally = [](const QString &path) {
        return QDesktopServices::openUrl(QUrl::fromLocalFile(path));
    };
    store.beep = [] { QApplication::beep(); };
}

void MainWindow::addDocumentActions(QMenu *file)
{
    DocumentStore &store = m_workspace.documents();
    auto selectedScript = [&store]() -> EditorDocument * {
        const auto item = store.selected();
        return item ? item->script : nullptr;
    };
    file->addSeparator();
    QAction *newScript = file->addAction(QStringLiteral("New Script"));
    newScript->setShortcut(QKeySequence::New);
    connect(newScript, &QAction::triggered, this, [&store] { store.newScript(); });
    QAction *open = file->addAction(QStringLiteral("Open File…"));
    open->setShortcut(QKeySequence::Open);
    connect(open, &QAction::triggered, &store, &DocumentStore::openPanel);
    m_recentFiles = file->addMenu(QStringLiteral("Open Recent File"));
    file->addSeparator();
    QAction *save = file->addAction(QStringLiteral("Save"));
    save->setShortcut(QKeySequence::Save);
    connect(save, &QAction::triggered, this, [&store, selectedScript] {
        if (EditorDocument *document = selectedScript())
            store.save(document);
    });
    QAction *saveAs = file->addAction(QStringLiteral("Save As…"));
    saveAs->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S));
    connect(saveAs, &QAction::triggered, this, [&store, selectedScript] {
        if (EditorDocument *document = selectedScript())
            store.save(document, true);
    });
    QAction *saveAll = file->addAction(QStringLiteral("Save All"));
    saveAll->setShortcut(QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_S));
    connect(saveAll, &QAction::triggered, this, [&store] { store.saveAll(); });
    QAction *revert = file->addAction(QStringLiteral("Revert to Saved…"));
    connect(revert, &QAction::triggered, this, [&store, selectedScript] {
        if (EditorDocument *document = selectedScript())
            store.revert(document);
    });
    QAction *close = file->addAction(QStringLiteral("Close Tab"));
    close->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_W));
    connect(close, &QAction::triggered, this, [&store] {
        if (const auto id = store.selectedID())
            store.close(*id);
    });
    connect(&m_settings, &Settings::changed, this, [this](const QString &key) {
        if (key == Settings::recentFiles)
            updateRecentFiles();
    });
    updateRecentFiles();
}

void MainWindow::addCodeMenu()
{
    // The run commands on the selected script, for when its editor does not have the focus (the
    // editor itself takes these keys first while it has it).
    QMenu *code = menuBar()->addMenu(QStringLiteral("&Code"));
    auto selectedEditor = [this]() -> CodeEditorController * {
        const auto id = m_workspace.documents().selectedID();
        auto *view = id ? qobject_cast<CodeEditorPane *>(m_tabs->editorView(*id)) : nullptr;
        return view ? view->controller() : nullptr;
    };
    auto add = [&](const QString &title, QKeySequence shortcut, EditorCommand command) {
        QAction *action = code->addAction(title);
        action->setShortcut(shortcut);
        connect(action, &QAction::triggered, this, [this, selectedEditor, command] {
            if (CodeEditorController *editor = selectedEditor())
                EditorRun::perform(m_workspace, command, *editor);
        });
        return action;
    };
    add(QStringLiteral("Run Line or Selection"), QKeySequence(Qt::CTRL | Qt::Key_Return),
        EditorCommand::runLineOrSelection);
    add(QStringLiteral("Run Section"), QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_Return),
        EditorCommand::runSection);
    add(QStringLiteral("Run to Cursor"), QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_B),
        EditorCommand::runToCursor);
    add(QStringLiteral("Run All"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Return),
        EditorCommand::runAll);
    code->addSeparator();
    // Ctrl+Shift+S is Save As outside the editor; inside it, it sources.
    add(QStringLiteral("Source"), QKeySequence(), EditorCommand::source);
    QAction *knit = code->addAction(QStringLiteral("Knit Document"));
    knit->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_K));
    connect(knit, &QAction::triggered, this, [this, selectedEditor] {
        if (CodeEditorController *editor = selectedEditor())
            EditorRun::knit(m_workspace, *editor);
    });
    code->addSeparator();
    auto edit = [&](const QString &title, QKeySequence shortcut, auto act) {
        QAction *action = code->addAction(title);
        action->setShortcut(shortcut);
        connect(action, &QAction::triggered, this, [selectedEditor, act] {
            if (CodeEditorController *editor = selectedEditor())
                act(*editor);
        });
        return action;
    };
    edit(QStringLiteral("Reindent Lines"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_I),
         [](CodeEditorController &editor) { editor.reindentLines(); });
    QAction *chunk = edit(QStringLiteral("Insert Chunk"), QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_I),
                          [](CodeEditorController &editor) {
                              if (!editor.insertChunk())
                                  QApplication::beep();
                          });
    edit(QStringLiteral("Go to Line…"), QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_G),
         [this](CodeEditorController &editor) { goToLine(editor); });
    // Only scripts run, and only R Markdown knits and takes chunks.
    auto update = [this, code, knit, chunk] {
        const auto item = m_workspace.documents().selected();
        const bool script = item && item->script;
        for (QAction *action : code->actions())
            action->setEnabled(script);
        const bool markdown = script && item->script->language() == RSourceLanguage::rMarkdown;
        knit->setEnabled(markdown);
        chunk->setEnabled(markdown);
    };
    connect(&m_workspace.documents(), &DocumentStore::selectionChanged, code, update);
    connect(&m_workspace.documents(), &DocumentStore::itemsChanged, code, update);
    connect(code, &QMenu::aboutToShow, code, update);
    update();
}

void MainWindow::goToLine(CodeEditorController &editor)
{
    QPointer<CodeEditorController> target(&editor);
    auto *dialog = new QInputDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(QStringLiteral("Go to Line"));
    dialog->setLabelText(QStringLiteral("Line, or line:column:"));
    dialog->setTextValue(QStringLiteral("%1:%2").arg(editor.cursorLine()).arg(editor.cursorColumn()));
    connect(dialog, &QInputDialog::textValueSelected, this, [target](const QString &text) {
        const std::optional<LineTarget> line = LineTarget::parse(text);
        if (!target)
            return;
        if (!line) {
            QApplication::beep();
            return;
        }
        target->revealLine(int(std::min<qint64>(line->line, INT_MAX)),
                           int(std::min<qint64>(line->column.value_or(1), INT_MAX)));
        target->focus();
    });
    goToLineDialog = dialog;
    dialog->open();
}

void MainWindow::updateRecentFiles()
{
    m_recentFiles->clear();
    const QStringList files = RecentFiles::all(m_settings);
    const QStringList titles = RecentList::titles(files);
    for (qsizetype i = 0; i < files.size(); ++i) {
        const QString path = files[i];
        QAction *action = m_recentFiles->addAction(titles[i]);
        action->setToolTip(path);
        connect(action, &QAction::triggered, this, [this, path] { m_workspace.documents().open(path); });
    }
    if (!files.isEmpty()) {
        m_recentFiles->addSeparator();
        connect(m_recentFiles->addAction(QStringLiteral("Clear Menu")), &QAction::triggered, this,
                [this] { RecentFiles::clear(m_settings); });
    }
    m_recentFiles->setEnabled(!files.isEmpty());
}
