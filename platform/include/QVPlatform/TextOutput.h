// CTextOutput - where text goes: one code point at a time, with line ends and indentation.
//
// Model:    a derived output supplies WriteCodePoint(), the raw sink, which neither indents nor ends lines;
//           everything else is built on it. Indentation is written lazily, by the first character of a line,
//           so changing the level behind a line end still counts.
// Errors:   WriteCodePoint() returns false for a code point that it could not take; the printing helpers
//           go on and return nothing. An output that can fail says how it reports that.
// Threads:  one thread at a time.
#pragma once

#include <QVPlatform/String.h>
#include <cstdarg>

// How a line ends in the output.
enum TextLineTermination : int {
    TextLineTerminationCR = 0,
    TextLineTerminationLF = 1,
    TextLineTerminationCRLF = 2,
};

class CTextOutput {
public:
    CTextOutput() = default;
    CTextOutput(const CTextOutput&) = default;
    CTextOutput& operator=(const CTextOutput&) = default;
    virtual ~CTextOutput() = default;

    // Takes one code point as it is; false when it could not.
    virtual bool WriteCodePoint(int codePoint) = 0;
    // Writes the line end. An override writes its own; called by name it should call this one too, which
    // notes that a new line begins.
    virtual void WriteNewLine();
    // Writes the indentation of a new line: two blanks per level. Called before the first character of a line
    // that is indented; an empty line gets none.
    virtual void IndentNewLine();

    // printf-style, without a length limit; the result is written as WriteString() does.
    void Print(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void PrintVA(const char* format, va_list arguments) __attribute__((format(printf, 2, 0)));
    // The same with a line end; PrintLine() alone ends the line.
    void PrintLine(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void PrintLine();

    // One ASCII character, or `count` of it; '\n' ends the line.
    void PrintChar(char character);
    void PrintChars(unsigned int count, char character);
    void PrintChars(char character, unsigned int count) = delete; // the arguments are the other way round
    // Text in UTF-8; a line feed in it ends the line, malformed bytes come out as U+FFFD.
    void WriteString(const char* text, unsigned int length);
    void WriteString(const qvstring& text) {
        WriteString(text.data(), static_cast<unsigned int>(text.size()));
    }
    // `count` copies of one code point; 10 ends the line.
    void WriteCodePoints(unsigned int count, int codePoint);
    // Bytes as Base64 (RFC 4648, with padding, without line ends).
    void PrintBase64(const void* data, unsigned int count);

    // Changes the indentation of the lines that follow; it never falls below 0.
    void AdjustIndent(int levels);
    void SetLineTermination(TextLineTermination termination) { m_LineTermination = termination; }

protected:
    // For outputs that throw away what was written: the next character starts a line.
    void StartNewText() { m_bAtLineStart = true; }

private:
    void WriteIndentedCodePoint(int codePoint);

    TextLineTermination m_LineTermination = TextLineTerminationLF;
    unsigned int m_Indent = 0;
    bool m_bAtLineStart = true;
};

// Collects the text in a string.
class CTextOutputString : public CTextOutput {
public:
    bool WriteCodePoint(int codePoint) override;

    // Valid until the next write.
    const char* GetCStr() const { return m_Text.c_str(); }
    const qvstring& GetString() const { return m_Text; }
    // Forgets the text; the indentation level stays.
    void Clear() {
        m_Text.clear();
        StartNewText();
    }

private:
    qvstring m_Text;
};
