// CellReference - a cell of a spreadsheet, as in B3: column B, row 3.
//
// Rows and columns count from 0 in the object and from 1 in text, up to 65,536. Columns have letters as their digits:
// A to Z, AA to AZ, BA and so on.
// Threads: a value.
#pragma once

class CTextInput;
class CTextOutput;

class CellReference {
public:
    // The longest label of a column and its terminator.
    static constexpr unsigned int ColumnLabelSize = 8;

    // A1
    CellReference() = default;
    CellReference(unsigned short row, unsigned short column) : m_Row(row), m_Column(column) {}

    unsigned short GetRow() const { return m_Row; }
    unsigned short GetColumn() const { return m_Column; }

    // Reads letters of ASCII, in either case, and digits of any script. The code point behind the digits is read too.
    // False when the text is no reference or lies outside 1 to 65,536; the column may then have been stored.
    bool ParseCellReference(CTextInput& input);
    void PrintCellReference(CTextOutput& out) const;

    // Writes the label of a column, counted from 0, and a terminator into `buffer` (ColumnLabelSize bytes) and returns
    // its length; 0 for a negative column.
    static int FormatColumnLabel(int column, char* buffer);
    // 1 to 26 for a letter of ASCII in either case, 0 for anything else.
    unsigned int LetterValue(int codePoint) const;

private:
    unsigned short m_Row = 0;
    unsigned short m_Column = 0;
};
