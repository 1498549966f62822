// A tour of the library: a few lines for each subsystem, as docs/README.md shows them.
#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>
#include <QVLib/Formatting/DecimalFormat.h>
#include <QVLib/HistoricTables/HistoricTable.h>
#include <QVLib/Json/JSONata.h>
#include <QVLib/Presentation/ColourValue.h>
#include <QVLib/Resources/Messages.h>
#include <QVLib/Security/SecuritySettings.h>
#include <QVLib/SerialPorts/SerialModeString.h>
#include <QVLib/Tags/TagName.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVLib/Tls/CertificateAndKey.h>
#include <QVLib/Utilities/Crc16.h>
#include <QVPlatform/NetworkInfo.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/TextOutput.h>
#include <QVPlatform/Timestamp.h>
#include <climits>
#include <cstdio>

static CTextOutputString out;
static COutputLogToString messages;
static COutputLogNull steps; // where certificates tell how they are made

static void Platform() {
    CQVTimestamp time;
    if (time.FromText("2024-07-05T07:08:09Z"))
        out.PrintLine("%lld", time.GetValue());
}

static void Resources() {
    char text[100];
    CErrorLog log(&messages);
    out.PrintLine("%s", log.GetResourceString(g_LibModule, 101, text, sizeof text));
}

static void TextStreams() {
    TextInputQVString input("Pressure = 16\r\nLevel = 12\n", "limits.txt");
    qvstring line;
    for (bool ended; input.ReadLine(line, ended);)
        out.PrintLine("%s", line.c_str());
}

static void BinaryStreams() {
    BinaryOutputBuffer buffer(BinaryStringLengthUTF8Character);
    buffer << 250u << qvstring("Pump house");
    unsigned int scan;
    CBinaryInputFromBinaryOutputBuffer(&buffer) >> scan;
    out.PrintLine("%u", scan);
}

static void Parsing() {
    TextInputQVString input("Level >= 40", "condition");
    CParseContext context(&input, &messages);
    for (CParseToken token; context.GetNextTokenSkipWS(token) != TokenEndOfFile;)
        out.PrintLine("%s", token.Text().c_str());
}

static void Json() {
    TextInputQVString input("(value-limits.high)>0 and enabled", "condition");
    JSONParseContext context(&input, &messages);
    JSONataExpr condition;
    if (condition.ParseJSONataExpr(context))
        condition.FormatJSONataExpr(out);
    out.PrintLine();
}

static void HistoricTables() {
    HistoricTableErrorSummary errors;
    CHistoricTable table(QVFileSystem::GetInstance(), sizeof(long long), &errors);
    table.InitialiseFromPath(CQVFilePath("."));
    const long long record = 132'000'000'000'000'000; // its time stamp
    table.WriteNewRecord(record, &record);
    out.PrintLine("%u", table.FlushRecords(&messages));
}

static void Formatting() {
    TextInputQVString pattern("#,##0.00", "pattern");
    DecimalFormat format;
    if (format.ParseDecimalFormat(&pattern) == 0)
        format.FormatDouble(12345.678, out);
    out.PrintLine();
}

static void SerialPorts() {
    TextInputQVString input("baud=19200 parity=e", "Mode");
    CSerialModeStringParser parser(&input, &messages);
    CSerialModeString mode;
    if (mode.ParseString(parser))
        mode.Print(out, false);
    out.PrintLine();
}

static void Tls() {
    const QVNetworkInfo network = QVNetworkInfo::OfThisMachine();
    CertificateAndKeyInFilePath server("server", CQVFilePath("."));
    if (server.InitCertificateAndKey(CertificateAndKey::CertificateSelfSigned, nullptr, "Plant", "", nullptr,
                                     network, &steps))
        out.PrintLine("%s", server.GetCertificateFile().GetPathCStr());
}

static void Tags() {
    CTagName name(qvstring(".Running"));
    name.ToAbsolute("Plant.Pump1.Speed");
    out.PrintLine("%s", name.TagName().c_str());
}

static void Utilities() {
    CCrc16 crc(0xFFFF);
    crc.AddBytes(reinterpret_cast<const unsigned char*>("123456789"), 9);
    out.PrintLine("%04X", crc.GetValue());
}

static void Security() {
    CSecuritySettingsAccessRights rights;
    rights.SetZoneRights(0, 0x002);
    rights.PrintRights(out);
    out.PrintLine();
}

static void Presentation() {
    CColourValue colour;
    if (colour.ParseText("rgb(255, 50%, 0)"))
        colour.PrintColourValue(out);
    out.PrintLine();
}

int main() {
    for (const auto stop : {Platform, Resources, TextStreams, BinaryStreams, Parsing, Json, HistoricTables,
                            Formatting, SerialPorts, Tls, Tags, Utilities, Security, Presentation})
        stop();
    std::printf("%s%s", out.GetCStr(), messages.GetString().c_str());
}
