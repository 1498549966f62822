#include <QVLib/SerialPorts/SerialModeString.h>

#include <QVLib/Resources/Messages.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/SerialDevice.h>
#include <QVPlatform/TextOutput.h>
#include <charconv>
#include <iterator>

namespace {

using OptionValue = CSerialModeString::OptionValue;

// In the order that the parser's binary search wants.
constexpr TokenKeyword Keywords[] = {
    {"BAUD", SerialModeKeywordBaud},     {"DATA", SerialModeKeywordData}, {"DTR", SerialModeKeywordDtr},
    {"IDSR", SerialModeKeywordIdsr},     {"OCTS", SerialModeKeywordOcts}, {"ODSR", SerialModeKeywordOdsr},
    {"PARITY", SerialModeKeywordParity}, {"RTS", SerialModeKeywordRts},   {"STOP", SerialModeKeywordStop},
    {"XON", SerialModeKeywordXon},
};

constexpr OptionValue ByteSizes[] = {{"8", "8", 8}, {"7", "7", 7}, {"6", "6", 6}, {"5", "5", 5}};
constexpr OptionValue StopBits[] = {{"1", "One", 0}, {"2", "Two", 2}};
constexpr OptionValue Parities[] = {{"N", "None", 0},   {"O", "Odd", 1},   {"E", "Even", 2},
                                    {"M", "Mark", 3},   {"S", "Space", 4}, {"EVEN_P", "Even", 2},
                                    {"ODD_P", "Odd", 1}};
constexpr OptionValue RTSControls[] = {
    {"ON", "Always On", 1}, {"OFF", "Always Off", 0}, {"HS", "Handshake", 2}, {"TG", "Toggle", 3}};
constexpr OptionValue DTRControls[] = {
    {"ON", "Always On", 1}, {"OFF", "Always Off", 0}, {"HS", "Handshake", 2}};
constexpr OptionValue Switches[] = {{"OFF", "Off", 0}, {"ON", "On", 1}};
constexpr OptionValue OutputControls[] = {{"OFF", "Ignore", 0}, {"ON", "Suspend TX", 1}};

// Reads `value` as the value of a keyword, without messages.
template<typename Store>
void ReadLoneValue(const qvstring& value, const char* sourceName, Store store) {
    TextInputQVString input(value, sourceName);
    COutputLogNull log;
    CSerialModeStringParser parser(&input, &log);
    CParseToken token;
    parser.GetSerialModeToken(token);
    store(parser, token);
}

// Finds the row that a setting of few values has by its keyword; `setting` stays as it is where there is
// none.
template<typename Field>
void StoreOption(CSerialModeStringParser& parser, const CParseToken& token,
                 const CSerialModeString::OptionValueSet& set, Field& setting) {
    unsigned int value = 0;
    if (CSerialModeString::LookupAttributeValue(parser, token, &set, value))
        setting = static_cast<Field>(value);
}

void PrintFlag(CTextOutput& out, const char* name, bool set, bool all) {
    if (set || all)
        out.Print(" %s=%s", name, set ? "On" : "Off");
}

QVLineMode::Parity LineParity(unsigned int parity) {
    constexpr QVLineMode::Parity parities[] = {QVLineMode::NoParity, QVLineMode::OddParity,
                                               QVLineMode::EvenParity, QVLineMode::MarkParity,
                                               QVLineMode::SpaceParity};
    return parity < std::size(parities) ? parities[parity] : QVLineMode::ParityAsItWas;
}

} // namespace

constinit const CSerialModeString::OptionValueSet g_ByteSizeValues = {"Data", ByteSizes,
                                                                      std::size(ByteSizes)};
constinit const CSerialModeString::OptionValueSet g_StopBitValues = {"Stop", StopBits, std::size(StopBits)};
constinit const CSerialModeString::OptionValueSet g_ParityValues = {"Parity", Parities, std::size(Parities)};
constinit const CSerialModeString::OptionValueSet g_RTSControlValues = {"Rts", RTSControls,
                                                                        std::size(RTSControls)};
constinit const CSerialModeString::OptionValueSet g_DTRControlValues = {"Dtr", DTRControls,
                                                                        std::size(DTRControls)};
constinit const CSerialModeString::OptionValueSet g_XONControlValues = {"Xon", Switches, std::size(Switches)};
constinit const CSerialModeString::OptionValueSet g_IDSRControlValues = {"Idsr", Switches,
                                                                         std::size(Switches)};
