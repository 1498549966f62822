#include "SerialMode.h"

#include "Diagnostics.h"

#include <QVLib/TextStreams/TextInputString.h>

namespace {

constexpr char SourceName[] = "MODE";

Place PlaceOf(const CParseToken& token) {
    const CQVTextLocation& begin = token.Location().GetBegin();
    const CQVTextLocation& end = token.Location().GetEnd();
    // The end of the text takes no room of its own, but is to be seen.
    const bool bEnd = token.Type() == TokenEndOfFile;
    return {begin.GetLine(), begin.GetColumn(), bEnd ? begin.GetColumn() + 1 : end.GetColumn()};
}

// Where the value of the last BAUD stands, or the end of the text where there is none.
Place FindRate(const std::string& text) {
    TextInputQVString input(text, SourceName);
    COutputLogNull log;
    CSerialModeStringParser parser(&input, &log);
    CParseToken token;
    Place place;
    bool bFound = false;
    for (parser.GetSerialModeToken(token); token.Type() != TokenEndOfFile; parser.GetSerialModeToken(token)) {
        if (token.Type() != SerialModeKeywordBaud)
            continue;
        parser.GetSerialModeToken(token); // "="
        parser.GetSerialModeToken(token);
        place = PlaceOf(token);
        bFound = true;
    }
    return bFound ? place : PlaceOf(token);
}

} // namespace

bool ReadSerialMode(const std::string& text, OutputFormat format, CSerialModeString& mode) {
    Report report(format);
    Diagnostics diagnostics(report, SourceName);
    diagnostics.SetText(text);
    TextInputQVString input(text, SourceName);
    CSerialModeStringParser parser(&input, &diagnostics);
    const bool bValid = mode.ParseString(parser);
    // The one fault that the parser has no message for.
    if (!bValid && parser.GetErrorCount() == 0) {
        CParseToken end;
        parser.GetSerialModeToken(end);
        diagnostics.AddMessage(COutputLog::Error, PlaceOf(end), "the text ends where a value should stand");
    }
    report.Write();
    return bValid;
}

bool IsDeviceRate(const CSerialModeString& mode) {
    CSerialModeString fallback;
    fallback.m_BaudRate = FallbackRate;
    return mode.m_BaudRate == FallbackRate ||
           mode.GetUnixBaudRatConstant() != fallback.GetUnixBaudRatConstant();
}

void WarnOfRate(const std::string& text, OutputFormat format, const CSerialModeString& mode) {
    Report report(format);
    Diagnostics diagnostics(report, SourceName);
    diagnostics.SetText(text);
    diagnostics.AddMessage(COutputLog::Warning, FindRate(text),
                           "the device has no rate of " + std::to_string(mode.GetBaudRate()) +
                               " and will use " + std::to_string(FallbackRate));
    report.Write();
}
