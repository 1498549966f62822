// QVBrokenPipeGuard - keeps the signal SIGPIPE from this thread while a foreign library writes to a connection
// whose other side may be gone. Ours do without it: QVSocket sends without a signal.
//
//     {
//         const QVBrokenPipeGuard guard;
//         result = SSL_write(...);
//     }
//
// A signal that the writing raised is taken away; one that was pending before stays, and so does whatever the
// program does with SIGPIPE. errno passes through the end of the scope. Costs three short system calls.
// Threads: each thread guards itself.
#pragma once

class QVBrokenPipeGuard {
public:
    QVBrokenPipeGuard();
    ~QVBrokenPipeGuard();
    QVBrokenPipeGuard(const QVBrokenPipeGuard&) = delete;
    QVBrokenPipeGuard& operator=(const QVBrokenPipeGuard&) = delete;

private:
    bool m_bWasBlocked;
    bool m_bWasPending;
};