constinit const CSerialModeString::OptionValueSet g_OCTSControlValues = {"Octs", OutputControls,
                                                                         std::size(OutputControls)};
constinit const CSerialModeString::OptionValueSet g_ODSRControlValues = {"Odsr", OutputControls,
                                                                         std::size(OutputControls)};

CSerialModeStringParser::CSerialModeStringParser(CTextInput* input, COutputLog* log)
    : CParseContext(input, log) {
    SetIdentifierTokens(Keywords, std::size(Keywords));
}

void CSerialModeStringParser::GetSerialModeToken(CParseToken& token) {
    if (GetNextTokenSkipWS(token) != TokenIdentifier)
        return;
    CParseToken next;
    for (GetNextToken(next); next.Type() == TokenIdentifier || next.Type() == '_'; GetNextToken(next))
        token.Append(next);
    ReplaceToken(std::move(next));
    TranslateIdentifierToken(token);
}

bool CSerialModeString::ParseString(CSerialModeStringParser& parser) {
    SetSerialModeStringToDefaults();
    CParseToken token;
    for (parser.GetSerialModeToken(token); token.Type() >= SerialModeKeywordBaud;
         parser.GetSerialModeToken(token)) {
        CParseToken value;
        if (!ParseAttributeValue(parser, value))
            return false;
        ProcessKeywordValuePair(parser, token.Type(), value);
    }
    if (token.Type() != TokenEndOfFile) {
        parser.LogTokenError(token, g_LibModule, QVMessage::SerialParameterInvalid, token.Text().c_str());
        return false;
    }
    return parser.GetErrorCount() == 0;
}

bool CSerialModeString::ParseAttributeValue(CSerialModeStringParser& parser, CParseToken& value) {
    parser.GetSerialModeToken(value);
    if (value.Type() != '=') {
        parser.LogUnexpectedTokenError(value, "=");
        return false;
    }
    parser.GetSerialModeToken(value);
    return value.Type() != TokenEndOfFile;
}

void CSerialModeString::ProcessKeywordValuePair(CSerialModeStringParser& parser, int keyword,
                                                const CParseToken& value) {
    switch (keyword) {
    case SerialModeKeywordBaud:
        return ParseBaud(parser, value);
    case SerialModeKeywordData:
        return ParseData(parser, value);
    case SerialModeKeywordParity:
        return ParseParity(parser, value);
    case SerialModeKeywordStop:
        return ParseStop(parser, value);
    case SerialModeKeywordRts:
        return ParseRts(parser, value);
    case SerialModeKeywordDtr:
        return ParseDtr(parser, value);
    case SerialModeKeywordXon:
        return ParseXon(parser, value);
    case SerialModeKeywordOcts:
        return ParseOcts(parser, value);
    case SerialModeKeywordOdsr:
        return ParseOdsr(parser, value);
    case SerialModeKeywordIdsr:
        return ParseIdsr(parser, value);
    default:
        break;
    }
}

void CSerialModeString::ParseBaud(CSerialModeStringParser& parser, const CParseToken& value) {
    const qvstring& text = value.Text();
    const char* const end = text.data() + text.size();
    unsigned int rate = 0;
    const std::from_chars_result result = std::from_chars(text.data(), end, rate);
    if (result.ec == std::errc() && result.ptr == end && rate != 0)
        m_BaudRate = rate;
    else
        parser.LogTokenError(value, g_LibModule, QVMessage::SerialBaudRateInvalid, text.c_str());
}

void CSerialModeString::ParseData(CSerialModeStringParser& parser, const CParseToken& value) {
    StoreOption(parser, value, g_ByteSizeValues, m_ByteSize);
}

void CSerialModeString::ParseParity(CSerialModeStringParser& parser, const CParseToken& value) {
    StoreOption(parser, value, g_ParityValues, m_Parity);
}

void CSerialModeString::ParseStop(CSerialModeStringParser& parser, const CParseToken& value) {
    StoreOption(parser, value, g_StopBitValues, m_StopBits);
}

void CSerialModeString::ParseRts(CSerialModeStringParser& parser, const CParseToken& value) {
    StoreOption(parser, value, g_RTSControlValues, m_RTSControl);
}

void CSerialModeString::ParseDtr(CSerialModeStringParser& parser, const CParseToken& value) {
    StoreOption(parser, value, g_DTRControlValues, m_DTRControl);
}

void CSerialModeString::ParseXon(CSerialModeStringParser& parser, const CParseToken& value) {
    StoreOption(parser, value, g_XONControlValues, m_bXONControl);
}

