#include <QVLib/Tags/CellReference.h>
#include <QVLib/TextStreams/TextInput.h>
#include <QVPlatform/TextOutput.h>
#include <QVPlatform/UnicodeCharacter.h>
#include <algorithm>

namespace {

constexpr unsigned int MaxPosition = 65'536;

// Appends a digit. A position that is too large stays so, however many digits follow.
unsigned int AppendDigit(unsigned int position, unsigned int base, unsigned int digit) {
    return std::min(position * base + digit, MaxPosition + 1);
}

} // namespace

bool CellReference::ParseCellReference(CTextInput& input) {
    UnicodeCharacter character;
    if (!input.ReadCodePoint(character) || !character.IsASCIILetter())
        return false;
    unsigned int column = 0;
    do {
        column = AppendDigit(column, 26, LetterValue(character.GetCodePoint()));
        if (!input.ReadCodePoint(character))
            return false;
    } while (character.IsASCIILetter());
    if (column > MaxPosition)
        return false;
    m_Column = static_cast<unsigned short>(column - 1);

    if (!character.IsDigit())
        return false;
    unsigned int row = 0;
    do
        row = AppendDigit(row, 10, static_cast<unsigned int>(character.GetNumericValue()));
    while (input.ReadCodePoint(character) && character.IsDigit());
    if (row < 1 || row > MaxPosition)
        return false;
    m_Row = static_cast<unsigned short>(row - 1);
    return true;
}

void CellReference::PrintCellReference(CTextOutput& out) const {
    char label[ColumnLabelSize];
    FormatColumnLabel(m_Column, label);
    out.Print("%s%u", label, m_Row + 1u);
}

int CellReference::FormatColumnLabel(int column, char* buffer) {
    int length = 0;
    for (long long rest = column + 1LL; rest > 0; length++) {
        const long long letter = (rest - 1) % 26;
        buffer[length] = static_cast<char>('A' + letter);
        rest = (rest - letter) / 26;
    }
    std::reverse(buffer, buffer + length);
    buffer[length] = 0;
    return length;
}

unsigned int CellReference::LetterValue(int codePoint) const {
    if (codePoint >= 'A' && codePoint <= 'Z')
        return static_cast<unsigned int>(codePoint - 'A') + 1;
    if (codePoint >= 'a' && codePoint <= 'z')
        return static_cast<unsigned int>(codePoint - 'a') + 1;
    return 0;
}
