#include "ConsoleTranscriptView.h"

#include "ANSIText.h"
#include "App/Views/Appearance.h"
#include "Plots/PlotStore.h"
#include "Plots/Views/PlotThumbnails.h"

#include <QAbstractTextDocumentLayout>
#include <QFontDatabase>
#include <QHash>
#include <QHelpEvent>
#include <QMouseEvent>
#include <QScopedValueRollback>
#include <QScrollBar>
#include <QTextBlock>
#include <QToolTip>

namespace {

QTextCharFormat baseFormat(const QColor &color)
{
    QTextCharFormat format;
    format.setForeground(color);
    return format;
}

// Inserts text ending in its own block; a trailing line feed of the text is that block's end.
void insertLines(QTextCursor &cursor, QString text, const QTextCharFormat &format)
{
    if (text.endsWith(u'\n'))
        text.chop(1);
    cursor.insertText(text, format);
    cursor.insertBlock(QTextBlockFormat(), QTextCharFormat());
}

void insertANSI(QTextCursor &cursor, const QString &text, const QColor &fallback)
{
    QString body = text;
    if (body.endsWith(u'\n'))
        body.chop(1);
    for (const ANSIRun &run : ANSIText::parse(body)) {
        QTextCharFormat format = baseFormat(fallback);
        if (run.style.foreground)
            format.setForeground(Appearance::ansiColor(*run.style.foreground));
        if (run.style.background)
            format.setBackground(Appearance::ansiColor(*run.style.background));
        if (run.style.bold)
            format.setFontWeight(QFont::Bold);
        if (run.style.italic)
            format.setFontItalic(true);
        if (run.style.underline)
            format.setFontUnderline(true);
        if (run.style.dim)
            format.setForeground(Appearance::consoleColors().muted);
        cursor.insertText(run.text, format);
    }
    cursor.insertBlock(QTextBlockFormat(), QTextCharFormat());
}

// Gives the blocks from `from` up to the cursor a background and margins: a card.
void shadeBlocks(QTextCursor &cursor, int from, const QColor &background, qreal top, qreal bottom)
{
    QTextDocument *document = cursor.document();
    QTextBlock block = document->findBlock(from);
    const QTextBlock end = cursor.block();
    QTextCursor shading(document);
    bool first = true;
    while (block.isValid() && block != end) {
        QTextBlockFormat format = block.blockFormat();
        format.setBackground(background);
        format.setLeftMargin(6);
        format.setTopMargin(first ? top : 0);
        const QTextBlock next = block.next();
        format.setBottomMargin(next == end ? bottom : 0);
        shading.setPosition(block.position());
        shading.setBlockFormat(format);
        first = false;
        block = next;
    }
}

QString changeText(const WorkspaceChange &change)
{
    const QString sign = change.kind == WorkspaceChange::Kind::Added     ? QStringLiteral("+")
                         : change.kind == WorkspaceChange::Kind::Removed ? QStringLiteral("−")
                                                                         : QStringLiteral("~");
    QString text = sign + u' ' + change.name;
    if (change.detail)
        text += QStringLiteral("  ") + *change.detail;
    return text;
}

} // namespace

ConsoleTranscriptView::ConsoleTranscriptView(QWidget *parent) : QPlainTextEdit(parent)
{
    setObjectName(QStringLiteral("consoleTranscript"));
    setReadOnly(true);
    setUndoRedoEnabled(false);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    setLineWrapMode(QPlainTextEdit::WidgetWidth);
    setCenterOnScroll(false);
    document()->setDocumentMargin(10);
    m_thumbnails = new PlotThumbnails(this);
    document()->documentLayout()->registerHandler(PlotThumbnails::objectType, m_thumbnails);
    viewport()->setMouseTracking(true);

    // The scroll bar counts lines, and a line may be a tall thumbnail: only the very end follows.
    QScrollBar *bar = verticalScrollBar();
    connect(bar, &QScrollBar::valueChanged, this, [this, bar](int value) {
        if (!m_moving)
            m_following = value >= bar->maximum();
    });
    // A shorter console (a script tab opened) or more lines move the end: keep to it.
    connect(bar, &QScrollBar::rangeChanged, this, [this, bar](int, int maximum) {
        if (!m_following)
            return;
        const QScopedValueRollback moving(m_moving, true);
        bar->setValue(maximum);
    });
}

