#include <QVPlatform/Ascii.h>
#include <QVPlatform/UnicodeCharacter.h>
#include <unicode/uchar.h>

// ICU answers for every 32-bit value: those without a character have no property and no other case.

bool UnicodeCharTable::IsWhitespace(int codePoint) {
    return u_isUWhiteSpace(codePoint) != 0;
}

bool UnicodeCharTable::IsDigit(int codePoint) {
    return u_isdigit(codePoint) != 0;
}

bool UnicodeCharTable::IsLetter(int codePoint) {
    return u_isalpha(codePoint) != 0;
}

int UnicodeCharTable::GetNumericValue(int codePoint) {
    return u_charDigitValue(codePoint);
}

int UnicodeCharTable::ToUpper(int codePoint) {
    if (codePoint >= 0 && codePoint < 0x80)
        return qv_ascii_to_upper(codePoint);
    return u_toupper(codePoint);
}

int UnicodeCharTable::GetDisplayWidth(int codePoint) {
    switch (u_charType(codePoint)) {
    case U_CONTROL_CHAR:
    case U_FORMAT_CHAR:
    case U_NON_SPACING_MARK:
    case U_ENCLOSING_MARK:
        return 0;
    default:
        break;
    }
    switch (u_getIntPropertyValue(codePoint, UCHAR_EAST_ASIAN_WIDTH)) {
    case U_EA_WIDE:
    case U_EA_FULLWIDTH:
        return 2;
    default:
        return 1;
    }
}
