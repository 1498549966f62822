// ErrorLocation - the "where" of a message: the text in front of "error 101: ...".
//
// Which one:  ErrorLocationNull        nowhere; the message starts with "Error 101:"
//             ErrorLocationString      a text of the caller's, such as a file's or a device's name
//             CErrorLocationTextRange  a range of a source text, "name(3,5-9)"
// Ownership:  a text range keeps its source's name alive; ErrorLocationString borrows its text.
// Cost:       assigning a range over one of the same source touches no reference count.
#pragma once

#include <QVPlatform/TextLocation.h>

class ErrorLocation {
public:
    // Writes the location into `buffer`: at most `size` bytes with the terminating zero. Returns the bytes
    // written in front of the zero; 0 means that there is no location.
    virtual unsigned int PrintLocation(char* buffer, unsigned int size) const = 0;

protected:
    ErrorLocation() = default;
    ErrorLocation(const ErrorLocation&) = default;
    ErrorLocation(ErrorLocation&&) = default;
    ErrorLocation& operator=(const ErrorLocation&) = default;
    ErrorLocation& operator=(ErrorLocation&&) = default;
    // Locations are values: nobody deletes one through this class.
    ~ErrorLocation() = default;
};

class ErrorLocationNull final : public ErrorLocation {
public:
    unsigned int PrintLocation(char* buffer, unsigned int size) const override;
};

class ErrorLocationString final : public ErrorLocation {
public:
    // `text` must outlive the location.
    explicit ErrorLocationString(const char* text) : m_pText(text) {}

    unsigned int PrintLocation(char* buffer, unsigned int size) const override;

private:
    const char* m_pText;
};

// From the first character of a piece of text to just behind its last one.
class CErrorLocationTextRange final : public ErrorLocation {
public:
    // A null location: no source, line 1, column 1.
    CErrorLocationTextRange() = default;
    CErrorLocationTextRange(const CQVTextLocation& begin, const CQVTextLocation& end)
        : m_Begin(begin), m_End(end) {}

    // Source name, first line, first column, and the column just behind the range; the line on which the
    // range ends is not told.
    unsigned int PrintLocation(char* buffer, unsigned int size) const override;

    const CQVTextLocation& GetBegin() const { return m_Begin; }
    const CQVTextLocation& GetEnd() const { return m_End; }
    // For whoever fills a range piece by piece: a token, or a range grown over several tokens.
    CQVTextLocation& Begin() { return m_Begin; }
    CQVTextLocation& End() { return m_End; }

    // True when the text that it belongs to has no name, or when it belongs to none.
    bool IsNull() const { return !m_Begin.GetSourceNameRef(); }
    // Both ends count as inside.
    bool IsLineInLocation(int line) const;
    // The same for a column: the first line counts from the range's begin, the last one up to its end, the
    // lines between as a whole.
    bool IsLineAndColumnInLocation(int line, int column) const;

private:
    CQVTextLocation m_Begin;
    CQVTextLocation m_End;
};
