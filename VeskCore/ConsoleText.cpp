#include "ConsoleText.h"

#include "ANSIStyle.h"
#include "ANSIText.h"

#include <QTextBoundaryFinder>

#include <algorithm>
#include <limits>
#include <vector>

namespace {

constexpr char16_t escape = 0x1B;
constexpr char16_t bell = 0x07;
constexpr char16_t space[] = u" ";

bool inRange(char32_t c, char32_t low, char32_t high)
{
    return c >= low && c <= high;
}

bool isDigitsAndSemicolons(QStringView text)
{
    for (QChar c : text)
        if (!((c >= u'0' && c <= u'9') || c == u';'))
            return false;
    return true;
}

// The input of one write, cut into grapheme clusters.
class Clusters {
public:
    explicit Clusters(const QString &text) : m_text(text)
    {
        m_bounds.reserve(text.size() + 1);
        m_bounds.push_back(0);
        // Below U+0300 there are no combining marks, joiners or other extenders: every unit is a
        // cluster of its own but for CR LF. Most output is such text; spare it the full rules.
        if (std::all_of(text.begin(), text.end(), [](QChar c) { return c.unicode() < 0x300; })) {
            for (qsizetype i = 1; i <= text.size(); ++i)
                if (i == text.size() || !(text[i - 1] == u'\r' && text[i] == u'\n'))
                    m_bounds.push_back(i);
            return;
        }
        QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
        for (qsizetype at = finder.toNextBoundary(); at > 0; at = finder.toNextBoundary())
            m_bounds.push_back(at);
        if (m_bounds.back() != text.size()) // close the last cluster, whatever the finder did
            m_bounds.push_back(text.size());
    }

    qsizetype count() const { return qsizetype(m_bounds.size()) - 1; }
    qsizetype offset(qsizetype k) const { return m_bounds[k]; }
    QStringView at(qsizetype k) const
    {
        return QStringView(m_text).mid(m_bounds[k], m_bounds[k + 1] - m_bounds[k]);
    }

    // The cluster's scalar if it is exactly one, else a value no range test matches.
    char32_t scalar(qsizetype k) const
    {
        const qsizetype start = m_bounds[k];
        const qsizetype length = m_bounds[k + 1] - start;
        const QChar *c = m_text.constData() + start;
        if (length == 1)
            return c[0].isSurrogate() ? 0xFFFFFFFF : c[0].unicode();
        if (length == 2 && c[0].isHighSurrogate() && c[1].isLowSurrogate())
            return QChar::surrogateToUcs4(c[0], c[1]);
        return 0xFFFFFFFF;
    }

    bool isLineFeed(qsizetype k) const
    {
        const qsizetype start = m_bounds[k];
        const qsizetype length = m_bounds[k + 1] - start;
        const QChar *c = m_text.constData() + start;
        return (length == 1 && c[0] == u'\n') || (length == 2 && c[0] == u'\r' && c[1] == u'\n');
    }
    bool startsWithLineBreak(qsizetype k) const
    {
        const QChar first = m_text[m_bounds[k]];
        return first == u'\n' || first == u'\r';
    }

private:
    const QString &m_text;
    std::vector<qsizetype> m_bounds;
};

// The working state of the last line. Characters point into strings that outlive the line: the
// replayed line and the input of the write.
class Line {
public:
    struct Character {
        QStringView text;
        ANSIStyle style;
    };

    qsizetype length() const { return qsizetype(m_characters.size()); }
    qsizetype cursor() const { return m_cursor; }
    void setCursor(qsizetype cursor) { m_cursor = std::clamp<qsizetype>(cursor, 0, length()); }

    // Applies `input`; completed lines go to `output`. Returns the offset of an escape sequence cut
    // off by the end of the input, or -1.
    qsizetype write(const QString &input, QString &output);
    void render(QString &out) const;

private:
    void put(QStringView text);
    void erase(int mode);

