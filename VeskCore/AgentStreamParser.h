// Reads one line of `claude --output-format stream-json` into the events Vesk acts on. A pure
// function of the line: no state is kept between lines, and a line of unknown or broken shape gives
// no events rather than an error, so a newer CLI that adds kinds of lines breaks nothing.
#pragma once

#include "AgentStreamEvent.h"

#include <QByteArrayView>
#include <QList>
#include <QStringView>

namespace AgentStreamParser {

QList<AgentStreamEvent> parse(QStringView line);
// The process's form: the line's bytes as read, UTF-8 with invalid sequences inside strings taken as
// U+FFFD.
QList<AgentStreamEvent> parse(QByteArrayView utf8Line);

} // namespace AgentStreamParser
