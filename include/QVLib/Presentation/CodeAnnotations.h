// CCodeAnnotations - a log that files what compilers say under the source that they say it about.
//
//     CCodeAnnotations annotations;
//     Compile(&annotations); // "Plant/Logic(12,5-9): error 906: ..." and so on
//     const auto* list = annotations.FindFile("Plant/Logic");
//
// A line is "location: severity number: text" or "location: text", the location as CSourceLocation reads it. Lines that
// have none are passed over.
// Modules: the key is the name with its query, in any case of ASCII letters.
// Counters: count what AddError() files. Lines that come through the log are not counted.
// Threads: one thread at a time.
#pragma once

#include <QVPlatform/Ascii.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/String.h>
#include <list>
#include <map>

// An order of names in which the case of ASCII letters does not matter.
struct CompareQVStringNoCase {
    bool operator()(const qvstring& a, const qvstring& b) const {
        return qv_compare_ignoring_ascii_case(a, b) < 0;
    }
};

class CCodeAnnotations : public COutputLog {
public:
    enum Severity : int { SeverityWarning = 0, SeverityError = 1, SeverityOther = 2 };

    struct Annotation {
        // Counted from 1; all 1 for a message about the whole source.
        int m_StartLine = 1;
        int m_EndLine = 1;
        int m_StartColumn = 1;
        int m_EndColumn = 1;
        int m_Severity = SeverityOther;
        int m_Number = 0; // the message's, 0 when unknown
        qvstring m_Message;
    };

    using AnnotationList = std::list<Annotation>;
    using AnnotationMap = std::map<qvstring, AnnotationList, CompareQVStringNoCase>;

    // Forgets the annotations and both counts.
    void Clear() override;
    // Files one line. True when it has a location and a message. `type` is the severity of a line that does not tell its
    // own; the number of such a line is 0, whatever `number` says.
    bool AppendMessage(LogType type, int number, const char* text, unsigned int length) override;

    // Files an annotation, and counts it when it is an error or a warning.
    void AddError(const qvstring& moduleName, const Annotation& annotation);

    // A module's annotations in the order in which they came; null when there are none.
    const AnnotationList* FindFile(const qvstring& moduleName) const;
    const AnnotationMap& GetAnnotations() const { return m_Annotations; }
    unsigned int GetErrorCount() const { return m_ErrorCount; }
    unsigned int GetWarningCount() const { return m_WarningCount; }

private:
    bool ExtractErrorFromCompilerOutputMessage(LogType type, const char* text, unsigned int length);

    AnnotationMap m_Annotations;
    unsigned int m_ErrorCount = 0;
    unsigned int m_WarningCount = 0;
};
