#include <QVPlatform/BrokenPipeGuard.h>

#include <cerrno>
#include <csignal>
#include <ctime>

namespace {

sigset_t BrokenPipe() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    return set;
}

bool IsBrokenPipePending() {
    sigset_t pending;
    sigemptyset(&pending);
    return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
}

} // namespace

QVBrokenPipeGuard::QVBrokenPipeGuard() {
    const sigset_t brokenPipe = BrokenPipe();
    sigset_t before;
    sigemptyset(&before);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, &before);
    m_bWasBlocked = sigismember(&before, SIGPIPE) == 1;
    // Where it was not blocked, it would have been delivered.
    m_bWasPending = m_bWasBlocked && IsBrokenPipePending();
}

QVBrokenPipeGuard::~QVBrokenPipeGuard() {
    const int error = errno;
    const sigset_t brokenPipe = BrokenPipe();
    const timespec atOnce{};
    if (!m_bWasPending) {
        while (sigtimedwait(&brokenPipe, nullptr, &atOnce) == -1 && errno == EINTR) {
        }
    }
    if (!m_bWasBlocked)
        pthread_sigmask(SIG_UNBLOCK, &brokenPipe, nullptr);
    errno = error;
}
