#include "RTokenizer.h"

#include <cstring>

namespace RTokenizer {

State State::string(char16_t quote)
{
    State s;
    s.mode = Mode::string;
    s.quote = quote;
    return s;
}

State State::rawString(char16_t quote, char16_t closer, int dashes)
{
    State s;
    s.mode = Mode::rawString;
    s.quote = quote;
    s.closer = closer;
    s.dashes = dashes;
    return s;
}

State State::backtick()
{
    State s;
    s.mode = Mode::backtick;
    return s;
}

size_t qHash(const State &state, size_t seed)
{
    return ::qHashMulti(seed, int(state.mode), state.quote, state.closer, state.dashes,
                        state.argumentPosition);
}

bool isSpace(char16_t u)
{
    // R's blanks are U+1680, U+2000..U+2006, U+2008..U+200A, U+205F and U+3000; R rejects the
    // no-break and zero-width ones, which read as space here rather than glue names together.
    switch (u) {
    case u'\t':
    case u'\f':
    case u'\r':
    case u' ':
    case 0x00A0:
    case 0x1680:
    case 0x205F:
    case 0x3000:
    case 0xFEFF:
        return true;
    default:
        return u >= 0x2000 && u <= 0x200B;
    }
}

bool isNonASCIIPunctuation(char16_t u)
{
    return (u >= 0x2010 && u <= 0x205E) || u == 0x00AB || u == 0x00BB || (u >= 0x3001 && u <= 0x3003);
}

namespace {

// ASCII classes, looked up once per unit in the name loop.
enum : std::uint8_t { startClass = 1, partClass = 2 };

struct ASCIIClasses {
    std::uint8_t bits[128] = {};
    constexpr ASCIIClasses()
    {
        for (int c = 0; c < 128; ++c) {
            const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' || c == '_';
            bits[c] =
                std::uint8_t((letter ? startClass | partClass : 0) | (c >= '0' && c <= '9' ? partClass : 0));
        }
    }
};

constexpr ASCIIClasses asciiClasses;

} // namespace

bool isIdentifierStart(char16_t u)
{
    if (u < 128)
        return asciiClasses.bits[u] & startClass;
    return !isSpace(u) && !isNonASCIIPunctuation(u);
}

bool isIdentifierPart(char16_t u)
{
    if (u < 128)
        return asciiClasses.bits[u] & partClass;
    return !isSpace(u) && !isNonASCIIPunctuation(u);
}

namespace {

inline bool isDigit(char16_t u)
{
    return u >= '0' && u <= '9';
}

inline bool isASCIILetter(char16_t u)
{
    return (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z');
}

inline bool isBlankOrTab(char16_t u)
{
    return u == ' ' || u == '\t';
}

template <size_t N>
inline bool is(const char16_t *name, qsizetype length, const char (&word)[N], RTokenKind kind,
               RTokenKind &out)
{
    if (length != qsizetype(N - 1))
        return false;
    for (size_t i = 1; i < N - 1; ++i) {
        if (name[i] != char16_t(word[i]))
            return false;
    }
    out = kind;
    return true;
}

} // namespace

bool reservedKind(const char16_t *n, qsizetype len, RTokenKind &kind)
{
    if (len < 1 || len > 13 || n[0] < 'F' || n[0] > 'w')
        return false;
    // The first unit is matched by the switch; `is` compares the length and the rest.
    const auto is = [&](const auto &word, RTokenKind k) { return ::RTokenizer::is(n, len, word, k, kind); };
    constexpr RTokenKind K = RTokenKind::keyword;
    constexpr RTokenKind C = RTokenKind::constant;
    switch (n[0]) {
    case 'b':
        return is("break", K);
    case 'e':
        return is("else", K);
    case 'f':
        return len == 3 ? is("for", K) : is("function", K);
    case 'i':
        return len == 2 && (is("if", K) || is("in", K));
    case 'n':
        return is("next", K);
    case 'r':
        return len == 6 && (is("repeat", K) || is("return", K));
    case 'w':
        return is("while", K);
    case 'F':
        return len == 1 ? is("F", C) : is("FALSE", C);
    case 'I':
        return is("Inf", C);
    case 'N':
        switch (len) {
        case 2:
            return is("NA", C);
        case 3:
            return is("NaN", C);
        case 4:
            return is("NULL", C);
        case 8:
            return is("NA_real_", C);
        case 11:
            return is("NA_complex_", C) || is("NA_integer_", C);
        case 13:
            return is("NA_character_", C);
        default:
            return false;
        }
    case 'T':
        return len == 1 ? is("T", C) : is("TRUE", C);
    case '_':
        // The pipe placeholder.
        return is("_", K);
    default:
        return false;
    }
}

namespace {

struct Scanner {
    const char16_t *u;
    qsizetype to;
    qsizetype base;
    State &state;
    QList<RToken> &into;

