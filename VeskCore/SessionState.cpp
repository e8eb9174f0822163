#include "SessionState.h"

#include <limits>

JSONValue SessionState::toJSON() const
{
    JSONValue::Array tabList;
    for (const Tab &tab : tabs) {
        JSONValue::Object object;
        if (tab.path)
            object.emplace(QStringLiteral("path"), *tab.path);
        if (tab.autosave)
            object.emplace(QStringLiteral("autosave"), *tab.autosave);
        object.emplace(QStringLiteral("untitledIndex"), tab.untitledIndex);
        if (tab.suggestedName)
            object.emplace(QStringLiteral("suggestedName"), *tab.suggestedName);
        if (tab.breakpoints) {
            JSONValue::Array lines;
            for (int line : *tab.breakpoints)
                lines.append(line);
            object.emplace(QStringLiteral("breakpoints"), std::move(lines));
        }
        if (tab.stamp)
            object.emplace(QStringLiteral("stamp"), tab.stamp->toJSON());
        tabList.append(JSONValue(std::move(object)));
    }
    JSONValue::Object root;
    root.emplace(QStringLiteral("tabs"), std::move(tabList));
    if (selectedIndex)
        root.emplace(QStringLiteral("selectedIndex"), *selectedIndex);
    return JSONValue(std::move(root));
}

std::optional<SessionState> SessionState::fromJSON(const JSONValue &value)
{
    if (!value.objectValue())
        return std::nullopt;
    SessionState state;
    if (const JSONValue::Array *tabList = value[u"tabs"].arrayValue()) {
        for (const JSONValue &entry : *tabList) {
            if (!entry.objectValue())
                continue;
            Tab tab;
            tab.path = entry[u"path"].stringValue();
            tab.autosave = entry[u"autosave"].stringValue();
            const std::optional<qint64> index = entry[u"untitledIndex"].intValue();
            tab.untitledIndex = index && *index >= 0 && *index < 1'000'000 ? int(*index) : 0;
            tab.suggestedName = entry[u"suggestedName"].stringValue();
            if (const JSONValue::Array *lines = entry[u"breakpoints"].arrayValue()) {
                QList<int> kept;
                for (const JSONValue &line : *lines) {
                    const std::optional<qint64> number = line.intValue();
                    if (number && *number > 0 && *number <= std::numeric_limits<int>::max())
                        kept.append(int(*number));
                }
                tab.breakpoints = kept;
            }
            if (const JSONValue *stamp = entry.find(u"stamp"))
                tab.stamp = FileStamp::fromJSON(*stamp);
            state.tabs.append(std::move(tab));
        }
    }
    const std::optional<qint64> selected = value[u"selectedIndex"].intValue();
    if (selected && *selected >= 0 && *selected < state.tabs.size())
        state.selectedIndex = int(*selected);
    return state;
}
