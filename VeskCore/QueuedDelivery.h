// Hands what a child's reader thread produced to the object that owns the child, on that object's
// thread, in order; once the owner is destroyed nothing more reaches it, not even what was posted
// before. Shared by RProcess and the Claude process.
#pragma once

#include <QList>
#include <QMetaObject>
#include <QPointer>

#include <mutex>
#include <utility>

template <typename Owner> class QueuedDelivery {
public:
    explicit QueuedDelivery(Owner *owner) : m_owner(owner) {}

    // From the owner's destructor, before anything it calls could post.
    void release()
    {
        std::lock_guard guard(m_lock);
        m_owner = nullptr;
    }

    // Calls `each(owner, event)` for every event and then `last(owner)` on the owner's thread,
    // stopping as soon as the owner is gone (a handler may destroy it).
    template <typename Event, typename Each, typename Last>
    void post(QList<Event> events, Each each, Last last)
    {
        std::lock_guard guard(m_lock);
        if (!m_owner)
            return;
        QMetaObject::invokeMethod(
            m_owner,
            [target = m_owner, events = std::move(events), each = std::move(each), last = std::move(last)] {
                QPointer<Owner> alive(target);
                for (const Event &event : events) {
                    if (!alive)
                        return;
                    each(target, event);
                }
                if (alive)
                    last(target);
            },
            Qt::QueuedConnection);
    }

    template <typename Event, typename Each> void post(QList<Event> events, Each each)
    {
        if (!events.isEmpty())
            post(std::move(events), std::move(each), [](Owner *) {});
    }

private:
    std::mutex m_lock;
    Owner *m_owner;
};
