#include "RReference.h"

#include "RTokenizer.h"

namespace RReference {

namespace {

struct Reader {
    QStringView s;
    qsizetype at = 0;

    bool atEnd() const { return at >= s.size(); }
    QChar peek(qsizetype ahead = 0) const { return at + ahead < s.size() ? s[at + ahead] : QChar(); }
    void skipBlanks()
    {
        while (!atEnd() && (s[at] == u' ' || s[at] == u'\t'))
            ++at;
    }
    bool take(QStringView word)
    {
        if (s.mid(at).startsWith(word)) {
            at += word.size();
            return true;
        }
        return false;
    }

    bool quoted(QChar close)
    {
        if (peek() != close)
            return false;
        qsizetype i = at + 1;
        while (i < s.size()) {
            if (s[i] == close) {
                at = i + 1;
                return true;
            }
            i += s[i] == u'\\' ? 2 : 1;
        }
        return false;
    }
    bool string() { return quoted(u'"') || quoted(u'\''); }

    bool name()
    {
        if (peek() == u'`')
            return quoted(u'`');
        const QChar first = peek();
        if (!(first.isLetter() || first == u'.'))
            return false;
        if (first == u'.' && peek(1).isDigit())
            return false;
        qsizetype end = at + 1;
        while (end < s.size() && (s[end].isLetterOrNumber() || s[end] == u'.' || s[end] == u'_'))
            ++end;
        const QStringView word = s.mid(at, end - at);
        RTokenKind kind;
        // The tokenizer's reserved words, T and F among them: a reference names an object of the
        // user's, never a constant.
        if (RTokenizer::reservedKind(reinterpret_cast<const char16_t *>(word.utf16()), word.size(), kind))
            return false;
        at = end;
        return true;
    }

    bool number()
    {
        qsizetype i = at;
        auto digits = [&] {
            const qsizetype from = i;
            while (i < s.size() && s[i] >= u'0' && s[i] <= u'9')
                ++i;
            return i > from;
        };
        if (!digits())
            return false;
        if (i < s.size() && s[i] == u'.') {
            ++i;
            digits();
        }
        if (i < s.size() && (s[i] == u'e' || s[i] == u'E')) {
            ++i;
            if (i < s.size() && (s[i] == u'+' || s[i] == u'-'))
                ++i;
            if (!digits())
                return false;
        }
        if (i < s.size() && s[i] == u'L')
            ++i;
        at = i;
        return true;
    }

    bool namespaced()
    {
        skipBlanks();
        if (!take(u":::") && !take(u"::"))
            return false;
        skipBlanks();
        return name() || string();
    }
};

} // namespace

bool isPlainReference(const QString &text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return false;
    Reader r{trimmed};
    if (r.name()) {
        const qsizetype mark = r.at;
        if (!r.namespaced())
            r.at = mark;
    } else if (r.string()) {
        if (!r.namespaced())
            return false;
    } else {
        return false;
    }
    for (;;) {
        const qsizetype mark = r.at;
        r.skipBlanks();
        if (r.take(u"$") || r.take(u"@")) {
            r.skipBlanks();
            if (!r.name() && !r.string())
                return false;
        } else if (r.take(u"[[")) {
            r.skipBlanks();
            if (!r.string() && !r.number())
                return false;
            r.skipBlanks();
            if (!r.take(u"]]"))
                return false;
        } else {
            r.at = mark;
            break;
        }
    }
    r.skipBlanks();
    return r.atEnd() || r.peek() == u'#';
}

} // namespace RReference