void ConsoleTranscriptView::setPlots(PlotStore *plots)
{
    if (m_thumbnails->plots())
        disconnect(m_thumbnails->plots(), nullptr, viewport(), nullptr);
    m_thumbnails->setPlots(plots);
    // Thumbnails read the store when painted: a change of a page is a repaint, not a redraw.
    if (plots)
        connect(plots, &PlotStore::changed, viewport(), qOverload<>(&QWidget::update));
    viewport()->update();
}

std::optional<int> ConsoleTranscriptView::plotAt(QPoint point) const
{
    const QTextBlock block = cursorForPosition(point).block();
    if (!block.isValid() || !block.layout())
        return std::nullopt;
    const QPointF origin = blockBoundingGeometry(block).translated(contentOffset()).topLeft();
    for (auto it = block.begin(); !it.atEnd(); ++it) {
        const QTextFragment fragment = it.fragment();
        if (!PlotThumbnails::pageOf(fragment.charFormat()))
            continue;
        const int at = fragment.position() - block.position();
        const QTextLine line = block.layout()->lineForTextPosition(at);
        if (!line.isValid())
            continue;
        const QRectF rect(origin.x() + line.cursorToX(at), origin.y() + line.y(),
                          line.cursorToX(at + 1) - line.cursorToX(at), line.height());
        if (rect.contains(point))
            return m_thumbnails->livePage(fragment.charFormat());
    }
    return std::nullopt;
}

bool ConsoleTranscriptView::viewportEvent(QEvent *event)
{
    switch (event->type()) {
    case QEvent::ToolTip: {
        auto *help = static_cast<QHelpEvent *>(event);
        if (const auto page = plotAt(help->pos())) {
            QToolTip::showText(help->globalPos(),
                               QStringLiteral("Plot %1. Click to open it in the Plots pane.").arg(*page),
                               viewport());
            return true;
        }
        QToolTip::hideText();
        break;
    }
    case QEvent::MouseMove: {
        auto *mouse = static_cast<QMouseEvent *>(event);
        if (mouse->buttons() == Qt::NoButton)
            viewport()->setCursor(plotAt(mouse->position().toPoint()) ? Qt::PointingHandCursor
                                                                      : Qt::IBeamCursor);
        break;
    }
    case QEvent::MouseButtonRelease: {
        auto *mouse = static_cast<QMouseEvent *>(event);
        // A click, not the end of a selection that started elsewhere.
        if (mouse->button() == Qt::LeftButton && !textCursor().hasSelection())
            if (const auto page = plotAt(mouse->position().toPoint()))
                emit plotActivated(*page);
        break;
    }
    default:
        break;
    }
    return QPlainTextEdit::viewportEvent(event);
}

void ConsoleTranscriptView::setModel(ConsoleModel *model)
{
    if (m_model)
        disconnect(m_model, nullptr, this, nullptr);
    m_model = model;
    if (m_model)
        connect(m_model, &ConsoleModel::changed, this, &ConsoleTranscriptView::sync);
    rebuild();
}

void ConsoleTranscriptView::rebuild()
{
    m_rendered.clear();
    m_syncedRevision = -1;
    document()->clear();
    sync();
}

