// What all commands of qv share: how a command ends, what the user asked of every command, and text in
// messages.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

enum ExitCode : int {
    ExitDone = 0,
    ExitFindings = 1,    // done, and something was found that wants attention
    ExitUsage = 2,       // the command line asks for something that cannot be
    ExitInputOutput = 3, // a file, the folder, or their content
};

// Ends a command: main() prints the text on the error stream and exits with the code. The text says what is
// wrong and, where it is not plain, what to do about it.
class ToolError : public std::runtime_error {
public:
    ToolError(ExitCode code, const std::string& text) : std::runtime_error(text), m_Code(code) {}

    ExitCode GetCode() const { return m_Code; }

private:
    ExitCode m_Code;
};

enum class OutputFormat { Human, Json, Csv };

// The options that every command understands, and how the command ended.
struct ToolContext {
    OutputFormat m_Format = OutputFormat::Human;
    ExitCode m_ExitCode = ExitDone;
};

// True when the error (2) or output (1) stream is a terminal whose user did not ask for no colours.
bool MayUseColour(int stream);
// Prints "qv: " and the text, as an error or as a warning, on the error stream.
void SayError(std::string_view text);
void SayWarning(std::string_view text);

// Text from outside, fit to be shown in a message: in quotes, with control characters escaped, and cut when
// long.
std::string Quoted(std::string_view text);
// The system's text of an errno.
std::string ErrorText(int error);
// A count with ',' between groups of three digits.
std::string WithSeparators(unsigned long long number);
// A count and what it counts: "1 file", "2,000 files".
std::string CountText(unsigned long long count, const char* what);