    void push(RTokenKind kind, qsizetype from, qsizetype end)
    {
        if (end > from)
            into.append(RToken{kind, base + from, end - from});
    }

    // Index after the closing `close`, or -1 when `to` comes first. A backslash skips two units.
    qsizetype closeQuoted(qsizetype at, char16_t close) const
    {
        while (at < to) {
            const char16_t c = u[at];
            if (c == close)
                return at + 1;
            at += c == '\\' ? 2 : 1;
        }
        return -1;
    }

    // Index after the closing quote of a raw string whose body starts at `at`, or -1.
    qsizetype closeRaw(qsizetype at, char16_t quote, char16_t closer, int dashes) const
    {
        for (; at < to; ++at) {
            if (u[at] != closer)
                continue;
            qsizetype i = at + 1;
            int n = 0;
            while (i < to && u[i] == '-' && n <= dashes) {
                ++i;
                ++n;
            }
            if (n == dashes && i < to && u[i] == quote)
                return i + 1;
        }
        return -1;
    }

    qsizetype exponent(qsizetype at) const
    {
        qsizetype i = at + 1;
        if (i < to && (u[i] == '+' || u[i] == '-'))
            ++i;
        if (i >= to || !isDigit(u[i]))
            return at;
        while (i < to && isDigit(u[i]))
            ++i;
        return i;
    }

    qsizetype scanNumber(qsizetype at) const
    {
        qsizetype i = at;
        if (u[i] == '0' && i + 1 < to && (u[i + 1] == 'x' || u[i + 1] == 'X')) {
            i += 2;
            while (i < to && (isDigit(u[i]) || u[i] == '.' || (u[i] >= 'a' && u[i] <= 'f') ||
                              (u[i] >= 'A' && u[i] <= 'F')))
                ++i;
            if (i < to && (u[i] == 'p' || u[i] == 'P'))
                i = exponent(i);
        } else {
            while (i < to && isDigit(u[i]))
                ++i;
            if (i < to && u[i] == '.') {
                ++i;
                while (i < to && isDigit(u[i]))
                    ++i;
            }
            if (i < to && (u[i] == 'e' || u[i] == 'E'))
                i = exponent(i);
        }
        if (i < to && (u[i] == 'L' || u[i] == 'i'))
            ++i;
        return i;
    }

    qsizetype operatorLength(qsizetype at) const
    {
        const char16_t next = at + 1 < to ? u[at + 1] : 0;
        const char16_t next2 = at + 2 < to ? u[at + 2] : 0;
        switch (u[at]) {
        case '!':
        case '=':
        case '>':
            return next == '=' ? 2 : 1;
        case '$':
        case '+':
        case '/':
        case '?':
        case '@':
        case '^':
        case '~':
            return 1;
        case '%':
            for (qsizetype i = at + 1; i < to; ++i) {
                if (u[i] == '\n' || u[i] == '\r')
                    return 1;
                if (u[i] == '%')
                    return i - at + 1;
            }
            return 1;
        case '&':
            return next == '&' ? 2 : 1;
        case '*':
            return next == '*' ? 2 : 1;
        case '-':
            if (next == '>')
                return next2 == '>' ? 3 : 2;
            return 1;
        case ':':
            if (next == '=')
                return 2;
            if (next == ':')
                return next2 == ':' ? 3 : 2;
            return 1;
        case '<':
            if (next == '-' || next == '=')
                return 2;
            if (next == '<' && next2 == '-')
                return 3;
            return 1;
        case '|':
            return next == '|' || next == '>' ? 2 : 1;
        default:
            return 0;
        }
    }

