#include "ANSIText.h"

#include <algorithm>

namespace {

constexpr char16_t ESC = 0x1B;
constexpr char16_t BEL = 0x07;

void appendColor(QString &out, int base, const ANSIStyle::Color &color)
{
    out.append(u';');
    if (color.kind == ANSIStyle::Color::Kind::RGB) {
        out.append(QStringLiteral("%1;2;%2;%3;%4").arg(base + 8).arg(color.r).arg(color.g).arg(color.b));
        return;
    }
    const int p = color.palette;
    if (p >= 0 && p <= 7)
        out.append(QString::number(base + p));
    else if (p >= 8 && p <= 15)
        out.append(QString::number(base + 60 + p - 8));
    else
        out.append(QStringLiteral("%1;5;%2").arg(base + 8).arg(p));
}

// Walks the text, giving each plain run with its style to `emitRun`; returns the final pen.
template <typename F> ANSIStyle walk(const QString &text, F emitRun)
{
    ANSIStyle pen;
    const qsizetype n = text.size();
    const QChar *data = text.constData();
    qsizetype runStart = 0;
    qsizetype i = 0;
    auto flush = [&](qsizetype end) {
        if (end > runStart)
            emitRun(QStringView(data + runStart, end - runStart), pen);
    };
    while (i < n) {
        if (data[i].unicode() != ESC) {
            ++i;
            continue;
        }
        flush(i);
        const qsizetype escAt = i;
        if (i + 1 >= n) { // cut off by the end: dropped with what follows
            runStart = i = n;
            break;
        }
        const char16_t next = data[i + 1].unicode();
        if (next == u'[') {
            qsizetype j = i + 2;
            while (j < n && data[j].unicode() >= 0x20 && data[j].unicode() <= 0x3F)
                ++j;
            if (j >= n) {
                runStart = i = n;
                break;
            }
            const char16_t final = data[j].unicode();
            const QStringView parameters(data + escAt + 2, j - escAt - 2);
            if (final >= 0x40 && final <= 0x7E) {
                if (final == u'm' && std::all_of(parameters.begin(), parameters.end(),
                                                 [](QChar c) { return c.isDigit() || c == u';'; }))
                    pen.apply(parameters);
                i = j + 1;
            } else {
                i = j; // not a final byte: it is read as text
            }
        } else if (next == u']') {
            qsizetype j = i + 2;
            while (j < n) {
                const char16_t c = data[j].unicode();
                if (c == BEL) {
                    ++j;
                    break;
                }
                if (c == ESC && j + 1 < n && data[j + 1] == u'\\') {
                    j += 2;
                    break;
                }
                if (c == u'\n' || c == u'\r')
                    break; // ends it and stays in the text
                ++j;
            }
            i = j;
        } else {
            qsizetype j = i + 1;
            while (j < n && data[j].unicode() >= 0x20 && data[j].unicode() <= 0x2F)
                ++j;
            if (j < n && data[j].unicode() >= 0x30 && data[j].unicode() <= 0x7E)
                ++j;
            i = j;
        }
        runStart = i;
    }
    flush(qMin(i, n));
    return pen;
}

} // namespace

void ANSIStyle::apply(QStringView parameters)
{
    QList<int> values;
    if (parameters.isEmpty()) {
        values.append(0);
    } else {
        for (QStringView piece : parameters.split(u';')) {
            bool ok = false;
            const int v = piece.toInt(&ok);
            values.append(ok ? v : 0);
        }
    }
    for (qsizetype i = 0; i < values.size(); ++i) {
        const int v = values[i];
        if (v == 0) {
            *this = ANSIStyle{};
        } else if (v == 1) {
            bold = true;
        } else if (v == 2) {
            dim = true;
        } else if (v == 3) {
            italic = true;
        } else if (v == 4) {
            underline = true;
        } else if (v == 22) {
            bold = dim = false;
        } else if (v == 23) {
            italic = false;
        } else if (v == 24) {
            underline = false;
        } else if (v >= 30 && v <= 37) {
            foreground = Color::fromPalette(v - 30);
        } else if (v == 39) {
            foreground.reset();
        } else if (v >= 40 && v <= 47) {
            background = Color::fromPalette(v - 40);
        } else if (v == 49) {
            background.reset();
        } else if (v >= 90 && v <= 97) {
            foreground = Color::fromPalette(v - 82);
        } else if (v >= 100 && v <= 107) {
            background = Color::fromPalette(v - 92);
        } else if (v == 38 || v == 48) {
            std::optional<Color> &target = v == 38 ? foreground : background;
            if (i + 2 < values.size() && values[i + 1] == 5) {
                if (values[i + 2] >= 0 && values[i + 2] < 256)
                    target = Color::fromPalette(values[i + 2]);
                i += 2;
            } else if (i + 4 < values.size() && values[i + 1] == 2) {
                auto clamp = [](int c) { return quint8(std::clamp(c, 0, 255)); };
                target = Color::rgb(clamp(values[i + 2]), clamp(values[i + 3]), clamp(values[i + 4]));
                i += 4;
            }
        }
    }
}

namespace ANSIText {

QList<ANSIRun> parse(const QString &text)
{
    QList<ANSIRun> runs;
    if (!text.contains(QChar(ESC))) {
        if (!text.isEmpty())
            runs.append({text, ANSIStyle{}});
        return runs;
    }
    walk(text, [&](QStringView piece, const ANSIStyle &style) {
        if (!runs.isEmpty() && runs.last().style == style)
            runs.last().text.append(piece);
        else
            runs.append({piece.toString(), style});
    });
    return runs;
}

QString strip(const QString &text)
{
    if (!text.contains(QChar(ESC)))
        return text;
    QString out;
    out.reserve(text.size());
    walk(text, [&](QStringView piece, const ANSIStyle &) { out.append(piece); });
    return out;
}

ANSIStyle endStyle(const QString &text)
{
    if (!text.contains(QChar(ESC)))
        return ANSIStyle{};
    return walk(text, [](QStringView, const ANSIStyle &) {});
}

QString sequence(const ANSIStyle &style)
{
    QString out = QStringLiteral("\x1b[0");
    if (style.bold)
        out.append(QLatin1String(";1"));
    if (style.dim)
        out.append(QLatin1String(";2"));
    if (style.italic)
        out.append(QLatin1String(";3"));
    if (style.underline)
        out.append(QLatin1String(";4"));
    if (style.foreground)
        appendColor(out, 30, *style.foreground);
    if (style.background)
        appendColor(out, 40, *style.background);
    out.append(u'm');
    return out;
}

} // namespace ANSIText
