#include "ConsoleView.h"

#include "App/Workspace.h"
#include "Base/Settings.h"
#include "ConsoleInput.h"
#include "ConsoleTranscriptView.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>
#include <QVBoxLayout>

ConsoleView::ConsoleView(Workspace &workspace, QWidget *parent) : QWidget(parent), m_workspace(workspace)
{
    m_transcript = new ConsoleTranscriptView(this);
    m_problem = new QLabel(this);
    m_problem->setObjectName(QStringLiteral("startupProblem"));
    m_problem->setWordWrap(true);
    m_problem->hide();

    auto *frame = new QFrame(this);
    frame->setObjectName(QStringLiteral("consoleInputFrame"));
    m_input = new ConsoleInput(frame);
    m_capsule = new QLabel(frame);
    m_capsule->setObjectName(QStringLiteral("activityCapsule"));
    m_capsule->hide();
    m_stop = new QToolButton(frame);
    m_stop->setText(QStringLiteral("■"));
    m_stop->setToolTip(QStringLiteral("Interrupt R"));
    m_stop->setAutoRaise(true);
    m_stop->hide();
    m_ask = new QToolButton(frame);
    m_ask->setObjectName(QStringLiteral("askToggle"));
    m_ask->setText(QStringLiteral("Ask"));
    m_ask->setCheckable(true);
    m_ask->setToolTip(QStringLiteral("Ask mode"));

    auto *bar = new QHBoxLayout;
    bar->setContentsMargins(0, 0, 0, 0);
    bar->addWidget(m_capsule);
    bar->addWidget(m_stop);
    bar->addStretch();
    bar->addWidget(m_ask);
    auto *frameLayout = new QVBoxLayout(frame);
    frameLayout->setContentsMargins(8, 6, 8, 6);
    frameLayout->setSpacing(4);
    frameLayout->addWidget(m_input);
    frameLayout->addLayout(bar);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 8);
    layout->setSpacing(6);
    layout->addWidget(m_transcript, 1);
    layout->addWidget(m_problem);
    auto *inputRow = new QHBoxLayout;
    inputRow->setContentsMargins(10, 0, 10, 0);
    inputRow->addWidget(frame);
    layout->addLayout(inputRow);

    m_transcript->setModel(&m_workspace.console());
    m_transcript->setPlots(&m_workspace.plots().store());
    connect(m_transcript, &ConsoleTranscriptView::plotActivated, &m_workspace.plots(), &WorkspacePlots::show);
    m_transcript->viewport()->installEventFilter(this);

    connect(m_input, &QPlainTextEdit::textChanged, this, [this] {
        if (!m_updatingInput)
            m_workspace.setConsoleInput(m_input->toPlainText());
    });
    connect(&m_workspace, &Workspace::consoleInputChanged, this, [this] {
        if (m_input->toPlainText() == m_workspace.consoleInput())
            return;
        m_updatingInput = true;
        m_input->setPlainText(m_workspace.consoleInput());
        m_input->moveCursor(QTextCursor::End);
        m_updatingInput = false;
    });
    connect(m_input, &ConsoleInput::submitted, &m_workspace, &Workspace::submitConsole);
    m_input->history = [this](bool back) {
        return m_workspace.consoleHistory(back ? Workspace::HistoryDirection::Back
                                               : Workspace::HistoryDirection::Forward);
    };
    m_input->followSettings(m_workspace.settings());
    connect(m_input, &ConsoleInput::interruptRequested, &m_workspace, &Workspace::interrupt);
    connect(m_stop, &QToolButton::clicked, &m_workspace, &Workspace::interrupt);
    connect(m_ask, &QToolButton::toggled, &m_workspace, &Workspace::setConsoleAskMode);
    connect(&m_workspace, &Workspace::consoleAskModeChanged, this, [this] {
        m_ask->setChecked(m_workspace.consoleAskMode());
        updateState();
    });
    connect(&m_workspace, &Workspace::statusChanged, this, &ConsoleView::updateState);
    connect(&m_workspace, &Workspace::startupProblemChanged, this, &ConsoleView::updateState);
    connect(&m_workspace.settings(), &Settings::changed, this, [this](const QString &key) {
        if (key == Settings::consoleFontSize)
            applyLook();
    });
    m_tick.setInterval(100);
    connect(&m_tick, &QTimer::timeout, this, &ConsoleView::updateCapsule);
    applyLook();
    updateState();
    m_input->setFocus();
}

void ConsoleView::applyLook()
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPointSizeF(m_workspace.settings().doubleValue(Settings::consoleFontSize));
    m_transcript->setFont(font);
    m_transcript->document()->setDefaultFont(font);
    m_input->setFont(font);
    m_transcript->rebuild();
    m_workspace.consoleResized(m_transcript->viewport()->width(), font.pointSizeF());
}

bool ConsoleView::eventFilter(QObject *watched, QEvent *event)
{
    // The transcript's own width decides R's line width, once its layout has settled.
    if (watched == m_transcript->viewport() && event->type() == QEvent::Resize)
        m_workspace.consoleResized(m_transcript->viewport()->width(), m_transcript->font().pointSizeF());
    return QWidget::eventFilter(watched, event);
}

void ConsoleView::updateState()
{
    m_input->setPlaceholderText(m_workspace.consolePlaceholder());
    // A visible placeholder whose text changes is not repainted by the widget itself.
    m_input->viewport()->update();
    m_problem->setVisible(m_workspace.startupProblem().has_value());
    m_problem->setText(m_workspace.startupProblem().value_or(QString()));
    const auto kind = m_workspace.session().status().kind;
    const bool active = kind == RSessionStatus::Kind::Starting || kind == RSessionStatus::Kind::Busy ||
                        kind == RSessionStatus::Kind::WaitingForInput ||
                        kind == RSessionStatus::Kind::Debugging;
    if (active && !m_tick.isActive())
        m_tick.start();
    else if (!active)
        m_tick.stop();
    updateCapsule();
}

void ConsoleView::updateCapsule()
{
    const RSession &session = m_workspace.session();
    const auto kind = session.status().kind;
    QString text;
    switch (kind) {
    case RSessionStatus::Kind::Starting:
    case RSessionStatus::Kind::WaitingForInput:
    case RSessionStatus::Kind::Debugging:
        text = session.status().label();
        break;
    case RSessionStatus::Kind::Busy:
        if (session.executionStarted()) {
            const double seconds = session.executionStarted()->msecsTo(QDateTime::currentDateTime()) / 1000.0;
            text = QStringLiteral("Running · %1 s").arg(seconds, 0, 'f', seconds < 60 ? 1 : 0);
            if (session.queuedExecutions() > 0)
                text += QStringLiteral(" · %1 queued").arg(session.queuedExecutions());
        }
        break;
    default:
        break;
    }
    m_capsule->setVisible(!text.isEmpty());
    m_capsule->setText(QStringLiteral("● ") + text);
    m_stop->setVisible(session.isExecuting());
}
