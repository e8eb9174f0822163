// Editor figures on a 100,000-line script: the time from the start of opening it to its first screen
// styled and painted, and until the whole text is in the document and styled (with the longest
// time the main thread was held meanwhile); the time from one typed character to restyled, laid-out
// text (median and p99), and what a keystroke that restyles the rest of the file costs: the longest
// time the main thread is held at once (the keystroke or one turn of the event loop) and the time
// until the file is styled again. The session drives a QTextDocument directly (offscreen) under a
// layout that works as the plain-text view's does: a change inside one block lays that block out
// again, a larger change only drops the layouts, and a block is laid out when it is looked at. The
// first screen is painted into an image, as a view would paint it.
#include "BenchScript.h"
#include "Editor/EditorSession.h"
#include "Outline.h"

#include <QAbstractTextDocumentLayout>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextLayout>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

class PlainLayout : public QAbstractTextDocumentLayout {
public:
    explicit PlainLayout(QTextDocument *document) : QAbstractTextDocumentLayout(document) {}

    void documentChanged(int from, int removed, int added) override
    {
        QTextBlock block = document()->findBlock(from);
        const QTextBlock last = document()->findBlock(std::max(0, from + std::max(removed, added) - 1));
        if (block == last) {
            layOut(block);
            return;
        }
        for (; block.isValid(); block = block.next()) {
            block.clearLayout();
            if (block == last)
                break;
        }
    }
    QRectF blockBoundingRect(const QTextBlock &block) const override
    {
        if (block.layout()->lineCount() == 0)
            layOut(block);
        return block.layout()->boundingRect();
    }
    void draw(QPainter *, const PaintContext &) override {}
    int hitTest(const QPointF &, Qt::HitTestAccuracy) const override { return -1; }
    int pageCount() const override { return 1; }
    QSizeF documentSize() const override { return {800, 600}; }
    QRectF frameBoundingRect(QTextFrame *) const override { return {}; }

private:
    static void layOut(const QTextBlock &block)
    {
        QTextLayout *layout = block.layout();
        layout->beginLayout();
        QTextLine line = layout->createLine();
        if (line.isValid())
            line.setLineWidth(1e6);
        layout->endLayout();
    }
};

// Lays out and paints the blocks of the first screen, as a view showing the top of the file would.
void paintFirstScreen(QTextDocument &document, QImage &screen)
{
    screen.fill(Qt::white);
    QPainter painter(&screen);
    qreal top = 0;
    QTextBlock block = document.firstBlock();
    for (int i = 0; i < 60 && block.isValid(); ++i, block = block.next()) {
        const QRectF bounds = document.documentLayout()->blockBoundingRect(block);
        block.layout()->draw(&painter, QPointF(0, top));
        top += bounds.height();
    }
}

// Runs the event loop until the session has styled everything; the longest single turn, and the
// whole time.
struct Settling {
    double longestMs = 0;
    double totalMs = 0;
};

Settling settle(const EditorSession &session, Clock::time_point since)
{
    Settling settling;
    while (session.isLoading() || !session.model().isClean()) {
        const auto turn = Clock::now();
        QCoreApplication::processEvents();
        settling.longestMs = std::max(settling.longestMs, millisecondsSince(turn));
    }
    settling.totalMs = millisecondsSince(since);
    return settling;
}

