// EventLoop - waits for many sockets at once (epoll) and calls who waits for each.
//
// Threads: one, but for Wake().
#pragma once

#include <functional>
#include <unordered_map>

class EventLoop {
public:
    using Handler = std::function<void(bool bReadable, bool bWritable)>;

    // Throws std::system_error when the system has no epoll left.
    EventLoop();
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    // Has `handler` called when the handle can be read or written, as wanted; errors count as both. For a handle that is
    // watched already, only what is wanted changes, and `handler` may be left out.
    void Watch(int handle, bool bReadable, bool bWritable, const Handler& handler = {});
    // To be called before the handle, or anything that may have got its number, is watched anew.
    void Forget(int handle);

    // Waits, at most for so long, and calls. Handles that a handler closes must not be opened anew by another one before
    // this returns.
    void RunOnce(int milliseconds);
    // From any thread: ends the wait.
    void Wake();

private:
    struct Watched {
        Handler m_Handler;
        unsigned int m_Events = 0;
    };

    const int m_Poll;
    const int m_WakeEvent;
    std::unordered_map<int, Watched> m_Watched;
};
