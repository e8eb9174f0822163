// The window's event-loop latency: every 10 ms a sampler thread posts a call to the main thread,
// and how late it runs is one sample (p50, p99, max). Measured while a 100,000-line script is opened
// in the main window and typed into, and while R pours a million lines into its console; and how long
// the open of that script holds the main thread, when its first screen is painted and when all of
// its text is in the editor. A thread posts, not a timer of the main thread, so that a long
// blockage delays every sample taken during it.
#include "App/Views/MainWindow.h"
#include "BenchFigures.h"
#include "BenchScript.h"
#include "Documents/DocumentStore.h"
#include "Editor/Views/CodeEditor.h"
#include "LiveWorkspace.h"
#include "TestSupport.h"

#include <QApplication>
#include <QEventLoop>
#include <QKeyEvent>
#include <QTextBlock>
#include <QTimer>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

class LatencyProbe : public QObject {
public:
    void start()
    {
        m_running = true;
        m_sampler = std::thread([this] {
            while (m_running) {
                const auto posted = Clock::now();
                QMetaObject::invokeMethod(
                    this,
                    [this, posted] {
                        const std::lock_guard lock(m_mutex);
                        m_delays.push_back(
                            std::chrono::duration<double, std::milli>(Clock::now() - posted).count());
                    },
                    Qt::QueuedConnection);
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        });
    }
    // Stops sampling once what was posted has run; prints the figures under `name`.
    void report(const char *name)
    {
        m_running = false;
        m_sampler.join();
        QCoreApplication::processEvents();
        const std::lock_guard lock(m_mutex);
        std::vector<double> delays = m_delays;
        m_delays.clear();
        std::sort(delays.begin(), delays.end());
        const auto at = [&delays](double p) {
            return delays.empty() ? 0.0
                                  : delays[std::min(delays.size() - 1, size_t(p * double(delays.size())))];
        };
        const QByteArray prefix(name);
        printFigure((prefix + "_p50").constData(), at(0.5), "ms");
        printFigure((prefix + "_p99").constData(), at(0.99), "ms");
        printFigure((prefix + "_max").constData(), delays.empty() ? 0.0 : delays.back(), "ms");
        printFigure((prefix + "_samples").constData(), double(delays.size()), "count");
    }

private:
    std::atomic<bool> m_running = false;
    std::thread m_sampler;
    std::mutex m_mutex;
    std::vector<double> m_delays;
};

CodeEditor *scriptEditor(MainWindow &window)
{
    for (CodeEditor *editor : window.findChildren<CodeEditor *>())
        if (editor->session()->mode() == EditorMode::document && editor->isVisible())
            return editor;
    return nullptr;
}

// Notes when a widget is first painted: the call it posts from the paint event runs once that
// painting is done.
class FirstPaint : public QObject {
public:
    explicit FirstPaint(QWidget *widget) { widget->installEventFilter(this); }
    std::optional<Clock::time_point> painted;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Paint && !m_seen) {
            m_seen = true;
            QMetaObject::invokeMethod(
                this, [this] { painted = Clock::now(); }, Qt::QueuedConnection);
        }
        return QObject::eventFilter(watched, event);
    }

private:
    bool m_seen = false;
};

// Runs the event loop as the application's own does, without polling.
void runFor(std::chrono::milliseconds duration)
{
    QEventLoop loop;
    QTimer::singleShot(duration, &loop, &QEventLoop::quit);
    loop.exec();
}

void press(QWidget *target, int key, const QString &text)
{
    QKeyEvent event(QEvent::KeyPress, key, Qt::NoModifier, text);
    QApplication::sendEvent(target, &event);
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    LiveWorkspace live;
    Workspace &workspace = live.workspace;
    MainWindow window(workspace, live.settings);
    window.resize(1200, 800);
    window.show();
    runFor(std::chrono::milliseconds(200));
    LatencyProbe probe;

    // Open a 100,000-line script, then type: a quote at the top and its removal, and letters in
    // the middle of the file, a key every 30 ms, as a fast typist would.
    const QString path =
        TestSupport::writeFile(live.dir.path(), QStringLiteral("large.R"), benchScript(100000).toUtf8());
    probe.start();
    runFor(std::chrono::milliseconds(100));
    // The open itself, from the file to its first screen in colour: read, decoded, given to the
    // document and styled where shown.
    const auto openStart = Clock::now();
    const auto since = [&openStart] {
        return std::chrono::duration<double, std::milli>(Clock::now() - openStart).count();
    };
    workspace.documents().open(path);
    printFigure("editor_open_in_window_100k_lines", since(), "ms");
    CodeEditor *editor = scriptEditor(window);
    if (!editor) {
        std::fprintf(stderr, "the script did not open in an editor\n");
        return 1;
    }
    FirstPaint firstPaint(editor->viewport());
    TestSupport::waitForEvents([&] { return firstPaint.painted.has_value(); }, std::chrono::seconds(30));
    printFigure("editor_open_in_window_100k_lines_first_paint",
                firstPaint.painted
                    ? std::chrono::duration<double, std::milli>(*firstPaint.painted - openStart).count()
                    : -1.0,
                "ms");
    TestSupport::waitForEvents([&] { return !editor->session()->isLoading(); }, std::chrono::seconds(30));
    printFigure("editor_open_in_window_100k_lines_text_in", since(), "ms");
    runFor(std::chrono::milliseconds(500));
    if (editor->document()->blockCount() < 100000) {
        std::fprintf(stderr, "the script is not all in the editor\n");
        return 1;
    }
    for (int round = 0; round < 4; ++round) {
        editor->session()->setSelection(0);
        press(editor, Qt::Key_QuoteDbl, QStringLiteral("\""));
        runFor(std::chrono::milliseconds(30));
        const QTextBlock middle = editor->document()->findBlockByNumber(50000 + round);
        editor->session()->setSelection(middle.position());
        for (int i = 0; i < 10; ++i) {
            press(editor, Qt::Key_X, QStringLiteral("x"));
            runFor(std::chrono::milliseconds(30));
        }
        editor->session()->setSelection(1);
        press(editor, Qt::Key_Backspace, QString());
        runFor(std::chrono::milliseconds(30));
    }
    TestSupport::waitForEvents([&] { return editor->session()->model().isClean(); },
                               std::chrono::seconds(30));
    probe.report("event_loop_open_and_type_100k_lines");

    // R's output pouring into the console.
    if (!live.start()) {
        std::fprintf(stderr, "R did not start\n");
        return 1;
    }
    bool done = false;
    probe.start();
    workspace.run(QStringLiteral("for (i in 1:1e6) cat(i, \"\\n\")"), ExecOrigin::console(), std::nullopt, 1,
                  [&](const ExecResult &) { done = true; });
    TestSupport::waitForEvents([&] { return done; }, std::chrono::minutes(10));
    runFor(std::chrono::milliseconds(200));
    probe.report("event_loop_console_flood_1e6_lines");
    workspace.shutDown();
    return 0;
}
