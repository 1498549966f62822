// qv serial talk: the standard input to a port, what the port answers to the standard output.

#include "Help.h"
#include "Output.h"
#include "Serial.h"
#include "SerialMode.h"
#include "TimeText.h"

#include <CLI/CLI.hpp>
#include <QVLib/SerialPorts/SerialPortAsync.h>
#include <QVPlatform/Format.h>
#include <QVPlatform/Process.h>
#include <QVPlatform/SerialDevice.h>
#include <QVPlatform/Socket.h>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <memory>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

struct TalkOptions {
    std::string m_Port;
    std::string m_Mode;
    std::string m_LineEnd = "lf";
    std::string m_Linger = "500ms";
    bool m_bRaw = false;
    bool m_bTrace = false;
};

// Bytes as text that a terminal can show: escapes for what it cannot.
std::string EscapeBytes(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        char escape[8];
        if (byte == '\r')
            text += "\\r";
        else if (byte == '\n')
            text += "\\n";
        else if (byte == '\\')
            text += "\\\\";
        else if (byte >= 0x20 && byte < 0x7F)
            text += byte;
        else
            text.append(escape,
                        qv_sprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(byte)));
    }
    return text;
}

std::string HexBytes(std::string_view bytes) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        text += digits[value >> 4];
        text += digits[value & 15];
    }
    return text;
}

// Prints what goes over the line, at once: a line per piece with its time, and the time since the piece
// before.
class TalkReport {
public:
    TalkReport(OutputFormat format, bool bRaw) : m_Format(format), m_bRaw(bRaw) {
        if (format == OutputFormat::Csv && !bRaw)
            WriteStandardOutput("seconds,gap,direction,bytes,hex,text\n");
    }

    void Sent(std::string_view bytes) {
        m_Sent += bytes.size();
        if (!m_bRaw)
            Print("sent", bytes);
    }
    void Received(std::string_view bytes) {
        m_Received += bytes.size();
        m_bRaw ? WriteStandardOutput(bytes) : Print("received", bytes);
    }
    // On the error stream, for people.
    void PrintSum() const {
        if (m_Format == OutputFormat::Human)
            std::fprintf(stderr, "sent %s, received %s in %.3f s\n", CountText(m_Sent, "byte").c_str(),
                         CountText(m_Received, "byte").c_str(), SecondsSince(m_Start));
    }

private:
    static double SecondsSince(Clock::time_point start) {
        return std::chrono::duration<double>(Clock::now() - start).count();
    }

    void Print(const char* direction, std::string_view bytes) {
        const double seconds = SecondsSince(m_Start);
        const double gap = seconds - m_LastSeconds;
        m_LastSeconds = seconds;
        const std::string escaped = EscapeBytes(bytes);
        char head[128];
        std::string line;
        switch (m_Format) {
        case OutputFormat::Human:
            line.assign(head, qv_sprintf(head, sizeof head, "%11.6f %+11.6f  %-8s %5zu  ", seconds, gap,
                                         direction, bytes.size()));
            line += escaped;
            break;
        case OutputFormat::Json:
            line.assign(head, qv_sprintf(head, sizeof head,
                                         R"({"seconds":%.6f,"gap":%.6f,"direction":"%s","bytes":%zu,"hex":")",
                                         seconds, gap, direction, bytes.size()));
            line += HexBytes(bytes) + "\",\"text\":";
            AppendJsonString(line, escaped);
            line += '}';
            break;
        case OutputFormat::Csv:
            line.assign(head, qv_sprintf(head, sizeof head, "%.6f,%.6f,%s,%zu,", seconds, gap, direction,
                                         bytes.size()));
            line += HexBytes(bytes) + ",\"";
            for (const char byte : escaped)
                line.append(byte == '"' ? 2 : 1, byte);
            line += '"';
            break;
        }
        WriteStandardOutput(line + "\n");
    }

    const OutputFormat m_Format;
    const bool m_bRaw;
    const Clock::time_point m_Start = Clock::now();
    double m_LastSeconds = 0;
    unsigned long long m_Sent = 0;
    unsigned long long m_Received = 0;
};

