// CsvReader - the lines of a CSV file as fields, whatever the file holds.
//
// Fields are separated by ',' and may stand in '"', where "" is one quote; a field does not run over a line's
// end. Blanks around a field do not belong to it. Lines end with LF or CR LF; empty ones are passed over; a
// byte-order mark at the start is too. Memory stays bounded: a line longer than MaxLineLength is reported,
// not kept. What a pipe holds is delivered as it comes.
//
// Errors: a file that cannot be opened or read throws a ToolError.
#pragma once

#include "InputText.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class CsvReader {
public:
    static constexpr std::size_t MaxLineLength = 64u << 10;

    // "-" is the standard input.
    explicit CsvReader(const std::string& path);

    // Sets what to do each time before more is read, which may have to be waited for: to write results that are
    // held back, say.
    void CallBeforeReading(std::function<void()> call) { m_BeforeReading = std::move(call); }
    // Reads the next line that is not empty; false at the end. `problem` is empty, or says why the line has
    // no fields. The fields are valid until the next call.
    bool NextLine(std::vector<std::string_view>& fields, std::string& problem);

    // "FILE:LINE: " of the last line, for messages.
    std::string GetLocation() const;
    // The file's size; 0 when it is none of known size, which cannot be rewound either.
    unsigned long long GetSize() const { return m_Size; }
    unsigned long long GetBytesRead() const { return m_BytesRead; }
    // Back to the first line.
    void Rewind();

private:
    bool FindLine(char*& begin, char*& end, bool& bTooLong);
    bool Fill();
    static std::string Split(char* begin, char* end, std::vector<std::string_view>& fields);

    const std::string m_Path;
    std::optional<InputFile> m_File;
    std::function<void()> m_BeforeReading;
    unsigned long long m_Size = 0;
    unsigned long long m_BytesRead = 0;
    unsigned long long m_LineNumber = 0;
    std::vector<char> m_Buffer;
    std::size_t m_Begin = 0; // of what is not yet delivered
    std::size_t m_End = 0;
};