QList<ConsoleTranscriptView::Piece> ConsoleTranscriptView::piecesOf(const ConsoleModel::Cell &cell) const
{
    using Kind = ConsoleModel::Item::Kind;
    const ConsoleColors &colors = Appearance::consoleColors();
    QList<Piece> pieces;
    if (cell.code) {
        const QString code = *cell.code;
        // R's own prompt shows as the console's mark; a prompt the user set shows as it is.
        const QString prompt = cell.prompt == u"> " ? QStringLiteral("› ") : cell.prompt;
        pieces.append({cell.id, code, 0, [code, prompt, colors](QTextCursor &cursor) {
                           // A thin empty line apart from what came before; plain-text layouts
                           // know no block margins.
                           if (cursor.position() > 0) {
                               QTextCharFormat thin;
                               thin.setFontPointSize(4);
                               cursor.setBlockCharFormat(thin);
                               cursor.insertBlock(QTextBlockFormat(), QTextCharFormat());
                           }
                           const int from = cursor.position();
                           QTextCharFormat promptFormat = baseFormat(colors.accent);
                           promptFormat.setFontWeight(QFont::Bold);
                           cursor.insertText(prompt, promptFormat);
                           const QString indent(prompt.size(), u' ');
                           insertLines(cursor, QString(code).replace(u'\n', u'\n' + indent),
                                       baseFormat(colors.code));
                           shadeBlocks(cursor, from, colors.codeBackground, 8, 2);
                       }});
    }
    for (const ConsoleModel::Item &item : cell.items) {
        switch (item.kind) {
        case Kind::Output:
        case Kind::Stderr: {
            const QColor color = item.kind == Kind::Stderr ? colors.error : colors.text;
            const QString text = item.text;
            if (text.isEmpty())
                continue;
            pieces.append(
                {item.id, text, 0, [text, color](QTextCursor &cursor) { insertANSI(cursor, text, color); }});
            break;
        }
        case Kind::Echo:
            break;
        case Kind::Message: {
            const QString text = item.text;
            // A progress bar that cleared its line leaves nothing to show.
            if (ANSIText::strip(text).trimmed().isEmpty())
                continue;
            pieces.append({item.id, text, 0, [text, colors](QTextCursor &cursor) {
                               insertANSI(cursor, text, colors.message);
                           }});
            break;
        }
        case Kind::Warning: {
            QString headline = QStringLiteral("Warning");
            if (item.call)
                headline += QStringLiteral(" in ") + *item.call;
            const QString text = ANSIText::strip(item.text);
            pieces.append({item.id, headline + text, 0, [headline, text, colors](QTextCursor &cursor) {
                               const int from = cursor.position();
                               QTextCharFormat bold = baseFormat(colors.warning);
                               bold.setFontWeight(QFont::DemiBold);
                               cursor.insertText(QStringLiteral("⚠ ") + headline + QStringLiteral(": "),
                                                 bold);
                               insertLines(cursor, text, baseFormat(colors.text));
                               shadeBlocks(cursor, from, colors.warningBackground, 4, 4);
                           }});
            break;
        }
        case Kind::Error: {
            const RErrorInfo error = item.error;
            QString key = error.message + error.call.value_or(QString());
            pieces.append(
                {item.id, key, 0, [error, colors](QTextCursor &cursor) {
                     const int from = cursor.position();
                     QTextCharFormat bold = baseFormat(colors.error);
                     bold.setFontWeight(QFont::Bold);
                     cursor.insertText(error.isParseError ? QStringLiteral("✕ Parse error")
                                                          : QStringLiteral("✕ Error"),
                                       bold);
                     if (error.call) {
                         QTextCharFormat call = baseFormat(colors.muted);
                         cursor.insertText(QStringLiteral(" in "), call);
                         call.setFontWeight(QFont::DemiBold);
                         cursor.insertText(*error.call, call);
                     }
                     cursor.insertBlock(QTextBlockFormat(), QTextCharFormat());
                     insertLines(cursor, ANSIText::strip(error.message), baseFormat(colors.text));
                     const qsizetype frames = std::min<qsizetype>(error.traceback.size(), 12);
                     for (qsizetype i = 0; i < frames; ++i) {
                         const RFrame &frame = error.traceback[i];
                         QString line = QStringLiteral("  %1. %2").arg(i + 1).arg(frame.call.left(200));
                         if (frame.file)
                             line += QStringLiteral("  · %1:%2").arg(*frame.file).arg(frame.line.value_or(0));
                         insertLines(cursor, line, baseFormat(colors.muted));
                     }
                     shadeBlocks(cursor, from, colors.errorBackground, 4, 4);
                 }});
            break;
        }
        case Kind::Plot: {
            const int page = item.page;
            if (m_plotGenerations.size() > 8192)
                m_plotGenerations.clear();
            const int generation = *m_plotGenerations.insert(
                item.id, m_plotGenerations.value(item.id, m_thumbnails->generation()));
            pieces.append({item.id, QStringLiteral("plot %1").arg(page), 0,
                           [format = m_thumbnails->format(page, generation)](QTextCursor &cursor) {
                               cursor.insertText(QString(QChar::ObjectReplacementCharacter), format);
                               cursor.insertBlock(QTextBlockFormat(), QTextCharFormat());
                           }});
            break;
        }
        case Kind::Note: {
            const QString text = item.text;
            pieces.append({item.id, text, 0, [text, colors](QTextCursor &cursor) {
                               const int from = cursor.position();
                               QTextCharFormat format = baseFormat(colors.note);
                               format.setFontItalic(true);
                               insertLines(cursor, text, format);
                               QTextBlockFormat block;
                               block.setTopMargin(6);
                               block.setBottomMargin(6);
                               QTextCursor shading(cursor.document());
                               shading.setPosition(from);
                               shading.setBlockFormat(block);
                           }});
            break;
        }
        case Kind::Omitted: {
            const QString text = ConsoleModel::omittedText(item.lines);
            pieces.append({item.id, text, 0, [text, colors](QTextCursor &cursor) {
                               const int from = cursor.position();
                               QTextCharFormat format = baseFormat(colors.accent);
                               format.setFontItalic(true);
                               insertLines(cursor, text, format);
                               shadeBlocks(cursor, from, colors.codeBackground, 2, 2);
                           }});
            break;
        }
        }
    }
    // The footer: what the run did to the workspace, and how it ended.
    if (cell.execID && (cell.finished || !cell.changes.isEmpty())) {
        QStringList parts;
        for (qsizetype i = 0; i < std::min<qsizetype>(cell.changes.size(), 6); ++i)
            parts.append(changeText(cell.changes[i]));
        if (cell.changes.size() > 6)
            parts.append(QStringLiteral("+%1 more").arg(cell.changes.size() - 6));
        QString status;
        if (cell.state == ConsoleModel::Cell::State::Interrupted)
            status = QStringLiteral("interrupted");
        if (const auto seconds = cell.duration(); seconds && *seconds >= 0.5)
            status += (status.isEmpty() ? QString() : QStringLiteral(" · ")) +
                      QStringLiteral("%1 s").arg(*seconds, 0, 'f', *seconds < 10 ? 1 : 0);
        if (!status.isEmpty())
            parts.append(status);
        if (!parts.isEmpty()) {
            const QString text = parts.join(QStringLiteral("    "));
            // A fixed identity per cell, so a footer is replaced rather than added.
            const QUuid footer = QUuid::createUuidV5(cell.id, QStringLiteral("footer"));
            pieces.append({footer, text, 0, [text, colors](QTextCursor &cursor) {
                               QTextCharFormat format = baseFormat(colors.muted);
                               format.setFontPointSize(
                                   std::max(7.0, cursor.document()->defaultFont().pointSizeF() - 1));
                               insertLines(cursor, text, format);
                           }});
        }
    }
    return pieces;
}

