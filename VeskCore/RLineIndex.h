// Maps offsets to lines of a text and back. An edit patches the starts it touches; the shift of the
// starts behind it is kept pending and settled lazily near the next edit, so that typing costs the
// same however many lines the text has.
#pragma once

#include "RTextSpan.h"

#include <QList>
#include <QString>

#include <utility>
#include <vector>

class RLineIndex {
public:
    struct Change {
        qsizetype line = 0;
        qsizetype removedLines = 0;
        qsizetype insertedLines = 0;
        bool operator==(const Change &) const = default;
    };

    RLineIndex() = default;
    explicit RLineIndex(const QString &text);
    RLineIndex(const char16_t *units, qsizetype count);

    qsizetype lineCount() const { return qsizetype(m_starts.size()); }
    qsizetype length() const { return m_length; }
    // Line arguments are clamped into 0..lineCount-1.
    qsizetype start(qsizetype line) const;
    RTextRange range(qsizetype line, bool includingNewline) const;
    qsizetype line(qsizetype containing) const;
    // First and last line that the range touches.
    std::pair<qsizetype, qsizetype> lines(RTextRange range) const;
    // `range` is the edited range in the old text, `text` the text after the edit.
    Change replaceCharacters(RTextRange range, qsizetype newLength, const QString &text);
    Change replaceCharacters(RTextRange range, qsizetype newLength, const char16_t *units, qsizetype count);

    QList<qsizetype> lineStarts() const;
    bool operator==(const RLineIndex &other) const;

private:
    qsizetype at(qsizetype i) const { return m_starts[size_t(i)] + (i >= m_stepFrom ? m_step : 0); }
    void moveStep(qsizetype to);
    // First index whose start is >= value (or > value with `after`).
    qsizetype search(qsizetype value, bool after) const;

    std::vector<qsizetype> m_starts{0};
    qsizetype m_length = 0;
    // Starts from m_stepFrom on lack m_step, which `at` adds.
    qsizetype m_stepFrom = 1;
    qsizetype m_step = 0;
};

size_t qHash(const RLineIndex &index, size_t seed = 0);
