#include "LiveLine.h"

#include "Output.h"

#include <QVPlatform/Process.h>

namespace {

constexpr std::chrono::milliseconds TimeBetweenLines(200);

} // namespace

LiveLine::LiveLine(Amount amount) : m_Amount(amount), m_bTerminal(qv_is_terminal(2)) {}

LiveLine::~LiveLine() {
    Remove();
}

bool LiveLine::IsDue() {
    const std::lock_guard lock(m_Mutex);
    return m_bTerminal && std::chrono::steady_clock::now() >= m_NextTime;
}

void LiveLine::Show(std::string_view text) {
    const std::lock_guard lock(m_Mutex);
    if (!m_bTerminal)
        return;
    RewriteTerminalLine(text);
    m_bShown = true;
    m_NextTime = std::chrono::steady_clock::now() + TimeBetweenLines;
}

void LiveLine::Remove() {
    const std::lock_guard lock(m_Mutex);
    if (m_bShown)
        RewriteTerminalLine("");
    m_bShown = false;
}

bool LiveLine::AppendMessage(LogType type, int number, const char* text, unsigned int length) {
    if (type == Information && m_Amount == NoInformation)
        return true;
    const std::lock_guard lock(m_Mutex);
    if (m_bShown)
        RewriteTerminalLine("");
    m_bShown = false;
    return MessageLog::AppendMessage(type, number, text, length);
}
