#include "RHighlight.h"

namespace RHighlight {

namespace {

bool isAlnum(QChar c)
{
    return c.isLetterOrNumber();
}

bool inList(QStringView word, std::initializer_list<const char *> list)
{
    for (const char *w : list) {
        if (word == QLatin1StringView(w))
            return true;
    }
    return false;
}

// Length in units of the scalar at `at`.
qsizetype scalarLength(const QString &s, qsizetype at)
{
    return s[at].isHighSurrogate() && at + 1 < s.size() && s[at + 1].isLowSurrogate() ? 2 : 1;
}

} // namespace

QList<Span> spans(const QString &code)
{
    QList<Span> out;
    auto add = [&](qsizetype from, qsizetype to, Role role, bool bold = false) {
        if (to <= from)
            return;
        if (!out.isEmpty() && out.last().role == role && out.last().semibold == bold && !bold &&
            out.last().location + out.last().length == from) {
            out.last().length += to - from;
            return;
        }
        out.append(Span{from, to - from, role, bold});
    };
    const qsizetype n = code.size();
    qsizetype i = 0;
    while (i < n) {
        const QChar c = code[i];
        if (c == u'"' || c == u'\'' || c == u'`') {
            qsizetype j = i + 1;
            while (j < n && code[j] != c)
                j += code[j] == u'\\' ? 2 : 1;
            j = qMin(j + 1, n);
            add(i, j, c == u'`' ? Role::text : Role::string);
            i = j;
        } else if (c == u'#') {
            qsizetype j = i;
            while (j < n && code[j] != u'\n')
                ++j;
            add(i, j, Role::secondary);
            i = j;
        } else if ((c >= u'0' && c <= u'9') ||
                   (c == u'.' && i + 1 < n && code[i + 1] >= u'0' && code[i + 1] <= u'9')) {
            qsizetype j = i + 1;
            while (j < n && (isAlnum(code[j]) || code[j] == u'.'))
                ++j;
            add(i, j, Role::number);
            i = j;
        } else if (c.isLetter() || c == u'_' || c == u'.') {
            qsizetype j = i + 1;
            while (j < n && (isAlnum(code[j]) || code[j] == u'_' || code[j] == u'.'))
                ++j;
            const QStringView word = QStringView(code).mid(i, j - i);
            if (inList(word,
                       {"if", "else", "repeat", "while", "function", "for", "in", "next", "break", "return"}))
                add(i, j, Role::keyword, true);
            else if (inList(word, {"TRUE", "FALSE", "NULL", "NA", "NA_integer_", "NA_real_", "NA_character_",
                                   "Inf", "NaN", "T", "F"}))
                add(i, j, Role::constant);
            else if (j < n && code[j] == u'(')
                add(i, j, Role::function);
            else
                add(i, j, Role::text);
            i = j;
        } else {
            const qsizetype len = scalarLength(code, i);
            const bool op = len == 1 && QStringView(u"<-|>=!&%~+-*/^$@:").contains(c);
            add(i, i + len, op ? Role::operator_ : Role::text);
            i += len;
        }
    }
    return out;
}

StyledText attributed(const QString &code, double fontSize)
{
    return StyledText{code, fontSize, spans(code)};
}

} // namespace RHighlight
