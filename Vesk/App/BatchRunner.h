// `vesk --batch` and `vesk -e`: R runs the script in place of Vesk, started as Rscript starts it,
// so that the output, the reading of standard input, the exit status and what R code sees
// (interactive() is FALSE) are R's own, streamed as R writes them.
#pragma once

#include "BatchCommand.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace BatchRunner {

struct Program {
    QString executable;
    QStringList arguments; // after the executable
};

// The R that a window would start (`preferredR` when it names one, else the usual places), with
// the command's arguments; nothing when no R is installed.
std::optional<Program> program(const BatchCommand &command, const QString &preferredR);

// Replaces this process with R. Returns only when that fails, with the status to exit with.
int exec(const Program &program);

// What `vesk` does for a command line that opens no window: the exit status.
int run(const BatchCommand &command, const QString &preferredR);

} // namespace BatchRunner
