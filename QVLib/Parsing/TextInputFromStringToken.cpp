#include <QVLib/Parsing/ParseToken.h>
#include <QVLib/Parsing/TextInputFromStringToken.h>
#include <QVPlatform/Ascii.h>
#include <algorithm>
#include <string_view>

namespace {

// How a literal begins.
struct Prefix {
    unsigned int m_Length;
    bool m_bWide;
    bool m_bRaw;
};

bool StartsWithWord(std::string_view text, std::string_view word) {
    return qv_compare_ignoring_ascii_case(text.substr(0, word.size()), word) == 0;
}

Prefix FindPrefix(std::string_view text) {
    if (StartsWithWord(text, "WSTRING#\""))
        return {9, true, false};
    if (StartsWithWord(text, "STRING#'"))
        return {8, false, false};
    if (text.starts_with('"'))
        return {1, true, false};
    if (text.starts_with('\''))
        return {1, false, false};
    if (text.starts_with('%') && text.size() > 1)
        return {2, text[1] == '"', true};
    return {0, false, false};
}

} // namespace

CTextInputFromStringToken::CTextInputFromStringToken(const CParseToken& token)
    : CTextInput(token.Location().GetBegin()) {
    const std::string_view text = token.Text();
    const Prefix prefix = FindPrefix(text);
    m_bWide = prefix.m_bWide;
    m_bRaw = prefix.m_bRaw;
    m_pStart = m_pCurrent = text.data() + prefix.m_Length;
    const bool bQuoted = text.ends_with('\'') || text.ends_with('"');
    // A lone quote begins the literal and does not end it as well.
    m_pEnd = std::max(m_pStart, text.data() + text.size() - (bQuoted ? 1 : 0));

    CQVTextLocation location = token.Location().GetBegin();
    for (const char byte : text.substr(0, prefix.m_Length))
        location.IncrementByCodePoint(byte);
    SetLocation(location);
}

bool CTextInputFromStringToken::ReadNextCodePoint(int& codePoint) {
    const char* current = m_pCurrent;
    CQVTextLocation location;
    GetNextLocation(
        location); // of the next raw code point: nothing is pushed back when this is asked for one
    if (!ReadWritten(current, location, codePoint))
        return false;
    if (codePoint == '$' && !m_bRaw && !ReadEscape(current, location, codePoint))
        return false;
    m_pCurrent = current;
    SetLocation(location);
    return true;
}

bool CTextInputFromStringToken::ReadWritten(const char*& current, CQVTextLocation& location,
                                            int& codePoint) const {
    if (current >= m_pEnd)
        return false;
    codePoint = qv_codepoint_from_qvchar(current, m_pEnd);
    location.IncrementByCodePoint(codePoint);
    return true;
}

bool CTextInputFromStringToken::ReadEscape(const char*& current, CQVTextLocation& location,
                                           int& codePoint) const {
    if (!ReadWritten(current, location, codePoint))
        return false;
    switch (qv_ascii_to_lower(codePoint)) {
    case '$':
    case '"':
    case '\'':
        return true;
    case 'n':
    case 'l':
        codePoint = 10;
        return true;
    case 'r':
        codePoint = 13;
        return true;
    case 't':
        codePoint = 9;
        return true;
    default:
        break;
    }
    int value = qv_hexadecimal_digit(codePoint);
    if (value < 0)
        return false;
    for (int digits = m_bWide ? 4 : 2; digits > 1; digits--) {
        if (!ReadWritten(current, location, codePoint) || qv_hexadecimal_digit(codePoint) < 0)
            return false;
        value = value * 16 + qv_hexadecimal_digit(codePoint);
    }
    codePoint = value;
    return true;
}

void CTextInputFromStringToken::IncrementPosition(int) {}
