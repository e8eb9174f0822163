#include "RLineIndex.h"

#include <QHashFunctions>

#include <algorithm>

RLineIndex::RLineIndex(const QString &text)
    : RLineIndex(reinterpret_cast<const char16_t *>(text.utf16()), text.size())
{
}

RLineIndex::RLineIndex(const char16_t *u, qsizetype count)
{
    m_length = qMax<qsizetype>(count, 0);
    for (qsizetype i = 0; i < m_length; ++i) {
        const char16_t c = u[i];
        if (c == '\n' || (c == '\r' && (i + 1 >= m_length || u[i + 1] != '\n')))
            m_starts.push_back(i + 1);
    }
    m_stepFrom = lineCount();
}

qsizetype RLineIndex::start(qsizetype line) const
{
    return at(qBound<qsizetype>(0, line, lineCount() - 1));
}

RTextRange RLineIndex::range(qsizetype line, bool includingNewline) const
{
    line = qBound<qsizetype>(0, line, lineCount() - 1);
    const qsizetype s = at(line);
    if (line + 1 >= lineCount())
        return RTextRange{s, m_length - s};
    const qsizetype e = at(line + 1) - (includingNewline ? 0 : 1);
    return RTextRange{s, qMax<qsizetype>(e - s, 0)};
}

qsizetype RLineIndex::search(qsizetype value, bool after) const
{
    qsizetype lo = 0, hi = lineCount();
    while (lo < hi) {
        const qsizetype mid = lo + (hi - lo) / 2;
        const qsizetype v = at(mid);
        if (after ? v <= value : v < value)
            lo = mid + 1;
        else
            hi = mid;
    }
    return lo;
}

qsizetype RLineIndex::line(qsizetype containing) const
{
    if (lineCount() <= 1)
        return 0;
    const qsizetype offset = qBound<qsizetype>(0, containing, m_length);
    return qMax<qsizetype>(search(offset, true) - 1, 0);
}

std::pair<qsizetype, qsizetype> RLineIndex::lines(RTextRange range) const
{
    const qsizetype first = line(range.location);
    const qsizetype last = line(range.location + qMax<qsizetype>(range.length, 0));
    return {first, qMax(first, last)};
}

void RLineIndex::moveStep(qsizetype to)
{
    to = qBound<qsizetype>(0, to, lineCount());
    if (m_step != 0) {
        if (to > m_stepFrom) {
            for (qsizetype i = m_stepFrom; i < to; ++i)
                m_starts[size_t(i)] += m_step;
        } else {
            for (qsizetype i = to; i < m_stepFrom; ++i)
                m_starts[size_t(i)] -= m_step;
        }
    }
    m_stepFrom = to;
}

RLineIndex::Change RLineIndex::replaceCharacters(RTextRange range, qsizetype newLength, const QString &text)
{
    return replaceCharacters(range, newLength, reinterpret_cast<const char16_t *>(text.utf16()), text.size());
}

RLineIndex::Change RLineIndex::replaceCharacters(RTextRange range, qsizetype newLength, const char16_t *u,
                                                 qsizetype count)
{
    // Clamp a range that doesn't fit the old text; the result then describes the nearest valid edit.
    const qsizetype location = qBound<qsizetype>(0, range.location, m_length);
    const qsizetype oldLength = qBound<qsizetype>(0, range.length, m_length - location);
    newLength = qMax<qsizetype>(newLength, 0);
    const qsizetype oldEnd = location + oldLength;
    const qsizetype newEnd = location + newLength;
    const qsizetype textLength = qMax<qsizetype>(count, 0);
    const qsizetype firstStart =
        location > 0 && location - 1 < textLength && u[location - 1] == '\r' ? location : location + 1;

    const qsizetype lower = search(firstStart, false);
    const qsizetype upper = qMax(lower, search(oldEnd, true));

    std::vector<qsizetype> added;
    if (newEnd >= firstStart) {
        const qsizetype stop = qMin(newEnd, textLength);
        for (qsizetype i = firstStart - 1; i < stop; ++i) {
            const char16_t c = u[i];
            if (c == '\n' || (c == '\r' && (i + 1 >= textLength || u[i + 1] != '\n')))
                added.push_back(i + 1);
        }
    }

    const qsizetype delta = newLength - oldLength;
    // Settle the pending shift up to `upper`, so the replaced stretch holds plain values.
    moveStep(upper);
    const qsizetype removed = upper - lower;
    const qsizetype inserted = qsizetype(added.size());
    if (removed == inserted) {
        std::copy(added.begin(), added.end(), m_starts.begin() + lower);
    } else {
        m_starts.erase(m_starts.begin() + lower, m_starts.begin() + upper);
        m_starts.insert(m_starts.begin() + lower, added.begin(), added.end());
    }
    m_stepFrom += inserted - removed;
    m_step += delta;
    if (m_stepFrom >= lineCount())
        m_step = 0;
    m_length += delta;
    return Change{lower - 1, removed, inserted};
}

QList<qsizetype> RLineIndex::lineStarts() const
{
    QList<qsizetype> starts;
    starts.reserve(lineCount());
    for (qsizetype i = 0; i < lineCount(); ++i)
        starts.append(at(i));
    return starts;
}

bool RLineIndex::operator==(const RLineIndex &other) const
{
    if (m_length != other.m_length || lineCount() != other.lineCount())
        return false;
    for (qsizetype i = 0; i < lineCount(); ++i) {
        if (at(i) != other.at(i))
            return false;
    }
    return true;
}

size_t qHash(const RLineIndex &index, size_t seed)
{
    size_t h = ::qHash(index.length(), seed);
    for (qsizetype s : index.lineStarts())
        h = ::qHash(s, h);
    return h;
}
