// One R child process with the kernel script: writes lines to its standard input from a queue of
// its own, parses its standard output, and reports everything as one ordered stream of events on the
// thread that owns the object.
#pragma once

#include "RStreamParser.h"

#include <QMap>
#include <QObject>
#include <QString>

#include <memory>

struct RProcessEvent {
    enum class Kind { Stdout, Stderr, Exited };
    Kind kind = Kind::Stdout;
    RStreamEvent stream; // Stdout
    QString text;        // Stderr: the decoded chunk; Exited: the reason
    qint32 status = 0;   // Exited

    static RProcessEvent makeStdout(RStreamEvent event) { return {Kind::Stdout, std::move(event), {}, 0}; }
    static RProcessEvent makeStderr(QString text) { return {Kind::Stderr, {}, std::move(text), 0}; }
    static RProcessEvent makeExited(qint32 status, QString reason)
    {
        return {Kind::Exited, {}, std::move(reason), status};
    }
};

class RProcess : public QObject {
    Q_OBJECT
public:
    static inline const QString tokenVariable = QStringLiteral("VESK_KERNEL_TOKEN");

    RProcess(QString executable, QString workingDirectory, QString kernelScript, QObject *parent = nullptr);
    ~RProcess() override;

    // Launches R and sends the line that sources the kernel. On failure returns false with the
    // launch error in *error, and no event ever comes.
    bool start(const QMap<QString, QString> &extraEnvironment, bool loadInitFile, QString *error);

    // Fire and forget; nothing is written after exit or once standard input was closed.
    void send(const QString &line);
    void interrupt();
    // SIGTERM to R and what it started, close standard input, SIGKILL two seconds later if R still
    // lives.
    void terminate();

    qint32 processIdentifier() const;
    bool isRunning() const;
    const QString &token() const { return m_token; }
    const QString &executable() const { return m_executable; }

    // The child's environment, built from the parent's (exposed for tests).
    static QStringList childEnvironment(const QStringList &parent, const QMap<QString, QString> &extra,
                                        const QString &token);
    static QStringList arguments(bool loadInitFile);

    // What the object shares with its reader thread, writer queue and delayed kill.
    struct Shared;

signals:
    // Delivered in order on the owner's thread; Exited always comes last.
    void eventReceived(const RProcessEvent &event);

private:
    QString m_executable;
    QString m_workingDirectory;
    QString m_kernelScript;
    QString m_token;
    std::shared_ptr<Shared> m_shared;
    bool m_started = false;
};
