// CTextOutputToOutputLog - prints onto a log: each line of text becomes one information line of the log.
//
//     CTextOutputToOutputLog out(log);
//     identity.PrintUserIdentity(out);
//     out.PrintLine(": %s", rights);
//
// A line reaches the log when it ends, an empty one too, and an unfinished one when the object is destroyed.
// Both LF and CR LF in the text end a line; the line termination is of no account.
//
// Errors:    whether the log took a line is not told.
// Ownership: the log is borrowed and must outlive the object.
// Threads:   one thread at a time.
#pragma once

#include <QVPlatform/TextOutput.h>

class COutputLog;

class CTextOutputToOutputLog : public CTextOutput {
public:
    explicit CTextOutputToOutputLog(COutputLog* log) : m_pLog(log) {
        TakeRuns<CTextOutputToOutputLog, &CTextOutputToOutputLog::WriteRun>();
    }
    CTextOutputToOutputLog(const CTextOutputToOutputLog&) = delete;
    CTextOutputToOutputLog& operator=(const CTextOutputToOutputLog&) = delete;
    ~CTextOutputToOutputLog() override;

    // Always true.
    bool WriteCodePoint(int codePoint) override;
    void WriteNewLine() override;

private:
    bool WriteRun(const char* text, unsigned int length);
    void AppendLine();

    COutputLog* m_pLog;
    qvstring m_Line; // the unfinished one
};
