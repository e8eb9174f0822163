// A serial queue: one worker thread runs submitted tasks one after another, in order. Destroying the
// queue lets the tasks already submitted finish on their own; it never blocks the caller.
#pragma once

#include <functional>
#include <memory>
#include <string>

class SerialQueue {
public:
    explicit SerialQueue(std::string label);
    ~SerialQueue();
    SerialQueue(const SerialQueue &) = delete;
    SerialQueue &operator=(const SerialQueue &) = delete;

    void submit(std::function<void()> task);

private:
    struct State;
    std::shared_ptr<State> m_state;
};

// Names the calling thread (the first 15 bytes; the kernel keeps no more).
void setCurrentThreadName(const std::string &label);
