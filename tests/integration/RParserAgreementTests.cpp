// The tokenizer and the statement queries against R's own parser, on real R code that R itself
// writes out: the deparsed functions of the installed base packages and the R files R ships.
#include "RSourceSnapshot.h"
#include "RSyntax.h"
#include "RTokenizer.h"
#include "TestSupport.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSet>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <vector>

namespace {

struct RToken2 {
    int line1, col1, line2, col2;
    QString token;
};

struct Corpus {
    QString text;
    QList<qsizetype> lineStarts;
    QList<RToken2> tokens;
    QList<std::pair<int, int>> expressions;
    // Corpus line of the chunk's start (1-based), lines in the prefix, R's verdict.
    struct Prefix {
        int start, lines;
        QString status;
    };
    QList<Prefix> prefixes;
    QString problem;
};

bool sanitized()
{
#if defined(__SANITIZE_ADDRESS__)
    return true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
    return true;
#else
    return false;
#endif
#else
    return false;
#endif
}

QList<QStringList> readTable(const QString &path)
{
    QFile file(path);
    QList<QStringList> rows;
    if (!file.open(QIODevice::ReadOnly))
        return rows;
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (!line.isEmpty())
            rows.append(QString::fromUtf8(line).split(u'\t'));
    }
    return rows;
}

const Corpus &corpus()
{
    static std::unique_ptr<Corpus> loaded;
    if (loaded)
        return *loaded;
    loaded = std::make_unique<Corpus>();
    Corpus &c = *loaded;
    // The whole corpus takes R about 12 s; sanitized builds and VESK_R_CORPUS_STEP take a sample.
    const QString step = qEnvironmentVariable("VESK_R_CORPUS_STEP", sanitized() ? u"8"_qs : u"1"_qs);
    const QString prefixStep = sanitized() ? u"24"_qs : u"6"_qs;
    const QString script = TestSupport::sourcePath(u"tests/integration/RParseCorpus.R"_qs);
    // CTest runs each case in its own process: they share one corpus per script, R and step.
    QFile scriptFile(script);
    scriptFile.open(QIODevice::ReadOnly);
    const QByteArray key =
        QCryptographicHash::hash(scriptFile.readAll() + TestSupport::rExecutable().toUtf8() + step.toUtf8() +
                                     prefixStep.toUtf8(),
                                 QCryptographicHash::Sha1)
            .toHex()
            .left(16);
    const QString cached = QDir::temp().filePath(u"vesk-r-parse-corpus-"_qs + QString::fromLatin1(key));
    QDir dir(cached);
    if (!QFile::exists(dir.filePath(u"summary.txt"_qs))) {
        QTemporaryDir work(cached + u"-XXXXXX"_qs);
        QProcess r;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"LC_ALL"_qs, u"C.UTF-8"_qs);
        env.remove(u"DISPLAY"_qs);
        r.setProcessEnvironment(env);
        r.start(TestSupport::rExecutable(), {u"--vanilla"_qs, u"--no-echo"_qs, u"-f"_qs, script, u"--args"_qs,
                                             work.path(), step, prefixStep});
        if (!r.waitForFinished(300000) || r.exitStatus() != QProcess::NormalExit || r.exitCode() != 0) {
            c.problem = u"R failed: "_qs + QString::fromUtf8(r.readAllStandardError());
            return c;
        }
        // Another process may have finished first; either copy is the same.
        if (QDir().rename(work.path(), cached))
            work.setAutoRemove(false);
    }
    QFile text(dir.filePath(u"corpus.R"_qs));
    if (!text.open(QIODevice::ReadOnly)) {
        c.problem = u"no corpus"_qs;
        return c;
    }
    c.text = QString::fromUtf8(text.readAll());
    c.lineStarts.append(0);
    for (qsizetype i = 0; i < c.text.size(); ++i) {
        if (c.text[i] == u'\n')
            c.lineStarts.append(i + 1);
    }
    for (const QStringList &row : readTable(dir.filePath(u"tokens.tsv"_qs))) {
        if (row.size() == 5)
            c.tokens.append({row[0].toInt(), row[1].toInt(), row[2].toInt(), row[3].toInt(), row[4]});
    }
    for (const QStringList &row : readTable(dir.filePath(u"exprs.tsv"_qs))) {
        if (row.size() == 2)
            c.expressions.append({row[0].toInt(), row[1].toInt()});
    }
    for (const QStringList &row : readTable(dir.filePath(u"prefixes.tsv"_qs))) {
        if (row.size() == 3)
            c.prefixes.append({row[0].toInt(), row[1].toInt(), row[2]});
    }
    return c;
}