int ConsoleTranscriptView::drawPiece(QTextCursor &cursor, int position, const Piece &piece)
{
    // Drawing starts inside the block that follows; that block keeps its own look.
    const QTextBlockFormat following = document()->findBlock(position).blockFormat();
    cursor.setPosition(position);
    cursor.setBlockFormat(QTextBlockFormat());
    piece.draw(cursor);
    const int length = cursor.position() - position;
    cursor.setBlockFormat(following);
    return length;
}

void ConsoleTranscriptView::removeRange(QTextCursor &cursor, int position, int length)
{
    if (length <= 0)
        return;
    // The merged block would keep the removed block's look; it must keep its own.
    const QTextBlockFormat following = document()->findBlock(position + length).blockFormat();
    cursor.setPosition(position);
    cursor.setPosition(position + length, QTextCursor::KeepAnchor);
    cursor.removeSelectedText();
    cursor.setBlockFormat(following);
}

void ConsoleTranscriptView::syncCell(QTextCursor &cursor, int position, RenderedCell &rendered,
                                     const ConsoleModel::Cell &cell)
{
    const QList<Piece> pieces = piecesOf(cell);
    QSet<QUuid> wanted;
    for (const Piece &piece : pieces)
        wanted.insert(piece.id);

    QList<RenderedPiece> result;
    int pos = position;
    qsizetype i = 0;
    qsizetype j = 0;
    const QList<RenderedPiece> old = std::move(rendered.pieces);
    // A merge of two lists in one order: ids keep their relative order in every model update.
    while (i < old.size() || j < pieces.size()) {
        if (i < old.size() && j < pieces.size() && old[i].id == pieces[j].id) {
            if (old[i].key == pieces[j].key) {
                result.append(old[i]);
                pos += old[i].length;
            } else {
                removeRange(cursor, pos, old[i].length);
                const int length = drawPiece(cursor, pos, pieces[j]);
                result.append({pieces[j].id, pieces[j].key, length});
                pos += length;
            }
            ++i;
            ++j;
        } else if (i < old.size() && !wanted.contains(old[i].id)) {
            removeRange(cursor, pos, old[i].length);
            ++i;
        } else if (j < pieces.size()) {
            const int length = drawPiece(cursor, pos, pieces[j]);
            result.append({pieces[j].id, pieces[j].key, length});
            pos += length;
            ++j;
        } else {
            removeRange(cursor, pos, old[i].length);
            ++i;
        }
    }
    rendered.pieces = result;
    rendered.length = pos - position;
    rendered.revision = cell.revision;
}

