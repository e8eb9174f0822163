#include "ConsoleModel.h"

#include "ANSIText.h"
#include "ConsoleText.h"
#include "OutputChunks.h"

#include <QLocale>

ConsoleModel::Item ConsoleModel::Item::make(Kind kind, QString text)
{
    Item item;
    // Stream text takes the ids of its output chunks; a fresh id per piece of a flood would cost
    // a random read each.
    if (kind != Kind::Output && kind != Kind::Stderr)
        item.id = QUuid::createUuid();
    item.kind = kind;
    item.text = std::move(text);
    return item;
}

ConsoleModel::Item ConsoleModel::Item::warning(QString text, std::optional<QString> call)
{
    Item item = make(Kind::Warning, std::move(text));
    item.call = std::move(call);
    return item;
}

ConsoleModel::Item ConsoleModel::Item::errorItem(RErrorInfo error)
{
    Item item = make(Kind::Error, {});
    item.error = std::move(error);
    return item;
}

ConsoleModel::Item ConsoleModel::Item::plot(int page)
{
    Item item = make(Kind::Plot, {});
    item.page = page;
    return item;
}

ConsoleModel::Item ConsoleModel::Item::omitted(qint64 lines, bool isStderr)
{
    Item item = make(Kind::Omitted, {});
    item.lines = lines;
    item.isStderr = isStderr;
    return item;
}

std::optional<double> ConsoleModel::Cell::duration() const
{
    if (!finished)
        return std::nullopt;
    return started.msecsTo(*finished) / 1000.0;
}

ConsoleModel::ConsoleModel(QObject *parent) : QObject(parent)
{
    m_flushTimer.setSingleShot(true);
    connect(&m_flushTimer, &QTimer::timeout, this, &ConsoleModel::flush);
}

void ConsoleModel::bump()
{
    ++m_revision;
    emit changed();
}

void ConsoleModel::touch(Cell &cell)
{
    ++cell.revision;
}

void ConsoleModel::begin(const QString &execID, const QString &code, const ExecOrigin &origin)
{
    flush();
    if (!m_cells.isEmpty()) {
        const Cell &last = m_cells.last();
        if (last.state == Cell::State::Running && !last.execID && last.items.isEmpty())
            m_cells.removeLast();
    }
    Cell cell;
    cell.id = QUuid::createUuid();
    cell.execID = execID;
    cell.origin = origin;
    cell.code = code;
    cell.prompt = m_prompt;
    cell.continuation = m_continuation;
    cell.started = QDateTime::currentDateTime();
    m_cells.append(std::move(cell));
    if (m_cells.size() > maxCells)
        m_cells.remove(0, m_cells.size() - maxCells);
    m_run.reset();
    bump();
}

void ConsoleModel::setPrompts(const QString &prompt, const QString &continuation)
{
    m_prompt = prompt;
    m_continuation = continuation;
}

void ConsoleModel::finish(const QString &execID, const ExecResult &result)
{
    flush();
    for (qsizetype i = m_cells.size() - 1; i >= 0; --i) {
        Cell &cell = m_cells[i];
        if (cell.execID != execID)
            continue;
        cell.finished = QDateTime::currentDateTime();
        cell.state = result.interrupted ? Cell::State::Interrupted
                     : result.error     ? Cell::State::Failed
                                        : Cell::State::Done;
        touch(cell);
        bump();
        return;
    }
}

void ConsoleModel::settle()
{
    if (m_cells.isEmpty())
        return;
    Cell &last = m_cells.last();
    if (last.state == Cell::State::Running && !last.execID) {
        last.state = Cell::State::Done;
        last.finished = QDateTime::currentDateTime();
        touch(last);
    }
}

void ConsoleModel::append(const Item &item)
{
    if (item.kind == Item::Kind::Output || item.kind == Item::Kind::Stderr) {
        enqueue(item.kind == Item::Kind::Output ? Stream::Stdout : Stream::Stderr, item.text);
        return;
    }
    flush();
    Cell &cell = runningCell();
    if (item.kind == Item::Kind::Plot) {
        for (const Item &existing : cell.items)
            if (existing.kind == Item::Kind::Plot && existing.page == item.page)
                return;
    }
    m_run.reset();
    if (item.kind == Item::Kind::Message) {
        // Progress bars arrive as messages that redraw their line with carriage returns: a message
        // continues an unfinished last message line, so the bar updates in place.
        Item message = item;
        Item *last = cell.items.isEmpty() ? nullptr : &cell.items.last();
        if (last && last->kind == Item::Kind::Message && !last->text.endsWith(u'\n') &&
            OutputChunks::byteCount(last->text) + OutputChunks::byteCount(item.text) <= maxMessageBytes) {
            last->text = ConsoleText::appending(item.text, std::move(last->text));
            touch(cell);
            bump();
            return;
        }
        message.text = ConsoleText::appending(item.text, QString());
        cell.items.append(std::move(message));
    } else {
        cell.items.append(item);
    }
    touch(cell);
    bump();
}