double percentile(std::vector<double> values, double p)
{
    std::sort(values.begin(), values.end());
    const size_t index = std::min(values.size() - 1, size_t(p * double(values.size() - 1) + 0.5));
    return values[index];
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    constexpr int lineCount = 100000;
    const QString text = benchScript(lineCount);

    QTextDocument document;
    document.setDocumentLayout(new PlainLayout(&document));
    EditorSession session(&document, EditorMode::document);
    // A view showing the top of the file.
    session.visibleLines = [] { return std::pair<qsizetype, qsizetype>{0, 59}; };
    // The document a script editor writes to after each edit, with its comparison.
    QString bound;
    session.textBinding = [&bound](const QString &text) {
        if (text != bound)
            bound = text;
    };
    QImage screen(800, 60 * 16, QImage::Format_RGB32);
    {
        // The window has painted text before a file is opened: fonts and glyph caches are warm.
        QTextDocument warm;
        warm.setDocumentLayout(new PlainLayout(&warm));
        warm.setPlainText(benchScript(60));
        paintFirstScreen(warm, screen);
    }
    const auto openStart = Clock::now();
    session.loadText(text);
    paintFirstScreen(document, screen);
    const double openMs = millisecondsSince(openStart);
    std::printf("editor_open_100k_lines_first_screen: %.1f ms\n", openMs);
    const Settling opened = settle(session, openStart);
    std::printf("editor_open_100k_lines_complete: %.1f ms\n", opened.totalMs);
    std::printf("editor_open_100k_lines_longest_stall_after_first_screen: %.1f ms\n", opened.longestMs);
    if (session.text() != text || document.blockCount() != lineCount + 1) {
        std::fprintf(stderr, "the document does not hold the whole script\n");
        return 1;
    }

    // One character typed and taken back on lines spread over the file: each edit is a keystroke
    // whose restyle and layout of the changed line is timed.
    std::vector<double> samples;
    const int rounds = 2000;
    samples.reserve(2 * rounds);
    for (int i = 0; i < rounds; ++i) {
        const QTextBlock block = document.findBlockByNumber((i * 7919) % lineCount);
        const int at = block.position() + std::min(block.length() - 1, 5);
        QTextCursor cursor(&document);
        cursor.setPosition(at);
        auto start = Clock::now();
        cursor.insertText(QStringLiteral("z"));
        document.documentLayout()->blockBoundingRect(document.findBlock(at));
        samples.push_back(millisecondsSince(start));
        start = Clock::now();
        cursor.deletePreviousChar();
        document.documentLayout()->blockBoundingRect(document.findBlock(at));
        samples.push_back(millisecondsSince(start));
    }
    std::printf("editor_keystroke_restyle_median: %.3f ms\n", percentile(samples, 0.5));
    std::printf("editor_keystroke_restyle_p99: %.3f ms\n", percentile(samples, 0.99));

    // What follows a burst of keys once: the text handed to the document, caret and bracket state.
    std::vector<double> bursts;
    for (int i = 0; i < 200; ++i) {
        QTextCursor cursor(&document);
        cursor.setPosition(document.findBlockByNumber((i * 4099) % lineCount).position() + 9);
        cursor.insertText(QStringLiteral("("));
        session.setTextCursor(cursor);
        const auto start = Clock::now();
        QCoreApplication::processEvents();
        bursts.push_back(millisecondsSince(start));
        cursor.deletePreviousChar();
        QCoreApplication::processEvents();
    }
    std::printf("editor_burst_update_median: %.3f ms\n", percentile(bursts, 0.5));
    std::printf("editor_burst_update_p99: %.3f ms\n", percentile(bursts, 0.99));

    // The jump bar's outline after a pause in typing: a scan of the whole text.
    const auto outlineStart = Clock::now();
    const qsizetype items = Outline::scan(session.text(), RSourceLanguage::r).size();
    std::printf("editor_outline_scan_100k_lines: %.1f ms\n", millisecondsSince(outlineStart));

    // The worst keystroke: a quote at the top that turns the rest of the file into a string, and
    // back. The figure is the longest the main thread is held: the keystroke itself or a later slice.
    QTextCursor quote(&document);
    quote.setPosition(0);
    auto start = Clock::now();
    quote.insertText(QStringLiteral("\""));
    const double openKey = millisecondsSince(start);
    const Settling openedString = settle(session, start);
    std::printf("editor_open_string_restyle: %.1f ms\n", std::max(openKey, openedString.longestMs));
    std::printf("editor_open_string_fully_styled: %.1f ms\n", openedString.totalMs);
    start = Clock::now();
    quote.deletePreviousChar();
    const double closeKey = millisecondsSince(start);
    const Settling closedString = settle(session, start);
    std::printf("editor_close_string_restyle: %.1f ms\n", std::max(closeKey, closedString.longestMs));
    std::printf("editor_close_string_fully_styled: %.1f ms\n", closedString.totalMs);
    return session.text().size() == document.characterCount() - 1 && items > 0 ? 0 : 1;
}
