#include "RBracketBalance.h"

#include "RSourceSnapshot.h"

void RBracketBalance::append(const RSourceSnapshot &snapshot, qsizetype line)
{
    for (const RToken &token : snapshot.significantTokens(line)) {
        if (snapshot.isOpener(token)) {
            openers.append(RLineToken{token, line});
        } else if (snapshot.isCloser(token)) {
            if (!openers.isEmpty())
                openers.removeLast();
            else
                closers.append(RLineToken{token, line});
        }
    }
}

void RBracketBalance::prepend(const RSourceSnapshot &snapshot, qsizetype line)
{
    const QList<RToken> tokens = snapshot.significantTokens(line);
    for (auto it = tokens.crbegin(); it != tokens.crend(); ++it) {
        if (snapshot.isCloser(*it)) {
            closers.prepend(RLineToken{*it, line});
        } else if (snapshot.isOpener(*it)) {
            if (!closers.isEmpty())
                closers.removeFirst();
            else
                openers.prepend(RLineToken{*it, line});
        }
    }
}
