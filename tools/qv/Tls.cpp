#include "Tls.h"

#include "Help.h"
#include "Output.h"
#include "TimeText.h"

#include <CLI/CLI.hpp>
#include <QVLib/Tls/CertificateSummary.h>
#include <QVLib/Tls/OpenSSLClientSocket.h>
#include <QVLib/Tls/OpenSSLContext.h>
#include <QVPlatform/FilePath.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/Process.h>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <memory>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

struct ConnectOptions {
    std::string m_Address;
    std::string m_TrustFile;
    std::string m_Name;
    std::string m_Pin;
    std::string m_Linger = "500ms";
    std::string m_Timeout = "10s";
    bool m_bInsecure = false;
    bool m_bPlain = false;
    bool m_bTrace = false;
};

milliseconds DurationOf(const char* option, const std::string& text) {
    return milliseconds(ParseDurationOption(option, text) / 10'000);
}

// Prints every line at once on the error stream, with the seconds since the start.
class TraceLog : public COutputLog {
public:
    void Clear() override {}
    bool AppendMessage(LogType, int, const char* text, unsigned int length) override {
        std::string line(text, length);
        std::replace_if(
            line.begin(), line.end(), [](char c) { return (c >= 0 && c < ' ') || c == 0x7F; }, ' ');
        std::fprintf(stderr, "%9.6f  %s\n", std::chrono::duration<double>(Clock::now() - m_Start).count(),
                     line.c_str());
        return true;
    }

private:
    const Clock::time_point m_Start = Clock::now();
};

const char* NameOf(OpenSSLClientSocket::ConnectionState state) {
    switch (state) {
    case OpenSSLClientSocket::Closed:
        return "closed";
    case OpenSSLClientSocket::Connecting:
        return "connecting";
    case OpenSSLClientSocket::Connected:
        return "connected";
    case OpenSSLClientSocket::ShutdownSent:
        return "shutdown sent";
    }
    return "unknown";
}

std::string Join(const std::list<qvstring>& names) {
    std::string text;
    for (const qvstring& name : names)
        text += (text.empty() ? "" : " ") + name;
    return text;
}

// One connection: the standard input to the server, what the server sends to the standard output.
class TlsConnection final : public OpenSSLClientSocket {
public:
    TlsConnection(OpenSSLContext* context, const ConnectOptions& options, bool bPrintReceived,
                  COutputLog& log)
        : OpenSSLClientSocket("server", CQVLocale(), context, context != nullptr, options.m_bTrace, &log),
          m_bPrintReceived(bPrintReceived), m_Linger(DurationOf("--linger", options.m_Linger)),
          m_Timeout(DurationOf("--timeout", options.m_Timeout)), m_Log(log) {}

    // Until the handshake is done; false when it failed.
    bool Connect(QVSocketAddress address) {
        m_bBroken = false; // another address may have been tried before
        m_LastActive = Clock::now();
        if (CreateSocket(address.GetFamily()) != 0 ||
            !StartConnect(address.GetSockAddr(), static_cast<int>(address.GetLength())))
            return false;
        while (!m_bComplete && Step(m_Timeout, false)) {
        }
        if (m_bTimedOut)
            m_Log.Print("The server takes longer than --timeout");
        if (!m_bComplete)
            HardResetSocket();
        TraceState();
        return m_bComplete;
    }

    // Until the input has ended and the server is quiet, or the server ends.
    void Talk() {
        m_LastActive = Clock::now();
        while (GetSocket().IsOpen() && Step(IsSendingDone() ? m_Linger : milliseconds(-1), true)) {
        }
        if (GetSocket().IsOpen() && !m_bBroken && StartShutdown()) {
            m_LastActive = Clock::now();
            while (GetSocket().IsOpen() && Step(m_Linger, false)) {
            }
        }
        HardResetSocket();
        TraceState();
    }

    // The server ended before this side, or the connection broke.
    bool IsBroken() const { return m_bBroken; }
    unsigned long long GetReceived() const { return m_Received; }
    const std::string& GetCipher() const { return m_Cipher; }

    void ConnectComplete(int errorCode) override {
        m_bComplete = errorCode == 0;
        char cipher[256];
        if (OpenSSLContext::GetCipherName(GetSSL(), cipher, sizeof cipher))
            m_Cipher = cipher;
    }
    bool ProcessReadData() override {
        if (!m_bComplete)
            return true;
        char buffer[16384];
        unsigned int received = 0;
        SocketIoResult result;
        while ((result = ReadData(buffer, sizeof buffer, received)) == SocketIoDone) {
            m_LastActive = Clock::now();
            m_Received += received;
            if (m_bPrintReceived)
                WriteStandardOutput({buffer, received});
        }
        // Only now, because what was tried last decides what is waited for.
        return result == SocketIoWouldBlock ? ProcessWriteData() : result != SocketIoError;
    }
    bool ProcessWriteData() override {
        while (!m_ToSend.empty()) {
            unsigned int sent = 0;
            const SocketIoResult result =
                WriteData(m_ToSend.data(), static_cast<unsigned int>(m_ToSend.size()), sent);
            if (result != SocketIoDone)
                return result != SocketIoError;
            m_LastActive = Clock::now();
            m_ToSend.erase(0, sent);
        }
        return true;
    }
    void SocketClosing(SocketCloseCause cause) override {
        m_Log.Print("Close: %s", GetSocketCloseCauseText(cause));
        // The end of the connection is an answer like any other.
        m_bBroken =
            m_bBroken || (cause != ReadEvent && cause != ReadReturnsSocketClosed && cause != SSLClosure);
    }
    void SocketClosed(SocketCloseCause) override {}

private:
    bool IsSendingDone() const { return m_bInputEnded && m_ToSend.empty(); }

    void TraceState() {
        if (m_TracedState != GetConnectionState())
            m_Log.Print("State: %s", NameOf(GetConnectionState()));
        m_TracedState = GetConnectionState();
    }

    // Waits for events, at most until nothing has happened for so long (-1 ms: for ever), and handles them.
    bool Step(milliseconds quiet, bool bTakeInput) {
        TraceState();
        int timeout = -1;
        if (quiet.count() >= 0) {
            const auto left = quiet - std::chrono::floor<milliseconds>(Clock::now() - m_LastActive);
            m_bTimedOut = left.count() <= 0;
            if (m_bTimedOut)
                return false;
            timeout = static_cast<int>(std::min<long long>(left.count(), 60'000));
        }
        const bool bInput = bTakeInput && !m_bInputEnded && m_ToSend.empty();
        const unsigned int events = IsSocketWriteInProgress(!m_ToSend.empty())
                                        ? QVSocket::Readable | QVSocket::Writable
                                        : QVSocket::Readable;
        QVHandleInterest interests[] = {{GetSocket().GetSocketHandle(), events}, {0, QVSocket::Readable}};
        const QVWaitResult result = qv_wait_for_handles({interests, bInput ? 2U : 1U}, timeout, &m_Stop);
        if (result == QVWaitResult::Failed)
            throw ToolError(ExitInputOutput, "cannot wait for the connection: " + ErrorText(errno));
        if (result == QVWaitResult::Woken)
            return false;
        bool bUsable = true;
        if ((interests[0].m_Ready & QVSocket::Readable) != 0)
            bUsable = ProcessReadEvent();
        if (bUsable && (interests[0].m_Ready & QVSocket::Writable) != 0 && GetSocket().IsOpen())
            bUsable = ProcessWriteEvent();
        if (bUsable && interests[1].m_Ready != 0 && GetSocket().IsOpen())
            bUsable = TakeInput();
        m_bBroken = m_bBroken || !bUsable;
        return bUsable;
    }

    bool TakeInput() {
        char buffer[16384];
        int error = 0;
        const int count = qv_read_standard_input(buffer, sizeof buffer, error);
        if (count < 0)
            throw ToolError(ExitInputOutput, "the standard input cannot be read: " + ErrorText(error));
        m_bInputEnded = count == 0;
        m_LastActive = Clock::now();
        m_ToSend.append(buffer, static_cast<size_t>(count));
        return ProcessWriteData();
    }

    const bool m_bPrintReceived;
    const milliseconds m_Linger;
    const milliseconds m_Timeout;
    COutputLog& m_Log;
    QVWakeEvent m_Stop{QVWakeEvent::OrStopSignals};
    Clock::time_point m_LastActive;
    std::string m_ToSend;
    std::string m_Cipher;
    unsigned long long m_Received = 0;
    ConnectionState m_TracedState = Closed;
    bool m_bComplete = false;
    bool m_bInputEnded = false;
    bool m_bTimedOut = false;
    bool m_bBroken = false;
};

void PrintCertificate(X509* certificate, COutputLog& log) {
    const CertificateSummary summary = CertificateSummary::Of(certificate);
    TimeFormatter times;
    std::string from;
    std::string until;
    times.Append(from, summary.m_NotBefore.GetValue(), true);
    times.Append(until, summary.m_NotAfter.GetValue(), true);
    log.Print("Certificate: subject %s", Quoted(summary.m_Subject).c_str());
    log.Print("Certificate: issuer %s", Quoted(summary.m_Issuer).c_str());
    log.Print("Certificate: valid from %s until %s", from.c_str(), until.c_str());
    for (const qvstring& name : summary.m_Names)
        log.Print("Certificate: name %s", Quoted(name).c_str());
    log.Print("Certificate: key %s, --pin %s", summary.m_Key.c_str(), summary.m_KeySha256.c_str());
}

// The outcome as one row, for programs.
void PrintRow(const TlsConnection& connection, bool bConnected, OutputFormat format) {
    TableWriter writer(format, {{"connected", Column::Text},
                                {"message", Column::Text},
                                {"verified", Column::Text},
                                {"cipher", Column::Text},
                                {"subject", Column::Text},
                                {"issuer", Column::Text},
                                {"not_before", Column::Text},
                                {"not_after", Column::Text},
                                {"names", Column::Text},
                                {"key", Column::Text},
                                {"key_sha256", Column::Text},
                                {"received", Column::Number}});
    writer.AddText(bConnected ? "yes" : "no");
    writer.AddText(connection.GetLastError().m_Message);
    writer.AddText(connection.GetVerifyResultText());
    writer.AddText(connection.GetCipher());
    if (connection.GetPeerCertificate() != nullptr) {
        const CertificateSummary summary = CertificateSummary::Of(connection.GetPeerCertificate());
        writer.AddText(summary.m_Subject);
        writer.AddText(summary.m_Issuer);
        writer.AddTime(summary.m_NotBefore.GetValue());
        writer.AddTime(summary.m_NotAfter.GetValue());
        writer.AddText(Join(summary.m_Names));
        writer.AddText(summary.m_Key);
        writer.AddText(summary.m_KeySha256);
    } else {
        for (int i = 0; i < 7; ++i)
            writer.AddNothing();
    }
    writer.AddUnsigned(connection.GetReceived());
    writer.EndRow();
    writer.Finish();
}

// HOST of HOST:PORT or [V6ADDRESS]:PORT.
std::string HostOf(const std::string& address) {
    const std::string host = address.substr(0, address.rfind(':'));
    return host.starts_with('[') ? host.substr(1, host.size() - 2) : host;
}

void DemandServer(const ConnectOptions& options, OpenSSLContext& context, TlsConnection& connection,
                  COutputLog& log) {
    if (options.m_bInsecure)
        return;
    if (!options.m_TrustFile.empty() && !context.SetTrustFile(CQVFilePath(options.m_TrustFile), &log))
        throw ToolError(ExitInputOutput, Quoted(options.m_TrustFile) + " holds no certificates to trust");
    if (options.m_TrustFile.empty() && options.m_Pin.empty() && !context.SetSystemTrust(&log))
        throw ToolError(ExitInputOutput, "what this machine trusts cannot be read");
    if (!connection.SetPinnedKey(options.m_Pin))
        throw ToolError(ExitUsage, "--pin wants the SHA-256 of a public key, 64 hexadecimal digits");
    // A pinned key alone names its server well enough.
    if (!options.m_Name.empty() || options.m_Pin.empty())
        connection.SetExpectedHostName(options.m_Name.empty() ? HostOf(options.m_Address) : options.m_Name);
}

ExitCode RunConnect(const ConnectOptions& options, OutputFormat format) {
    std::vector<QVSocketAddress> candidates;
    qvstring problem;
    if (!QVSocketAddress::CheckText(options.m_Address, problem) || options.m_Address.starts_with("unix:"))
        throw ToolError(ExitUsage, Quoted(options.m_Address) + " is not HOST:PORT");
    if (!QVSocketAddress::Resolve(options.m_Address, false, candidates, problem))
        throw ToolError(ExitInputOutput, Quoted(options.m_Address) + ": " + problem);
    qv_catch_stop_signals();
    const bool bHuman = format == OutputFormat::Human;
    TraceLog trace;
    COutputLogNull silence;
    COutputLog& log = bHuman || options.m_bTrace ? static_cast<COutputLog&>(trace) : silence;
    OpenSSLContext context(false);
    TlsConnection connection(options.m_bPlain ? nullptr : &context, options, bHuman, log);
    if (!options.m_bPlain)
        DemandServer(options, context, connection, log);

    bool bConnected = false;
    for (size_t i = 0; i < candidates.size() && !bConnected && connection.GetVerifyResult() <= 0; ++i)
        bConnected = connection.Connect(candidates[i]);
    if (connection.GetPeerCertificate() != nullptr)
        PrintCertificate(connection.GetPeerCertificate(), log);
    if (!options.m_bPlain)
        log.Print("Verification: %s", connection.GetVerifyResultText());
    if (bConnected)
        connection.Talk();
    if (!bHuman)
        PrintRow(connection, bConnected, format);
    if (!bConnected && connection.GetVerifyResult() > 0)
        return ExitFindings;
    return bConnected && !connection.IsBroken() ? ExitDone : ExitInputOutput;
}

} // namespace

void AddTlsCommands(CLI::App& app, ToolContext& context) {
    CLI::App* const tls = app.add_subcommand("tls", "Connections to servers, with TLS");
    tls->require_subcommand(1);
    SetExample(*tls, "qv tls connect --help");

    CLI::App* const connect =
        tls->add_subcommand("connect", "Connect, send the standard input and print what comes");
    const auto options = std::make_shared<ConnectOptions>();
    connect->add_option("HOST:PORT", options->m_Address, "the server")->required();
    CLI::Option* const ca = connect->add_option("--ca", options->m_TrustFile,
                                                "PEM file of certificates to trust instead of the machine's");
    CLI::Option* const name =
        connect->add_option("--name", options->m_Name, "what the certificate must name instead of HOST");
    CLI::Option* const pin =
        connect->add_option("--pin", options->m_Pin, "SHA-256 that the server's public key must have");
    CLI::Option* const plain = connect->add_flag("--plain", options->m_bPlain, "without TLS");
    connect->add_flag("--insecure", options->m_bInsecure, "take any server")
        ->excludes(ca)
        ->excludes(name)
        ->excludes(pin)
        ->excludes(plain);
    connect->add_option("--timeout", options->m_Timeout,
                        "how long the server may be silent while connecting (default: 10s)");
    connect->add_option("--linger", options->m_Linger,
                        "how long the server must be quiet after the end of the input (default: 500ms)");
    connect->add_flag("--trace", options->m_bTrace, "also tell of every read and write");
    SetExample(*connect, "echo hello | qv tls connect plant.example:4433 --ca plant.cer",
               "Exit code 1: the server's certificate was refused.");
    connect->callback([options, &context] { context.m_ExitCode = RunConnect(*options, context.m_Format); });
}
