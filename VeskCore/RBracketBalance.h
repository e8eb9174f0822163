// What a run of lines leaves unbalanced. Bracket kinds are not compared: a wrong pair is the user's
// error and must not stop statement finding.
#pragma once

#include "RToken.h"

#include <QList>

class RSourceSnapshot;

struct RBracketBalance {
    // Closers with no opener inside the run, in text order.
    QList<RLineToken> closers;
    // Openers with no closer inside the run; the last is the innermost.
    QList<RLineToken> openers;

    void append(const RSourceSnapshot &snapshot, qsizetype line);
    void prepend(const RSourceSnapshot &snapshot, qsizetype line);
};
