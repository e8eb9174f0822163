// What `vesk` is asked to do by its command line when it opens no window: run R on a script or on
// expressions the way Rscript does (`--batch`, `-e`), or answer `--help` and `--version` at once.
// Pure: the caller finds R and starts it with `rArguments`.
#pragma once

#include <QString>
#include <QStringList>

struct BatchCommand {
    enum class Kind { Window, Help, Version, Run, Invalid };

    Kind kind = Kind::Window;
    // Run: R's arguments after the executable, as Rscript gives them to R.
    QStringList rArguments;
    // Invalid: what was wrong, in one line.
    QString error;

    // `arguments` without the program's own name.
    static BatchCommand parse(const QStringList &arguments);
    static QString usage();
};
