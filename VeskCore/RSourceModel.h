// What makes lexing incremental: beside an editor's text it keeps only the lexer state at each line's
// start and the lines waiting for re-lexing. The text is passed in with each call.
#pragma once

#include "RLineIndex.h"
#include "RLineLexer.h"
#include "RLineState.h"
#include "RSourceSnapshot.h"

#include <QList>
#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

class RSourceModel {
public:
    using Visit = std::function<void(qsizetype line, RTextRange range, const QList<RToken> &tokens)>;
    // Asked before each line is lexed; false ends the pass with that line still dirty.
    using Proceed = std::function<bool(qsizetype line)>;

    explicit RSourceModel(RSourceLanguage language = RSourceLanguage::r);

    RSourceLanguage language() const { return m_language; }
    const RLineIndex &lines() const { return m_lines; }
    const QList<RLineState> &states() const { return m_states; }
    qsizetype lineCount() const { return m_lines.lineCount(); }
    bool isClean() const { return m_dirty.empty(); }
    // The dirty lines as sorted, disjoint half-open ranges.
    const std::vector<std::pair<qsizetype, qsizetype>> &dirty() const { return m_dirty; }

    void reset(const QString &text, std::optional<RSourceLanguage> language = std::nullopt);
    // `range` is the edited range of the old text, `text` the text after the edit.
    void replaceCharacters(RTextRange range, qsizetype newLength, const QString &text);
    // Re-lexes what the edits made dirty, and on down while end states differ from the stored
    // ones; returns the number of lines lexed. A pass that `proceed` ends early leaves the rest
    // dirty, so every line above the first dirty one is then exactly what a fresh lexing gives.
    qsizetype relex(const QString &text, const Visit &visit = {}, const Proceed &proceed = {});
    std::unique_ptr<RSourceSnapshot> snapshot(const QString &text) const;

    RLineState startState(qsizetype line) const;
    QList<RToken> tokens(qsizetype line, const QString &text) const;
    std::pair<QList<RToken>, bool> lexLine(qsizetype line, const QString &text) const;
    bool isChunkLine(qsizetype line) const;

private:
    void addDirty(qsizetype first, qsizetype last);
    void removeDirty(qsizetype line);
    bool isDirty(qsizetype line) const;

    RSourceLanguage m_language;
    RLineIndex m_lines;
    QList<RLineState> m_states{RLineState::initial()};
    std::vector<std::pair<qsizetype, qsizetype>> m_dirty;
};
