#include "RSourceModel.h"

#include <algorithm>

RSourceModel::RSourceModel(RSourceLanguage language) : m_language(language)
{
    m_dirty.push_back({0, 1});
}

void RSourceModel::reset(const QString &text, std::optional<RSourceLanguage> language)
{
    if (language)
        m_language = *language;
    m_lines = RLineIndex(text);
    m_states = QList<RLineState>(m_lines.lineCount(), RLineState::initial());
    m_dirty.assign(1, {0, m_lines.lineCount()});
}

void RSourceModel::replaceCharacters(RTextRange range, qsizetype newLength, const QString &text)
{
    const RLineIndex::Change change = m_lines.replaceCharacters(range, newLength, text);
    const qsizetype line = qMax<qsizetype>(change.line, 0);
    const qsizetype first = change.line + 1;
    const RLineState placeholder = m_states.value(line, RLineState::initial());
    if (change.removedLines > 0)
        m_states.remove(first, change.removedLines);
    if (change.insertedLines > 0)
        m_states.insert(first, change.insertedLines, placeholder);

    const qsizetype shift = change.insertedLines - change.removedLines;
    const qsizetype removedEnd = first + change.removedLines;
    std::vector<std::pair<qsizetype, qsizetype>> old;
    old.swap(m_dirty);
    for (const auto &[a, b] : old) {
        if (a < first)
            m_dirty.push_back({a, qMin(b, first)});
        if (b > removedEnd) {
            const qsizetype from = qMax(a, removedEnd) + shift;
            m_dirty.push_back({from, b + shift});
        }
    }
    // Pieces may now touch or overlap; addDirty merges.
    std::vector<std::pair<qsizetype, qsizetype>> pieces;
    pieces.swap(m_dirty);
    for (const auto &[a, b] : pieces)
        addDirty(a, b - 1);
    addDirty(line, change.line + change.insertedLines);
}

void RSourceModel::addDirty(qsizetype first, qsizetype last)
{
    first = qMax<qsizetype>(first, 0);
    last = qMin(last, lineCount() - 1);
    if (last < first)
        return;
    qsizetype a = first, b = last + 1;
    auto it = std::lower_bound(m_dirty.begin(), m_dirty.end(), std::pair<qsizetype, qsizetype>{a, a},
                               [](const auto &x, const auto &y) { return x.second < y.first; });
    // `it` is the first range that ends at or after `a`; merge every range that touches [a, b).
    auto end = it;
    while (end != m_dirty.end() && end->first <= b) {
        a = qMin(a, end->first);
        b = qMax(b, end->second);
        ++end;
    }
    it = m_dirty.erase(it, end);
    m_dirty.insert(it, {a, b});
}

void RSourceModel::removeDirty(qsizetype line)
{
    for (auto it = m_dirty.begin(); it != m_dirty.end(); ++it) {
        if (line < it->first)
            return;
        if (line >= it->second)
            continue;
        if (it->first == line) {
            ++it->first;
            if (it->first == it->second)
                m_dirty.erase(it);
        } else if (it->second == line + 1) {
            --it->second;
        } else {
            const qsizetype end = it->second;
            it->second = line;
            m_dirty.insert(it + 1, {line + 1, end});
        }
        return;
    }
}

bool RSourceModel::isDirty(qsizetype line) const
{
    for (const auto &[a, b] : m_dirty) {
        if (line < a)
            return false;
        if (line < b)
            return true;
    }
    return false;
}

qsizetype RSourceModel::relex(const QString &text, const Visit &visit, const Proceed &proceed)
{
    qsizetype lexed = 0;
    const qsizetype count = lineCount();
    while (!m_dirty.empty() && m_dirty.back().second > count) {
        if (m_dirty.back().first >= count)
            m_dirty.pop_back();
        else
            m_dirty.back().second = count;
    }
    while (!m_dirty.empty()) {
        qsizetype line = m_dirty.front().first;
        RLineState state = m_states[line];
        for (;;) {
            if (proceed && !proceed(line)) {
                // The walk may have carried a changed state past the dirty lines.
                addDirty(line, line);
                return lexed;
            }
            const RLineLexer::Line lexedLine = RLineLexer::lex(line, m_lines, text, m_language, state);
            ++lexed;
            if (visit)
                visit(line, m_lines.range(line, true), lexedLine.tokens);
            removeDirty(line);
            if (line + 1 >= count)
                break;
            const qsizetype next = line + 1;
            if (!isDirty(next) && lexedLine.end == m_states[next])
                break;
            m_states[next] = lexedLine.end;
            state = lexedLine.end;
            line = next;
        }
    }
    return lexed;
}

std::unique_ptr<RSourceSnapshot> RSourceModel::snapshot(const QString &text) const
{
    if (isClean())
        return std::make_unique<RSourceSnapshot>(text, m_language, m_lines, m_states);
    RSourceModel copy = *this;
    copy.relex(text);
    return std::make_unique<RSourceSnapshot>(text, m_language, copy.m_lines, copy.m_states);
}

RLineState RSourceModel::startState(qsizetype line) const
{
    return m_states.value(qBound<qsizetype>(0, line, lineCount() - 1), RLineState::initial());
}

std::pair<QList<RToken>, bool> RSourceModel::lexLine(qsizetype line, const QString &text) const
{
    if (line < 0 || line >= lineCount())
        return {{}, false};
    RLineLexer::Line l = RLineLexer::lex(line, m_lines, text, m_language, m_states[line]);
    return {std::move(l.tokens), l.isCode};
}

QList<RToken> RSourceModel::tokens(qsizetype line, const QString &text) const
{
    return lexLine(line, text).first;
}

bool RSourceModel::isChunkLine(qsizetype line) const
{
    if (m_language != RSourceLanguage::rMarkdown || line < 0 || line >= lineCount())
        return false;
    if (m_states[line].isInsideChunk())
        return true;
    return line + 1 < lineCount() && m_states[line + 1].isInsideChunk();
}
