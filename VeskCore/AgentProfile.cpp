#include "AgentProfile.h"

namespace {

constexpr AgentCapability allCapabilities[] = {AgentCapability::RunCode, AgentCapability::EditScripts,
                                               AgentCapability::InstallPackages, AgentCapability::Web};

const QString generalText = QStringLiteral(
    ", an assistant inside Vesk, a native desktop IDE for the R language.\n\n"
    "You work in the user's live R session through the `vesk` tools. Code you run executes in the "
    "user's real\n"
    "global environment and appears in their console, so objects you create persist. Respect that:\n"
    "- Look before you act: use list_workspace, inspect_object and get_data instead of guessing names "
    "or types.\n"
    "- Never delete or overwrite the user's objects unless they ask. Name new objects descriptively.\n"
    "- Prefer packages that are already installed; install only when needed and say why.\n"
    "- Never state a number, result or plot property you did not observe in tool output.\n"
    "- If a tool is not available to you, explain what the user could run instead.\n\n");

const QString styleText = QStringLiteral(
    "\n\nStyle: reply in the language the user writes in. Be concise and concrete. Use Markdown;\n"
    "put R code in ```r fenced blocks. Refer to objects and functions in `backticks`.");

AgentProfile builtInProfile(const char *id, const char *name, const char *symbol,
                            AgentCapabilities capabilities, const char *tagline, QStringList starters,
                            const char *instructions)
{
    AgentProfile profile;
    profile.id = QString::fromUtf8(id);
    profile.name = QString::fromUtf8(name);
    profile.symbol = QString::fromUtf8(symbol);
    profile.tagline = QString::fromUtf8(tagline);
    profile.instructions = QString::fromUtf8(instructions);
    profile.capabilities = capabilities;
    profile.starters = std::move(starters);
    profile.isBuiltIn = true;
    return profile;
}

std::optional<QString> optionalString(const JSONValue &json, QStringView key)
{
    const JSONValue *member = json.find(key);
    if (!member || member->isNull())
        return std::nullopt;
    return member->stringValue();
}

} // namespace

QString agentCapabilityName(AgentCapability capability)
{
    switch (capability) {
    case AgentCapability::RunCode:
        return QStringLiteral("runCode");
    case AgentCapability::EditScripts:
        return QStringLiteral("editScripts");
    case AgentCapability::InstallPackages:
        return QStringLiteral("installPackages");
    case AgentCapability::Web:
        return QStringLiteral("web");
    }
    return {};
}

std::optional<AgentCapability> agentCapabilityNamed(QStringView name)
{
    for (AgentCapability capability : allCapabilities)
        if (agentCapabilityName(capability) == name)
            return capability;
    return std::nullopt;
}

const QList<AgentProfile> &AgentProfile::builtIn()
{
    using C = AgentCapability;
    static const QList<AgentProfile> profiles = {
        builtInProfile(
            "analyst", "Analyst", "chart.bar.xaxis", C::RunCode | C::EditScripts | C::InstallPackages,
            "Explores data and answers questions by running R.",
            {QStringLiteral("Summarise the data frames in my workspace"),
             QStringLiteral("Which variables are most correlated?"),
             QStringLiteral("Check this data for problems")},
            "You are the Analyst. You answer questions about the user's data by actually running R in their "
            "session.\n"
            "Work in small verified steps: inspect the objects first, then compute, then report what you "
            "observed.\n"
            "Prefer tidy, idiomatic code that the user could paste into a script. When a result is best "
            "shown "
            "as a\n"
            "chart, draw it, then look at it with view_plot before you describe it. End with a short answer "
            "to "
            "the\n"
            "question and, when useful, the key code as one ```r block the user can reuse."),
        builtInProfile(
            "tutor", "Tutor", "graduationcap", C::EditScripts,
            "Explains errors, output and R concepts without touching your session.",
            {QStringLiteral("Explain the last error"), QStringLiteral("What does this output mean?"),
             QStringLiteral("Explain the selected code")},
            "You are the Tutor. You explain what happened and why, in plain language, at the user's level. "
            "For "
            "errors,\n"
            "read the console and the script, name the root cause in one sentence, then show the fix as a "
            "minimal\n"
            "```r block. For concepts, give a short explanation and one small example. You do not run code; "
            "you "
            "may\n"
            "read help pages and inspect objects to be precise."),
        builtInProfile(
            "plots", "Plot Designer", "paintbrush.pointed", C::RunCode | C::EditScripts | C::InstallPackages,
            "Turns rough charts into clear, publication-ready figures.",
            {QStringLiteral("Improve the current plot"), QStringLiteral("Make this plot publication ready"),
             QStringLiteral("Suggest a better chart for this data")},
            "You are the Plot Designer. You make charts clear and honest: right chart type for the question, "
            "readable\n"
            "labels with units, sensible scales, restrained colour (colour-blind safe), no chart junk. "
            "Always "
            "look at\n"
            "the current plot with view_plot before changing it, then draw the improved version and look "
            "again.\n"
            "Use ggplot2 if it is installed, otherwise base graphics. Finish with the final code as one ```r "
            "block."),
        builtInProfile(
            "reviewer", "Reviewer", "checklist", C::EditScripts,
            "Reviews your script for bugs, clarity and reproducibility.",
            {QStringLiteral("Review my script"), QStringLiteral("Make this script reproducible"),
             QStringLiteral("Find bugs in the selected code")},
            "You are the Reviewer. Read the active script and review it like a senior R developer: "
            "correctness "
            "first\n"
            "(silent recycling, NA handling, factor pitfalls, off-by-one, wrong joins), then reproducibility "
            "(hard-coded\n"
            "paths, set.seed, package loading), then clarity. Report findings ordered by severity with line "
            "numbers.\n"
            "Offer a corrected version through propose_script_edit only when the user asks for it or the fix "
            "is "
            "clear."),
        builtInProfile(
            "reporter", "Reporter", "doc.richtext", C::EditScripts | C::RunCode,
            "Writes an R Markdown report from your session.",
            {QStringLiteral("Write a report of this session"), QStringLiteral("Turn my script into a report"),
             QStringLiteral("Draft a methods section")},
            "You are the Reporter. You turn the analysis in this session into a clear R Markdown report: a "
            "title, a short\n"
            "summary of findings, then sections with the code that produced each result (in ```{r} chunks) "
            "and "
            "a sentence\n"
            "of interpretation each. Use the console history and workspace to reconstruct the analysis; do "
            "not "
            "invent\n"
            "results. Create the report with propose_script_edit in mode new_document (title ending in "
            ".Rmd)."),
    };
    return profiles;
}

