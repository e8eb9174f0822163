#include "HTTPRequestParser.h"

#include "TextUnits.h"

#include <QStringList>

#include <limits>

namespace {

constexpr qsizetype keepCapacityLimit = 1 << 20;

bool isTokenChar(char16_t c)
{
    if ((c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z'))
        return true;
    return QStringView(u"!#$%&'*+-.^_`|~").contains(c);
}

bool isToken(QStringView text)
{
    if (text.isEmpty())
        return false;
    for (QChar c : text) {
        if (!isTokenChar(c.unicode()))
            return false;
    }
    return true;
}

QString trimmedSpacesAndTabs(QStringView text)
{
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && (text[begin] == u' ' || text[begin] == u'\t'))
        ++begin;
    while (end > begin && (text[end - 1] == u' ' || text[end - 1] == u'\t'))
        --end;
    return text.mid(begin, end - begin).toString();
}

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
}

HTTPParseError tooLarge(qint64 maxBody)
{
    return {413, QStringLiteral("Request body exceeds %1 bytes.").arg(maxBody)};
}

} // namespace

HTTPRequestParser::HTTPRequestParser(qint64 maxBodyBytes) : m_maxBodyBytes(maxBodyBytes) {}

void HTTPRequestParser::append(QByteArrayView bytes)
{
    if (m_cursor >= 1 && m_buffer.size() <= 2 * m_cursor) {
        m_buffer.remove(0, m_cursor);
        m_cursor = 0;
    }
    m_buffer.append(bytes);
}

HTTPRequestParser::Next HTTPRequestParser::next()
{
    for (;;) {
        switch (m_state) {
        case State::Head: {
            std::optional<HTTPParseError> error;
            if (!parseHead(error))
                return *error;
            if (!m_head)
                return NeedMore{};
            break;
        }
        case State::Fixed: {
            if (unconsumedBytes() < m_count)
                return NeedMore{};
            m_body = m_buffer.mid(m_cursor, m_count);
            m_cursor += m_count;
            return finish();
        }
        case State::ChunkSize: {
            QByteArrayView line;
            const LineResult r = readLine(maxLineBytes, line);
            if (r == LineResult::NeedMore)
                return NeedMore{};
            if (r == LineResult::TooLong)
                return HTTPParseError{400, QStringLiteral("Line too long.")};
            if (const qsizetype semicolon = line.indexOf(';'); semicolon >= 0)
                line = line.first(semicolon);
            while (!line.isEmpty() && isBlank(line.front()))
                line = line.sliced(1);
            while (!line.isEmpty() && isBlank(line.back()))
                line.chop(1);
            if (line.isEmpty())
                return HTTPParseError{400, QStringLiteral("Invalid chunk size.")};
            quint64 size = 0;
            for (char c : line) {
                const int digit = TextUnits::hexDigitValue(c);
                if (digit < 0 || size > (quint64(std::numeric_limits<qint64>::max()) >> 4))
                    return HTTPParseError{400, QStringLiteral("Invalid chunk size.")};
                size = (size << 4) | quint64(digit);
            }
            if (size == 0) {
                m_state = State::Trailers;
                m_count = 0;
            } else if (qint64(size) > m_maxBodyBytes - m_body.size()) {
                return tooLarge(m_maxBodyBytes);
            } else {
                m_state = State::ChunkData;
                m_count = qint64(size);
            }
            break;
        }
        case State::ChunkData: {
            const qsizetype available = unconsumedBytes();
            if (available == 0)
                return NeedMore{};
            const qsizetype take = qMin<qint64>(available, m_count);
            m_body.append(QByteArrayView(m_buffer).sliced(m_cursor, take));
            m_cursor += take;
            m_count -= take;
            if (m_count == 0)
                m_state = State::ChunkDataEnd;
            break;
        }
        case State::ChunkDataEnd: {
            // A limit of 0: anything but CR LF where the chunk ends is refused as too long a line.
            QByteArrayView line;
            const LineResult r = readLine(0, line);
            if (r == LineResult::NeedMore)
                return NeedMore{};
            if (r == LineResult::TooLong)
                return HTTPParseError{400, QStringLiteral("Line too long.")};
            if (!line.isEmpty())
                return HTTPParseError{400, QStringLiteral("Missing chunk terminator.")};
            m_state = State::ChunkSize;
            break;
        }
        case State::Trailers: {
            QByteArrayView line;
            const LineResult r = readLine(maxLineBytes, line);
            if (r == LineResult::NeedMore)
                return NeedMore{};
            if (r == LineResult::TooLong)
                return HTTPParseError{400, QStringLiteral("Line too long.")};
            if (line.isEmpty())
                return finish();
            m_count += line.size();
            if (m_count > maxTrailerBytes)
                return HTTPParseError{431, QStringLiteral("Trailer section too large.")};
            break;
        }
        }
    }
}

