// The tokenizer and the statement queries against R's own parser, on real R code that R itself
// writes out: the deparsed functions of the installed base packages and the R files R ships, as they
// are and with CRLF line ends, and the continuation shapes of Run Line.
#include "RSourceSnapshot.h"
#include "RStatementShapes.h"
#include "RSyntax.h"
#include "RTokenizer.h"
#include "TestSupport.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSet>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace {

struct RToken2 {
    int line1, col1, line2, col2;
    QString token;
};

// A statement inside braces: the braces' id and where the statement starts and ends.
struct RBlockStatement {
    int parent, line1, col1, line2, col2;
};

struct Corpus {
    QString text;
    QList<qsizetype> lineStarts;
    QList<RToken2> tokens;
    QList<std::pair<int, int>> expressions;
    QList<RBlockStatement> blocks;
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
    QList<QStringList> rows;
    for (const QByteArray &line : TestSupport::readFile(path).split('\n')) {
        if (!line.isEmpty())
            rows.append(QString::fromUtf8(line).split(u'\t'));
    }
    return rows;
}

// Runs RParseCorpus.R with `arguments` after the output folder into `into`; an error message or empty.
QString runCorpusScript(const QString &into, const QStringList &arguments)
{
    QProcess r;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"LC_ALL"_qs, u"C.UTF-8"_qs);
    env.remove(u"DISPLAY"_qs);
    r.setProcessEnvironment(env);
    r.start(TestSupport::rExecutable(),
            QStringList{u"--vanilla"_qs, u"--no-echo"_qs, u"-f"_qs,
                        TestSupport::sourcePath(u"tests/integration/RParseCorpus.R"_qs), u"--args"_qs, into} +
                arguments);
    if (!r.waitForFinished(300000) || r.exitStatus() != QProcess::NormalExit || r.exitCode() != 0)
        return u"R failed: "_qs + QString::fromUtf8(r.readAllStandardError());
    return QString();
}

// What R wrote into `dir`, for the files named with `suffix`.
Corpus loadCorpus(const QString &folder, const QString &suffix)
{
    Corpus c;
    const QDir dir(folder);
    QFile text(dir.filePath(u"corpus"_qs + suffix + u".R"_qs));
    if (!text.open(QIODevice::ReadOnly)) {
        c.problem = u"no corpus"_qs + suffix;
        return c;
    }
    c.text = QString::fromUtf8(text.readAll());
    c.lineStarts.append(0);
    for (qsizetype i = 0; i < c.text.size(); ++i) {
        if (c.text[i] == u'\n')
            c.lineStarts.append(i + 1);
    }
    for (const QStringList &row : readTable(dir.filePath(u"tokens"_qs + suffix + u".tsv"_qs))) {
        if (row.size() == 5)
            c.tokens.append({row[0].toInt(), row[1].toInt(), row[2].toInt(), row[3].toInt(), row[4]});
    }
    for (const QStringList &row : readTable(dir.filePath(u"exprs"_qs + suffix + u".tsv"_qs))) {
        if (row.size() == 2)
            c.expressions.append({row[0].toInt(), row[1].toInt()});
    }
    for (const QStringList &row : readTable(dir.filePath(u"blocks"_qs + suffix + u".tsv"_qs))) {
        if (row.size() == 5)
            c.blocks.append({row[0].toInt(), row[1].toInt(), row[2].toInt(), row[3].toInt(), row[4].toInt()});
    }
    if (suffix.isEmpty()) {
        for (const QStringList &row : readTable(dir.filePath(u"prefixes.tsv"_qs))) {
            if (row.size() == 3)
                c.prefixes.append({row[0].toInt(), row[1].toInt(), row[2]});
        }
    }
    return c;
}

