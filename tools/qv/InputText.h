// InputFile, InputLines - where the text of a command comes from: a file or the standard input, as a whole or line by
// line.
//
// Text is delivered as UTF-8. A byte-order mark in front is no part of it; that of UTF-16 says what a file is in, while
// lines are always UTF-8.
//
// Errors: what cannot be opened or read throws a InputFileError.
#pragma once

#include "Tool.h"

#include <fstream>
#include <string>
#include <string_view>
#include <vector>

class InputFileError : public ToolError {
public:
    InputFileError(const std::string& file, const std::string& problem)
        : ToolError(ExitInputOutput, file + " " + problem), m_File(file), m_Problem(problem) {}

    const std::string& GetFile() const { return m_File; }
    // Without the file's name: "cannot be opened: ...".
    const std::string& GetProblem() const { return m_Problem; }

private:
    std::string m_File;
    std::string m_Problem;
};

class InputFile {
public:
    // Opens the file; "-" is the standard input.
    explicit InputFile(const std::string& path);

    // The name for messages. A very long path is told by its end.
    const std::string& GetName() const { return m_Name; }
    // Reads up to `size` bytes. Waits for the first of them only, so what a pipe holds is delivered; 0 at the end.
    std::size_t Read(char* buffer, std::size_t size);
    // Reads all there is; at most 1 GiB.
    std::string ReadAll();

private:
    [[noreturn]] void Fail(const char* verb, const std::string& reason) const;

    std::string m_Name;
    std::filebuf m_File;
    std::streambuf* m_pSource;
};

class InputLines {
public:
    // What a line may have; memory is bounded by it.
    static constexpr std::size_t MaxLineLength = 64u << 20;

    explicit InputLines(InputFile& file) : m_File(file), m_Buffer(64u << 10) {}

    // True when the next line is there to be taken; false when it has to be waited for.
    bool IsLineBuffered();
    // Takes the next line, without its end (LF or CR LF) and valid until the next call; false at the end of the file. A line that
    // is too long is passed over: `line` is then empty.
    bool Next(std::string_view& line, bool& bTooLong);
    // The number of that line, from 1.
    unsigned int GetLineNumber() const { return m_LineNumber; }

private:
    bool FindEnd();
    bool Fill();
    std::string_view Take(std::size_t end, std::size_t next);

    InputFile& m_File;
    std::vector<char> m_Buffer;
    std::size_t m_Begin = 0;    // of what is not yet delivered
    std::size_t m_Searched = 0; // no line ends before
    std::size_t m_End = 0;
    bool m_bAtEnd = false;
    unsigned int m_LineNumber = 0;
};
