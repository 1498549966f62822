#include "support/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <exception>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

ChildProcess::ChildProcess(const std::function<void(const Report&)>& work) {
    int ends[2];
    if (pipe(ends) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    m_Process = fork();
    if (m_Process < 0)
        throw std::system_error(errno, std::generic_category(), "fork");
    m_Pipe = ends[0];
    if (m_Process != 0) {
        close(ends[1]);
        return;
    }
    close(ends[0]);
    try {
        work([&](long long number) {
            if (write(ends[1], &number, sizeof number) != sizeof number)
                _exit(2); // nobody listens any more
        });
    } catch (const std::exception&) {
        _exit(1);
    }
    _exit(0);
}

ChildProcess::~ChildProcess() {
    Kill();
    close(m_Pipe);
}

bool ChildProcess::ReadReport(long long& number) {
    // A number is far below what a pipe keeps whole, so there is all of it or nothing.
    ssize_t got;
    while ((got = read(m_Pipe, &number, sizeof number)) < 0 && errno == EINTR) {
    }
    return got == sizeof number;
}

bool ChildProcess::Kill() {
    if (m_Process <= 0)
        return false;
    kill(m_Process, SIGKILL);
    int status = 0;
    while (waitpid(m_Process, &status, 0) < 0 && errno == EINTR) {
    }
    m_Process = 0;
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}