void ConsoleModel::note(const QString &text)
{
    flush();
    settle();
    m_run.reset();
    Cell cell;
    cell.id = QUuid::createUuid();
    cell.origin = ExecOrigin::system();
    cell.items.append(Item::note(text));
    cell.state = Cell::State::Done;
    cell.started = QDateTime::currentDateTime();
    cell.finished = cell.started;
    m_cells.append(std::move(cell));
    if (m_cells.size() > maxCells)
        m_cells.remove(0, m_cells.size() - maxCells);
    bump();
}

void ConsoleModel::attach(const QList<WorkspaceChange> &changes)
{
    if (m_cells.isEmpty() || !m_cells.last().execID || changes.isEmpty())
        return;
    Cell &cell = m_cells.last();
    for (const WorkspaceChange &change : changes) {
        qsizetype found = -1;
        for (qsizetype i = 0; i < cell.changes.size(); ++i) {
            if (cell.changes[i].name == change.name) {
                found = i;
                break;
            }
        }
        if (found < 0) {
            cell.changes.append(change);
            continue;
        }
        WorkspaceChange &entry = cell.changes[found];
        if (entry.kind != WorkspaceChange::Kind::Added) {
            entry = change;
        } else if (change.kind == WorkspaceChange::Kind::Removed) {
            cell.changes.remove(found);
        } else {
            entry.detail = change.detail;
            entry.isData = change.isData;
        }
    }
    touch(cell);
    bump();
}

void ConsoleModel::clear()
{
    m_pending.clear();
    m_flushTimer.stop();
    m_cells.clear();
    m_run.reset();
    bump();
}

void ConsoleModel::enqueue(Stream stream, const QString &text)
{
    if (text.isEmpty())
        return;
    if (!m_pending.isEmpty() && m_pending.last().first == stream)
        m_pending.last().second += text;
    else
        m_pending.append({stream, text});
    if (!m_flushTimer.isActive())
        m_flushTimer.start(m_lastBatchBytes < 4000 ? 40 : 120);
}

void ConsoleModel::flush()
{
    m_flushTimer.stop();
    if (m_pending.isEmpty()) {
        m_lastBatchBytes = 0;
        return;
    }
    const auto pending = std::move(m_pending);
    m_pending.clear();
    qsizetype bytes = 0;
    for (const auto &entry : pending)
        bytes += OutputChunks::byteCount(entry.second);
    m_lastBatchBytes = bytes;
    for (const auto &entry : pending)
        write(entry.second, entry.first);
    bump();
}

ConsoleModel::Cell &ConsoleModel::runningCell()
{
    if (!m_cells.isEmpty() && m_cells.last().state == Cell::State::Running)
        return m_cells.last();
    Cell cell;
    cell.id = QUuid::createUuid();
    cell.origin = ExecOrigin::system();
    cell.started = QDateTime::currentDateTime();
    m_cells.append(std::move(cell));
    if (m_cells.size() > maxCells)
        m_cells.remove(0, m_cells.size() - maxCells);
    m_run.reset();
    return m_cells.last();
}

void ConsoleModel::write(const QString &text, Stream stream)
{
    Cell &cell = runningCell();
    if (!m_run || m_run->cellID != cell.id || m_run->stream != stream || m_run->firstItem > cell.items.size())
        m_run = ActiveRun{cell.id, stream, cell.items.size(), OutputRun(6000, 200, 20)};
    m_run->output.write(text);

    const bool isStderr = stream == Stream::Stderr;
    QList<Item> stretch;
    const auto &chunks = m_run->output.chunks();
    stretch.reserve(chunks.size() + 1);
    for (qsizetype i = 0; i < chunks.size(); ++i) {
        Item item;
        item.id = chunks[i].id;
        item.kind = isStderr ? Item::Kind::Stderr : Item::Kind::Output;
        item.text = chunks[i].text;
        stretch.append(std::move(item));
        if (i == 0 && m_run->output.omittedChunks() > 0) {
            Item marker;
            marker.id = m_run->output.markerID();
            marker.kind = Item::Kind::Omitted;
            marker.lines = m_run->output.omittedLines();
            marker.isStderr = isStderr;
            stretch.append(std::move(marker));
        }
    }
    cell.items.resize(m_run->firstItem);
    cell.items.append(std::move(stretch));
    touch(cell);
}