void CSerialModeString::ParseOcts(CSerialModeStringParser& parser, const CParseToken& value) {
    StoreOption(parser, value, g_OCTSControlValues, m_bOCTSControl);
}

void CSerialModeString::ParseOdsr(CSerialModeStringParser& parser, const CParseToken& value) {
    StoreOption(parser, value, g_ODSRControlValues, m_bODSRControl);
}

void CSerialModeString::ParseIdsr(CSerialModeStringParser& parser, const CParseToken& value) {
    StoreOption(parser, value, g_IDSRControlValues, m_bIDSRControl);
}

bool CSerialModeString::LookupAttributeValue(CSerialModeStringParser& parser, const CParseToken& token,
                                             const OptionValueSet* set, unsigned int& value) {
    qvstring allowed;
    for (unsigned int i = 0; i < set->m_nValues; ++i) {
        const OptionValue& row = set->m_pValues[i];
        if (token.EqualIdentifier(row.m_pKeyword)) {
            value = row.m_Value;
            return true;
        }
        allowed += allowed.empty() ? "" : ", ";
        allowed += row.m_pKeyword;
    }
    parser.LogTokenError(token, g_LibModule, QVMessage::SerialValueInvalid, set->m_pName,
                         token.Text().c_str(), allowed.c_str());
    return false;
}

void CSerialModeString::SetBaudRate(const qvstring& value) {
    ReadLoneValue(value, "BaudRate", [this](auto& parser, const auto& token) { ParseBaud(parser, token); });
}

void CSerialModeString::SetDataBits(const qvstring& value) {
    ReadLoneValue(value, "DataBits", [this](auto& parser, const auto& token) { ParseData(parser, token); });
}

void CSerialModeString::SetParity(const qvstring& value) {
    ReadLoneValue(value, "Parity", [this](auto& parser, const auto& token) { ParseParity(parser, token); });
}

void CSerialModeString::SetStopBits(const qvstring& value) {
    ReadLoneValue(value, "StopBits", [this](auto& parser, const auto& token) { ParseStop(parser, token); });
}

void CSerialModeString::SetSerialModeStringForSendingBreak(const CSerialModeString& mode, int divisor) {
    QV_ASSERT(divisor != 0);
    const unsigned int rate = mode.m_BaudRate / static_cast<unsigned int>(divisor);
    SetSerialModeStringToDefaults();
    m_BaudRate = rate;
}

unsigned int CSerialModeString::GetTotalBitsPerCharacter() const {
    return m_ByteSize + 2u + (m_StopBits != 0 ? 1 : 0) + (m_Parity != 0 ? 1 : 0);
}

unsigned int CSerialModeString::GetUnixBaudRatConstant() const {
    return qv_line_speed_constant(m_BaudRate);
}

void CSerialModeString::ApplyToTermios(termios* attributes) const {
    qv_set_line_mode(*attributes, {.m_SpeedConstant = GetUnixBaudRatConstant(),
                                   .m_DataBits = m_ByteSize,
                                   .m_bTwoStopBits = m_StopBits == 2,
                                   .m_Parity = LineParity(m_Parity),
                                   .m_bHardwareFlowControl = m_bOCTSControl});
}

void CSerialModeString::Print(CTextOutput& out, bool all) const {
    out.Print("Baud=%u", m_BaudRate);
    if (m_Parity <= 4)
        out.Print(" Parity=%c", "NOEMS"[m_Parity]);
    out.Print(" Data=%d", m_ByteSize);
    if (m_StopBits == 0 || m_StopBits == 2)
        out.Print(" Stop=%d", m_StopBits == 0 ? 1 : 2);
    if (m_DTRControl == 0 || m_DTRControl == 2 || (m_DTRControl == 1 && all))
        out.Print(" Dtr=%s", m_DTRControl == 0 ? "Off" : m_DTRControl == 1 ? "On" : "Hs");
    if (m_RTSControl == 0 || m_RTSControl == 2 || m_RTSControl == 3 || (m_RTSControl == 1 && all)) {
        constexpr const char* names[] = {"Off", "On", "Hs", "Tg"};
        out.Print(" Rts=%s", names[m_RTSControl]);
    }
    PrintFlag(out, "Xon", m_bXONControl, all);
    PrintFlag(out, "Idsr", m_bIDSRControl, all);
    PrintFlag(out, "Octs", m_bOCTSControl, all);
    PrintFlag(out, "Odsr", m_bODSRControl, all);
}
