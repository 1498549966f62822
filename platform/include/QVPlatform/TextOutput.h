// CTextOutput - where text goes: one code point at a time, with line ends and indentation.
//
// Model:    a derived output supplies WriteCodePoint(), the raw sink, which neither indents nor ends lines;
//           everything else is built on it. Indentation is written lazily, by the first character of a line,
//           so changing the level behind a line end still counts.
// Outputs:  CTextOutputString and, for text in bytes, the base CTextOutputWithEncoding below; files in
//           TextOutputFile.h, logs in TextOutputToOutputLog.h.
// Errors:   WriteCodePoint() returns false for a code point that it could not take; the printing helpers
//           go on and return nothing. An output that can fail says how it reports that.
// Threads:  one thread at a time.
#pragma once

#include <QVPlatform/String.h>
#include <QVPlatform/TextEncoding.h>
#include <cstdarg>
#include <typeinfo>

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
    // The same for text that is known to be well-formed and without line feeds, as formatted numbers and
    // times are: it is not looked at before it goes out.
    void WritePlainText(const char* text, unsigned int length);
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

    // Runs, the fast way for text that needs nothing done to it. An output that can append many characters at
    // once says so in its constructor,
    //     TakeRuns<COutput, &COutput::WriteRun>();
    // and then WriteString() and everything that prints call, wherever they can,
    //     bool WriteRun(const char* text, unsigned int length);
    // with one or more whole characters, at most one line: exactly the bytes that qv_qvchar_from_codepoint()
    // makes of the code points, without line feeds and behind the indentation. Its answer is true when the
    // run has been dealt with; false, with nothing written, sends the same code points to WriteCodePoint()
    // instead. What is written must not depend on the way it came.
    //
    // No virtual operation, because those of CTextOutput are followed by those of derived classes at known
    // places. And only for objects of class `Output` itself: a class that derives from it may have its own
    // WriteCodePoint(), so it gets code points until its own constructor says otherwise.
    template<class Output, auto WriteRun>
    void TakeRuns() {
        m_pRunType = &typeid(Output);
        m_pWriteRun = [](CTextOutput& output, const char* text, unsigned int length) {
            return (static_cast<Output&>(output).*WriteRun)(text, length);
        };
    }

private:
    // The same type seen at two addresses only costs speed.
    bool TakesRuns() const { return m_pRunType == &typeid(*this); }
    bool PassRun(const char* text, unsigned int length) {
        return TakesRuns() && m_pWriteRun(*this, text, length);
    }
    void StartLine();
    void WriteIndentedCodePoint(int codePoint);

    TextLineTermination m_LineTermination = TextLineTerminationLF;
    unsigned int m_Indent = 0;
    bool m_bAtLineStart = true;
    const std::type_info* m_pRunType = nullptr; // null: code points only
    bool (*m_pWriteRun)(CTextOutput& output, const char* text, unsigned int length) = nullptr;
};

// The base of outputs that keep text as bytes: encodes, and leaves the bytes to WriteBytes().
class CTextOutputWithEncoding : public CTextOutput {
public:
    // False when the bytes could not be written.
    bool WriteCodePoint(int codePoint) override;
    // Takes `count` bytes; false when it could not take them all.
    virtual bool WriteBytes(const unsigned char* data, unsigned int count) = 0;

    // UTF-8 without a mark in the beginning. Choose before the first character: that is when the mark of the
    // encodings that have one is written, so an empty text has none.
    void SetEncoding(TextEncoding encoding) { m_Encoding = encoding; }
    TextEncoding GetEncoding() const { return m_Encoding; }

protected:
    // For outputs that begin another text: it gets a mark of its own.
    void StartNewBytes();
    // For TakeRuns(): UTF-8 goes out as one WriteBytes(). When that fails, the text is cut there.
    bool WriteRun(const char* text, unsigned int length);

private:
    bool WriteMark();
    bool WriteEncoded(int codePoint);

    TextEncoding m_Encoding = TextEncodingUTF8;
    bool m_bStarted = false; // the place for a mark is past
};

// Collects the text in a string.
class CTextOutputString : public CTextOutput {
public:
    CTextOutputString() { TakeRuns<CTextOutputString, &CTextOutputString::WriteRun>(); }

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
    bool WriteRun(const char* text, unsigned int length) {
        m_Text.append(text, length);
        return true;
    }

    qvstring m_Text;
};
