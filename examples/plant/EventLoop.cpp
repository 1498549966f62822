#include "EventLoop.h"

#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

EventLoop::EventLoop()
    : m_Poll(epoll_create1(EPOLL_CLOEXEC)), m_WakeEvent(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (m_Poll < 0 || m_WakeEvent < 0)
        throw std::system_error(errno, std::generic_category(), "an event loop");
    Watch(m_WakeEvent, true, false, [this](bool, bool) {
        eventfd_t count = 0;
        eventfd_read(m_WakeEvent, &count);
    });
}

EventLoop::~EventLoop() {
    close(m_WakeEvent);
    close(m_Poll);
}

void EventLoop::Watch(int handle, bool bReadable, bool bWritable, const Handler& handler) {
    const auto [found, bNew] = m_Watched.try_emplace(handle);
    Watched& watched = found->second;
    const unsigned int events = (bReadable ? EPOLLIN : 0U) | (bWritable ? EPOLLOUT : 0U);
    if (handler)
        watched.m_Handler = handler;
    if (!bNew && watched.m_Events == events)
        return;
    watched.m_Events = events;
    epoll_event event{};
    event.events = events;
    event.data.fd = handle;
    if (epoll_ctl(m_Poll, bNew ? EPOLL_CTL_ADD : EPOLL_CTL_MOD, handle, &event) != 0)
        throw std::system_error(errno, std::generic_category(), "waiting for a socket");
}

void EventLoop::Forget(int handle) {
    if (m_Watched.erase(handle) == 1)
        epoll_ctl(m_Poll, EPOLL_CTL_DEL, handle, nullptr); // fails where closing it has done that already
}

void EventLoop::RunOnce(int milliseconds) {
    std::array<epoll_event, 64> events;
    const int count = epoll_wait(m_Poll, events.data(), events.size(), milliseconds);
    for (int i = 0; i < count; i++) {
        const epoll_event& event = events[static_cast<std::size_t>(i)];
        const auto found = m_Watched.find(event.data.fd);
        if (found == m_Watched.end())
            continue;
        const Handler handler = found->second.m_Handler; // which may forget itself
        handler((event.events & ~static_cast<unsigned int>(EPOLLOUT)) != 0,
                (event.events & ~static_cast<unsigned int>(EPOLLIN)) != 0);
    }
}

void EventLoop::Wake() {
    eventfd_write(m_WakeEvent, 1);
}