const AgentProfile &AgentProfile::inlineAssist()
{
    static const AgentProfile profile = [] {
        AgentProfile inlineProfile;
        inlineProfile.id = QStringLiteral("inline");
        inlineProfile.name = QStringLiteral("Inline Assist");
        inlineProfile.symbol = QStringLiteral("sparkles");
        inlineProfile.tagline = QStringLiteral("Edits the script where the cursor is.");
        inlineProfile.instructions = QStringLiteral(
            "You are the inline assistant of the script editor. You change the code the user points at, as "
            "they ask,\n"
            "and propose the result with propose_script_edit. Keep the user's style and change nothing "
            "else.");
        inlineProfile.capabilities = AgentCapability::EditScripts;
        inlineProfile.isBuiltIn = true;
        return inlineProfile;
    }();
    return profile;
}

QString AgentProfile::extraInstructions(const AgentPreferences &preferences)
{
    QStringList pieces;
    if (preferences.language == u"de")
        pieces.append(
            QStringLiteral("Always reply in German (Deutsch), whatever language the user writes in. "
                           "Keep code, object names and R output as they are."));
    else if (preferences.language == u"en")
        pieces.append(QStringLiteral("Always reply in English."));
    const QString standing = preferences.instructions.trimmed();
    if (!standing.isEmpty())
        pieces.append(QStringLiteral("The user's standing instructions:\n") + standing);
    if (pieces.isEmpty())
        return {};
    return QStringLiteral("\n\n") + pieces.join(QStringLiteral("\n\n"));
}

QString AgentProfile::systemPrompt(const QString &extraInstructions) const
{
    return QStringLiteral("You are ") + name + generalText + instructions + styleText + extraInstructions;
}

JSONValue AgentProfile::toJSON() const
{
    JSONValue::Array capabilityNames;
    for (AgentCapability capability : allCapabilities)
        if (capabilities.testFlag(capability))
            capabilityNames.append(agentCapabilityName(capability));
    JSONValue::Array starterValues;
    for (const QString &starter : starters)
        starterValues.append(starter);
    JSONValue::Object object = {
        {QStringLiteral("id"), id},
        {QStringLiteral("name"), name},
        {QStringLiteral("symbol"), symbol},
        {QStringLiteral("tagline"), tagline},
        {QStringLiteral("instructions"), instructions},
        {QStringLiteral("capabilities"), std::move(capabilityNames)},
        {QStringLiteral("starters"), std::move(starterValues)},
        {QStringLiteral("isBuiltIn"), isBuiltIn},
    };
    if (model)
        object.emplace(QStringLiteral("model"), *model);
    if (effort)
        object.emplace(QStringLiteral("effort"), *effort);
    return object;
}

Result<AgentProfile> AgentProfile::fromJSON(const JSONValue &json)
{
    if (!json.objectValue())
        return Failure{QStringLiteral("an agent profile is not an object")};
    AgentProfile profile;
    QString *const strings[] = {&profile.id, &profile.name, &profile.symbol, &profile.tagline,
                                &profile.instructions};
    const QStringView keys[] = {u"id", u"name", u"symbol", u"tagline", u"instructions"};
    for (size_t i = 0; i < std::size(keys); ++i) {
        const std::optional<QString> value = json[keys[i]].stringValue();
        if (!value)
            return Failure{QStringLiteral("an agent profile has no text \"%1\"").arg(keys[i])};
        *strings[i] = *value;
    }
    for (QStringView key : {QStringView(u"model"), QStringView(u"effort")}) {
        const JSONValue *member = json.find(key);
        if (member && !member->isNull() && !member->stringValue())
            return Failure{QStringLiteral("an agent profile's \"%1\" is not text").arg(key)};
    }
    profile.model = optionalString(json, u"model");
    profile.effort = optionalString(json, u"effort");

    const JSONValue::Array *capabilityNames = json[u"capabilities"].arrayValue();
    const JSONValue::Array *starterValues = json[u"starters"].arrayValue();
    const std::optional<bool> builtIn = json[u"isBuiltIn"].boolValue();
    if (!capabilityNames || !starterValues || !builtIn)
        return Failure{QStringLiteral("an agent profile lacks capabilities, starters or isBuiltIn")};
    for (const JSONValue &name : *capabilityNames) {
        const std::optional<AgentCapability> capability =
            agentCapabilityNamed(name.stringValue().value_or(QString()));
        if (!capability)
            return Failure{QStringLiteral("an agent profile has an unknown capability")};
        profile.capabilities |= *capability;
    }
    for (const JSONValue &starter : *starterValues) {
        const std::optional<QString> text = starter.stringValue();
        if (!text)
            return Failure{QStringLiteral("an agent profile's starter is not text")};
        profile.starters.append(*text);
    }
    profile.isBuiltIn = *builtIn;
    return profile;
}
