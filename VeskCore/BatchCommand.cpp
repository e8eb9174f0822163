#include "BatchCommand.h"

namespace {

BatchCommand invalid(const QString &error)
{
    BatchCommand command;
    command.kind = BatchCommand::Kind::Invalid;
    command.error = error;
    return command;
}

} // namespace

BatchCommand BatchCommand::parse(const QStringList &arguments)
{
    BatchCommand command;
    if (arguments.isEmpty())
        return command;
    const QString &first = arguments.first();
    if (first == u"--help" || first == u"-h") {
        command.kind = Kind::Help;
        return command;
    }
    if (first == u"--version") {
        command.kind = Kind::Version;
        return command;
    }
    if (first != u"--batch" && first != u"-e")
        return command;

    // Options first, then -e expressions or one file, then the script's own arguments.
    qsizetype at = first == u"--batch" ? 1 : 0;
    bool echo = false;
    for (; at < arguments.size() && arguments[at].startsWith(u"--"); ++at) {
        if (arguments[at] == u"--echo")
            echo = true;
        else
            return invalid(QStringLiteral("Unknown option %1.").arg(arguments[at]));
    }
    QStringList expressions;
    while (at < arguments.size() && arguments[at] == u"-e") {
        if (at + 1 >= arguments.size())
            return invalid(QStringLiteral("-e needs an expression."));
        expressions.append(arguments[at + 1]);
        at += 2;
    }
    QString file;
    if (expressions.isEmpty()) {
        if (at >= arguments.size())
            return invalid(QStringLiteral("Name a script or give -e EXPRESSION."));
        file = arguments[at++];
        if (file.isEmpty())
            return invalid(QStringLiteral("The script's name is empty."));
    }

    // As Rscript starts R: no saved workspace, no echo unless asked, the rest after --args.
    command.kind = Kind::Run;
    command.rArguments.append(echo ? QStringLiteral("--quiet") : QStringLiteral("--no-echo"));
    command.rArguments.append(QStringLiteral("--no-restore"));
    if (file.isEmpty()) {
        for (const QString &expression : expressions)
            command.rArguments << QStringLiteral("-e") << expression;
    } else {
        command.rArguments.append(QStringLiteral("--file=") + file);
    }
    if (at < arguments.size()) {
        command.rArguments.append(QStringLiteral("--args"));
        command.rArguments.append(arguments.mid(at));
    }
    return command;
}

QString BatchCommand::usage()
{
    return QStringLiteral(
        "Usage: vesk [FILE | FOLDER]...\n"
        "       vesk --batch [--echo] FILE [ARGS]...\n"
        "       vesk --batch [--echo] -e EXPRESSION [-e EXPRESSION]... [ARGS]...\n"
        "       vesk -e EXPRESSION [-e EXPRESSION]... [ARGS]...\n"
        "\n"
        "Without options, Vesk opens a window on the project folders and files given.\n"
        "\n"
        "  --batch      run R on a script or expressions without a window, as Rscript does:\n"
        "               the same output, the same exit status, standard input for R to read\n"
        "  --echo       show each expression with R's prompts before its output\n"
        "  -e EXPR      run an expression instead of a script (may be repeated)\n"
        "  ARGS         given to the script: commandArgs(trailingOnly = TRUE)\n"
        "  --help       show this text\n"
        "  --version    show Vesk's version\n");
}
