#include "QStringPrinting.h"
#include "WorkspaceChange.h"

#include <gtest/gtest.h>

namespace {

const QLocale english(QLocale::English, QLocale::UnitedStates);

REnvObject object(const QString &name, REnvObject::Kind kind, const QString &cls)
{
    REnvObject o;
    o.name = name;
    o.kind = kind;
    if (!cls.isEmpty())
        o.classes = {cls};
    return o;
}

REnvObject frame(const QString &name, double rows, double cols)
{
    REnvObject o = object(name, REnvObject::Kind::Data, QStringLiteral("data.frame"));
    o.dim = QList<double>{rows, cols};
    o.length = cols;
    return o;
}

REnvObject scalar(const QString &name, const QString &summary)
{
    REnvObject o = object(name, REnvObject::Kind::Value, QStringLiteral("numeric"));
    o.length = 1;
    o.summary = summary;
    return o;
}

std::optional<QString> onlyDetail(const REnvObject &from, const REnvObject &to)
{
    const auto changes = WorkspaceChange::diff({from}, {to}, english);
    if (changes.isEmpty())
        return std::nullopt;
    EXPECT_EQ(changes.size(), 1);
    EXPECT_EQ(changes[0].kind, WorkspaceChange::Kind::Changed);
    return changes[0].detail;
}

} // namespace

TEST(WorkspaceChangeDiff, OrderKindsAndDataFlag)
{
    const QList<REnvObject> before = {scalar("a", "1"), frame("gone", 3, 2), scalar("kept", "5")};
    const QList<REnvObject> now = {frame("df", 1000, 5), scalar("kept", "5"), scalar("a", "2"),
                                   object("f", REnvObject::Kind::Function, "function")};
    EXPECT_TRUE(WorkspaceChange::diff(before, before, english).isEmpty());

    const auto changes = WorkspaceChange::diff(before, now, english);
    const QList<WorkspaceChange> expected = {
        {WorkspaceChange::Kind::Added, "df", QStringLiteral("data.frame · 1,000 × 5"), true},
        {WorkspaceChange::Kind::Changed, "a", QStringLiteral("1 → 2"), false},
        {WorkspaceChange::Kind::Added, "f", QStringLiteral("function"), false},
        {WorkspaceChange::Kind::Removed, "gone", std::nullopt, false},
    };
    EXPECT_EQ(changes, expected);

    // A later object of a duplicated name is the one compared against.
    EXPECT_TRUE(
        WorkspaceChange::diff({scalar("x", "1"), scalar("x", "2")}, {scalar("x", "2")}, english).isEmpty());

    // Added detail: a long scalar is cut; an object with neither class nor type has none.
    REnvObject bare = object("bare", REnvObject::Kind::Other, QString());
    const auto added = WorkspaceChange::diff({}, {scalar("s", QString(30, u'q')), bare}, english);
    EXPECT_EQ(added[0].detail, QString(23, u'q') + QChar(0x2026));
    EXPECT_EQ(added[1].detail, std::nullopt);
}

TEST(WorkspaceChangeDiff, ChangeDetails)
{
    REnvObject short3 = object("x", REnvObject::Kind::Value, "numeric");
    short3.length = 3;
    REnvObject long5 = short3;
    long5.length = 5;
    EXPECT_EQ(onlyDetail(short3, long5), QStringLiteral("length 3 → 5"));
    REnvObject chars = long5;
    chars.classes = {QStringLiteral("character")};
    EXPECT_EQ(onlyDetail(short3, chars), QStringLiteral("numeric → character"));

    EXPECT_EQ(onlyDetail(frame("d", 1000, 5), frame("d", 1200, 5)), QStringLiteral("1,000 → 1,200 rows"));
    EXPECT_EQ(onlyDetail(frame("d", 1000, 5), frame("d", 1000, 7)), QStringLiteral("+2 cols"));
    EXPECT_EQ(onlyDetail(frame("d", 1000, 5), frame("d", 1000, 4)), QString(QChar(0x2212)) + "1 col");
    EXPECT_EQ(onlyDetail(frame("d", 10, 2), frame("d", 20, 3)), QStringLiteral("10 × 2 → 20 × 3"));
    // Cells and size alone are not reported.
    REnvObject bigger = frame("d", 10, 2);
    bigger.size = 9999;
    EXPECT_EQ(onlyDetail(frame("d", 10, 2), bigger), std::nullopt);

    REnvObject f1 = object("f", REnvObject::Kind::Function, "function");
    f1.summary = QStringLiteral("function(x) x");
    REnvObject f2 = f1;
    EXPECT_EQ(onlyDetail(f1, f2), std::nullopt);
    f2.summary = QStringLiteral("function(x) x + 1");
    EXPECT_EQ(onlyDetail(f1, f2), QStringLiteral("new definition"));

    EXPECT_EQ(onlyDetail(scalar("x", "1"), scalar("x", "1")), std::nullopt);
    EXPECT_EQ(onlyDetail(scalar("x", QString(24, u'a')), scalar("x", "line\nfeed")),
              QString(24, u'a') + QStringLiteral(" → line feed"));
    EXPECT_EQ(onlyDetail(scalar("x", "1"), scalar("x", QString(25, u'b'))),
              QStringLiteral("1 → ") + QString(23, u'b') + QChar(0x2026));

    REnvObject list = object("d", REnvObject::Kind::List, "list");
    EXPECT_EQ(onlyDetail(frame("d", 3, 2), list), QStringLiteral("data.frame → list"));
}
