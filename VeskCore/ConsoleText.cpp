#include "ConsoleText.h"

#include <QTextBoundaryFinder>

#include <vector>

namespace {

constexpr char16_t ESC = 0x1B;

QList<QStringView> graphemes(QStringView text)
{
    QList<QStringView> clusters;
    clusters.reserve(text.size());
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text.data(), int(text.size()));
    qsizetype start = 0;
    while (finder.toNextBoundary() >= 0) {
        const qsizetype end = finder.position();
        clusters.append(text.mid(start, end - start));
        start = end;
    }
    return clusters;
}

// The scalar of a one-scalar cluster, or -1.
int scalar(QStringView cluster)
{
    if (cluster.size() == 1)
        return cluster.front().unicode();
    if (cluster.size() == 2 && cluster[0].isHighSurrogate() && cluster[1].isLowSurrogate())
        return int(QChar::surrogateToUcs4(cluster[0], cluster[1]));
    return -1;
}

bool isLineBreak(QStringView cluster)
{
    return cluster == u"\n" || cluster == u"\r\n";
}

bool onlyDigitsAndSemicolons(QStringView text)
{
    for (QChar c : text)
        if (!(c.unicode() >= u'0' && c.unicode() <= u'9') && c != u';')
            return false;
    return true;
}

struct Line {
    std::vector<QString> characters;
    std::vector<ANSIStyle> styles;
    qsizetype cursor = 0;
    ANSIStyle pen;
    ANSIStyle startStyle;

    qsizetype length() const { return qsizetype(characters.size()); }

    QString rendered() const
    {
        QString out;
        ANSIStyle current = startStyle;
        for (size_t i = 0; i < characters.size(); ++i) {
            if (!(styles[i] == current)) {
                out.append(ANSIText::sequence(styles[i]));
                current = styles[i];
            }
            out.append(characters[i]);
        }
        if (!(pen == current))
            out.append(ANSIText::sequence(pen));
        return out;
    }

    void put(QStringView character)
    {
        if (cursor < length()) {
            characters[size_t(cursor)] = character.toString();
            styles[size_t(cursor)] = pen;
        } else {
            characters.push_back(character.toString());
            styles.push_back(pen);
        }
        ++cursor;
    }

    void erase(int mode)
    {
        const qsizetype L = length();
        const qsizetype c = cursor;
        auto blank = [&](qsizetype count) {
            for (qsizetype i = 0; i < count; ++i) {
                characters[size_t(i)] = QStringLiteral(" ");
                styles[size_t(i)] = ANSIStyle{};
            }
        };
        auto truncate = [&](qsizetype at) {
            characters.resize(size_t(at));
            styles.resize(size_t(at));
        };
        switch (mode) {
        case 0:
            truncate(qMin(L, c));
            break;
        case 1:
            blank(qMin(L, c + 1));
            break;
        case 2:
            blank(qMin(L, c));
            truncate(qMin(L, c));
            break;
        default:
            break;
        }
    }

    // Writes the clusters; completed lines go to `output`. Returns what is left of an escape
    // sequence that the input cut off.
    QString write(const QList<QStringView> &input, QString &output)
    {
        const qsizetype n = input.size();
        auto leftoverFrom = [&](qsizetype k) {
            QString rest;
            for (qsizetype i = k; i < n; ++i)
                rest.append(input[i]);
            return rest;
        };
        qsizetype k = 0;
        while (k < n) {
            const QStringView ch = input[k];
            if (isLineBreak(ch)) {
                output.append(rendered());
                output.append(u'\n');
                characters.clear();
                styles.clear();
                startStyle = pen;
                cursor = 0;
                ++k;
                continue;
            }
            if (ch == u"\r") {
                cursor = 0;
                ++k;
                continue;
            }
            if (ch == u"\b") {
                cursor = qMax<qsizetype>(0, cursor - 1);
                ++k;
                continue;
            }
            if (!(ch.size() == 1 && ch.front().unicode() == ESC)) {
                put(ch);
                ++k;
                continue;
            }
            // An escape sequence.
            if (k + 1 >= n)
                return leftoverFrom(k);
            const QStringView next = input[k + 1];
            if (next == u"]") {
                qsizetype j = k + 2;
                bool ended = false;
                while (j < n) {
                    const int s = scalar(input[j]);
                    if (s == 0x07) {
                        ++j;
                        ended = true;
                        break;
                    }
                    if (s == ESC && j + 1 < n && input[j + 1] == u"\\") {
                        j += 2;
                        ended = true;
                        break;
                    }
                    if (s == '\n' || s == '\r' || isLineBreak(input[j])) {
                        ended = true; // the break stays in place
                        break;
                    }
                    ++j;
                }
                if (!ended)
                    return leftoverFrom(k);
                k = j;
                continue;
            }
            if (next == u"[") {
                qsizetype j = k + 2;
                QString parameters;
                while (j < n) {
                    const int s = scalar(input[j]);
                    if (s < 0x20 || s > 0x3F)
                        break; // also ends at a line break or a cluster of several scalars
                    parameters.append(input[j]);
                    ++j;
                }
                if (j >= n)
                    return leftoverFrom(k);
                const int final = scalar(input[j]);
                if (final >= 0x40 && final <= 0x7E) {
                    if (final == 'K' && onlyDigitsAndSemicolons(parameters)) {
                        bool ok = false;
                        const int mode = parameters.toInt(&ok);
                        erase(ok ? mode : 0);
                    } else if (final == 'm' && onlyDigitsAndSemicolons(parameters)) {
                        pen.apply(parameters);
                    }
                    ++j;
                }
                k = j;
                continue;
            }
            qsizetype j = k + 1;
            while (j < n && scalar(input[j]) >= 0x20 && scalar(input[j]) <= 0x2F)
                ++j;
            if (j >= n)
                return leftoverFrom(k);
            if (scalar(input[j]) >= 0x30 && scalar(input[j]) <= 0x7E)
                ++j;
            k = j;
        }
        return {};
    }
};

} // namespace

namespace ConsoleText {

QString appending(const QString &text, const QString &base, Cursor &cursor)
{
    if (cursor.fromEnd == 0 && cursor.pending.isEmpty() && !text.contains(u'\b') && !text.contains(u'\r'))
        return base + text;

    const qsizetype lastBreak = base.lastIndexOf(u'\n');
    QString output = base.left(lastBreak + 1);
    const QString lastLine = base.mid(lastBreak + 1);

    Line line;
    QString replayOutput; // the last line holds no break, so nothing is completed here
    const QString replayLeftover = line.write(graphemes(lastLine), replayOutput);
    output.append(replayOutput);
    line.cursor = qMax<qsizetype>(0, line.length() - cursor.fromEnd);

    const QString input = replayLeftover + cursor.pending + text;
    cursor.pending = line.write(graphemes(input), output);
    cursor.fromEnd = int(line.length() - line.cursor);
    return output + line.rendered();
}

QString appending(const QString &text, const QString &base)
{
    Cursor cursor;
    return appending(text, base, cursor);
}

} // namespace ConsoleText
