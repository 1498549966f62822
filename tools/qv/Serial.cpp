#include "Serial.h"

#include "Help.h"
#include "Output.h"
#include "SerialMode.h"
#include "SerialPortList.h"

#include <CLI/CLI.hpp>
#include <memory>

namespace {

using OptionValueSet = CSerialModeString::OptionValueSet;

class ModeTable {
public:
    explicit ModeTable(OutputFormat format)
        : m_Writer(format, {{"key", Column::Text},
                            {"value", Column::Text},
                            {"meaning", Column::Text},
                            {"device", Column::Text}}) {}

    void Add(const char* key, const std::string& value, const std::string& meaning,
             const std::string& device) {
        m_Writer.AddText(key);
        m_Writer.AddText(value);
        m_Writer.AddText(meaning);
        m_Writer.AddText(device);
        m_Writer.EndRow();
    }
    void Add(const char* key, const OptionValueSet& set, unsigned int value, bool bReachesDevice) {
        for (unsigned int i = 0; i < set.m_nValues; ++i) {
            const CSerialModeString::OptionValue& row = set.m_pValues[i];
            if (row.m_Value == value)
                return Add(key, row.m_pKeyword, row.m_pDescription, bReachesDevice ? "yes" : "no");
        }
    }
    void Finish() { m_Writer.Finish(); }

private:
    TableWriter m_Writer;
};

void PrintMode(const CSerialModeString& mode, OutputFormat format) {
    ModeTable table(format);
    const std::string rate = std::to_string(mode.GetBaudRate());
    table.Add("BAUD", rate, rate + " bits per second",
              IsDeviceRate(mode) ? "yes" : "as " + std::to_string(FallbackRate));
    table.Add("PARITY", g_ParityValues, mode.m_Parity, true);
    table.Add("DATA", g_ByteSizeValues, mode.m_ByteSize, true);
    table.Add("STOP", g_StopBitValues, mode.m_StopBits, true);
    table.Add("OCTS", g_OCTSControlValues, mode.m_bOCTSControl, true);
    table.Add("DTR", g_DTRControlValues, mode.m_DTRControl, false);
    table.Add("RTS", g_RTSControlValues, mode.m_RTSControl, false);
    table.Add("XON", g_XONControlValues, mode.m_bXONControl, false);
    table.Add("IDSR", g_IDSRControlValues, mode.m_bIDSRControl, false);
    table.Add("ODSR", g_ODSRControlValues, mode.m_bODSRControl, false);
    table.Finish();
}

void PrintSpeed(const CSerialModeString& mode) {
    const unsigned int rate = IsDeviceRate(mode) ? mode.GetBaudRate() : FallbackRate;
    const unsigned int bits = mode.GetTotalBitsPerCharacter();
    std::string text = "\nA character is " + std::to_string(bits) + " bits on the line; 1000 of them take ";
    AppendNumber(text, (bits * 1'000'000ULL + rate / 2) / rate);
    WriteStandardOutput(text + " ms.\n");
}

ExitCode Check(const std::string& text, OutputFormat format) {
    CSerialModeString mode;
    if (!ReadSerialMode(text, format, mode))
        return ExitFindings;
    PrintMode(mode, format);
    if (format == OutputFormat::Human)
        PrintSpeed(mode);
    if (IsDeviceRate(mode))
        return ExitDone;
    WarnOfRate(text, format, mode);
    return ExitFindings;
}

void ListPorts(OutputFormat format) {
    TableWriter writer(format, {{"port", Column::Text}, {"driver", Column::Text}, {"device", Column::Text}});
    for (const SerialPortEntry& port : FindSerialPorts()) {
        writer.AddText(port.m_Port);
        port.m_Driver.empty() ? writer.AddNothing() : writer.AddText(port.m_Driver);
        port.m_Device.empty() ? writer.AddNothing() : writer.AddText(port.m_Device);
        writer.EndRow();
    }
    writer.Finish();
}

} // namespace

void AddSerialCommands(CLI::App& app, ToolContext& context) {
    CLI::App* const serial =
        app.add_subcommand("serial", "Serial ports: mode strings, ports, talking over one");
    SetExample(*serial, R"(qv serial check "BAUD=19200 PARITY=E")");
    serial->require_subcommand(1);

    CLI::App* const check = serial->add_subcommand("check", "Show what a mode string means to the device");
    const auto mode = std::make_shared<std::string>();
    check->add_option("MODE", *mode, "such as \"BAUD=19200 PARITY=E\"")->required();
    SetExample(*check, R"(qv serial check "BAUD=19200 PARITY=E")",
               "Exit code 1: the text is no mode string, or the device would use another rate.");
    check->callback([mode, &context] { context.m_ExitCode = Check(*mode, context.m_Format); });

    CLI::App* const ports = serial->add_subcommand("ports", "List the serial ports of this machine");
    SetExample(*ports, "qv serial ports");
    ports->callback([&context] { ListPorts(context.m_Format); });

    AddSerialTalkCommand(*serial, context);
}