// The port, and what it tells.
class TalkPort final : public QVSerialPortAsync {
public:
    TalkPort(TalkReport& report, bool bTrace) : m_Report(report), m_bTrace(bTrace) {}
    ~TalkPort() { ClosePort(); }

    void Open(const TalkOptions& options) {
        if (OpenAsyncPort(options.m_Port) != QVSerialPortSuccess ||
            SetPortMode(options.m_Mode) != QVSerialPortSuccess)
            throw ToolError(ExitInputOutput, DescribeError(options.m_Port));
    }

    void Send(std::string bytes) {
        m_Bytes = std::move(bytes);
        m_Report.Sent(m_Bytes);
        m_LastActive = Clock::now();
        WriteSerialData(static_cast<unsigned int>(m_Bytes.size()),
                        reinterpret_cast<const unsigned char*>(m_Bytes.data()));
    }
    // How long nothing has gone over the line; as far as the system tells, it keeps what is still to be sent.
    milliseconds GetQuietTime() {
        unsigned int unsent = 0;
        if (QVSerialDevice::GetUnsent(m_hPort, unsent) == 0 && unsent != 0)
            m_LastActive = Clock::now();
        return std::chrono::floor<milliseconds>(Clock::now() - m_LastActive);
    }

    void Trace(const char* format, ...) override __attribute__((format(printf, 2, 3))) {
        if (!m_bTrace)
            return;
        va_list arguments;
        va_start(arguments, format);
        std::vfprintf(stderr, format, arguments);
        va_end(arguments);
        std::fputc('\n', stderr);
    }
    void OnDataReceived(unsigned int count, const unsigned char* data) override {
        if (count == 0)
            throw ToolError(ExitInputOutput,
                            "the line is gone: the other side hung up, or the device was unplugged");
        m_LastActive = Clock::now();
        m_Report.Received({reinterpret_cast<const char*>(data), count});
    }
    void OnModemLinesChanged(unsigned int, unsigned int) override {}
    void OnWriteComplete(unsigned int) override {}
    void OnIOError(int error, const char* format, ...) override __attribute__((format(printf, 3, 4))) {
        char call[64];
        va_list arguments;
        va_start(arguments, format);
        qv_vsprintf(call, sizeof call, format, arguments);
        va_end(arguments);
        throw ToolError(ExitInputOutput, "the line is gone: " + std::string(call) + ": " + ErrorText(error));
    }

private:
    std::string DescribeError(const std::string& port) const {
        std::string text = Quoted(port) + ": " + m_szErrorSummary;
        if (m_nErrorFunctionLength != 0)
            text += ": " + std::string(m_szErrorMessage);
        if (m_nErrorCode == EACCES)
            text += "; on many systems the group 'dialout' may";
        else if (m_nErrorCode == EBUSY)
            text += "; another program has the port";
        return text;
    }

    TalkReport& m_Report;
    const bool m_bTrace;
    std::string m_Bytes; // of the current write
    Clock::time_point m_LastActive = Clock::now();
};

