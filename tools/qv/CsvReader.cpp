#include "CsvReader.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

namespace {

bool IsBlank(char character) {
    return character == ' ' || character == '\t';
}

} // namespace

CsvReader::CsvReader(const std::string& path)
    : m_Path(path), m_File(std::in_place, path), m_Buffer(4 * MaxLineLength) {
    std::error_code error;
    if (path != "-" && std::filesystem::is_regular_file(path, error))
        m_Size = std::filesystem::file_size(path, error);
    if (error)
        m_Size = 0;
}

void CsvReader::Rewind() {
    m_File.emplace(m_Path);
    m_Begin = m_End = 0;
    m_BytesRead = 0;
    m_LineNumber = 0;
}

std::string CsvReader::GetLocation() const {
    return m_File->GetName() + ":" + std::to_string(m_LineNumber) + ": ";
}

// Moves what is left to the front of the buffer and reads more behind it; false at the end of the file.
bool CsvReader::Fill() {
    std::memmove(m_Buffer.data(), m_Buffer.data() + m_Begin, m_End - m_Begin);
    m_End -= m_Begin;
    m_Begin = 0;
    if (m_BeforeReading)
        m_BeforeReading();
    const std::size_t got = m_File->Read(m_Buffer.data() + m_End, m_Buffer.size() - m_End);
    m_End += got;
    m_BytesRead += got;
    return got != 0;
}

bool CsvReader::FindLine(char*& begin, char*& end, bool& bTooLong) {
    bTooLong = false;
    std::size_t searched = 0;
    for (;;) {
        char* const start = m_Buffer.data() + m_Begin;
        const std::size_t length = m_End - m_Begin;
        void* const lineFeed =
            length > searched ? std::memchr(start + searched, '\n', length - searched) : nullptr;
        if (lineFeed != nullptr || length > MaxLineLength) {
            begin = start;
            end = lineFeed != nullptr ? static_cast<char*>(lineFeed) : start + length;
            m_Begin += static_cast<std::size_t>(end - begin) + (lineFeed != nullptr ? 1 : 0);
            bTooLong = bTooLong || static_cast<std::size_t>(end - begin) > MaxLineLength;
            if (lineFeed != nullptr)
                return true;
            searched = 0; // the rest of the line is still to come
            continue;
        }
        searched = length;
        if (!Fill()) {
            begin = m_Buffer.data() + m_Begin;
            end = m_Buffer.data() + m_End;
            m_Begin = m_End;
            return begin != end || bTooLong;
        }
    }
}

bool CsvReader::NextLine(std::vector<std::string_view>& fields, std::string& problem) {
    fields.clear();
    problem.clear();
    char* begin;
    char* end;
    bool bTooLong;
    while (FindLine(begin, end, bTooLong)) {
        ++m_LineNumber;
        if (bTooLong) {
            problem = "the line is longer than " + std::to_string(MaxLineLength) + " bytes";
            return true;
        }
        if (m_LineNumber == 1 && std::string_view(begin, end).starts_with("\xEF\xBB\xBF"))
            begin += 3;
        if (begin != end && end[-1] == '\r')
            --end;
        if (std::all_of(begin, end, IsBlank))
            continue;
        problem = Split(begin, end, fields);
        return true;
    }
    return false;
}

// Quoted fields are unescaped in place. Answers what is wrong, or nothing.
std::string CsvReader::Split(char* current, char* end, std::vector<std::string_view>& fields) {
    for (;;) {
        while (current != end && IsBlank(*current))
            ++current;
        if (current != end && *current == '"') {
            char* const begin = ++current;
            char* out = begin;
            for (;; ++current) {
                if (current == end)
                    return "a quoted field is not closed on its line";
                if (*current == '"') {
                    if (current + 1 == end || current[1] != '"')
                        break;
                    ++current;
                }
                *out++ = *current;
            }
            ++current; // the closing quote
            fields.emplace_back(begin, out);
            while (current != end && IsBlank(*current))
                ++current;
            if (current != end && *current != ',')
                return "text follows a quoted field; quotes in a field are doubled";
        } else {
            char* const begin = current;
            current = std::find(current, end, ',');
            const char* fieldEnd = current;
            while (fieldEnd != begin && IsBlank(fieldEnd[-1]))
                --fieldEnd;
            fields.emplace_back(begin, fieldEnd);
        }
        if (current == end)
            return {};
        ++current; // ','
    }
}
