// Random edits through RSourceModel::replaceCharacters and relex must leave the line index, the
// states and the tokens of a fresh lexing of the final text; the queries that read a snapshot of
// the edited text must stay inside it.
#include "RIndenter.h"
#include "RSourceModel.h"
#include "RSyntax.h"

#include <cstdint>
#include <cstdlib>

namespace {

struct Input {
    const uint8_t *data;
    size_t size;
    size_t at = 0;

    bool empty() const { return at >= size; }
    uint8_t byte() { return at < size ? data[at++] : 0; }
};

const char16_t *const pieces[] = {u"\"",    u"'",    u"`",      u"\n",         u"\r\n",     u"\r",
                                  u"r\"-(", u")-\"", u"f(a = ", u"#' @x",      u"```{r}\n", u"```\n",
                                  u"---\n", u"\\",   u"x <- 1", u"# S ----\n", u")",        u"{",
                                  u"# H\n", u"%in%", u" ",      u"\u00e9",     u"\xd83d"};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    const RSourceLanguage language = RSourceLanguage(in.byte() % 3);
    RSourceModel model(language);
    QString text;
    model.reset(text);
    while (!in.empty()) {
        const uint8_t op = in.byte();
        const qsizetype at = text.isEmpty() ? 0 : qsizetype(in.byte() | (in.byte() << 8)) % (text.size() + 1);
        const qsizetype length = qMin<qsizetype>(in.byte() % 8, text.size() - at);
        QString with;
        if (op & 1)
            with = QString::fromUtf16(pieces[in.byte() % (sizeof(pieces) / sizeof(pieces[0]))]);
        else if (op & 2)
            with = QChar(char16_t(in.byte()));
        text.replace(at, length, with);
        model.replaceCharacters(RTextRange{at, length}, with.size(), text);
        if (op & 4)
            model.relex(text);
        if (text.size() > 4096)
            break;
    }
    model.relex(text);

    const RLineIndex fresh(text);
    if (!(model.lines() == fresh))
        std::abort();
    RLineState state = RLineState::initial();
    for (qsizetype l = 0; l < fresh.lineCount(); ++l) {
        if (!(model.states()[l] == state))
            std::abort();
        const RLineLexer::Line line = RLineLexer::lex(l, fresh, text, language, state);
        if (model.tokens(l, text) != line.tokens)
            std::abort();
        state = line.end;
    }

    const std::unique_ptr<RSourceSnapshot> snapshot = model.snapshot(text);
    const qsizetype lines = snapshot->lineCount();
    for (qsizetype l = 0; l < lines && l < 64; ++l) {
        const RTextSpan span = RSyntax::statementRange(*snapshot, l);
        if (span.firstLine > l || span.lastLine < l || span.range.end() > text.size())
            std::abort();
        (void)RIndenter::targetIndentation(l, *snapshot, 4);
    }
    const qsizetype caret = text.size() / 2;
    const RTextEdit newline = RIndenter::newline(*snapshot, RTextRange{caret, 0}, 2);
    if (newline.location < 0 || newline.location + newline.length > text.size())
        std::abort();
    (void)RIndenter::toggleComment(*snapshot, RTextRange{0, text.size()});
    (void)RIndenter::closingBracket(u')', *snapshot, caret);
    (void)RSyntax::matchingBracket(caret, *snapshot, 1000);
    (void)RSyntax::currentSection(*snapshot, caret);
    return 0;
}
