#include "ANSIText.h"

namespace {

constexpr char16_t escape = 0x1B;
constexpr char16_t bell = 0x07;

bool inRange(char16_t c, char16_t low, char16_t high)
{
    return c >= low && c <= high;
}

bool isSGRParameterText(QStringView parameters)
{
    for (QChar c : parameters)
        if (!(inRange(c.unicode(), u'0', u'9') || c == u';'))
            return false;
    return true;
}

// One pass over the text that hands plain stretches to `onText` and SGR parameters to `onSGR`, in
// order. Works on UTF-16 units: every byte range it tests lies in the BMP, so a surrogate never
// matches one and is read as text, like any scalar outside the ranges.
template <typename OnText, typename OnSGR> void walk(QStringView text, OnText onText, OnSGR onSGR)
{
    const qsizetype n = text.size();
    qsizetype plainStart = 0;
    qsizetype i = 0;
    auto flushTo = [&](qsizetype end) {
        if (end > plainStart)
            onText(text.mid(plainStart, end - plainStart));
    };
    while (i < n) {
        i = text.indexOf(QChar(escape), i);
        if (i < 0) {
            flushTo(n);
            return;
        }
        flushTo(i);
        if (i + 1 >= n)
            return;
        const char16_t next = text[i + 1].unicode();
        qsizetype j = i + 2;
        if (next == u'[') {
            while (j < n && inRange(text[j].unicode(), 0x20, 0x3F))
                ++j;
            if (j >= n)
                return;
            const QStringView parameters = text.mid(i + 2, j - i - 2);
            const char16_t final = text[j].unicode();
            if (inRange(final, 0x40, 0x7E)) {
                ++j;
                if (final == u'm' && isSGRParameterText(parameters))
                    onSGR(parameters);
            }
        } else if (next == u']') {
            for (;;) {
                if (j >= n)
                    return;
                const char16_t c = text[j].unicode();
                if (c == bell) {
                    ++j;
                    break;
                }
                if (c == escape && j + 1 < n && text[j + 1] == u'\\') {
                    j += 2;
                    break;
                }
                if (c == escape && j + 1 >= n)
                    return;
                if (c == u'\n' || c == u'\r')
                    break;
                ++j;
            }
        } else {
            j = i + 1;
            while (j < n && inRange(text[j].unicode(), 0x20, 0x2F))
                ++j;
            if (j >= n)
                return;
            if (inRange(text[j].unicode(), 0x30, 0x7E))
                ++j;
        }
        i = j;
        plainStart = j;
    }
    flushTo(n);
}

void appendColor(QString &out, const ANSIStyle::Color &color, int base)
{
    if (color.kind == ANSIStyle::Color::Kind::RGB) {
        out += QStringLiteral(";%1;2;%2;%3;%4").arg(base + 8).arg(color.r).arg(color.g).arg(color.b);
    } else if (color.index >= 0 && color.index <= 7) {
        out += u';' + QString::number(base + color.index);
    } else if (color.index >= 8 && color.index <= 15) {
        out += u';' + QString::number(base + 60 + color.index - 8);
    } else {
        out += QStringLiteral(";%1;5;%2").arg(base + 8).arg(color.index);
    }
}

} // namespace

namespace ANSIText {

QList<ANSIRun> parse(const QString &text)
{
    QList<ANSIRun> runs;
    if (!text.contains(QChar(escape))) {
        if (!text.isEmpty())
            runs.append({text, {}});
        return runs;
    }
    ANSIStyle pen;
    walk(
        text,
        [&](QStringView plain) {
            if (!runs.isEmpty() && runs.last().style == pen)
                runs.last().text += plain;
            else
                runs.append({plain.toString(), pen});
        },
        [&](QStringView parameters) { pen.applySGR(parameters); });
    return runs;
}

QString strip(const QString &text)
{
    if (!text.contains(QChar(escape)))
        return text;
    QString out;
    out.reserve(text.size());
    walk(
        text, [&](QStringView plain) { out += plain; }, [](QStringView) {});
    return out;
}

ANSIStyle endStyle(const QString &text)
{
    ANSIStyle pen;
    if (!text.contains(QChar(escape)))
        return pen;
    walk(
        text, [](QStringView) {}, [&](QStringView parameters) { pen.applySGR(parameters); });
    return pen;
}

QString sequence(const ANSIStyle &style)
{
    QString out = QStringLiteral("\x1b[0");
    if (style.bold)
        out += QStringLiteral(";1");
    if (style.dim)
        out += QStringLiteral(";2");
    if (style.italic)
        out += QStringLiteral(";3");
    if (style.underline)
        out += QStringLiteral(";4");
    if (style.foreground)
        appendColor(out, *style.foreground, 30);
    if (style.background)
        appendColor(out, *style.background, 40);
    out += u'm';
    return out;
}

} // namespace ANSIText
