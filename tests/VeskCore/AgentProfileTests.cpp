// Agent profiles: the built-in set, how model and effort are chosen, how the system prompt is put
// together, and the stored JSON of profiles and overrides.
#include "AgentModels.h"
#include "AgentOverrides.h"
#include "AgentProfile.h"
#include "QStringPrinting.h"

#include <gtest/gtest.h>

namespace {

AgentProfile custom()
{
    AgentProfile profile;
    profile.id = u"mine"_qs;
    profile.name = u"Mine"_qs;
    profile.symbol = u"star"_qs;
    profile.tagline = u"One line"_qs;
    profile.instructions = u"Line one.\nLine \"two\"."_qs;
    profile.model = u"claude-sonnet-5"_qs;
    profile.effort = u"high"_qs;
    profile.capabilities = AgentCapability::Web | AgentCapability::RunCode;
    profile.starters = {u"Ask me"_qs};
    return profile;
}

} // namespace

TEST(AgentProfile, FiveBuiltInAgentsAndAHiddenInlineOne)
{
    QStringList ids;
    for (const AgentProfile &profile : AgentProfile::builtIn())
        ids.append(profile.id);
    EXPECT_EQ(ids, (QStringList{u"analyst"_qs, u"tutor"_qs, u"plots"_qs, u"reviewer"_qs, u"reporter"_qs}));
    const AgentProfile &tutor = AgentProfile::builtIn()[1];
    EXPECT_FALSE(tutor.capabilities.testFlag(AgentCapability::RunCode)) << "the Tutor does not run code";
    EXPECT_FALSE(ids.contains(AgentProfile::inlineAssist().id));
}

TEST(AgentProfile, ModelAndEffortComeFromOverrideThenSettingsThenProfile)
{
    struct Case {
        const char *what;
        AgentOverrides::Entry entry;
        QString settingModel, settingEffort;
        std::optional<QString> profileModel, profileEffort;
        AgentModels::Resolved resolved;
    };
    const Case cases[] = {
        {"nothing set", {}, {}, {}, {}, {}, {u"claude-opus-5-5"_qs, std::nullopt}},
        {"settings",
         {},
         u"claude-sonnet-5"_qs,
         u"low"_qs,
         u"p"_qs,
         u"max"_qs,
         {u"claude-sonnet-5"_qs, u"low"_qs}},
        {"profile", {}, {}, {}, u"claude-fable-5-1"_qs, u"max"_qs, {u"claude-fable-5-1"_qs, u"max"_qs}},
        {"override",
         {u"claude-haiku-4-5-20251001"_qs, u"high"_qs},
         u"m"_qs,
         u"low"_qs,
         {},
         {},
         {u"claude-haiku-4-5-20251001"_qs, u"high"_qs}},
        {"effort override only",
         {{}, u"high"_qs},
         u"claude-sonnet-5"_qs,
         u"low"_qs,
         {},
         {},
         {u"claude-sonnet-5"_qs, u"high"_qs}},
    };
    for (const Case &c : cases) {
        AgentProfile profile = AgentProfile::builtIn().first();
        profile.model = c.profileModel;
        profile.effort = c.profileEffort;
        AgentOverrides overrides;
        overrides.entries[profile.id] = c.entry;
        overrides.entries[u"tutor"_qs] = {u"other"_qs, u"other"_qs};
        AgentPreferences preferences;
        preferences.model = c.settingModel;
        preferences.effort = c.settingEffort;
        EXPECT_EQ(AgentModels::resolved(profile, overrides, preferences), c.resolved) << c.what;
    }
}