    bool isSectionMarker(qsizetype hashAt, qsizetype lineEnd) const
    {
        qsizetype begin = hashAt + 1;
        qsizetype end = lineEnd;
        while (end > begin && isSpace(u[end - 1]))
            --end;
        if (end - begin >= 4) {
            const char16_t last = u[end - 1];
            if (last == '#' || last == '-' || last == '=') {
                qsizetype run = 0;
                for (qsizetype i = end - 1; i >= begin && u[i] == last; --i)
                    ++run;
                if (run >= 4)
                    return true;
            }
        }
        while (begin < end && (isBlankOrTab(u[begin]) || u[begin] == '#'))
            ++begin;
        if (begin >= end)
            return false;
        qsizetype dashes = 0;
        while (begin + dashes < end && u[begin + dashes] == '-')
            ++dashes;
        return dashes >= 4;
    }

    void pushComment(qsizetype from, qsizetype end)
    {
        qsizetype back = from;
        while (back > 0 && isBlankOrTab(u[back - 1]))
            --back;
        const bool standing = back == 0 || u[back - 1] == '\n' || u[back - 1] == '\r';
        if (!standing) {
            push(RTokenKind::comment, from, end);
            return;
        }
        if (from + 1 < end && u[from + 1] == '\'') {
            qsizetype pending = from;
            qsizetype i = from + 2;
            while (i < end) {
                const char16_t c = u[i];
                if (c == '@' && (u[i - 1] == ' ' || u[i - 1] == '\t' || u[i - 1] == '\'') && i + 1 < end &&
                    isASCIILetter(u[i + 1])) {
                    qsizetype tagEnd = i + 1;
                    while (tagEnd < end && (isASCIILetter(u[tagEnd]) || isDigit(u[tagEnd])))
                        ++tagEnd;
                    push(RTokenKind::roxygen, pending, i);
                    push(RTokenKind::roxygenTag, i, tagEnd);
                    pending = tagEnd;
                    i = tagEnd;
                    continue;
                }
                ++i;
            }
            push(RTokenKind::roxygen, pending, end);
            return;
        }
        push(isSectionMarker(from, end) ? RTokenKind::sectionMarker : RTokenKind::comment, from, end);
    }

    // Kind of a name or backtick name that ends at `end`; `reserved` is false for backtick names.
    RTokenKind nameKind(qsizetype start, qsizetype end, bool reserved) const
    {
        RTokenKind kind = RTokenKind::identifier;
        if (reserved && reservedKind(u + start, end - start, kind))
            return kind;
        if (end >= to)
            return RTokenKind::identifier;
        if (u[end] == '(')
            return RTokenKind::functionCall;
        if (state.argumentPosition) {
            qsizetype i = end;
            while (i < to && isBlankOrTab(u[i]))
                ++i;
            if (i < to && u[i] == '=' && (i + 1 >= to || u[i + 1] != '='))
                return RTokenKind::argumentName;
        }
        return RTokenKind::identifier;
    }

    // Finishes the literal that `state` holds open; returns where code resumes, or -1 at `to`.
    qsizetype finishLiteral(qsizetype from)
    {
        qsizetype end = -1;
        RTokenKind kind = RTokenKind::string;
        switch (state.mode) {
        case State::Mode::string:
            end = closeQuoted(from, state.quote);
            break;
        case State::Mode::backtick:
            end = closeQuoted(from, u'`');
            kind = RTokenKind::identifier;
            break;
        case State::Mode::rawString:
            end = closeRaw(from, state.quote, state.closer, state.dashes);
            break;
        case State::Mode::code:
            return from;
        }
        if (end < 0) {
            push(kind, from, to);
            return -1;
        }
        push(kind, from, end);
        state = State();
        return end;
    }

