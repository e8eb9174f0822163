// Invariants: a debug build stops at a broken one; a release build logs it and recovers with the
// given statement (`VESK_ASSERT(slot.isEmpty(), return);`), so a user's session goes on.
#pragma once

#include <QtGlobal>

#define VESK_ASSERT(condition, recovery)                                                                     \
    if (Q_LIKELY(condition)) {                                                                               \
    } else {                                                                                                 \
        Q_ASSERT_X(false, Q_FUNC_INFO, #condition);                                                          \
        qWarning("Vesk: broken invariant \"%s\" at %s:%d", #condition, __FILE__, __LINE__);                  \
        recovery;                                                                                            \
    }                                                                                                        \
    do {                                                                                                     \
    } while (false)
