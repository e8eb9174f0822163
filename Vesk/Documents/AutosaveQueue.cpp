#include "Documents/AutosaveQueue.h"

#include "Base/SessionFiles.h"
#include "SerialQueue.h"

#include <QHash>
#include <QMetaObject>

#include <future>
#include <mutex>

#include <pthread.h>
#include <sched.h>

struct AutosaveQueue::State {
    std::mutex lock;
    QObject *owner = nullptr; // cleared when the queue goes, so no report reaches a dead object
    // The newest task of each target; an older one still waiting is skipped.
    QHash<QString, quint64> newest;
    quint64 counter = 0;
    SerialQueue worker{"vesk.autosave"};

    quint64 claim(const QString &target)
    {
        std::lock_guard guard(lock);
        newest.insert(target, ++counter);
        return counter;
    }
    bool isNewest(const QString &target, quint64 ticket)
    {
        std::lock_guard guard(lock);
        return newest.value(target) == ticket;
    }
    void report(std::function<void()> failed)
    {
        std::lock_guard guard(lock);
        if (owner && failed)
            QMetaObject::invokeMethod(owner, std::move(failed), Qt::QueuedConnection);
    }
};

AutosaveQueue::AutosaveQueue(QObject *owner) : m_state(std::make_shared<State>())
{
    m_state->owner = owner;
    // Woken by a flush, the worker would otherwise take the processor from the main thread at once
    // (3 ms for a 20 MB text on a busy machine); as a batch thread it waits for its turn, with its
    // full share.
    m_state->worker.submit([] {
        sched_param parameters{};
        ::pthread_setschedparam(::pthread_self(), SCHED_BATCH, &parameters);
    });
}

AutosaveQueue::~AutosaveQueue()
{
    {
        std::lock_guard guard(m_state->lock);
        m_state->owner = nullptr;
    }
    finish();
}

void AutosaveQueue::write(const QString &name, QString text, std::function<void()> failed)
{
    const quint64 ticket = m_state->claim(name);
    m_state->worker.submit(
        [state = m_state, name, text = std::move(text), ticket, failed = std::move(failed)] {
            if (!state->isNewest(name, ticket))
                return;
            if (!AutosaveStore::write(text, name))
                state->report(failed);
        });
}

void AutosaveQueue::remove(const QString &name)
{
    const quint64 ticket = m_state->claim(name);
    m_state->worker.submit([state = m_state, name, ticket] {
        if (state->isNewest(name, ticket))
            AutosaveStore::remove(name);
    });
}

void AutosaveQueue::writeSession(SessionState sessionState, const QString &key)
{
    const QString target = QStringLiteral("session:") + key;
    const quint64 ticket = m_state->claim(target);
    m_state->worker.submit([state = m_state, sessionState = std::move(sessionState), key, target, ticket] {
        if (state->isNewest(target, ticket))
            AutosaveStore::writeSession(sessionState, key);
    });
}

void AutosaveQueue::finish()
{
    std::promise<void> done;
    m_state->worker.submit([&done] { done.set_value(); });
    done.get_future().wait();
}