// R's parse data counts columns in characters, with a tab advancing to the next multiple of 8.
qsizetype offsetOf(const Corpus &c, int line, int column, bool end)
{
    if (line < 1 || line > c.lineStarts.size())
        return -1;
    int col = 0;
    for (qsizetype i = c.lineStarts[line - 1]; i < c.text.size() && c.text[i] != u'\n'; ++i) {
        if (c.text[i].isLowSurrogate())
            continue;
        ++col;
        if (c.text[i] == u'\t')
            col = (col + 7) & ~7;
        if (col == column)
            return end ? i + (c.text[i].isHighSurrogate() ? 2 : 1) : i;
        if (col > column)
            return -1;
    }
    return -1;
}

using Kinds = QSet<RTokenKind>;

// The kinds that mean what R's terminal token means; empty for tokens that have no counterpart.
Kinds expectedKinds(const QString &token, QStringView text)
{
    using K = RTokenKind;
    static const QSet<QString> operators = {
        u"LEFT_ASSIGN"_qs, u"EQ_ASSIGN"_qs, u"RIGHT_ASSIGN"_qs, u"'+'"_qs,  u"'-'"_qs,    u"'*'"_qs,
        u"'/'"_qs,         u"'^'"_qs,       u"SPECIAL"_qs,      u"GT"_qs,   u"GE"_qs,     u"LT"_qs,
        u"LE"_qs,          u"EQ"_qs,        u"NE"_qs,           u"AND"_qs,  u"OR"_qs,     u"AND2"_qs,
        u"OR2"_qs,         u"'!'"_qs,       u"'~'"_qs,          u"'?'"_qs,  u"':'"_qs,    u"NS_GET"_qs,
        u"NS_GET_INT"_qs,  u"'$'"_qs,       u"'@'"_qs,          u"PIPE"_qs, u"EQ_SUB"_qs, u"EQ_FORMALS"_qs,
        u"PIPEBIND"_qs};
    static const QSet<QString> keywords = {u"FUNCTION"_qs, u"IF"_qs,    u"ELSE"_qs,   u"FOR"_qs,
                                           u"IN"_qs,       u"WHILE"_qs, u"REPEAT"_qs, u"NEXT"_qs,
                                           u"BREAK"_qs,    u"'\\\\'"_qs};
    if (token == u"STR_CONST")
        return {K::string};
    if (token == u"NUM_CONST") {
        RTokenKind kind;
        if (RTokenizer::reservedKind(reinterpret_cast<const char16_t *>(text.utf16()), text.size(), kind))
            return {kind};
        return {K::number};
    }
    if (token == u"NULL_CONST")
        return {K::constant};
    if (token == u"COMMENT")
        return {K::comment, K::roxygen, K::sectionMarker};
    if (token == u"SYMBOL_FUNCTION_CALL") {
        // Deliberate: `return` is a keyword here.
        if (text == u"return")
            return {K::keyword};
        return {K::functionCall};
    }
    if (token == u"SYMBOL_SUB")
        return {K::argumentName};
    // Deliberate: a formal is an argument name only when a default follows.
    if (token == u"SYMBOL_FORMALS")
        return {K::argumentName, K::identifier};
    if (token == u"SYMBOL" || token == u"SYMBOL_PACKAGE" || token == u"SLOT") {
        // Deliberate: T and F read as the constants they almost always are.
        if (text == u"T" || text == u"F")
            return {K::constant};
        return {K::identifier};
    }
    if (operators.contains(token))
        return {K::operator_};
    if (keywords.contains(token))
        return {K::keyword};
    if (token == u"'('" || token == u"')'" || token == u"'{'" || token == u"'}'" || token == u"'['" ||
        token == u"']'" || token == u"LBB")
        return {K::bracket};
    if (token == u"','" || token == u"';'")
        return {K::punctuation};
    return {};
}

