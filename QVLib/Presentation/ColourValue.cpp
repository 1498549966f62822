#include <QVLib/BinaryStreams/BinaryInput.h>
#include <QVLib/BinaryStreams/BinaryOutput.h>
#include <QVLib/Parsing/ParseContext.h>
#include <QVLib/Presentation/ColourValue.h>
#include <QVLib/Resources/Messages.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/Ascii.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/TextOutput.h>
#include <algorithm>
#include <charconv>
#include <iterator>
#include <limits>
#include <string_view>

namespace {

constexpr const char* GroupNames[] = {
    "Grey-Black", "Reds",  "Orange",  "Yellows", "Browns", "Greens",
    "Cyans",      "Blues", "Purples", "Pinks",   "Whites",
};

int CompareNames(std::string_view a, std::string_view b) {
    return qv_compare_ignoring_ascii_case(a, b);
}

unsigned int NumberFromDigits(const qvstring& digits) {
    unsigned int number = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return result.ec == std::errc::result_out_of_range ? std::numeric_limits<unsigned int>::max() : number;
}

// Takes in "." and digits if they follow at once.
void ReadFraction(CParseContext& context, CParseToken& number) {
    CParseToken point;
    context.GetNextToken(point);
    if (point.Type() != '.') {
        context.ReplaceToken(std::move(point));
        return;
    }
    CParseToken digits;
    context.GetNextToken(digits);
    if (digits.Type() != TokenNumeric) {
        context.ReplaceToken(std::move(digits));
        context.ReplaceToken(std::move(point));
        return;
    }
    number.Append(point);
    number.Append(digits);
}

bool ReadComponent(CParseContext& context, const char* expected, unsigned int& component) {
    CParseToken token;
    if (context.GetNextTokenSkipWS(token) != TokenNumeric) {
        context.LogUnexpectedTokenError(token, expected);
        return false;
    }
    ReadFraction(context, token);
    double number = 0;
    const qvstring& text = token.Text();
    const auto result =
        std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
    if (result.ec == std::errc::result_out_of_range) {
        // Too great, or, with nothing but zeros before the point, too small.
        const bool bGreat = text.find_first_of("123456789") < text.find('.');
        number = bGreat ? 255 : 0;
    }

    context.GetNextToken(token);
    if (token.Type() == '%')
        number = number * 255 / 100;
    else
        context.ReplaceToken(std::move(token));
    component = static_cast<unsigned int>(std::min(number, 255.0));
    return true;
}

void SkipComma(CParseContext& context) {
    CParseToken token;
    if (context.GetNextTokenSkipWS(token) != ',')
        context.ReplaceToken(std::move(token));
}

} // namespace

void CColourValue::SetNamedColour(const NamedColour* colour) {
    QV_ASSERT(colour != nullptr);
    m_Colour =
        QVColourRGB(static_cast<unsigned int>(colour->m_Red), static_cast<unsigned int>(colour->m_Green),
                    static_cast<unsigned int>(colour->m_Blue));
    m_Form = ColourValueNamed;
    m_pNamedColour = colour;
}

bool CColourValue::Parse(CParseContext& context) {
    CParseToken token;
    switch (context.GetNextTokenSkipWS(token)) {
    case TokenNumeric: {
        QVColourRGB colour;
        colour.SetRGB(NumberFromDigits(token.Text()));
        SetRGBValue(colour);
        return true;
    }
    case '#':
        return ParseHexadecimal(context, token);
    case TokenIdentifier:
        return token.EqualIdentifier("rgb") ? ParseFunction(context) : ParseName(context, token);
    default:
        context.LogTokenError(token, g_LibModule, QVMessage::ColourInvalid, token.Text().c_str());
        return false;
    }
}

bool CColourValue::ParseHexadecimal(CParseContext& context, CParseToken& token) {
    // Digits and letters come as separate tokens: #1a2b3c is "#", "1", "a2b3c".
    CParseToken next;
    for (context.GetNextToken(next); next.Type() == TokenIdentifier || next.Type() == TokenNumeric;
         context.GetNextToken(next))
        token.Append(next);
    context.ReplaceToken(std::move(next));

    const qvstring& text = token.Text();
    const std::size_t count = text.size() - 1;
    unsigned int digits[6] = {};
    bool bValid = count == 3 || count == 6;
    for (std::size_t i = 0; bValid && i < count; i++) {
        const int digit = qv_hexadecimal_digit(text[i + 1]);
        bValid = digit >= 0;
        digits[i] = static_cast<unsigned int>(digit);
    }
    if (!bValid) {
        context.LogTokenError(token, g_LibModule, QVMessage::ColourFormatInvalid, text.c_str());
        return false;
    }
    if (count == 3) {
        SetRGBValue(QVColourRGB(digits[0] * 17, digits[1] * 17, digits[2] * 17));
        m_Form = ColourValueShortHex;
    } else {
        SetRGBValue(
            QVColourRGB(digits[0] * 16 + digits[1], digits[2] * 16 + digits[3], digits[4] * 16 + digits[5]));
    }
    return true;
}

