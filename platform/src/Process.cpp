#include <QVPlatform/Process.h>

#include "StopEvent.h"
#include "SystemCalls.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

std::atomic<bool> g_bStopRequested{false};
std::atomic<int> g_StopEvent{-1}; // readable from the first stop signal on; never read

static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

void HandleStopSignal(int) {
    const int error = errno;
    g_bStopRequested = true;
    const unsigned long long one = 1;
    // Cannot block or overflow within a process's life; without an event the sleeper looks every second.
    [[maybe_unused]] const ssize_t written = ::write(g_StopEvent, &one, sizeof one);
    errno = error;
}

} // namespace

void qv_catch_stop_signals() {
    g_StopEvent = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    struct sigaction action {};
    action.sa_handler = HandleStopSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

int qv_stop_event_descriptor() {
    return g_StopEvent;
}

bool qv_stop_requested() {
    return g_bStopRequested;
}

bool qv_sleep_until(CQVTimestamp deadline) {
    // Slices, because the clock may be set while we sleep.
    constexpr unsigned long long longest = CQVTimeInterval::UnitsPerSecond;
    while (!g_bStopRequested) {
        CQVTimestamp now;
        now.SetUTC();
        if (now >= deadline)
            return true;
        const auto left =
            static_cast<unsigned long long>((deadline - now).GetValue()); // never wraps unsigned
        const unsigned long long slice = std::min(left, longest);
        timespec time{};
        time.tv_sec = static_cast<decltype(time.tv_sec)>(slice / CQVTimeInterval::UnitsPerSecond);
        time.tv_nsec = static_cast<decltype(time.tv_nsec)>(slice % CQVTimeInterval::UnitsPerSecond * 100);
        // The event stays readable, so a signal between the test above and this call is not lost.
        pollfd event{g_StopEvent, POLLIN, 0};
        ::ppoll(&event, 1, &time, nullptr);
    }
    return false;
}

int qv_read_standard_input(void* buffer, unsigned int size, int& error) {
    const ssize_t got = qv_retry_interrupted(
        [&] { return ::read(STDIN_FILENO, buffer, std::min<unsigned int>(size, INT_MAX)); });
    if (got < 0)
        error = errno;
    return static_cast<int>(got);
}

bool qv_is_terminal(int stream) {
    return ::isatty(stream) == 1;
}

unsigned int qv_terminal_width(int stream) {
    winsize size{};
    return ::ioctl(stream, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : 80u;
}

long long qv_peak_memory() {
    rusage usage{};
    return ::getrusage(RUSAGE_SELF, &usage) == 0 ? usage.ru_maxrss * 1024LL : 0;
}
