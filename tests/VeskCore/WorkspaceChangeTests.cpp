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
    REnvObject o = object(name, REnvObject::Kind::Data, u"data.frame"_qs);
    o.dim = QList<double>{rows, cols};
    o.length = cols;
    return o;
}

REnvObject scalar(const QString &name, const QString &summary)
{
    REnvObject o = object(name, REnvObject::Kind::Value, u"numeric"_qs);
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
        {WorkspaceChange::Kind::Added, "df", u"data.frame · 1,000 × 5"_qs, true},
        {WorkspaceChange::Kind::Changed, "a", u"1 → 2"_qs, false},
        {WorkspaceChange::Kind::Added, "f", u"function"_qs, false},
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
    EXPECT_EQ(onlyDetail(short3, long5), u"length 3 → 5"_qs);
    REnvObject chars = long5;
    chars.classes = {u"character"_qs};
    EXPECT_EQ(onlyDetail(short3, chars), u"numeric → character"_qs);

    EXPECT_EQ(onlyDetail(frame("d", 1000, 5), frame("d", 1200, 5)), u"1,000 → 1,200 rows"_qs);
    EXPECT_EQ(onlyDetail(frame("d", 1000, 5), frame("d", 1000, 7)), u"+2 cols"_qs);
    EXPECT_EQ(onlyDetail(frame("d", 1000, 5), frame("d", 1000, 4)), QString(QChar(0x2212)) + "1 col");
    EXPECT_EQ(onlyDetail(frame("d", 10, 2), frame("d", 20, 3)), u"10 × 2 → 20 × 3"_qs);
    // Cells and size alone are not reported.
    REnvObject bigger = frame("d", 10, 2);
    bigger.size = 9999;
    EXPECT_EQ(onlyDetail(frame("d", 10, 2), bigger), std::nullopt);

    REnvObject f1 = object("f", REnvObject::Kind::Function, "function");
    f1.summary = u"function(x) x"_qs;
    REnvObject f2 = f1;
    EXPECT_EQ(onlyDetail(f1, f2), std::nullopt);
    f2.summary = u"function(x) x + 1"_qs;
    EXPECT_EQ(onlyDetail(f1, f2), u"new definition"_qs);

    EXPECT_EQ(onlyDetail(scalar("x", "1"), scalar("x", "1")), std::nullopt);
    EXPECT_EQ(onlyDetail(scalar("x", QString(24, u'a')), scalar("x", "line\nfeed")),
              QString(24, u'a') + u" → line feed"_qs);
    EXPECT_EQ(onlyDetail(scalar("x", "1"), scalar("x", QString(25, u'b'))),
              u"1 → "_qs + QString(23, u'b') + QChar(0x2026));

    REnvObject list = object("d", REnvObject::Kind::List, "list");
    EXPECT_EQ(onlyDetail(frame("d", 3, 2), list), u"data.frame → list"_qs);
}
