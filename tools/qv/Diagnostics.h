// Report, Diagnostics - what is wrong with a text: the messages about it, and under each the line that it is about.
//
//     Report report(context.m_Format);
//     Diagnostics diagnostics(report, "cfg.json");
//     diagnostics.SetText(text);
//     ... // parse with `diagnostics` as the log
//     report.Write();
//
//     cfg.json(2,7-8): error 101: Found '}' when expecting 'JSON Property Value'.
//       2 | {"a": }
//         |       ^
//
// For programs each message is one JSON object or one line of CSV. Messages wait until Write(), so that a command can
// first print the results that precede them.
#pragma once

#include "Excerpt.h"
#include "Tool.h"

#include <QVPlatform/OutputLog.h>
#include <string>
#include <string_view>
#include <utility>

struct Message {
    COutputLog::LogType m_Type;
    int m_Number; // 0 for what the library has no message for
    Place m_Place;
    std::string_view m_Text;
    std::string_view m_Source; // the name of the text that the place is in
    std::string_view m_Input;  // for an expression: what it was evaluated against; else empty
};

class Report {
public:
    explicit Report(OutputFormat format) : m_Format(format) {}

    // `line` is the line of the message's place.
    void Add(const Message& message, std::string_view line);
    // Writes what is pending to the error stream.
    void Write();

    bool IsPending() const { return !m_Pending.empty(); }
    // All that were added so far.
    unsigned long long GetCount() const { return m_Count; }

private:
    void AddForPeople(const Message& message, std::string_view line);
    void AddObject(const Message& message);
    void AddCsv(const Message& message);

    const OutputFormat m_Format;
    std::string m_Pending;
    unsigned long long m_Count = 0;
};

// The log of one text, or of the lines of one file.
class Diagnostics : public COutputLog {
public:
    // `source` is the name that the messages' locations have.
    Diagnostics(Report& report, std::string source) : m_Report(report), m_Source(std::move(source)) {}

    const std::string& GetSource() const { return m_Source; }
    // The text that the next messages are about, borrowed. Its first line has that number.
    void SetText(std::string_view text, unsigned int firstLine = 1);
    // For messages about an expression: what it is evaluated against.
    void SetInput(std::string input) { m_Input = std::move(input); }

    void Clear() override {}
    // Takes a message as a CErrorLog makes it.
    bool AppendMessage(LogType type, int number, const char* text, unsigned int length) override;
    // Reports what the library has no message for.
    void AddMessage(LogType type, const Place& place, std::string_view text) { Add(type, 0, place, text); }

    // The place of one byte of the text.
    Place Locate(std::size_t offset) const;

private:
    bool TakePrefix(LogType type, int number, std::string_view& text, Place& place) const;
    void Add(LogType type, int number, const Place& place, std::string_view text);
    std::string GetLine(unsigned int line) const;

    Report& m_Report;
    const std::string m_Source;
    std::string m_Input;
    std::string_view m_Text;
    unsigned int m_FirstLine = 1;
};
