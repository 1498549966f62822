#include "support/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <exception>
#include <fcntl.h>
#include <spawn.h>
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

ChildProgram::ChildProgram(const std::vector<std::string>& arguments, const std::string& outputFile) {
    std::vector<char*> words;
    for (const std::string& argument : arguments)
        words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, outputFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    const int error = posix_spawn(&m_Process, words[0], &actions, nullptr, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::system_error(error, std::generic_category(), arguments[0]);
}

ChildProgram::~ChildProgram() {
    if (m_Process > 0)
        End(SIGKILL);
}

bool ChildProgram::Kill() {
    const int status = End(SIGKILL);
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

int ChildProgram::Stop() {
    const int status = End(SIGTERM);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int ChildProgram::End(int signal) {
    kill(m_Process, signal);
    int status = 0;
    while (waitpid(m_Process, &status, 0) < 0 && errno == EINTR) {
    }
    m_Process = 0;
    return status;
}