    std::vector<Character> m_characters;
    qsizetype m_cursor = 0;
    ANSIStyle m_pen;
    ANSIStyle m_startStyle;
};

qsizetype Line::write(const QString &input, QString &output)
{
    const Clusters clusters(input);
    const qsizetype n = clusters.count();
    qsizetype k = 0;
    while (k < n) {
        if (clusters.isLineFeed(k)) {
            render(output);
            output += u'\n';
            m_characters.clear();
            m_cursor = 0;
            m_startStyle = m_pen;
            ++k;
            continue;
        }
        const char32_t c = clusters.scalar(k);
        if (c == u'\r') {
            m_cursor = 0;
            ++k;
            continue;
        }
        if (c == 0x08) {
            m_cursor = std::max<qsizetype>(0, m_cursor - 1);
            ++k;
            continue;
        }
        if (c != escape) {
            put(clusters.at(k));
            ++k;
            continue;
        }

        if (k + 1 >= n)
            return clusters.offset(k);
        const char32_t next = clusters.scalar(k + 1);
        qsizetype j = k + 2;
        if (next == u']') {
            for (;;) {
                if (j >= n)
                    return clusters.offset(k);
                const char32_t s = clusters.scalar(j);
                if (s == bell) {
                    ++j;
                    break;
                }
                if (s == escape) {
                    if (j + 1 >= n)
                        return clusters.offset(k);
                    if (clusters.scalar(j + 1) == u'\\') {
                        j += 2;
                        break;
                    }
                }
                if (clusters.startsWithLineBreak(j))
                    break;
                ++j;
            }
        } else if (next == u'[') {
            while (j < n && inRange(clusters.scalar(j), 0x20, 0x3F))
                ++j;
            if (j >= n)
                return clusters.offset(k);
            const QStringView parameters =
                QStringView(input).mid(clusters.offset(k + 2), clusters.offset(j) - clusters.offset(k + 2));
            const char32_t final = clusters.scalar(j);
            if (inRange(final, 0x40, 0x7E)) {
                ++j;
                if (final == u'K' && isDigitsAndSemicolons(parameters)) {
                    bool ok = false;
                    const int mode = parameters.toInt(&ok);
                    erase(ok ? mode : 0);
                } else if (final == u'm' && isDigitsAndSemicolons(parameters)) {
                    m_pen.applySGR(parameters);
                }
            }
        } else {
            j = k + 1;
            while (j < n && inRange(clusters.scalar(j), 0x20, 0x2F))
                ++j;
            if (j >= n)
                return clusters.offset(k);
            if (inRange(clusters.scalar(j), 0x30, 0x7E))
                ++j;
        }
        k = j;
    }
    return -1;
}

void Line::put(QStringView text)
{
    if (m_cursor < length())
        m_characters[m_cursor] = {text, m_pen};
    else
        m_characters.push_back({text, m_pen});
    ++m_cursor;
}

void Line::erase(int mode)
{
    const qsizetype length = this->length();
    switch (mode) {
    case 0:
        m_characters.resize(std::min(length, m_cursor));
        break;
    case 1:
        std::fill_n(m_characters.begin(), std::min(length, m_cursor + 1),
                    Character{QStringView(space, 1), {}});
        break;
    case 2: {
        const qsizetype kept = std::min(length, m_cursor);
        m_characters.resize(kept);
        std::fill_n(m_characters.begin(), kept, Character{QStringView(space, 1), {}});
        break;
    }
    default:
        break;
    }
}

void Line::render(QString &out) const
{
    ANSIStyle current = m_startStyle;
    for (const Character &c : m_characters) {
        if (!(c.style == current)) {
            out += ANSIText::sequence(c.style);
            current = c.style;
        }
        out += c.text;
    }
    if (!(m_pen == current))
        out += ANSIText::sequence(m_pen);
}

} // namespace

bool ConsoleText::isPlainAppend(const QString &text, const Cursor &cursor)
{
    return cursor.fromEnd == 0 && cursor.pending.isEmpty() && !text.contains(u'\r') && !text.contains(u'\b');
}

QString ConsoleText::appending(const QString &text, QString base, Cursor &cursor)
{
    if (isPlainAppend(text, cursor)) {
        base += text;
        return base;
    }

    // Only the last line is replayed; what lies before it is kept as it is.
    const qsizetype lastLineStart = base.lastIndexOf(u'\n') + 1;
    const QString lastLine = base.sliced(lastLineStart);
    base.truncate(lastLineStart);

    Line line;
    QString discarded;
    const qsizetype replayLeftover = line.write(lastLine, discarded);
    line.setCursor(line.length() - std::max(0, cursor.fromEnd));

    QString input;
    if (replayLeftover >= 0)
        input += QStringView(lastLine).sliced(replayLeftover);
    input += cursor.pending;
    input += text;

    const qsizetype leftover = line.write(input, base);
    cursor.pending.clear();
    if (leftover >= 0 && input.size() - leftover <= maxPending)
        cursor.pending = input.sliced(leftover);
    cursor.fromEnd = int(std::min<qsizetype>(line.length() - line.cursor(), std::numeric_limits<int>::max()));

    line.render(base);
    return base;
}

QString ConsoleText::appending(const QString &text, QString base)
{
    Cursor cursor;
    return appending(text, std::move(base), cursor);
}