class Talk {
public:
    Talk(TalkPort& port, const TalkOptions& options)
        : m_Port(port), m_LineEnd(options.m_LineEnd == "cr"     ? "\r"
                                  : options.m_LineEnd == "crlf" ? "\r\n"
                                                                : "\n"),
          m_Linger(ParseDurationOption("--linger", options.m_Linger) / 10'000) {}

    // Until the standard input has ended and the line was quiet for the --linger, or a stop signal.
    void Run() {
        while (WaitAndMove()) {
        }
    }

private:
    static constexpr int Input = 0;

    bool WaitAndMove() {
        int timeout = -1;
        // Not more is taken in than the line carries.
        const bool bReadInput = !m_bInputEnded && !m_Port.m_bWritePending;
        if (m_bInputEnded && !m_Port.m_bWritePending) {
            const milliseconds left = m_Linger - m_Port.GetQuietTime();
            if (left.count() <= 0)
                return false;
            timeout = static_cast<int>(std::min<long long>(left.count(), 60'000));
        }
        const unsigned int events =
            m_Port.m_bWritePending ? QVSocket::Readable | QVSocket::Writable : QVSocket::Readable;
        QVHandleInterest interests[] = {{m_Port.m_hPort, events}, {Input, QVSocket::Readable}};
        const QVWaitResult result = qv_wait_for_handles({interests, bReadInput ? 2u : 1u}, timeout, &m_Stop);
        if (result == QVWaitResult::Woken)
            return false;
        if (result == QVWaitResult::Failed)
            throw ToolError(ExitInputOutput, "cannot wait for the port: " + ErrorText(errno));
        if ((interests[0].m_Ready & QVSocket::Writable) != 0)
            m_Port.WriteNextDataBlock();
        if ((interests[0].m_Ready & QVSocket::Readable) != 0)
            m_Port.DoUnixRead();
        if (interests[1].m_Ready != 0)
            TakeInput();
        return true;
    }

    void TakeInput() {
        char buffer[1024];
        int error = 0;
        const int count = qv_read_standard_input(buffer, sizeof buffer, error);
        if (count < 0)
            throw ToolError(ExitInputOutput, "the standard input cannot be read: " + ErrorText(error));
        m_bInputEnded = count == 0;
        std::string bytes;
        for (int i = 0; i < count; ++i)
            buffer[i] == '\n' ? bytes.append(m_LineEnd) : bytes.append(1, buffer[i]);
        if (!bytes.empty())
            m_Port.Send(std::move(bytes));
    }

    TalkPort& m_Port;
    const std::string m_LineEnd;
    const milliseconds m_Linger;
    QVWakeEvent m_Stop{QVWakeEvent::OrStopSignals};
    bool m_bInputEnded = false;
};

ExitCode RunTalk(const TalkOptions& options, OutputFormat format) {
    CSerialModeString mode;
    if (!ReadSerialMode(options.m_Mode, format, mode))
        return ExitUsage;
    if (!IsDeviceRate(mode))
        WarnOfRate(options.m_Mode, format, mode);
    qv_catch_stop_signals();
    TalkReport report(format, options.m_bRaw);
    TalkPort port(report, options.m_bTrace);
    Talk talk(port, options);
    port.Open(options);
    talk.Run();
    if (!options.m_bRaw)
        report.PrintSum();
    return ExitDone;
}

} // namespace

void AddSerialTalkCommand(CLI::App& serial, ToolContext& context) {
    CLI::App* const talk =
        serial.add_subcommand("talk", "Send the standard input to a port and print what comes");
    const auto options = std::make_shared<TalkOptions>();
    talk->add_option("PORT", options->m_Port, "such as /dev/ttyS0")->required();
    talk->add_option("MODE", options->m_Mode, "such as \"BAUD=19200 PARITY=E\", or empty")->required();
    talk->add_option("--line-end", options->m_LineEnd, "what a line feed of the input is sent as")
        ->check(CLI::IsMember({"lf", "cr", "crlf"}));
    talk->add_option("--linger", options->m_Linger,
                     "how long the line must be quiet after the end of the input");
    talk->add_flag("--raw", options->m_bRaw, "print the bytes that come, and nothing else");
    talk->add_flag("--trace", options->m_bTrace, "print what the port does on the error stream");
    SetExample(*talk, R"(echo "temperature?" | qv serial talk /dev/ttyS0 "BAUD=9600")",
               "Ends when the input has ended and the line is quiet, or with Ctrl+C.");
    talk->callback([options, &context] { context.m_ExitCode = RunTalk(*options, context.m_Format); });
}