// The corpus and its CRLF copy, read once per process. VESK_R_CORPUS_FILES names a file that lists
// R files to read instead of the installed packages.
const std::pair<Corpus, Corpus> &corpora()
{
    static std::unique_ptr<std::pair<Corpus, Corpus>> loaded;
    if (loaded)
        return *loaded;
    loaded = std::make_unique<std::pair<Corpus, Corpus>>();
    // The whole corpus takes R about 20 s; sanitized builds and VESK_R_CORPUS_STEP take a sample.
    const QString step = qEnvironmentVariable("VESK_R_CORPUS_STEP", sanitized() ? u"8"_qs : u"1"_qs);
    const QString prefixStep = sanitized() ? u"24"_qs : u"6"_qs;
    const QString crlfStep = u"4"_qs;
    const QString files = qEnvironmentVariable("VESK_R_CORPUS_FILES");
    QStringList arguments{step, prefixStep, crlfStep};
    if (!files.isEmpty())
        arguments << QFileInfo(files).absoluteFilePath();
    // CTest runs each case in its own process: they share one corpus per script, R and arguments.
    const QByteArray key =
        QCryptographicHash::hash(
            TestSupport::readFile(TestSupport::sourcePath(u"tests/integration/RParseCorpus.R"_qs)) +
                TestSupport::rExecutable().toUtf8() + arguments.join(u' ').toUtf8() +
                (files.isEmpty() ? QByteArray() : TestSupport::readFile(files)),
            QCryptographicHash::Sha1)
            .toHex()
            .left(16);
    const QString cached = QDir::temp().filePath(u"vesk-r-parse-corpus-"_qs + QString::fromLatin1(key));
    if (!QFile::exists(QDir(cached).filePath(u"summary.txt"_qs))) {
        QTemporaryDir work(cached + u"-XXXXXX"_qs);
        const QString problem = runCorpusScript(work.path(), arguments);
        if (!problem.isEmpty()) {
            loaded->first.problem = problem;
            return *loaded;
        }
        // Another process may have finished first; either copy is the same.
        if (QDir().rename(work.path(), cached))
            work.setAutoRemove(false);
    }
    loaded->first = loadCorpus(cached, QString());
    loaded->second = loadCorpus(cached, u"-crlf"_qs);
    return *loaded;
}

const Corpus &corpus()
{
    return corpora().first;
}

// R's parse data counts columns in characters, with a tab advancing to the next multiple of 8.
qsizetype offsetOf(const Corpus &c, int line, int column, bool end)
{
    if (line < 1 || line > c.lineStarts.size())
        return -1;
    int col = 0;
    for (qsizetype i = c.lineStarts[line - 1]; i < c.text.size() && c.text[i] != u'\n' && c.text[i] != u'\r';
         ++i) {
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
    static const QSet<QString> keywords = {u"FUNCTION"_qs, u"IF"_qs,     u"ELSE"_qs,       u"FOR"_qs,
                                           u"IN"_qs,       u"WHILE"_qs,  u"REPEAT"_qs,     u"NEXT"_qs,
                                           u"BREAK"_qs,    u"'\\\\'"_qs, u"PLACEHOLDER"_qs};
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
        return i < c.text.size() && (c.text[i] == u'\n' || c.text[i] == u'\r');
    }
    return false;
}

// Where R's tokens differ from the tokenizer's, tallying the deliberate differences.
QStringList tokenDifferences(const Corpus &c, std::map<QString, int> &deliberate)
{
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
    return differences;
}

using Span = std::pair<int, int>;

