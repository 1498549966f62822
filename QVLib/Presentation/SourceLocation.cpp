#include <QVLib/Parsing/ErrorLocation.h>
#include <QVLib/Presentation/SourceLocation.h>
#include <QVLib/Tags/TagName.h>
#include <algorithm>
#include <limits>
#include <string>
#include <string_view>

namespace {

// Reads digits; 0 when there are none.
unsigned int ReadNumber(const char*& text) {
    constexpr unsigned long long greatest = std::numeric_limits<unsigned int>::max();
    unsigned long long number = 0;
    for (; *text >= '0' && *text <= '9'; text++)
        number = std::min(number * 10 + static_cast<unsigned long long>(*text - '0'), greatest);
    return static_cast<unsigned int>(number);
}

bool Take(const char*& text, char character) {
    if (*text != character)
        return false;
    text++;
    return true;
}

unsigned int MovedBack(unsigned int position, int distance) {
    const long long moved = static_cast<long long>(position) - distance;
    return static_cast<unsigned int>(
        std::clamp<long long>(moved, 0, std::numeric_limits<unsigned int>::max()));
}

const qvstring& SourceName(const CQVTextLocation& location) {
    static const qvstring none;
    return location.GetSourceNameRef() != nullptr ? location.GetSourceNameRef()->GetName() : none;
}

} // namespace

CSourceLocation::CSourceLocation(const qvstring& moduleName) : m_ModuleNameWithQuery(moduleName) {
    ExtractQueryFromModuleName();
}

CSourceLocation::CSourceLocation(const qvstring& moduleName, const qvstring& fileName)
    : m_ModuleName(moduleName), m_Query("File=" + fileName), m_QueryValues{{"File", fileName}} {
    m_ModuleNameWithQuery = m_ModuleName + "?" + m_Query;
}

CSourceLocation::CSourceLocation(const CTagName& tag)
    : m_ModuleNameWithQuery(tag.TagName()), m_ModuleName(tag.TagName()) {}

void CSourceLocation::Init(const CErrorLocationTextRange& range) {
    Init(range.GetBegin(), range.GetEnd());
}

void CSourceLocation::Init(const CQVTextLocation& begin, const CQVTextLocation& end) {
    ClearLocation();
    m_ModuleNameWithQuery = SourceName(begin);
    m_bHasPosition = true;
    m_StartLine = begin.GetLine();
    m_StartColumn = begin.GetColumn();
    m_EndLine = end.GetLine();
    m_EndColumn = end.GetColumn();
    ExtractQueryFromModuleName();
}

void CSourceLocation::Init(const CQVTextLocation& location) {
    Init(location, location);
}

bool CSourceLocation::ParseLocation(const qvstring& line, unsigned int& colonPosition) {
    if (line.empty())
        return false;
    const std::size_t colon = line.find(':', 3);
    colonPosition = colon == qvstring::npos ? NoColon : static_cast<unsigned int>(colon);
    qvstring location = line.substr(0, colon); // before `line`, which may be one of the old parts, is cleared
    ClearLocation();
    m_LocationText = std::move(location);
    if (m_LocationText.find_first_of("*<>\"|") != qvstring::npos)
        return false;

    m_ModuleNameWithQuery = m_LocationText;
    if (m_LocationText.ends_with(')')) {
        const std::size_t open = m_LocationText.rfind('(');
        if (open == qvstring::npos)
            return false;
        ParsePosition(m_LocationText.c_str() + open + 1);
        m_ModuleNameWithQuery.resize(open);
    }
    ExtractQueryFromModuleName();
    return true;
}

void CSourceLocation::ParsePosition(const char* text) {
    m_bHasPosition = true;
    m_StartLine = m_EndLine = ReadNumber(text);
    m_StartColumn = m_EndColumn = 1;
    if (!Take(text, ','))
        return;
    m_StartColumn = m_EndColumn = ReadNumber(text);
    if (!Take(text, '-'))
        return;
    m_EndColumn = ReadNumber(text);
    if (Take(text, ',')) {
        m_EndLine = m_EndColumn;
        m_EndColumn = ReadNumber(text);
    }
}

void CSourceLocation::ExtractQueryFromModuleName() {
    const std::size_t mark = m_ModuleNameWithQuery.find('?');
    m_ModuleName = m_ModuleNameWithQuery.substr(0, mark);
    m_Query.clear();
    m_QueryValues.clear();
    if (mark == qvstring::npos)
        return;
    m_Query = m_ModuleNameWithQuery.substr(mark + 1);
    const std::string_view query = m_Query;
    std::size_t end = 0;
    for (std::size_t start = 0; start <= query.size(); start = end + 1) {
        end = std::min(query.find('&', start), query.size());
        const std::string_view item = query.substr(start, end - start);
        const std::size_t equals = std::min(item.find('='), item.size());
        m_QueryValues.emplace(item.substr(0, equals), item.substr(std::min(equals + 1, item.size())));
    }
}

void CSourceLocation::FormatLocation(qvstring& text) const {
    text = m_ModuleName;
    char separator = '?';
    for (const auto& [key, value] : m_QueryValues) {
        text += separator + key;
        if (!value.empty())
            text += '=' + value;
        separator = '&';
    }
    if (!m_bHasPosition)
        return;
    const auto place = [](unsigned int line, unsigned int column) {
        return std::to_string(line) + ',' + std::to_string(column);
    };
    if (m_StartLine != m_EndLine)
        text += '(' + place(m_StartLine, m_StartColumn) + '-' + place(m_EndLine, m_EndColumn) + ')';
    else if (m_StartColumn != m_EndColumn)
        text += '(' + place(m_StartLine, m_StartColumn) + '-' + std::to_string(m_EndColumn) + ')';
    else if (m_StartColumn != 1)
        text += '(' + place(m_StartLine, m_StartColumn) + ')';
    else
        text += '(' + std::to_string(m_StartLine) + ')';
}

void CSourceLocation::AdjustPosition(int lines, int columns) {
    if (!m_bHasPosition)
        return;
    m_StartLine = MovedBack(m_StartLine, lines);
    m_EndLine = MovedBack(m_EndLine, lines);
    m_StartColumn = MovedBack(m_StartColumn, columns);
    if (m_StartLine == m_EndLine)
        m_EndColumn = MovedBack(m_EndColumn, columns);
}

const qvstring* CSourceLocation::GetQueryValue(const char* key) const {
    const auto found = m_QueryValues.find(key);
    return found != m_QueryValues.end() ? &found->second : nullptr;
}