void ConsoleTranscriptView::sync()
{
    if (!m_model)
        return;
    if (m_model->revision() == m_syncedRevision)
        return;
    m_syncedRevision = m_model->revision();

    QScrollBar *bar = verticalScrollBar();
    // The editor keeps its first visible line while text changes: that is not the user scrolling.
    const QScopedValueRollback moving(m_moving, true);

    const QList<ConsoleModel::Cell> &cells = m_model->cells();
    QSet<QUuid> present;
    for (const ConsoleModel::Cell &cell : cells)
        present.insert(cell.id);

    QTextCursor cursor(document());
    cursor.beginEditBlock();
    QList<RenderedCell> result;
    result.reserve(cells.size());
    int pos = 0;
    qsizetype i = 0;
    qsizetype j = 0;
    while (i < m_rendered.size() || j < cells.size()) {
        if (i < m_rendered.size() && j < cells.size() && m_rendered[i].id == cells[j].id) {
            RenderedCell rendered = m_rendered[i];
            if (rendered.revision != cells[j].revision)
                syncCell(cursor, pos, rendered, cells[j]);
            pos += rendered.length;
            result.append(std::move(rendered));
            ++i;
            ++j;
        } else if (i < m_rendered.size() && !present.contains(m_rendered[i].id)) {
            removeRange(cursor, pos, m_rendered[i].length);
            ++i;
        } else if (j < cells.size()) {
            RenderedCell rendered;
            rendered.id = cells[j].id;
            // A new run is shown, wherever the user had scrolled.
            if (j + 1 == cells.size() && cells[j].execID)
                m_following = true;
            syncCell(cursor, pos, rendered, cells[j]);
            pos += rendered.length;
            result.append(std::move(rendered));
            ++j;
        } else {
            removeRange(cursor, pos, m_rendered[i].length);
            ++i;
        }
    }
    cursor.endEditBlock();
    m_rendered = std::move(result);
    if (m_following)
        bar->setValue(bar->maximum());
}
