// Autosave writes off the main thread: the caller hands over a snapshot of the text (a QString copy
// shares the buffer, so that costs nothing) and a worker encodes it and writes it atomically. One
// worker keeps the writes in order, and a snapshot that a newer one of the same file has replaced
// before its turn is dropped, so an older text never overwrites a newer one.
#pragma once

#include "SessionState.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>

class AutosaveQueue {
public:
    // `owner` receives the failure reports, on its thread.
    explicit AutosaveQueue(QObject *owner);
    // Finishes what was handed over.
    ~AutosaveQueue();
    AutosaveQueue(const AutosaveQueue &) = delete;
    AutosaveQueue &operator=(const AutosaveQueue &) = delete;

    // `failed` runs on the owner's thread when the write did not reach the disk.
    void write(const QString &name, QString text, std::function<void()> failed);
    void remove(const QString &name);
    void writeSession(SessionState state, const QString &key);
    // Blocks until everything handed over so far is on disk (or has failed).
    void finish();

    struct State;

private:
    std::shared_ptr<State> m_state;
};
