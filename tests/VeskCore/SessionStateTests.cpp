// The stored session of a project: its JSON form, read leniently.
#include "SessionState.h"

#include <QTimeZone>

#include <gtest/gtest.h>

TEST(SessionState, RoundTripsAndReadsDamagedFilesLeniently)
{
    SessionState state;
    SessionState::Tab tab;
    tab.path = u"/p/a.R"_qs;
    tab.autosave = u"1b4e28ba-2fa1-11d2-883f-0016d3cca427.txt"_qs;
    tab.breakpoints = QList<int>{3, 7};
    tab.stamp = FileStamp{QDateTime::fromMSecsSinceEpoch(1700000000123, QTimeZone::utc()), 42};
    state.tabs = {tab, SessionState::Tab{std::nullopt, std::nullopt, 2, u"notes.Rmd"_qs, {}, {}}};
    state.selectedIndex = 1;
    EXPECT_EQ(SessionState::fromJSON(state.toJSON()), state);

    const auto damaged = JSONValue::parse(QByteArrayView(
        R"({"tabs": [7, {"path": 3, "untitledIndex": -4, "breakpoints": [1, "x", -2]}], "selectedIndex": 9})"));
    const auto read = SessionState::fromJSON(*damaged);
    ASSERT_TRUE(read);
    ASSERT_EQ(read->tabs.size(), 1);
    EXPECT_FALSE(read->tabs[0].path);
    EXPECT_EQ(read->tabs[0].untitledIndex, 0);
    EXPECT_EQ(read->tabs[0].breakpoints, QList<int>{1});
    EXPECT_FALSE(read->selectedIndex) << "an index beyond the tabs is dropped";
    EXPECT_FALSE(SessionState::fromJSON(JSONValue(3)));
}