// A deliberate difference in kind, told by what R and the tokenizer saw around the token.
bool deliberateKind(const Corpus &c, const QString &token, const RToken &mine, const QList<RToken> &all,
                    qsizetype index)
{
    const QStringView text = QStringView(c.text).mid(mine.location, mine.length);
    const qsizetype after = mine.end();
    // A reserved word of the tokenizer keeps its kind wherever it stands: `T` and `return` as
    // argument names, formals or plain symbols.
    RTokenKind reserved;
    if (RTokenizer::reservedKind(reinterpret_cast<const char16_t *>(text.utf16()), text.size(), reserved) &&
        reserved == mine.kind)
        return true;
    // A slot name directly followed by `(` reads as a call.
    if (token == u"SLOT" && mine.kind == RTokenKind::functionCall)
        return true;
    // `f (x)` or a call across a line break: a blank between name and bracket makes a plain name.
    if (token == u"SYMBOL_FUNCTION_CALL" && mine.kind == RTokenKind::identifier)
        return after < c.text.size() && c.text[after] != u'(';
    // `(x = f())`: every `(` opens an argument position, a grouping one too.
    if (token == u"SYMBOL" && mine.kind == RTokenKind::argumentName && index > 0) {
        const RToken &open = all[index - 1];
        if (open.kind != RTokenKind::bracket || c.text[open.location] != u'(')
            return false;
        if (index < 2)
            return true;
        const RToken &before = all[index - 2];
        const bool lineBetween =
            QStringView(c.text).mid(before.end(), open.location - before.end()).contains(u'\n');
        return lineBetween || (before.kind != RTokenKind::functionCall &&
                               !(before.kind == RTokenKind::bracket && c.text[before.location] == u')'));
    }
    if (token == u"SYMBOL_SUB" && mine.kind == RTokenKind::identifier) {
        // An argument name in a subscript (`x[a = 1]`), or with its `=` on the next line.
        for (qsizetype i = index - 1; i >= 0; --i) {
            const QChar u = c.text[all[i].location];
            if (all[i].kind == RTokenKind::bracket && (u == u'[' || u == u'('))
                return u == u'[' || QStringView(c.text).mid(after).trimmed().startsWith(u'=');
            if (all[i].kind == RTokenKind::bracket && (u == u']' || u == u')'))
                break;
        }
        qsizetype i = after;
        while (i < c.text.size() && (c.text[i] == u' ' || c.text[i] == u'\t'))
            ++i;
        return i < c.text.size() && c.text[i] == u'\n';
    }
    return false;
}

class RParserAgreement : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!corpus().problem.isEmpty())
            GTEST_FAIL() << corpus().problem.toStdString();
        ASSERT_GT(corpus().tokens.size(), 1000);
    }
};

} // namespace

TEST_F(RParserAgreement, TokenSpansAndKindsAgreeWithGetParseData)
{
    const Corpus &c = corpus();
    QList<RToken> mine = RTokenizer::tokenize(c.text);
    // Roxygen comes in pieces; R sees one comment.
    QList<RToken> merged;
    for (const RToken &t : mine) {
        const bool piece = t.kind == RTokenKind::roxygen || t.kind == RTokenKind::roxygenTag;
        if (piece && !merged.isEmpty() && merged.last().kind == RTokenKind::roxygen &&
            merged.last().end() == t.location) {
            merged.last().length += t.length;
            continue;
        }
        merged.append(piece ? RToken{RTokenKind::roxygen, t.location, t.length} : t);
    }
    QHash<qsizetype, qsizetype> byLocation;
    byLocation.reserve(merged.size());
    for (qsizetype i = 0; i < merged.size(); ++i)
        byLocation.insert(merged[i].location, i);

    std::vector<bool> matched(size_t(merged.size()), false);
    QStringList differences;
    std::map<QString, int> deliberate;
    for (const RToken2 &r : c.tokens) {
        const qsizetype from = offsetOf(c, r.line1, r.col1, false);
        const qsizetype to = offsetOf(c, r.line2, r.col2, true);
        if (from < 0 || to <= from) {
            differences << u"unmapped %1 at %2:%3"_qs.arg(r.token).arg(r.line1).arg(r.col1);
            continue;
        }
        const QStringView text = QStringView(c.text).mid(from, to - from);
        const Kinds kinds = expectedKinds(r.token, text);
        if (kinds.isEmpty()) {
            differences << u"unknown R token %1 at %2:%3"_qs.arg(r.token).arg(r.line1).arg(r.col1);
            continue;
        }
        // Deliberate: `[[` is two brackets here, so that every bracket is one unit.
        if (r.token == u"LBB") {
            const auto a = byLocation.find(from);
            const auto b = byLocation.find(from + 1);
            if (a != byLocation.end() && b != byLocation.end() &&
                merged[a.value()].kind == RTokenKind::bracket &&
                merged[b.value()].kind == RTokenKind::bracket) {
                matched[size_t(a.value())] = matched[size_t(b.value())] = true;
                ++deliberate[u"[[ as two brackets"_qs];
                continue;
            }
        }
        const auto it = byLocation.find(from);
        if (it == byLocation.end() || merged[it.value()].end() != to) {
            differences
                << u"span of %1 %2 at %3:%4"_qs.arg(r.token, text.toString()).arg(r.line1).arg(r.col1);
            continue;
        }
        matched[size_t(it.value())] = true;
        const RToken &t = merged[it.value()];
        if (kinds.contains(t.kind)) {
            if (r.token == u"SYMBOL_FUNCTION_CALL" && text == u"return")
                ++deliberate[u"return as keyword"_qs];
            else if ((r.token == u"SYMBOL") && (text == u"T" || text == u"F"))
                ++deliberate[u"T and F as constants"_qs];
            continue;
        }
        if (deliberateKind(c, r.token, t, merged, it.value())) {
            ++deliberate[r.token + u" read as "_qs + rTokenKindName(t.kind)];
            continue;
        }
        differences << u"%1 %2 at %3:%4 is %5"_qs.arg(r.token, text.toString())
                           .arg(r.line1)
                           .arg(r.col1)
                           .arg(rTokenKindName(t.kind));
    }
    for (qsizetype i = 0; i < merged.size(); ++i) {
        if (!matched[size_t(i)]) {
            const RToken &t = merged[i];
            differences << u"extra %1 %2 at offset %3"_qs
                               .arg(rTokenKindName(t.kind), c.text.mid(t.location, t.length))
                               .arg(t.location);
        }
    }
    for (const auto &[what, count] : deliberate)
        std::printf("deliberate: %s x %d\n", qPrintable(what), count);
    std::printf("R tokens compared: %lld\n", static_cast<long long>(c.tokens.size()));
    EXPECT_TRUE(differences.isEmpty()) << differences.size() << " differences, first ones:\n"
                                       << differences.mid(0, 30).join(u'\n').toStdString();
}

