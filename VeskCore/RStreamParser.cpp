#include "RStreamParser.h"

#include "TextUnits.h"

#include <QRandomGenerator>

#include <cstdio>

#include <sys/random.h>

namespace {

constexpr char16_t frameStart = 0x1E;
constexpr char16_t frameEnd = 0x1F;
constexpr char16_t promptStart = 0x02;

// Length of the longest prefix of `bytes` that does not end inside a UTF-8 sequence. Invalid data
// is never held back.
qsizetype completePrefix(const QByteArray &bytes)
{
    const qsizetype n = bytes.size();
    qsizetype i = n;
    int continuation = 0;
    while (i > 0 && continuation < 4 && (static_cast<unsigned char>(bytes[i - 1]) & 0xC0) == 0x80) {
        --i;
        ++continuation;
    }
    if (i == 0 || continuation >= 4)
        return n;
    const unsigned char lead = static_cast<unsigned char>(bytes[i - 1]);
    int needed = 0;
    if ((lead & 0xE0) == 0xC0)
        needed = 2;
    else if ((lead & 0xF0) == 0xE0)
        needed = 3;
    else if ((lead & 0xF8) == 0xF0)
        needed = 4;
    if (needed > continuation + 1)
        return i - 1;
    return n;
}

qsizetype findMarker(const char16_t *data, qsizetype from, qsizetype n)
{
    for (qsizetype i = from; i < n; ++i) {
        const char16_t c = data[i];
        if (c == u'B' || c == frameStart || c == promptStart)
            return i;
    }
    return -1;
}

} // namespace

QString RStreamParser::makeToken()
{
    unsigned char bytes[16];
    if (getrandom(bytes, sizeof bytes, 0) != ssize_t(sizeof bytes)) {
        for (unsigned char &b : bytes)
            b = static_cast<unsigned char>(QRandomGenerator::system()->generate() & 0xFF);
    }
    QString token;
    token.reserve(32);
    for (unsigned char b : bytes) {
        char hex[3];
        std::snprintf(hex, sizeof hex, "%02x", b);
        token.append(QLatin1String(hex, 2));
    }
    return token;
}

RStreamParser::RStreamParser(const QString &token) : m_token(token)
{
    bool valid = token.size() >= 16;
    for (QChar c : token)
        valid = valid && c.unicode() < 128 && c.isLetterOrNumber();
    if (!valid)
        qFatal("RStreamParser: the token must be 16 or more ASCII letters and digits");
    m_readyPrompt = QChar(promptStart) + QStringLiteral("VESK>") + token + QChar(0x03);
    m_continuationPrompt = QChar(promptStart) + QStringLiteral("VESK+") + token + QChar(0x03);
}

QList<RStreamEvent> RStreamParser::feed(QByteArrayView bytes)
{
    QList<RStreamEvent> events;
    m_bytes.append(bytes.data(), bytes.size());
    const qsizetype complete = completePrefix(m_bytes);
    if (complete > 0) {
        m_buffer.append(TextUnits::decodeUTF8(QByteArrayView(m_bytes.constData(), complete)));
        m_bytes.remove(0, complete);
    }
    drain(events);
    return events;
}

QList<RStreamEvent> RStreamParser::flush()
{
    QList<RStreamEvent> events;
    if (!m_bytes.isEmpty()) {
        m_buffer.append(TextUnits::decodeUTF8(m_bytes));
        m_bytes.clear();
    }
    if (!m_buffer.isEmpty()) {
        events.append(RStreamEvent::makeText(m_buffer));
        m_buffer.clear();
    }
    m_resumeScan = 0;
    return events;
}

RStreamParser::Match RStreamParser::matchBrowserPrompt(qsizetype at, qsizetype &length, int &level) const
{
    static const QString word = QStringLiteral("Browse[");
    const qsizetype n = m_buffer.size();
    const qsizetype available = n - at;
    if (available < word.size())
        return QStringView(word).startsWith(QStringView(m_buffer).mid(at)) ? Match::Incomplete : Match::No;
    if (QStringView(m_buffer).mid(at, word.size()) != word)
        return Match::No;
    qsizetype i = at + word.size();
    const qsizetype digitsStart = i;
    while (i < n && m_buffer[i] >= u'0' && m_buffer[i] <= u'9')
        ++i;
    if (i == n)
        return Match::Incomplete;
    if (i == digitsStart || m_buffer[i] != u']')
        return Match::No;
    const QStringView digits = QStringView(m_buffer).mid(digitsStart, i - digitsStart);
    ++i;
    const QStringView tail = QStringView(m_buffer).mid(i, qMin<qsizetype>(2, n - i));
    if (tail.size() == 2) {
        if (tail != QLatin1String("> "))
            return Match::No;
    } else {
        return QStringView(u"> ").startsWith(tail) ? Match::Incomplete : Match::No;
    }
    bool ok = false;
    const int parsed = digits.toInt(&ok);
    level = ok ? parsed : 1;
    length = word.size() + digits.size() + 3;
    return Match::Matched;
}

