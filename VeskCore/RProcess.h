// One R child process with the kernel script: writes lines to its standard input from a queue of
// its own, parses its standard output, and reports everything as one ordered stream of events on the
// thread that owns the object.
#pragma once

#include "KernelProcess.h"

#include <QMap>
#include <QString>

#include <memory>

class RProcess : public KernelProcess {
    Q_OBJECT
public:
    static inline const QString tokenVariable = QStringLiteral("VESK_KERNEL_TOKEN");

    RProcess(QString executable, QString workingDirectory, QString kernelScript, QObject *parent = nullptr);
    ~RProcess() override;

    // Launches R and sends the line that sources the kernel.
    bool start(const QMap<QString, QString> &extraEnvironment, bool loadInitFile, QString *error) override;

    void send(const QString &line) override;
    void interrupt() override;
    // SIGTERM to R and what it started, close standard input, SIGKILL two seconds later if R still
    // lives.
    void terminate() override;

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

private:
    QString m_executable;
    QString m_workingDirectory;
    QString m_kernelScript;
    QString m_token;
    std::shared_ptr<Shared> m_shared;
    bool m_started = false;
};
