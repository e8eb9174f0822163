// Stored console text keeps SGR colour sequences inline; these functions read them back: as styled
// runs for display, as plain text for copying, and as the style left open at the end.
#pragma once

#include "ANSIStyle.h"

#include <QList>
#include <QString>

struct ANSIRun {
    QString text;
    ANSIStyle style;

    bool operator==(const ANSIRun &) const = default;
};

namespace ANSIText {

// Styled runs; escape sequences other than SGR are dropped, and so is one cut off at the end.
QList<ANSIRun> parse(const QString &text);
// The text of the runs joined.
QString strip(const QString &text);
// The style in effect behind the last character.
ANSIStyle endStyle(const QString &text);
// The SGR sequence that sets exactly `style`, starting from a reset.
QString sequence(const ANSIStyle &style);

} // namespace ANSIText