// Where R's statement is (0-based lines) as Run Line must send it from each line: the top-level
// expression, or the statement inside braces that has its lines to itself; nothing for lines
// between statements. Deliberate: statements that share a line (`a; b`) are one, since Run Line
// sends whole lines.
QList<std::optional<Span>> rStatements(const Corpus &c)
{
    const qsizetype lineCount = c.lineStarts.size();
    QList<std::optional<Span>> out(lineCount);
    // R's tokens start in text order; `firstOn[l]` is the first that starts on line l or later.
    QList<qsizetype> firstOn(lineCount + 2, c.tokens.size());
    for (qsizetype i = c.tokens.size() - 1; i >= 0; --i)
        firstOn[qBound(0, c.tokens[i].line1, int(lineCount) + 1)] = i;
    for (qsizetype l = lineCount; l >= 0; --l)
        firstOn[l] = qMin(firstOn[l], firstOn[l + 1]);
    std::vector<bool> covered(size_t(lineCount + 2), false);
    for (const RToken2 &t : c.tokens) {
        if (t.token == u"COMMENT")
            continue;
        for (int l = t.line1; l <= t.line2 && l <= lineCount; ++l)
            covered[size_t(l)] = true;
    }
    const auto before = [](int l1, int c1, int l2, int c2) { return l1 < l2 || (l1 == l2 && c1 < c2); };
    struct Group {
        int line1, col1, line2, col2;
    };
    const auto merge = [](QList<Group> &groups, const Group &g) {
        if (!groups.isEmpty() && g.line1 <= groups.last().line2) {
            Group &last = groups.last();
            if (g.line2 > last.line2 || (g.line2 == last.line2 && g.col2 > last.col2)) {
                last.line2 = g.line2;
                last.col2 = g.col2;
            }
        } else {
            groups.append(g);
        }
    };
    QList<Group> top;
    for (const auto &[first, last] : c.expressions)
        merge(top, {first, 0, last, 0});
    for (const Group &g : top) {
        for (int l = g.line1; l <= g.line2; ++l)
            out[l - 1] = Span{g.line1 - 1, g.line2 - 1};
    }
    std::map<int, QList<Group>> byBraces;
    for (const RBlockStatement &b : c.blocks)
        merge(byBraces[b.parent], {b.line1, b.col1, b.line2, b.col2});
    QList<Group> own;
    for (const auto &[parent, groups] : byBraces) {
        for (const Group &g : groups) {
            bool alone = true;
            const qsizetype from = firstOn[g.line1];
            if (from > 0 && c.tokens[from - 1].token != u"COMMENT" && c.tokens[from - 1].line2 >= g.line1)
                alone = false;
            for (qsizetype i = from; alone && i < c.tokens.size() && c.tokens[i].line1 <= g.line2; ++i) {
                const RToken2 &t = c.tokens[i];
                // A `;` after a statement is no statement of its own.
                alone =
                    t.token == u"COMMENT" || t.token == u"';'" ||
                    (!before(t.line1, t.col1, g.line1, g.col1) && !before(g.line2, g.col2, t.line2, t.col2));
            }
            if (alone)
                own.append(g);
        }
    }
    // Inner statements overwrite the ones around them.
    std::sort(own.begin(), own.end(),
              [](const Group &a, const Group &b) { return a.line2 - a.line1 > b.line2 - b.line1; });
    for (const Group &g : own) {
        for (int l = g.line1; l <= g.line2; ++l)
            out[l - 1] = Span{g.line1 - 1, g.line2 - 1};
    }
    // A blank or comment line counts when the code around it is of the same statement, and not at the
    // start or end of a block, where Run Line has nothing to send.
    for (int l = 1; l <= lineCount; ++l) {
        if (covered[size_t(l)])
            continue;
        qsizetype previous = firstOn[l] - 1, next = firstOn[l];
        while (previous >= 0 && c.tokens[previous].token == u"COMMENT")
            --previous;
        while (next < c.tokens.size() && c.tokens[next].token == u"COMMENT")
            ++next;
        const bool inside = previous >= 0 && next < c.tokens.size() && out[l - 1] &&
                            out[c.tokens[previous].line2 - 1] == out[l - 1] &&
                            out[c.tokens[next].line1 - 1] == out[l - 1] &&
                            c.tokens[previous].token != u"'{'" && c.tokens[next].token != u"'}'";
        if (!inside)
            out[l - 1].reset();
    }
    return out;
}

// Lines where Run Line's statement differs from R's; `compared` counts the lines asked.
QStringList statementDifferences(const Corpus &c, qsizetype &compared)
{
    const RSourceSnapshot snapshot(c.text, RSourceLanguage::r);
    const QList<std::optional<Span>> expected = rStatements(c);
    QStringList differences;
    compared = 0;
    for (qsizetype line = 0; line < expected.size() && line < snapshot.lineCount(); ++line) {
        if (!expected[line])
            continue;
        ++compared;
        const RTextSpan span = RSyntax::statementRange(snapshot, line);
        const auto [first, last] = *expected[line];
        if (span.firstLine != first || span.lastLine != last)
            differences << u"line %1 in %2-%3 gave %4-%5: %6"_qs.arg(line + 1)
                               .arg(first + 1)
                               .arg(last + 1)
                               .arg(span.firstLine + 1)
                               .arg(span.lastLine + 1)
                               .arg(snapshot.lineText(line).left(60));
    }
    return differences;
}

