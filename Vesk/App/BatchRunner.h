// `vesk --batch`: runs one piece of code through a workspace without a window, prints the plain
// transcript of each finished cell, and reports whether any cell failed.
#pragma once

#include <QObject>

#include <cstdio>
#include <memory>

class Settings;
class Workspace;

class BatchRunner : public QObject {
    Q_OBJECT
public:
    BatchRunner(Settings &settings, QString code, FILE *output = stdout, FILE *errors = stderr,
                QObject *parent = nullptr);
    ~BatchRunner() override;

    Workspace &workspace() { return *m_workspace; }
    // Starts R; `finished` follows once the code has run or R could not run it.
    void start();

    // Reads the command line: `--batch FILE` or `--batch -e CODE`. Gives the code, or none with
    // `error` set when the arguments are wrong or the file cannot be read.
    static std::optional<QString> codeFromArguments(const QStringList &arguments, QString *error);
    static bool isBatchInvocation(const QStringList &arguments);

signals:
    // The exit status: 1 if a cell failed or R could not run the code, else 0.
    void finished(int status);

private:
    void runCode();
    void print(FILE *stream, const QString &text);
    void finish(int status);

    std::unique_ptr<Workspace> m_workspace;
    QString m_code;
    FILE *m_output;
    FILE *m_errors;
    bool m_started = false;
    bool m_done = false;
};
