// CErrorLog - numbers, locates and counts messages on their way into a COutputLog.
//
// Model:    a message is a number of a resource module and the arguments of its text. A located message
//           becomes the line "name(3,5-9): error 101: Found 'x' when expecting ';'."; without a place
//           "Error 101: Found ...".
//           A caller learns whether an operation went well by the error count: 0 is well. The three logs at
//           the end keep, discard or join their messages and need no other object.
// Kinds:    COutputLog::LogType: 0 information, 1 warning, 2 error. Only warnings and errors are counted.
// Language: the locale's; texts that it lacks are English.
// Limits:   a located line has at most 1,023 bytes, a message without a location 511; what is longer is cut
//           between characters, logged and counted.
// Ownership: locale and output log are borrowed and must outlive the log.
// Threads:  one thread at a time.
#pragma once

#include <QVLib/Parsing/ErrorLocation.h>
#include <QVPlatform/Module.h>
#include <QVPlatform/OutputLog.h>
#include <cstdarg>

class CErrorLog {
public:
    // Messages in English.
    explicit CErrorLog(COutputLog* log);
    CErrorLog(const CQVLocale& locale, COutputLog* log);
    // Goes on with the same locale, output log and counts.
    CErrorLog(const CErrorLog& other) = default;
    CErrorLog& operator=(const CErrorLog& other) = delete;
    virtual ~CErrorLog() = default;

    // Located messages. The arguments are those that the text of `id` asks for.
    void LogError(const ErrorLocation& where, const CQVModule& module, unsigned int id, ...);
    void LogErrorVA(const ErrorLocation& where, const CQVModule& module, unsigned int id, va_list arguments);
    void LogWarning(const ErrorLocation& where, const CQVModule& module, unsigned int id, ...);
    void LogInformation(const ErrorLocation& where, const CQVModule& module, unsigned int id, ...);
    // What the four above come to. `kind` is a COutputLog::LogType and taken as it is.
    void LogVA(int kind, const ErrorLocation& where, const CQVModule& module, unsigned int id,
               va_list arguments);

    // The bare text of a message: no location, no "Error 101:".
    void LogError(const CQVModule& module, unsigned int id, ...);
    void LogErrorVA(const CQVModule& module, unsigned int id, va_list arguments);
    void LogWarning(const CQVModule& module, unsigned int id, ...);
    void LogWarningVA(const CQVModule& module, unsigned int id, va_list arguments);
    void LogInformation(const CQVModule& module, unsigned int id, ...);

    // Copies the text of `id` in the log's language, not expanded, and returns `buffer`. A text of its own
    // stands for a missing one.
    char* GetResourceString(const CQVModule& module, unsigned int id, char* buffer, unsigned int size) const;

    unsigned int GetErrorCount() const { return m_nErrors; }
    unsigned int GetWarningCount() const { return m_nWarnings; }
    const CQVLocale& GetLocale() const { return *m_pLocale; }
    COutputLog* GetOutputLog() const { return m_pOutputLog; }

    // From now on errors are logged and counted as warnings, or as errors again.
    void SetErrorsAsWarnings(bool errorsAsWarnings) { m_bErrorsAsWarnings = errorsAsWarnings; }

    // Adds another log's counts to this one's; messages stay where they are.
    void PropagateErrorAndWarningCount(const CErrorLog& other);
    // Passes on, unchanged and in their order, messages that were collected elsewhere, and counts them by
    // the kind that they already have.
    void PropagateErrorsFromOutputLog(const COutputLogToRawList& list);

    // English. A constant, so that logs may be made before main().
    static const CQVLocale m_ErrorLocale;

protected:
    void ResetCounts();

private:
    COutputLog::LogType GetErrorKind() const {
        return m_bErrorsAsWarnings ? COutputLog::Warning : COutputLog::Error;
    }
    void Count(COutputLog::LogType kind);
    void LogBareVA(COutputLog::LogType kind, const CQVModule& module, unsigned int id, va_list arguments);

    const CQVLocale* m_pLocale;
    COutputLog* m_pOutputLog;
    bool m_bErrorsAsWarnings = false;
    unsigned int m_nErrors = 0;
    unsigned int m_nWarnings = 0;
};

// Keeps the messages, for callers that show the first one or pass them on later.
class CErrorLogToMessageList : public CErrorLog {
public:
    CErrorLogToMessageList();
    explicit CErrorLogToMessageList(const CQVLocale& locale);
    CErrorLogToMessageList(const CErrorLogToMessageList&) = delete;

    // Forgets messages and counts.
    void Clear();
    // Null when there is none; valid until the next Clear().
    const COutputLogToRawList::LogEntry* GetFirstMessage() const { return m_MessageList.GetFirstLogEntry(); }
    const COutputLogToRawList& GetMessageList() const { return m_MessageList; }

private:
    COutputLogToRawList m_MessageList;
};

// Only counts.
class CErrorLogToNull : public CErrorLog {
public:
    CErrorLogToNull();
    // A new log: nothing of `other` is taken over, not even its counts.
    CErrorLogToNull(const CErrorLogToNull& other);

private:
    COutputLogNull m_NullLog;
};

// Joins the messages into one text, each followed by a line feed.
class CErrorLogToString : public CErrorLog {
public:
    CErrorLogToString();
    explicit CErrorLogToString(const CQVLocale& locale);
    // Text, counts and language of `other`; from then on each log writes its own text.
    CErrorLogToString(const CErrorLogToString& other);

    // Forgets text and counts.
    void ClearErrorLog();
    const qvstring& GetString() const { return m_StringLog.GetString(); }

private:
    COutputLogToString m_StringLog;
};
