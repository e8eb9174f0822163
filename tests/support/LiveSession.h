// An RSession running a real R with the kernel, the events it has sent, and calls that wait for
// their answer.
#pragma once

#include "Session/RSession.h"
#include "TestSupport.h"

#include <QDir>

#include <chrono>
#include <optional>

struct LiveSession {
    RSession session;
    QList<SessionEvent> events;
    // How long a run or a request may take before it counts as unanswered.
    std::chrono::milliseconds timeout = std::chrono::seconds(20);

    LiveSession()
    {
        session.onEvent = [this](const SessionEvent &e) { events.append(e); };
    }
    bool start(const QString &workingDirectory = QDir::tempPath())
    {
        session.start(TestSupport::rExecutable(), workingDirectory, TestSupport::kernelScript());
        return waitFor(RSessionStatus::Kind::Idle);
    }
    bool waitFor(RSessionStatus::Kind kind)
    {
        return TestSupport::waitUntil([&] { return session.status().kind == kind; });
    }
    ExecResult run(const QString &code, const std::optional<QString> &file = std::nullopt, int line = 1)
    {
        std::optional<ExecResult> result;
        session.enqueueExec(code, ExecOrigin::console(), file, line,
                            [&](const ExecResult &r) { result = r; });
        TestSupport::waitUntil([&] { return result.has_value(); }, timeout);
        return result.value_or(ExecResult{});
    }
    RRequestResult request(const QString &name, const QList<RArgument> &args = {},
                           const RSession::NamedArguments &named = {})
    {
        std::optional<RRequestResult> result;
        session.request(name, args, named, [&](const RRequestResult &r) { result = r; });
        TestSupport::waitUntil([&] { return result.has_value(); }, timeout);
        return result.value_or(RRequestResult(RSessionError::noResponse()));
    }
    QList<SessionEvent> eventsSince(qsizetype from, SessionEvent::Kind kind) const
    {
        QList<SessionEvent> out;
        for (qsizetype i = from; i < events.size(); ++i)
            if (events[i].kind == kind)
                out.append(events[i]);
        return out;
    }
};