void RStreamParser::drain(QList<RStreamEvent> &events)
{
    const char16_t *data = reinterpret_cast<const char16_t *>(m_buffer.constData());
    const qsizetype n = m_buffer.size();
    qsizetype cursor = 0;
    QString pending;

    auto emitPending = [&] {
        if (pending.isEmpty())
            return;
        m_atLineStart = pending.endsWith(u'\n');
        events.append(RStreamEvent::makeText(std::move(pending)));
        pending = QString();
    };
    auto appendText = [&](qsizetype from, qsizetype to) {
        if (to > from)
            pending.append(QStringView(data + from, to - from));
    };

    while (cursor < n) {
        if (m_expectingEcho) {
            const qsizetype lineFeed = m_buffer.indexOf(u'\n', qMax(cursor, cursor + m_resumeScan));
            if (lineFeed < 0) {
                if (n - cursor > maxHeldCharacters) {
                    m_expectingEcho = false; // no echo is this long: let it through as text
                    m_resumeScan = 0;
                    continue;
                }
                m_resumeScan = n - cursor;
                break;
            }
            m_resumeScan = 0;
            const QString line = m_buffer.mid(cursor, lineFeed - cursor);
            cursor = lineFeed + 1;
            m_expectingEcho = false;
            if (line.startsWith(QLatin1String(".vesk$"))) {
                m_atLineStart = true;
            } else {
                emitPending();
                events.append(RStreamEvent::makeEcho(line));
            }
            continue;
        }

        const qsizetype marker = findMarker(data, cursor, n);
        if (marker < 0) {
            appendText(cursor, n);
            cursor = n;
            break;
        }
        appendText(cursor, marker);
        if (!pending.isEmpty())
            m_atLineStart = pending.endsWith(u'\n');
        cursor = marker;
        const char16_t c = data[marker];

        if (c == frameStart) {
            const qsizetype tokenStart = marker + 1;
            const qsizetype tokenLength = m_token.size();
            qsizetype i = 0;
            while (i < tokenLength && tokenStart + i < n && data[tokenStart + i] == m_token[i].unicode())
                ++i;
            if (i < tokenLength && tokenStart + i < n) {
                pending.append(QChar(frameStart)); // not our token: ordinary text
                cursor = marker + 1;
                continue;
            }
            if (i < tokenLength) {
                m_resumeScan = 0;
                break; // the buffer ends inside the token
            }
            const qsizetype payloadStart = tokenStart + tokenLength;
            const qsizetype searchFrom = qMax(payloadStart, marker + m_resumeScan);
            const qsizetype end = m_buffer.indexOf(QChar(frameEnd), searchFrom);
            if (end < 0) {
                if (n - marker > maxHeldCharacters) {
                    pending.append(QChar(frameStart)); // a frame this long is no frame
                    cursor = marker + 1;
                    m_resumeScan = 0;
                    continue;
                }
                m_resumeScan = n - marker;
                break;
            }
            m_resumeScan = 0;
            const QStringView payload(data + payloadStart, end - payloadStart);
            cursor = end + 1;
            emitPending();
            if (std::optional<JSONValue> value = JSONValue::parse(QByteArrayView(payload.toUtf8())))
                events.append(RStreamEvent::makeEvent(std::move(*value)));
            else
                events.append(RStreamEvent::makeMalformed(payload.toString()));
            continue;
        }

        if (c == promptStart) {
            const QStringView rest(data + marker, n - marker);
            if (rest.startsWith(m_readyPrompt)) {
                cursor = marker + m_readyPrompt.size();
                emitPending();
                events.append(RStreamEvent::makePrompt(RPrompt::ready()));
                m_expectingEcho = true;
                continue;
            }
            if (rest.startsWith(m_continuationPrompt)) {
                cursor = marker + m_continuationPrompt.size();
                emitPending();
                events.append(RStreamEvent::makePrompt(RPrompt::continuation()));
                m_expectingEcho = true;
                continue;
            }
            if (rest.size() < m_readyPrompt.size() && (QStringView(m_readyPrompt).startsWith(rest) ||
                                                       QStringView(m_continuationPrompt).startsWith(rest)))
                break; // wait for the rest of the prompt
            pending.append(QChar(promptStart));
            cursor = marker + 1;
            continue;
        }

        // "B": a browser prompt only at the start of a line.
        const bool atLineStart = pending.isEmpty() ? m_atLineStart : pending.endsWith(u'\n');
        if (!atLineStart) {
            pending.append(u'B');
            cursor = marker + 1;
            continue;
        }
        qsizetype length = 0;
        int level = 1;
        const Match match = matchBrowserPrompt(marker, length, level);
        if (match == Match::Incomplete)
            break;
        if (match == Match::No) {
            pending.append(u'B');
            cursor = marker + 1;
            continue;
        }
        cursor = marker + length;
        emitPending();
        events.append(RStreamEvent::makePrompt(RPrompt::browser(level)));
        m_expectingEcho = true;
    }

    emitPending();
    if (cursor > 0)
        m_buffer.remove(0, cursor);
}
