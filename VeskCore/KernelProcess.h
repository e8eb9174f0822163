// What a session needs of the process it drives: start it, write lines, interrupt, end it, and an
// ordered stream of its events. `RProcess` is the real R; tests give a session scripted events.
#pragma once

#include "RStreamParser.h"

#include <QMap>
#include <QObject>
#include <QString>

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

class KernelProcess : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // Launches the process. On failure returns false with the launch error in *error, and no event
    // ever comes.
    virtual bool start(const QMap<QString, QString> &extraEnvironment, bool loadInitFile, QString *error) = 0;
    // Fire and forget; nothing is written after exit or once standard input was closed.
    virtual void send(const QString &line) = 0;
    virtual void interrupt() = 0;
    virtual void terminate() = 0;

signals:
    // Delivered in order on the owner's thread; Exited always comes last.
    void eventReceived(const RProcessEvent &event);
};