HTTPRequestParser::LineResult HTTPRequestParser::readLine(qsizetype limit, QByteArrayView &line)
{
    const qsizetype newline = m_buffer.indexOf('\n', m_cursor);
    if (newline < 0)
        return unconsumedBytes() > limit + 1 ? LineResult::TooLong : LineResult::NeedMore;
    qsizetype end = newline;
    if (end > m_cursor && m_buffer.at(end - 1) == '\r')
        --end;
    if (end - m_cursor > limit)
        return LineResult::TooLong;
    line = QByteArrayView(m_buffer).sliced(m_cursor, end - m_cursor);
    m_cursor = newline + 1;
    return LineResult::Line;
}

bool HTTPRequestParser::parseHead(std::optional<HTTPParseError> &error)
{
    const qsizetype size = m_buffer.size();
    const char *data = m_buffer.constData();
    if (m_headScanned == 0) {
        // Blank lines left over before a request line are tolerated.
        while (m_cursor < size && (data[m_cursor] == '\r' || data[m_cursor] == '\n'))
            ++m_cursor;
    }

    const qsizetype start = m_cursor;
    qsizetype lastLineEnd = -1; // the newline that ends the last head line
    qsizetype headEnd = -1;     // just past the end mark
    qsizetype i = start + m_headScanned;
    while (i < size) {
        const void *found = memchr(data + i, '\n', size_t(size - i));
        if (!found) {
            i = size;
            break;
        }
        const qsizetype nl = static_cast<const char *>(found) - data;
        if (nl + 1 >= size || (data[nl + 1] == '\r' && nl + 2 >= size)) {
            // Whether a blank line follows is not known yet: resume at this newline.
            i = nl;
            break;
        }
        if (data[nl + 1] == '\n') {
            lastLineEnd = nl;
            headEnd = nl + 2;
            break;
        }
        if (data[nl + 1] == '\r' && data[nl + 2] == '\n') {
            lastLineEnd = nl;
            headEnd = nl + 3;
            break;
        }
        i = nl + 1;
    }

    if (headEnd < 0) {
        m_headScanned = i - start;
        if (size - start > maxHeadBytes) {
            error = HTTPParseError{431, QStringLiteral("Header section too large.")};
            return false;
        }
        return true;
    }
    if (headEnd - start > maxHeadBytes) {
        error = HTTPParseError{431, QStringLiteral("Header section too large.")};
        return false;
    }

    const QString text = QString::fromUtf8(data + start, lastLineEnd - start);
    m_cursor = headEnd;
    m_headScanned = 0;

    const QList<QStringView> lines = QStringView(text).split(u'\n');
    auto withoutCR = [](QStringView line) { return line.endsWith(u'\r') ? line.chopped(1) : line; };

    Head head;
    const QStringView requestLine = withoutCR(lines.front());
    const QList<QStringView> parts = requestLine.split(u' ');
    if (parts.size() != 3 || !isToken(parts[0]) || parts[1].isEmpty()) {
        error = HTTPParseError{400, QStringLiteral("Malformed request line.")};
        return false;
    }
    head.method = parts[0].toString();
    head.target = parts[1].toString();
    head.version = parts[2].toString();
    if (head.version != u"HTTP/1.1" && head.version != u"HTTP/1.0") {
        error = HTTPParseError{head.version.startsWith(u"HTTP/") ? 505 : 400,
                               QStringLiteral("Unsupported HTTP version.")};
        return false;
    }

    for (qsizetype n = 1; n < lines.size(); ++n) {
        const QStringView line = withoutCR(lines[n]);
        if (line.isEmpty())
            continue;
        const qsizetype colon = line.indexOf(u':');
        if (line.front() == u' ' || line.front() == u'\t' || colon < 0) {
            error = HTTPParseError{400, QStringLiteral("Malformed header field.")};
            return false;
        }
        const QStringView name = line.first(colon);
        if (!isToken(name)) {
            error = HTTPParseError{400, QStringLiteral("Malformed header field name.")};
            return false;
        }
        const QString value = trimmedSpacesAndTabs(line.sliced(colon + 1));
        auto [it, inserted] = head.headers.try_emplace(name.toString().toLower(), value);
        if (!inserted)
            it->second += QStringLiteral(", ") + value;
    }

    bool chunked = false;
    qint64 length = 0;
    const auto te = head.headers.find(u"transfer-encoding");
    const auto cl = head.headers.find(u"content-length");
    if (te != head.headers.end()) {
        QStringList codings;
        for (const QString &entry : te->second.toLower().split(u',')) {
            const QString coding = entry.trimmed();
            if (!coding.isEmpty() && coding != u"identity")
                codings.append(coding);
        }
        if (!codings.isEmpty()) {
            if (codings != QStringList{QStringLiteral("chunked")}) {
                error = HTTPParseError{501, QStringLiteral("Unsupported transfer coding.")};
                return false;
            }
            chunked = true;
            // Both framings at once is how request smuggling starts: serve this one, reuse nothing.
            if (cl != head.headers.end())
                head.mustClose = true;
        }
    }
    if (!chunked && cl != head.headers.end()) {
        const QStringList entries = cl->second.split(u',');
        const QString first = entries.front().trimmed();
        bool valid = !first.isEmpty() && first.size() <= 18;
        for (QChar c : first)
            valid = valid && c >= u'0' && c <= u'9';
        for (const QString &entry : entries)
            valid = valid && entry.trimmed() == first;
        if (!valid) {
            error = HTTPParseError{400, QStringLiteral("Invalid Content-Length.")};
            return false;
        }
        length = first.toLongLong();
        if (length > m_maxBodyBytes) {
            error = tooLarge(m_maxBodyBytes);
            return false;
        }
    }

    const auto expect = head.headers.find(u"expect");
    m_continuePending = head.version == u"HTTP/1.1" && (chunked || length > 0) &&
                        expect != head.headers.end() && expect->second.toLower() == u"100-continue";
    m_state = chunked ? State::ChunkSize : State::Fixed;
    m_count = length;
    m_body.clear();
    m_head = std::move(head);
    return true;
}

HTTPRequest HTTPRequestParser::finish()
{
    HTTPRequest request;
    request.method = std::move(m_head->method);
    request.target = std::move(m_head->target);
    request.version = std::move(m_head->version);
    request.headers = std::move(m_head->headers);
    request.mustClose = m_head->mustClose;
    request.body = std::move(m_body);
    m_body = QByteArray();
    m_head.reset();
    m_state = State::Head;
    m_count = 0;
    m_continuePending = false;
    if (m_cursor == m_buffer.size()) {
        if (m_buffer.capacity() > keepCapacityLimit)
            m_buffer = QByteArray();
        else
            m_buffer.resize(0);
        m_cursor = 0;
    }
    return request;
}
