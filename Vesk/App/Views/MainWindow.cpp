#include "MainWindow.h"

#include "App/Workspace.h"
#include "App/WorkspacePackages.h"
#include "Base/RecentProjects.h"
#include "Base/Settings.h"
#include "Console/Views/ConsoleView.h"
#include "Panes/Views/PackagesPane.h"
#include "Plots/Views/PlotsPane.h"
#include "WorkspacePane.h"

#include <QAction>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QSplitter>
#include <QStatusBar>
#include <QTabWidget>

MainWindow::MainWindow(Workspace &workspace, Settings &settings, QWidget *parent)
    : QMainWindow(parent), m_workspace(workspace), m_settings(settings)
{
    m_console = new ConsoleView(m_workspace, this);
    m_pane = new WorkspacePane(m_workspace, this);
    auto *splitter = new QSplitter(Qt::Horizontal, this);
    splitter->addWidget(buildDocumentArea(m_console));
    // The inspector area: the workspace list and the plots, as tabs.
    m_plots = new PlotsPane(m_workspace, this);
    m_inspector = new QTabWidget(this);
    m_inspector->setDocumentMode(true);
    m_inspector->addTab(m_pane, QStringLiteral("Workspace"));
    m_inspector->addTab(m_plots, QStringLiteral("Plots"));
    m_inspector->addTab(new PackagesPane(workspacePackages(m_workspace), this), QStringLiteral("Packages"));
    connect(m_inspector, &QTabWidget::currentChanged, this, [this](int index) {
        m_workspace.setInspectorTab(m_inspector->widget(index) == m_plots
                                        ? std::optional(Workspace::InspectorTab::Plots)
                                        : std::nullopt);
    });
    connect(&m_workspace, &Workspace::inspectorTabChanged, this, [this] {
        if (m_workspace.inspectorTab() == Workspace::InspectorTab::Plots)
            m_inspector->setCurrentWidget(m_plots);
    });
    splitter->addWidget(m_inspector);
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 1);
    splitter->setHandleWidth(1);
    splitter->setSizes({880, 320});
    setCentralWidget(splitter);

    m_status = new QLabel(this);
    m_directory = new QLabel(this);
    statusBar()->addWidget(m_status, 1);
    statusBar()->addPermanentWidget(m_directory);
    buildMenus();

    // Alerts may come from inside a session event: they open without a nested event loop.
    m_workspace.presentAlert = [this](const Alert &alert) {
        auto *box = new QMessageBox(this);
        box->setAttribute(Qt::WA_DeleteOnClose);
        box->setIcon(QMessageBox::Warning);
        box->setText(alert.title);
        box->setInformativeText(alert.text);
        QList<QAbstractButton *> buttons;
        for (qsizetype i = 0; i < alert.buttons.size(); ++i)
            buttons.append(
                box->addButton(alert.buttons[i], i == 0 ? QMessageBox::AcceptRole : QMessageBox::RejectRole));
        if (!buttons.isEmpty())
            box->setDefaultButton(qobject_cast<QPushButton *>(buttons.first()));
        auto answered = std::make_shared<bool>(false);
        connect(box, &QMessageBox::buttonClicked, this,
                [buttons, answered, onChoice = alert.onChoice](QAbstractButton *button) {
                    *answered = true;
                    if (onChoice)
                        onChoice(int(buttons.indexOf(button)));
                });
        // Closed by its close box, the box reports no button: that answer is "Cancel", so a
        // question is never left without one.
        connect(box, &QDialog::finished, this, [answered, alert] {
            if (*answered || !alert.onChoice)
                return;
            *answered = true;
            alert.onChoice(int(alert.buttons.indexOf(QStringLiteral("Cancel"))));
        });
        box->open();
    };
    m_workspace.openExternally = [](const QUrl &url) { QDesktopServices::openUrl(url); };
    m_workspace.chooseFolder = [this](const QString &prompt) -> std::optional<QString> {
        QFileDialog dialog(this);
        dialog.setFileMode(QFileDialog::Directory);
        dialog.setOption(QFileDialog::ShowDirsOnly);
        dialog.setLabelText(QFileDialog::Accept, prompt);
        dialog.setDirectory(m_workspace.workingDirectory());
        if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
            return std::nullopt;
        return dialog.selectedFiles().first();
    };

    connect(&m_workspace, &Workspace::statusChanged, this, &MainWindow::updateStatus);
    connect(&m_workspace, &Workspace::workingDirectoryChanged, this, &MainWindow::updateStatus);
    connect(&m_workspace, &Workspace::projectChanged, this, &MainWindow::updateTitle);
    connect(&m_workspace.session(), &RSession::infoChanged, this, &MainWindow::updateStatus);
    connect(&m_settings, &Settings::changed, this, [this](const QString &key) {
        if (key == Settings::recentProjects)
            updateRecentProjects();
    });
    updateRecentProjects();
    updateStatus();
    updateTitle();
    resize(1200, 780);
}

