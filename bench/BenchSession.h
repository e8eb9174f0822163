// Runs code in a benchmark's R session and waits for its result.
#pragma once

#include "Session/RSession.h"
#include "TestSupport.h"

#include <chrono>

inline ExecResult runInSession(RSession &session, const QString &code,
                               std::chrono::milliseconds timeout = std::chrono::seconds(60))
{
    bool done = false;
    ExecResult result;
    session.enqueueExec(code, ExecOrigin::system(), std::nullopt, 1, [&](const ExecResult &r) {
        result = r;
        done = true;
    });
    TestSupport::waitForEvents([&] { return done; }, timeout);
    return result;
}
