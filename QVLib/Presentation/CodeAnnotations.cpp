#include <QVLib/Presentation/CodeAnnotations.h>
#include <QVLib/Presentation/SourceLocation.h>
#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>

namespace {

int ToInt(unsigned int number) {
    return static_cast<int>(std::min(number, static_cast<unsigned int>(std::numeric_limits<int>::max())));
}

void SkipBlanks(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
}

std::string_view TakeWord(std::string_view& text) {
    const auto isLetter = [](char c) { return qv_ascii_to_lower(c) >= 'a' && qv_ascii_to_lower(c) <= 'z'; };
    const auto end = std::find_if_not(text.begin(), text.end(), isLetter);
    const std::string_view word = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    text.remove_prefix(word.size());
    return word;
}

// Reads " error 906", all parts of which may be missing.
void ReadKind(std::string_view text, CCodeAnnotations::Annotation& annotation) {
    SkipBlanks(text);
    const std::string_view word = TakeWord(text);
    if (word == "warning")
        annotation.m_Severity = CCodeAnnotations::SeverityWarning;
    else if (word == "error")
        annotation.m_Severity = CCodeAnnotations::SeverityError;
    SkipBlanks(text);
    unsigned int number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    annotation.m_Number =
        result.ec == std::errc::result_out_of_range ? std::numeric_limits<int>::max() : ToInt(number);
}

int SeverityOf(COutputLog::LogType type) {
    switch (type) {
    case COutputLog::Error:
        return CCodeAnnotations::SeverityError;
    case COutputLog::Warning:
        return CCodeAnnotations::SeverityWarning;
    default:
        return CCodeAnnotations::SeverityOther;
    }
}

} // namespace

void CCodeAnnotations::Clear() {
    m_Annotations.clear();
    m_ErrorCount = 0;
    m_WarningCount = 0;
}

bool CCodeAnnotations::AppendMessage(LogType type, int, const char* text, unsigned int length) {
    return ExtractErrorFromCompilerOutputMessage(type, text, length);
}

bool CCodeAnnotations::ExtractErrorFromCompilerOutputMessage(LogType type, const char* text,
                                                             unsigned int length) {
    const qvstring line(text, length);
    CSourceLocation location;
    unsigned int colon = CSourceLocation::NoColon;
    if (!location.ParseLocation(line, colon) || colon == CSourceLocation::NoColon)
        return false;

    Annotation annotation;
    annotation.m_StartLine = ToInt(location.GetStartLine());
    annotation.m_EndLine = ToInt(location.GetEndLine());
    annotation.m_StartColumn = ToInt(location.GetStartColumn());
    annotation.m_EndColumn = ToInt(location.GetEndColumn());
    const std::size_t behind = std::size_t{colon} + 1;
    const std::size_t second = line.find(':', behind);
    if (second != qvstring::npos) {
        ReadKind(std::string_view(line).substr(behind, second - behind), annotation);
        annotation.m_Message = line.substr(second + 1);
    } else {
        annotation.m_Severity = SeverityOf(type);
        annotation.m_Message = line.substr(behind);
    }
    m_Annotations[location.GetModuleNameWithQuery()].push_back(std::move(annotation));
    return true;
}

void CCodeAnnotations::AddError(const qvstring& moduleName, const Annotation& annotation) {
    m_Annotations[moduleName].push_back(annotation);
    if (annotation.m_Severity == SeverityError)
        m_ErrorCount++;
    else if (annotation.m_Severity == SeverityWarning)
        m_WarningCount++;
}

const CCodeAnnotations::AnnotationList* CCodeAnnotations::FindFile(const qvstring& moduleName) const {
    const auto found = m_Annotations.find(moduleName);
    return found != m_Annotations.end() ? &found->second : nullptr;
}