void MainWindow::buildMenus()
{
    QMenu *file = menuBar()->addMenu(QStringLiteral("&File"));
    QAction *open = file->addAction(QStringLiteral("Open Project…"));
    open->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_O));
    connect(open, &QAction::triggered, this, [this] {
        const QString folder = QFileDialog::getExistingDirectory(this, QStringLiteral("Open Project"),
                                                                 m_workspace.workingDirectory());
        if (!folder.isEmpty())
            m_workspace.openProject(folder);
    });
    m_recent = file->addMenu(QStringLiteral("Open Recent"));
    addDocumentActions(file);
    file->addSeparator();
    QAction *settings = file->addAction(QStringLiteral("Settings…"));
    settings->setShortcut(QKeySequence::Preferences);
    settings->setMenuRole(QAction::PreferencesRole);
    connect(settings, &QAction::triggered, this, &MainWindow::settingsRequested);
    file->addSeparator();
    QAction *quit = file->addAction(QStringLiteral("Quit"));
    quit->setShortcut(QKeySequence::Quit);
    connect(quit, &QAction::triggered, this, &QWidget::close);

    addCodeMenu();

    QMenu *session = menuBar()->addMenu(QStringLiteral("&Session"));
    QAction *restart = session->addAction(QStringLiteral("Restart R"));
    restart->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_F10));
    connect(restart, &QAction::triggered, &m_workspace, &Workspace::restartR);
    QAction *interrupt = session->addAction(QStringLiteral("Interrupt R"));
    connect(interrupt, &QAction::triggered, &m_workspace, &Workspace::interrupt);
    QAction *clear = session->addAction(QStringLiteral("Clear Console"));
    clear->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_L));
    connect(clear, &QAction::triggered, &m_workspace.console(), &ConsoleModel::clear);
    session->addSeparator();
    QAction *directory = session->addAction(QStringLiteral("Set Working Directory…"));
    connect(directory, &QAction::triggered, &m_workspace, &Workspace::chooseWorkingDirectory);
    QAction *clearWorkspace = session->addAction(QStringLiteral("Clear Workspace…"));
    connect(clearWorkspace, &QAction::triggered, &m_workspace, &Workspace::confirmClearWorkspace);
}

void MainWindow::updateRecentProjects()
{
    m_recent->clear();
    const QStringList projects = RecentProjects::all(m_settings);
    for (const QString &path : projects) {
        QAction *action = m_recent->addAction(QFileInfo(path).fileName() + QStringLiteral("  —  ") + path);
        connect(action, &QAction::triggered, this, [this, path] { m_workspace.openProject(path); });
    }
    if (!projects.isEmpty()) {
        m_recent->addSeparator();
        connect(m_recent->addAction(QStringLiteral("Clear Menu")), &QAction::triggered, this,
                [this] { RecentProjects::clear(m_settings); });
    }
    m_recent->setEnabled(!projects.isEmpty());
}

void MainWindow::updateStatus()
{
    const RSession &session = m_workspace.session();
    const RSessionStatus &status = session.status();
    QString text = status.label();
    if (session.info() && status.kind != RSessionStatus::Kind::Stopped &&
        status.kind != RSessionStatus::Kind::NotStarted)
        text = QStringLiteral("R %1 · pid %2 · %3")
                   .arg(session.info()->version)
                   .arg(session.info()->pid)
                   .arg(text);
    m_status->setText(text);
    QString directory = m_workspace.workingDirectory();
    if (directory.startsWith(QDir::homePath()))
        directory = u'~' + directory.mid(QDir::homePath().size());
    m_directory->setText(directory);
}

void MainWindow::updateTitle()
{
    const auto &project = m_workspace.projectPath();
    setWindowTitle(project ? QStringLiteral("%1 — Vesk").arg(QFileInfo(*project).fileName())
                           : QStringLiteral("Vesk"));
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    if (m_workspace.isBusy()) {
        const bool close = confirmClose ? confirmClose() : [this] {
            QMessageBox box(this);
            box.setIcon(QMessageBox::Warning);
            box.setText(QStringLiteral("R is still running. Quit anyway?"));
            box.setInformativeText(QStringLiteral("Quitting stops the code that is running now."));
            QPushButton *quit = box.addButton(QStringLiteral("Quit"), QMessageBox::DestructiveRole);
            box.addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
            box.exec();
            return box.clickedButton() == quit;
        }();
        if (!close) {
            event->ignore();
            return;
        }
    }
    m_workspace.shutDown();
    event->accept();
}