    void run(qsizetype at)
    {
        while (at < to) {
            const char16_t c = u[at];
            switch (c) {
            case '\t':
            case '\n':
            case '\f':
            case '\r':
            case ' ':
                ++at;
                continue;
            case '#': {
                // A CR ends a line in R's files, alone or before LF.
                qsizetype end = at + 1;
                while (end < to && u[end] != '\n' && u[end] != '\r')
                    ++end;
                pushComment(at, end);
                at = end;
                continue;
            }
            case '"':
            case '\'': {
                const qsizetype end = closeQuoted(at + 1, c);
                state.argumentPosition = false;
                if (end < 0) {
                    push(RTokenKind::string, at, to);
                    state = State::string(c);
                    return;
                }
                push(RTokenKind::string, at, end);
                at = end;
                continue;
            }
            case '`': {
                const qsizetype end = closeQuoted(at + 1, u'`');
                if (end < 0) {
                    push(RTokenKind::identifier, at, to);
                    state = State::backtick();
                    return;
                }
                push(nameKind(at, end, false), at, end);
                state.argumentPosition = false;
                at = end;
                continue;
            }
            case '(':
                push(RTokenKind::bracket, at, at + 1);
                state.argumentPosition = true;
                ++at;
                continue;
            case ')':
            case '[':
            case ']':
            case '{':
            case '}':
                push(RTokenKind::bracket, at, at + 1);
                state.argumentPosition = false;
                ++at;
                continue;
            case ',':
                push(RTokenKind::punctuation, at, at + 1);
                state.argumentPosition = true;
                ++at;
                continue;
            case ';':
                push(RTokenKind::punctuation, at, at + 1);
                state.argumentPosition = false;
                ++at;
                continue;
            case '\\':
                // Always R's lambda, even with its `(` lines below.
                push(RTokenKind::keyword, at, at + 1);
                state.argumentPosition = false;
                ++at;
                continue;
            default:
                break;
            }
            if (c >= 128 && isSpace(c)) {
                ++at;
                continue;
            }
            if (isDigit(c) || (c == '.' && at + 1 < to && isDigit(u[at + 1]))) {
                const qsizetype end = scanNumber(at);
                push(RTokenKind::number, at, end);
                state.argumentPosition = false;
                at = end;
                continue;
            }
            if (const qsizetype n = operatorLength(at); n > 0) {
                push(RTokenKind::operator_, at, at + n);
                state.argumentPosition = false;
                at += n;
                continue;
            }
            if (!isIdentifierStart(c) || isNonASCIIPunctuation(c)) {
                push(RTokenKind::punctuation, at, at + 1);
                state.argumentPosition = false;
                ++at;
                continue;
            }
            qsizetype end = at + 1;
            while (end < to && isIdentifierPart(u[end]))
                ++end;
            if (end - at == 1 && (c == 'r' || c == 'R') && end < to && (u[end] == '"' || u[end] == '\'')) {
                const char16_t quote = u[end];
                qsizetype i = end + 1;
                int dashes = 0;
                while (i < to && u[i] == '-') {
                    ++i;
                    ++dashes;
                }
                if (i < to && (u[i] == '(' || u[i] == '[' || u[i] == '{')) {
                    const char16_t closer = u[i] == '(' ? u')' : u[i] == '[' ? u']' : u'}';
                    const qsizetype close = closeRaw(i + 1, quote, closer, dashes);
                    if (close < 0) {
                        push(RTokenKind::string, at, to);
                        state = State::rawString(quote, closer, dashes);
                        return;
                    }
                    push(RTokenKind::string, at, close);
                    state.argumentPosition = false;
                    at = close;
                    continue;
                }
            }
            push(nameKind(at, end, true), at, end);
            state.argumentPosition = false;
            at = end;
        }
    }
};

} // namespace

void scan(const char16_t *units, qsizetype from, qsizetype to, qsizetype base, State &state,
          QList<RToken> &into)
{
    if (!units || from >= to)
        return;
    Scanner scanner{units, to, base, state, into};
    const qsizetype at = scanner.finishLiteral(from);
    if (at >= 0)
        scanner.run(at);
}

QList<RToken> tokenize(const char16_t *units, qsizetype count)
{
    QList<RToken> tokens;
    if (count <= 0)
        return tokens;
    tokens.reserve(count / 3);
    State state;
    scan(units, 0, count, 0, state, tokens);
    return tokens;
}

QList<RToken> tokenize(const QString &text)
{
    return tokenize(reinterpret_cast<const char16_t *>(text.utf16()), text.size());
}

} // namespace RTokenizer