TEST_F(RParserAgreement, StatementsSpanRsTopLevelExpressions)
{
    const Corpus &c = corpus();
    const RSourceSnapshot snapshot(c.text, RSourceLanguage::r);
    // Deliberate: expressions that share a line (`a; b`) form one statement, since a statement is
    // made of whole lines.
    QList<std::pair<int, int>> groups;
    for (const auto &e : c.expressions) {
        if (!groups.isEmpty() && e.first <= groups.last().second)
            groups.last().second = qMax(groups.last().second, e.second);
        else
            groups.append(e);
    }
    QStringList differences;
    for (const auto &[first, last] : groups) {
        const RTextSpan span = RSyntax::statementRange(snapshot, first - 1);
        if (span.firstLine != first - 1 || span.lastLine != last - 1)
            differences << u"lines %1-%2 gave %3-%4: %5"_qs.arg(first)
                               .arg(last)
                               .arg(span.firstLine + 1)
                               .arg(span.lastLine + 1)
                               .arg(snapshot.lineText(first - 1).left(60));
    }
    std::printf("statements compared: %lld\n", static_cast<long long>(groups.size()));
    EXPECT_TRUE(differences.isEmpty()) << differences.size() << " differences, first ones:\n"
                                       << differences.mid(0, 30).join(u'\n').toStdString();
}

TEST_F(RParserAgreement, ConsoleCompletenessAgreesWithRsParser)
{
    const Corpus &c = corpus();
    ASSERT_FALSE(c.prefixes.isEmpty());
    QStringList differences;
    int errors = 0;
    for (const Corpus::Prefix &p : c.prefixes) {
        const qsizetype from = c.lineStarts.value(p.start - 1, -1);
        const qsizetype to = c.lineStarts.value(p.start - 1 + p.lines, -1);
        if (from < 0 || to < from) {
            differences << u"prefix out of range at %1"_qs.arg(p.start);
            continue;
        }
        // The line feed at the cut is R's too: parse(text =) ends each line.
        const QString prefix = c.text.mid(from, to - from);
        const bool complete = RSyntax::isLikelyComplete(prefix);
        if (p.status == u"error") {
            // R reports these itself; the console only has to submit them, or wait for more.
            ++errors;
            continue;
        }
        if (complete != (p.status == u"complete"))
            differences << u"%1 lines from line %2: R says %3\n%4"_qs.arg(p.lines).arg(p.start).arg(
                p.status, prefix.right(120));
    }
    std::printf("prefixes compared: %lld (R errors: %d)\n", static_cast<long long>(c.prefixes.size()),
                errors);
    EXPECT_TRUE(differences.isEmpty()) << differences.size() << " differences, first ones:\n"
                                       << differences.mid(0, 10).join(u'\n').toStdString();
}
