#include <QVPlatform/Process.h>

#include "SystemCalls.h"
#include <QVPlatform/SecureMemory.h>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <unistd.h>

namespace {

constexpr unsigned int MaxLength = 4096; // nobody types that; the rest of such a line is dropped
constexpr std::array<int, 6> Signals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGALRM, SIGTSTP};

volatile std::sig_atomic_t g_Signal = 0;

void RememberSignal(int signal) {
    g_Signal = signal;
}

// While an object lives the terminal of the standard input shows nothing that is typed. Signals only interrupt the
// reading, and take their usual effect behind it.
class SilentTerminal {
public:
    SilentTerminal() {
        g_Signal = 0;
        struct sigaction action {};
        action.sa_handler = RememberSignal; // without SA_RESTART
        sigemptyset(&action.sa_mask);
        for (std::size_t i = 0; i < Signals.size(); ++i)
            ::sigaction(Signals[i], &action, &m_Actions[i]);
        m_bSilent = qv_system().tcgetattr(0, &m_Attributes) == 0;
        if (!m_bSilent)
            return;
        termios silent = m_Attributes;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL);
        m_bSilent = qv_retry_interrupted([&] { return qv_system().tcsetattr(0, TCSAFLUSH, &silent); }) == 0;
    }
    ~SilentTerminal() {
        if (m_bSilent)
            qv_retry_interrupted([&] { return qv_system().tcsetattr(0, TCSAFLUSH, &m_Attributes); });
        for (std::size_t i = 0; i < Signals.size(); ++i)
            ::sigaction(Signals[i], &m_Actions[i], nullptr);
        if (g_Signal != 0)
            ::raise(g_Signal);
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

    bool IsSilent() const { return m_bSilent; }

private:
    termios m_Attributes{};
    bool m_bSilent = false;
    std::array<struct sigaction, Signals.size()> m_Actions{};
};

bool ReadLine(CQVSecureWString& line) {
    line.Clear();
    bool any = false;
    for (;;) {
        char byte = 0;
        const ssize_t got = qv_system().read(0, &byte, 1);
        if (got < 0 && errno == EINTR && g_Signal == 0)
            continue;
        if (got <= 0)
            return got == 0 && any;
        if (byte == '\n')
            return true;
        any = true;
        if (line.Length() < MaxLength)
            line.Append(byte);
        QVRandomGenerator::ClearMemory(&byte, 1);
    }
}

void Say(const char* text, size_t length) {
    // A prompt that nobody sees does not keep the password from being typed.
    [[maybe_unused]] const ssize_t written = qv_system().write(2, text, length);
}

} // namespace

bool qv_read_password(const char* prompt, CQVSecureWString& password) {
    if (!::isatty(0)) {
        g_Signal = 0;
        return ReadLine(password);
    }
    bool read = false;
    {
        const SilentTerminal terminal;
        if (!terminal.IsSilent())
            return false;
        Say(prompt, std::strlen(prompt));
        read = ReadLine(password) && g_Signal == 0;
        Say("\n", 1);
    }
    if (!read)
        password.Clear();
    return read;
}