const ConsoleModel::Cell *ConsoleModel::cell(const QUuid &id) const
{
    for (qsizetype i = m_cells.size() - 1; i >= 0; --i)
        if (m_cells[i].id == id)
            return &m_cells[i];
    return nullptr;
}

const ConsoleModel::Cell *ConsoleModel::cell(const QString &execID) const
{
    for (qsizetype i = m_cells.size() - 1; i >= 0; --i)
        if (m_cells[i].execID == execID)
            return &m_cells[i];
    return nullptr;
}

std::optional<RErrorInfo> ConsoleModel::lastError() const
{
    for (qsizetype i = m_cells.size() - 1; i >= 0; --i)
        for (const Item &item : m_cells[i].items)
            if (item.kind == Item::Kind::Error)
                return item.error;
    return std::nullopt;
}

std::optional<QString> ConsoleModel::lastFailedCode() const
{
    for (qsizetype i = m_cells.size() - 1; i >= 0; --i) {
        const Cell &cell = m_cells[i];
        for (const Item &item : cell.items)
            if (item.kind == Item::Kind::Error)
                return cell.code;
    }
    return std::nullopt;
}

QString ConsoleModel::omittedText(qint64 lines)
{
    return QStringLiteral("… %1 %2 not shown …")
        .arg(QLocale().toString(lines), lines == 1 ? QStringLiteral("line") : QStringLiteral("lines"));
}

QStringList ConsoleModel::plainParts(const QList<Item> &items, bool annotated)
{
    QStringList parts;
    std::optional<Item::Kind> previousStream;
    for (const Item &item : items) {
        const bool isStream = item.kind == Item::Kind::Output || item.kind == Item::Kind::Stderr;
        QString text;
        switch (item.kind) {
        case Item::Kind::Output:
        case Item::Kind::Stderr:
        case Item::Kind::Message:
            text = ANSIText::strip(item.text);
            break;
        case Item::Kind::Echo:
            previousStream.reset();
            continue;
        case Item::Kind::Warning:
            if (annotated) {
                text = QStringLiteral("Warning");
                if (item.call)
                    text += QStringLiteral(" in ") + *item.call;
                text += QStringLiteral(": ") + ANSIText::strip(item.text);
            } else {
                text = ANSIText::strip(item.text);
            }
            break;
        case Item::Kind::Error:
            text = QStringLiteral("Error");
            if (annotated) {
                if (item.error.call)
                    text += QStringLiteral(" in ") + *item.error.call;
                text += QStringLiteral(": ");
            } else {
                text += QStringLiteral(": ");
            }
            text += item.error.message;
            break;
        case Item::Kind::Plot:
            text = QStringLiteral("[plot %1]").arg(item.page);
            break;
        case Item::Kind::Note:
            text = item.text;
            break;
        case Item::Kind::Omitted:
            text = omittedText(item.lines);
            break;
        }
        if (isStream && previousStream == item.kind && !parts.isEmpty())
            parts.last() += text;
        else
            parts.append(text);
        previousStream = isStream ? std::optional<Item::Kind>(item.kind) : std::nullopt;
    }
    return parts;
}

QString ConsoleModel::cellTranscript(const Cell &cell)
{
    QStringList lines;
    if (cell.code)
        lines.append(cell.prompt + QString(*cell.code).replace(u'\n', u'\n' + cell.continuation));
    for (const QString &part : plainParts(cell.items, true)) {
        const QString trimmed = part.trimmed();
        if (!trimmed.isEmpty())
            lines.append(trimmed);
    }
    return lines.join(u'\n');
}

QString ConsoleModel::transcript(int lastCells, qsizetype maxCharacters)
{
    flush();
    QStringList pieces;
    const qsizetype from = std::max<qsizetype>(0, m_cells.size() - std::max(0, lastCells));
    for (qsizetype i = from; i < m_cells.size(); ++i) {
        const QString text = cellTranscript(m_cells[i]);
        if (!text.isEmpty())
            pieces.append(text);
    }
    QString result = pieces.join(u'\n');
    if (maxCharacters >= 0 && result.size() > maxCharacters)
        result = QStringLiteral("…\n") + result.right(maxCharacters);
    return result;
}

QString ConsoleModel::transcript(const QUuid &cellID)
{
    flush();
    const Cell *found = cell(cellID);
    return found ? cellTranscript(*found) : QString();
}
