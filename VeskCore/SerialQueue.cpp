#include "SerialQueue.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include <pthread.h>

struct SerialQueue::State {
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<std::function<void()>> tasks;
    bool closing = false;
};

void setCurrentThreadName(const std::string &label)
{
    pthread_setname_np(pthread_self(), label.substr(0, 15).c_str());
}

SerialQueue::SerialQueue(std::string label) : m_state(std::make_shared<State>())
{
    std::thread([state = m_state, label = std::move(label)] {
        setCurrentThreadName(label);
        for (;;) {
            std::function<void()> task;
            {
                std::unique_lock lock(state->mutex);
                state->wake.wait(lock, [&] { return state->closing || !state->tasks.empty(); });
                if (state->tasks.empty())
                    return; // closing, and everything submitted has run
                task = std::move(state->tasks.front());
                state->tasks.pop_front();
            }
            // The task and what it captured die here, outside the lock: the last reference to the
            // queue's owner may be among them, and its destructor locks the queue.
            task();
        }
    }).detach();
}

SerialQueue::~SerialQueue()
{
    {
        std::lock_guard lock(m_state->mutex);
        m_state->closing = true;
    }
    m_state->wake.notify_one();
}

void SerialQueue::submit(std::function<void()> task)
{
    {
        std::lock_guard lock(m_state->mutex);
        m_state->tasks.push_back(std::move(task));
    }
    m_state->wake.notify_one();
}