TEST(AgentProfile, SystemPromptPutsTheSettingsPiecesLast)
{
    const std::pair<AgentPreferences, QString> cases[] = {
        {{u"auto"_qs, u" \n\t "_qs, {}, {}}, QString()},
        {{u"en"_qs, {}, {}, {}}, u"\n\nAlways reply in English."_qs},
        {{u"fr"_qs, u"\n Use data.table.\n"_qs, {}, {}},
         u"\n\nThe user's standing instructions:\nUse data.table."_qs},
        {{u"de"_qs, u"Be brief."_qs, {}, {}},
         u"\n\nAlways reply in German (Deutsch), whatever language the user writes in. Keep code, object "
         u"names and R output as they are.\n\nThe user's standing instructions:\nBe brief."_qs},
    };
    for (const auto &[preferences, extra] : cases)
        EXPECT_EQ(AgentProfile::extraInstructions(preferences), extra) << preferences.language.toStdString();

    const AgentProfile &reviewer = AgentProfile::builtIn()[3];
    const QString prompt = reviewer.systemPrompt(u"\n\nEXTRA"_qs);
    EXPECT_TRUE(
        prompt.startsWith(u"You are Reviewer, an assistant inside Vesk, a native desktop IDE for the R "
                          u"language.\n\nYou work in the user's live R session"_qs));
    EXPECT_TRUE(
        prompt.contains(u"explain what the user could run instead.\n\nYou are the Reviewer. Read"_qs));
    EXPECT_TRUE(prompt.endsWith(
        u"the fix is clear.\n\nStyle: reply in the language the user writes in. Be concise "
        u"and concrete. Use Markdown;\nput R code in ```r fenced blocks. Refer to objects and "
        u"functions in `backticks`.\n\nEXTRA"_qs));
}

TEST(AgentProfile, ProfilesRoundTripThroughJSON)
{
    QList<AgentProfile> profiles = AgentProfile::builtIn();
    profiles.append(custom());
    for (const AgentProfile &profile : profiles) {
        const JSONValue json = profile.toJSON();
        const Result<AgentProfile> back = AgentProfile::fromJSON(*JSONValue::parse(json.serialized()));
        ASSERT_TRUE(back) << back.error().toStdString();
        EXPECT_EQ(*back, profile) << profile.id.toStdString();
    }
    EXPECT_EQ(custom().toJSON()[u"capabilities"], JSONValue::array({u"runCode"_qs, u"web"_qs}));
    EXPECT_FALSE(AgentProfile::builtIn().first().toJSON().contains(u"model"));

    const char *broken[] = {
        R"({"id":"a","symbol":"s","tagline":"t","instructions":"i","capabilities":[],"starters":[],"isBuiltIn":false})",
        R"({"id":"a","name":"n","symbol":"s","tagline":"t","instructions":"i","capabilities":["fly"],"starters":[],"isBuiltIn":false})",
        R"({"id":"a","name":"n","symbol":"s","tagline":"t","instructions":"i","model":3,"capabilities":[],"starters":[],"isBuiltIn":false})",
        R"([])",
    };
    for (const char *json : broken)
        EXPECT_FALSE(AgentProfile::fromJSON(*JSONValue::parse(QByteArrayView(json)))) << json;
}

TEST(AgentProfile, OverridesRoundTripAndRefuseOtherShapes)
{
    AgentOverrides overrides;
    overrides.entries[u"analyst"_qs] = {u"claude-sonnet-5"_qs, QString()};
    overrides.entries[u"tutor"_qs] = {QString(), u"low"_qs};
    const Result<AgentOverrides> back = AgentOverrides::decode(overrides.encode());
    ASSERT_TRUE(back) << back.error().toStdString();
    EXPECT_EQ(*back, overrides);
    EXPECT_EQ(back->entry(u"plots"_qs), AgentOverrides::Entry{});

    for (const char *json : {"", "{", R"({"analyst":{"model":"m","effort":""}})",
                             R"({"entries":{"analyst":{"model":"m"}}})", R"({"entries":[]})"})
        EXPECT_FALSE(AgentOverrides::decode(QByteArrayView(json))) << json;
}

TEST(AgentModels, DisplayNamesOfKnownAndUnknownModels)
{
    const std::pair<QString, QString> cases[] = {
        {u"claude-haiku-4-5-20251001"_qs, u"Haiku 4.5"_qs},
        {u"claude-opus-4-1-20250805"_qs, u"Opus 4.1"_qs},
        {u"claude-3-5-sonnet-20241022"_qs, u"3.5 Sonnet"_qs},
        {u"claude-sonnet-4"_qs, u"Sonnet 4"_qs},
        {u"gpt-4o"_qs, u"gpt-4o"_qs},
        {u"claude"_qs, u"claude"_qs},
    };
    for (const auto &[id, name] : cases)
        EXPECT_EQ(AgentModels::displayName(id), name) << id.toStdString();
    EXPECT_EQ(AgentModels::options().size(), 4);
    EXPECT_EQ(AgentModels::options().first().id, AgentModels::defaultModel);
}
