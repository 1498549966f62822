#include "TagFile.h"

#include "Tool.h"

#include <QVPlatform/FilePath.h>
#include <QVPlatform/FileSystem.h>
#include <QVPlatform/Unicode.h>
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <limits>

namespace {

constexpr unsigned long long MaxFileSize = 64u << 20;
constexpr std::size_t MaxNameLength = 255;
constexpr const char* Blanks = " \t";

// Takes the next word off the front of a line.
std::string_view TakeWord(std::string_view& line) {
    line.remove_prefix(std::min(line.find_first_not_of(Blanks), line.size()));
    const std::string_view word = line.substr(0, line.find_first_of(Blanks));
    line.remove_prefix(word.size());
    return word;
}

std::string_view Trimmed(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(Blanks), text.size()));
    return text.substr(0, text.find_last_not_of(Blanks) + 1);
}

bool IsPlainText(std::string_view text) {
    unsigned int codePoints;
    return std::none_of(text.begin(), text.end(),
                        [](unsigned char character) { return character < 0x20 || character == 0x7F; }) &&
           qv_is_valid_utf8(text.data(), static_cast<unsigned int>(text.size()), codePoints);
}

} // namespace

void TagFile::Load(const std::string& folder, std::vector<std::string>& problems) {
    m_Path = folder + "/tags.txt";
    QVFileUnix file;
    if (!file.OpenFileForRead(CQVFilePath(m_Path), false)) {
        if (file.GetLastError() == ENOENT)
            return;
        throw ToolError(ExitInputOutput, m_Path + " cannot be opened: " + ErrorText(file.GetLastError()));
    }
    const long long size = file.GetFileSize();
    if (size < 0 || static_cast<unsigned long long>(size) > MaxFileSize)
        throw ToolError(ExitInputOutput, m_Path + " is too large for a list of tags");
    m_Text.resize(static_cast<std::size_t>(size));
    unsigned int got = 0;
    if (!file.ReadBytes(m_Text.data(), static_cast<unsigned int>(size), got))
        throw ToolError(ExitInputOutput, m_Path + " cannot be read: " + ErrorText(file.GetLastError()));
    m_Text.resize(got);

    unsigned int lineNumber = 0;
    for (std::string_view rest = m_Text; !rest.empty();) {
        std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        ++lineNumber;
        if (lineNumber == 1 && line.starts_with("\xEF\xBB\xBF"))
            line.remove_prefix(3);
        if (const std::string problem = ParseLine(line); !problem.empty())
            problems.push_back(m_Path + ":" + std::to_string(lineNumber) + ": " + problem);
    }
}

std::string TagFile::ParseLine(std::string_view line) {
    line = Trimmed(line);
    if (line.empty() || line.front() == '#')
        return {};
    const std::string_view number = TakeWord(line);
    const std::string_view name = TakeWord(line);
    const std::string_view unit = Trimmed(line);

    Tag tag;
    const auto result = std::from_chars(number.data(), number.data() + number.size(), tag.m_Number);
    if (result.ec != std::errc() || result.ptr != number.data() + number.size())
        return Quoted(number) + " is no tag number (0 to 4294967295)";
    if (name.empty())
        return "the tag has no name";
    if (std::string problem = CheckName(name); !problem.empty())
        return problem;
    if (!IsPlainText(unit))
        return "the unit " + Quoted(unit) + " is no plain text in UTF-8";
    if (FindNumber(tag.m_Number) != nullptr)
        return "the number " + std::to_string(tag.m_Number) + " is given twice";
    if (FindName(name) != nullptr)
        return "the name " + Quoted(name) + " is given twice";
    tag.m_Name = name;
    tag.m_Unit = unit;
    Insert(std::move(tag));
    return {};
}

std::string TagFile::CheckName(std::string_view name) {
    if (name.empty() || name.size() > MaxNameLength || !IsPlainText(name) ||
        name.find(' ') != std::string_view::npos)
        return Quoted(name) + " is no tag name (up to 255 bytes of UTF-8 without blanks)";
    if (name.front() == '#' || name.find_first_not_of("0123456789") == std::string_view::npos)
        return Quoted(name) + " is no tag name (it must not start with '#' or be a number)";
    return {};
}

const TagFile::Tag& TagFile::Insert(Tag tag) {
    Reserve(tag.m_Number);
    const Tag& added = m_Tags.emplace_back(std::move(tag));
    m_ByName.emplace(added.m_Name, &added);
    m_ByNumber.emplace(added.m_Number, &added);
    return added;
}

void TagFile::Save() {
    if (!m_bChanged)
        return;
    CQVFilePath path = CQVFilePath(m_Path).FollowLinks();
    CQVFilePath temporary = path;
    temporary.AppendName(".new");
    QVFileUnix file;
    int error = 0;
    if (!file.OpenFileForWriteNoFollow(temporary, 0666) ||
        !file.WriteBytes(m_Text.data(), static_cast<unsigned int>(m_Text.size())) || !file.CloseFile())
        error = file.GetLastError();
    else if (!path.ReplaceFileWith(temporary))
        error = path.GetLastError();
    if (error != 0) {
        temporary.EraseFile();
        throw ToolError(ExitInputOutput, m_Path + " cannot be written: " + ErrorText(error));
    }
    m_bChanged = false;
}

const TagFile::Tag* TagFile::FindName(std::string_view name) const {
    const auto found = m_ByName.find(name);
    return found != m_ByName.end() ? found->second : nullptr;
}

const TagFile::Tag* TagFile::FindNumber(unsigned long long number) const {
    const auto found = m_ByNumber.find(number);
    return found != m_ByNumber.end() ? found->second : nullptr;
}

const TagFile::Tag& TagFile::Add(std::string_view name, std::string_view unit) {
    if (m_NextNumber > std::numeric_limits<std::uint32_t>::max())
        throw ToolError(ExitInputOutput, m_Path + ": the numbers are used up, none is left for " +
                                             Quoted(name) + "; give it a line with a free number");
    if (m_Text.empty())
        m_Text = "# number name unit\n";
    else if (!m_Text.ends_with('\n'))
        m_Text += '\n';
    Tag tag{static_cast<std::uint32_t>(m_NextNumber), std::string(name), std::string(unit)};
    m_Text += std::to_string(tag.m_Number) + ' ' + tag.m_Name;
    if (!unit.empty())
        m_Text += ' ' + tag.m_Unit;
    m_Text += '\n';
    m_bChanged = true;
    return Insert(std::move(tag));
}

void TagFile::Reserve(unsigned long long number) {
    if (number <= std::numeric_limits<std::uint32_t>::max())
        m_NextNumber = std::max(m_NextNumber, number + 1);
}