class RParserAgreement : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!corpus().problem.isEmpty())
            GTEST_FAIL() << corpus().problem.toStdString();
        ASSERT_GT(corpus().tokens.size(), 1000);
        ASSERT_GT(corpora().second.tokens.size(), 1000) << corpora().second.problem.toStdString();
    }
};

} // namespace

TEST_F(RParserAgreement, TokenSpansAndKindsAgreeWithGetParseData)
{
    for (const Corpus *c : {&corpora().first, &corpora().second}) {
        std::map<QString, int> deliberate;
        const QStringList differences = tokenDifferences(*c, deliberate);
        const char *name = c == &corpus() ? "" : " (CRLF)";
        for (const auto &[what, count] : deliberate)
            std::printf("deliberate%s: %s x %d\n", name, qPrintable(what), count);
        std::printf("R tokens compared%s: %lld\n", name, static_cast<long long>(c->tokens.size()));
        EXPECT_TRUE(differences.isEmpty())
            << differences.size() << " differences" << name << ", first ones:\n"
            << differences.mid(0, 30).join(u'\n').toStdString();
    }
}

TEST_F(RParserAgreement, RunLineFromEveryLineSendsRsWholeStatement)
{
    for (const Corpus *c : {&corpora().first, &corpora().second}) {
        qsizetype compared = 0;
        const QStringList differences = statementDifferences(*c, compared);
        const char *name = c == &corpus() ? "" : " (CRLF)";
        std::printf("lines compared%s: %lld\n", name, static_cast<long long>(compared));
        EXPECT_GT(compared, c->expressions.size());
        EXPECT_TRUE(differences.isEmpty())
            << differences.size() << " differences" << name << ", first ones:\n"
            << differences.mid(0, 30).join(u'\n').toStdString();
    }
}

TEST(RParserAgreementShapes, ContinuationShapesSpanWhatRReads)
{
    const QList<RStatementShapes::Shape> shapes = RStatementShapes::shapes();
    QTemporaryDir dir;
    QStringList files;
    for (qsizetype i = 0; i < shapes.size(); ++i)
        files << TestSupport::writeFile(dir.path(), u"shape%1.R"_qs.arg(i), shapes[i].text().toUtf8());
    const QString list = TestSupport::writeFile(dir.path(), u"files.txt"_qs, files.join(u'\n').toUtf8());
    ASSERT_EQ(runCorpusScript(dir.path(), {u"1"_qs, u"0"_qs, u"0"_qs, list}), QString());
    const Corpus c = loadCorpus(dir.path(), QString());
    const QList<std::optional<Span>> fromR = rStatements(c);
    qsizetype lineCount = 0;
    for (const RStatementShapes::Shape &shape : shapes)
        lineCount += shape.lines.size();
    // Every shape parses, so R's corpus holds them all, one after the other.
    ASSERT_EQ(c.lineStarts.size(), lineCount + 1);
    QStringList differences;
    qsizetype at = 0;
    for (const RStatementShapes::Shape &shape : shapes) {
        for (int line = 0; line < shape.lines.size(); ++line) {
            const Span table{shape.spans[line].first + int(at), shape.spans[line].second + int(at)};
            if (fromR[at + line] != table)
                differences << u"R puts line %1 in %2-%3, the table in %4-%5 in\n%6"_qs.arg(line)
                                   .arg(fromR[at + line] ? fromR[at + line]->first - at : -1)
                                   .arg(fromR[at + line] ? fromR[at + line]->second - at : -1)
                                   .arg(shape.spans[line].first)
                                   .arg(shape.spans[line].second)
                                   .arg(shape.text());
        }
        at += shape.lines.size();
    }
    EXPECT_TRUE(differences.isEmpty()) << differences.size() << " differences, first ones:\n"
                                       << differences.mid(0, 10).join(u'\n').toStdString();
    qsizetype compared = 0;
    const QStringList mine = statementDifferences(c, compared);
    EXPECT_EQ(compared, lineCount);
    EXPECT_TRUE(mine.isEmpty()) << mine.size() << " differences, first ones:\n"
                                << mine.mid(0, 10).join(u'\n').toStdString();
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
