// LiveLine - the line at the foot of a terminal that tells how long work stands, and the messages above it.
//
// It is the log of such work: messages go to the error stream, on lines of their own also while the live line
// is shown, from whichever thread they come. Where no terminal watches, only the messages appear.
// Threads:  any number.
#pragma once

#include "HistoryFolder.h"

#include <chrono>
#include <mutex>
#include <string>
#include <string_view>

class LiveLine : public MessageLog {
public:
    enum Amount { Everything, NoInformation };

    explicit LiveLine(Amount amount = Everything);
    // Removes the line.
    ~LiveLine() override;
    LiveLine(const LiveLine&) = delete;
    LiveLine& operator=(const LiveLine&) = delete;

    // True when a terminal watches.
    bool IsWatched() const { return m_bTerminal; }
    // True when it is time to show something new: a terminal watches, and has not just been shown something.
    bool IsDue();
    void Show(std::string_view text);
    void Remove();

    bool AppendMessage(LogType type, int number, const char* text, unsigned int length) override;

private:
    const Amount m_Amount;
    const bool m_bTerminal;
    std::mutex m_Mutex; // guards the rest, and the terminal
    bool m_bShown = false;
    std::chrono::steady_clock::time_point m_NextTime;
};