bool CColourValue::ParseFunction(CParseContext& context) {
    CParseToken token;
    if (context.GetNextTokenSkipWS(token) != '(') {
        context.LogUnexpectedTokenError(token, "(");
        return false;
    }
    static constexpr const char* expected[] = {"Red value", "Green value", "Blue value"};
    unsigned int components[3];
    for (int i = 0; i < 3; i++) {
        if (i > 0)
            SkipComma(context);
        if (!ReadComponent(context, expected[i], components[i]))
            return false;
    }
    SetRGBValue(QVColourRGB(components[0], components[1], components[2]));
    return true;
}

bool CColourValue::ParseName(CParseContext& context, const CParseToken& token) {
    const NamedColour* const colour = FindNamedColour(token.Text());
    if (colour == nullptr) {
        context.LogTokenError(token, g_LibModule, QVMessage::NamedColourNotFound, token.Text().c_str());
        return false;
    }
    SetNamedColour(colour);
    return true;
}

bool CColourValue::ParseText(const char* text, unsigned int length) {
    TextInputQVString input(text, length, "Color");
    return ParseText(input);
}

bool CColourValue::ParseText(const qvstring& text) {
    TextInputQVString input(text, "Color");
    return ParseText(input);
}

bool CColourValue::ParseText(CTextInput& input) {
    COutputLogNull log;
    CParseContext context(&input, &log);
    return Parse(context);
}

void CColourValue::PrintColourValue(CTextOutput& out) const {
    if (m_pNamedColour != nullptr)
        out.Print("%s", m_pNamedColour->m_pName);
    else if (m_Form == ColourValueShortHex)
        out.Print("#%x%x%x", m_Colour.GetRed() & 15, m_Colour.GetGreen() & 15, m_Colour.GetBlue() & 15);
    else
        out.Print("#%02x%02x%02x", m_Colour.GetRed(), m_Colour.GetGreen(), m_Colour.GetBlue());
}

void CColourValue::SaveColourValue(CBinaryOutput& out) const {
    out << static_cast<unsigned char>(m_Form);
    if (m_pNamedColour != nullptr)
        out << m_pNamedColour->m_pName;
    else
        out << m_Colour;
}

void CColourValue::LoadColourValue(CBinaryInput& in) {
    unsigned char form;
    in >> form;
    if (form != ColourValueNamed) {
        LoadRGBValue(in);
        m_Form = form;
        return;
    }
    qvstring name;
    in >> name;
    const NamedColour* const colour = FindNamedColour(name);
    if (colour != nullptr) {
        SetNamedColour(colour);
    } else {
        SetRGBValue(QVColourRGB());
        m_Form = ColourValueShortHex;
    }
}

void CColourValue::SaveRGBValue(CBinaryOutput& out) const {
    out << m_Colour;
}

void CColourValue::LoadRGBValue(CBinaryInput& in) {
    QVColourRGB colour;
    in >> colour;
    SetRGBValue(colour);
}

void CColourValue::InterpolateColour(const CColourValue& other, CColourValue& result) const {
    QVColourRGB mixed = m_Colour;
    mixed.InterpolateWith(50, other.m_Colour);
    result.SetRGBValue(mixed);
}

const NamedColour* CColourValue::FindNamedColour(const qvstring& name) {
    const NamedColour* const end = g_NamedColours + g_NamedColoursLength;
    const NamedColour* const found =
        std::lower_bound(g_NamedColours, end, name, [](const NamedColour& colour, const qvstring& text) {
            return CompareNames(colour.m_pName, text) < 0;
        });
    return found != end && CompareNames(found->m_pName, name) == 0 ? found : nullptr;
}

int CColourValue::GetNamedColourCount() {
    return static_cast<int>(g_NamedColoursLength);
}

const NamedColour* CColourValue::GetNamedColourFromIndex(int index) {
    return index >= 0 && index < GetNamedColourCount() ? &g_NamedColours[index] : nullptr;
}

int CColourValue::GetIndexFromNamedColour(const NamedColour* colour) {
    for (int i = 0; i < GetNamedColourCount(); i++) {
        if (&g_NamedColours[i] == colour)
            return i;
    }
    return -1;
}

const char* CColourValue::GetColourGroupName(ColourGroup group) {
    return group >= 0 && group < static_cast<int>(std::size(GroupNames)) ? GroupNames[group] : "Unknown";
}

bool CColourValue::CheckNamedColourTable() {
    const NamedColour* const end = g_NamedColours + g_NamedColoursLength;
    return std::adjacent_find(g_NamedColours, end, [](const NamedColour& a, const NamedColour& b) {
               return CompareNames(a.m_pName, b.m_pName) >= 0;
           }) == end;
}
