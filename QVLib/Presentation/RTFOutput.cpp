#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>
#include <QVLib/Presentation/ClipboardInterface.h>
#include <QVLib/Presentation/RTFOutput.h>
#include <QVPlatform/Unicode.h>
#include <algorithm>
#include <cmath>
#include <string>

namespace {

// What the control words of RTF take.
constexpr float MaxHalfPoints = 32'767.0f;

// The index of a value in a table, at whose end it is put when it is new.
template<class T>
std::size_t FindOrAppend(std::vector<T>& table, const T& value) {
    const auto found = std::find(table.begin(), table.end(), value);
    const std::size_t index = static_cast<std::size_t>(found - table.begin());
    if (found == table.end())
        table.push_back(value);
    return index;
}

} // namespace

void CRTFOutput::Print(const char* text, unsigned int length) {
    for (const char* const end = text + length; text != end;)
        AppendCodePoint(qv_codepoint_from_qvchar(text, end));
}

void CRTFOutput::Print(const char32_t* text, unsigned int count) {
    for (const char32_t* const end = text + count; text != end; text++)
        AppendCodePoint(*text <= 0x10FFFF ? static_cast<int>(*text) : 0xFFFD);
}

void CRTFOutput::AppendCodePoint(int codePoint) {
    unsigned short units[2];
    const unsigned int count = qv_encode_utf16(codePoint, units);
    for (unsigned int i = 0; i < count; i++)
        AppendUnit(units[i]);
}

void CRTFOutput::AppendUnit(unsigned short unit) {
    switch (unit) {
    case '{':
    case '}':
    case '\\':
        m_Body += '\\';
        m_Body += static_cast<char>(unit);
        break;
    case '\t':
        m_Body += "\\tab ";
        break;
    case '\n':
        m_Body += "\\par\r\n";
        break;
    default:
        if (unit < 128)
            m_Body += static_cast<char>(unit);
        else
            m_Body += "\\u" + std::to_string(static_cast<short>(unit)) + "?";
    }
}

void CRTFOutput::AppendSwitch(const char* word, bool on) {
    m_Body += qvstring(word) + (on ? " " : "0 ");
}

void CRTFOutput::SetColour(QVColourRGB colour) {
    const int index = static_cast<int>(FindOrAppend(m_Colours, colour));
    if (index == m_ColourIndex)
        return;
    m_Body += "\\cf" + std::to_string(index + 1) + " "; // 0 is the reader's own colour
    m_ColourIndex = index;
}

void CRTFOutput::SetFont(const qvstring& name) {
    m_Body += "\\f" + std::to_string(FindOrAppend(m_Fonts, name)) + " ";
}

void CRTFOutput::SetFontSize(float points) {
    if (!(points > 0))
        points = 0;
    if (points == m_FontSize)
        return;
    const float halfPoints = std::min(points * 2, MaxHalfPoints);
    m_Body += "\\fs" + std::to_string(std::lround(halfPoints)) + " ";
    m_FontSize = points;
}

void CRTFOutput::SetUnderline(bool on) {
    if (on == m_bUnderline)
        return;
    AppendSwitch("\\ul", on);
    m_bUnderline = on;
}

void CRTFOutput::SetStrikeout(bool on) {
    if (on == m_bStrikeout)
        return;
    AppendSwitch("\\strike", on);
    m_bStrikeout = on;
}

void CRTFOutput::GenerateRTF(qvstring& document) const {
    document = "{\\rtf1\\ansi\\ansicpg1252\r\n";
    if (!m_Fonts.empty()) {
        document += "{\\fonttbl;";
        for (std::size_t i = 0; i < m_Fonts.size(); i++)
            document += "\\f" + std::to_string(i) + "\\fmodern " + m_Fonts[i] + ";";
        document += "}\r\n";
    }
    if (!m_Colours.empty()) {
        document += "{\\colortbl;";
        for (const QVColourRGB& colour : m_Colours)
            document += "\\red" + std::to_string(colour.GetRed()) + "\\green" +
                        std::to_string(colour.GetGreen()) + "\\blue" + std::to_string(colour.GetBlue()) + ";";
        document += "}\r\n";
    }
    document += "\\pard\r\n";
    document += m_Body;
    document += "}";
}

void CRTFOutput::TransferToClipboardInterface(ClipboardInterface* clipboard) const {
    qvstring document;
    GenerateRTF(document);
    BinaryOutputBuffer buffer(BinaryStringLengthUTF8Character);
    buffer.Write(document.data(), static_cast<unsigned int>(document.size()));
    clipboard->ClipboardStoreData("application/rtf", buffer);
}
