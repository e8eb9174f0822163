// RSession's queue and state machine against a real R with the kernel.
#include "LiveSession.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

TEST(RSessionBasics, StartRunAndUnansweredRequest)
{
    LiveSession f;
    ASSERT_TRUE(f.start());
    ASSERT_TRUE(f.session.info().has_value());
    EXPECT_TRUE(f.session.info()->version.startsWith(u'4'));
    EXPECT_FALSE(f.events.isEmpty());
    EXPECT_EQ(f.events.first().kind, SessionEvent::Kind::Ready);

    const ExecResult one = f.run(QStringLiteral("1+1"));
    EXPECT_TRUE(one.output.contains(QStringLiteral("[1] 2"))) << one.output.toStdString();
    EXPECT_EQ(f.session.status().kind, RSessionStatus::Kind::Idle);

    // A request name the kernel does not know gets no response: it fails at the next prompt.
    const RRequestResult missing = f.request(QStringLiteral("noSuchRequest"));
    ASSERT_FALSE(missing.ok());
    EXPECT_EQ(missing.error().description(), QStringLiteral("R did not answer."));
    EXPECT_EQ(f.session.status().kind, RSessionStatus::Kind::Idle);

    // Work sent before start, or after shutdown, is refused at once.
    f.session.shutDown();
    std::optional<ExecResult> refused;
    f.session.enqueueExec(QStringLiteral("1"), ExecOrigin::console(), std::nullopt, 1,
                          [&](const ExecResult &r) { refused = r; });
    ASSERT_TRUE(refused.has_value());
    EXPECT_EQ(*refused, ExecResult::cancelled());
}
