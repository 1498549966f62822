// COutputLog - where messages go, and the logs that collect them.
//
// Model:    a caller hands a log to an operation; the operation writes one message per call. What becomes of
//           them is the log's business: a file, a window, a list.
// Errors:   none are reported back but by AppendMessage()'s result: true when the message was taken.
// Threads:  a log that is shared between threads locks itself; the ones below are for one thread at a time.
#pragma once

#include <QVPlatform/String.h>
#include <cstdarg>
#include <list>

class COutputLog {
public:
    enum LogType : int { Information = 0, Warning = 1, Error = 2 };

    virtual ~COutputLog() = default;

    // Forgets what was collected, where there is something to forget.
    virtual void Clear() = 0;
    // Takes one finished line of `length` bytes of UTF-8 without a line end. `number` is the message's
    // number, 0 for a plain line. The text is borrowed for the call.
    virtual bool AppendMessage(LogType type, int number, const char* text, unsigned int length) = 0;

    // Format and append one line of any length: information, or an error.
    void Print(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void PrintError(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void PrintVA(LogType type, const char* format, va_list arguments) __attribute__((format(printf, 3, 0)));
    // An information line that starts with `length` bytes of `prefix`.
    void PrefixedPrintInfoVA(const char* prefix, unsigned int length, const char* format, va_list arguments)
        __attribute__((format(printf, 4, 0)));
};

// Discards everything.
class COutputLogNull : public COutputLog {
public:
    void Clear() override {}
    bool AppendMessage(LogType, int, const char*, unsigned int) override { return true; }
};

// Collects the lines into one string, each followed by a line feed.
class COutputLogToString : public COutputLog {
public:
    void Clear() override { m_Text.clear(); }
    bool AppendMessage(LogType type, int number, const char* text, unsigned int length) override;

    const qvstring& GetString() const { return m_Text; }

private:
    qvstring m_Text;
};

// Keeps every message with its kind and number.
class COutputLogToRawList : public COutputLog {
public:
    struct LogEntry {
        LogType type = Information;
        int number = 0;
        qvstring text;
    };

    void Clear() override { m_Entries.clear(); }
    bool AppendMessage(LogType type, int number, const char* text, unsigned int length) override;

    const std::list<LogEntry>& GetLogEntries() const { return m_Entries; }
    // The first entry, null when there is none.
    const LogEntry* GetFirstLogEntry() const { return m_Entries.empty() ? nullptr : &m_Entries.front(); }

private:
    std::list<LogEntry> m_Entries;
};
