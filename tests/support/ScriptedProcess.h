// A kernel process whose output the test writes: the bytes R would print, parsed as `RProcess`
// parses them, so an `RSession` is driven through its paths without starting R. It records what the
// session writes, and plays R's echo of each line it reads.
#pragma once

#include "KernelProcess.h"

#include <QByteArray>
#include <QStringList>

class ScriptedProcess : public KernelProcess {
public:
    static inline const QString token = u"5c1a9d0e77f24b6fa3e01d28c4b96e1f"_qs;

    explicit ScriptedProcess(QString launchError = {}) : m_launchError(std::move(launchError)) {}

    bool start(const QMap<QString, QString> &extraEnvironment, bool, QString *error) override
    {
        environment = extraEnvironment;
        if (m_launchError.isEmpty())
            return true;
        *error = m_launchError;
        return false;
    }
    void send(const QString &line) override { written.append(line); }
    void interrupt() override { ++interrupts; }
    void terminate() override { ++terminations; }

    // Standard output, in the pieces given.
    void print(const QByteArray &bytes)
    {
        for (const RStreamEvent &event : m_parser.feed(bytes))
            emit eventReceived(RProcessEvent::makeStdout(event));
    }
    void printError(const QString &text) { emit eventReceived(RProcessEvent::makeStderr(text)); }
    // R reads the next line the session wrote and echoes it after its prompt.
    QString readLine()
    {
        const QString line = written.value(m_read++);
        print(line.toUtf8() + '\n');
        return line;
    }
    void exit(qint32 status, const QString &reason)
    {
        for (const RStreamEvent &event : m_parser.flush())
            emit eventReceived(RProcessEvent::makeStdout(event));
        emit eventReceived(RProcessEvent::makeExited(status, reason));
    }

    // What the kernel prints: a frame, and the prompts of R's read loop and of the browser.
    static QByteArray frame(const QByteArray &json) { return '\x1e' + token.toUtf8() + json + '\x1f'; }
    static QByteArray readyPrompt() { return "\x02VESK>" + token.toUtf8() + '\x03'; }
    static QByteArray continuationPrompt() { return "\x02VESK+" + token.toUtf8() + '\x03'; }
    static QByteArray browserPrompt(int level) { return "Browse[" + QByteArray::number(level) + "]> "; }

    QMap<QString, QString> environment;
    QStringList written;
    int interrupts = 0;
    int terminations = 0;

private:
    QString m_launchError;
    RStreamParser m_parser{token};
    qsizetype m_read = 0;
};
