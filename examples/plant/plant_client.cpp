// plant_client - what an operator does: reads what was recorded, follows live values and alarms, acknowledges.
//
//     plant_client read --last 10 --server localhost:4700 --server localhost:4701 --ca authority.cer --user maria
//
// The servers are tried in their order: the main, then its standby. The password is asked for, or read from the standard
// input where that is no terminal. Times and numbers are shown as the user's formats on the server have it.
//
// Exit codes: 0 done; 1 refused, or records are missing; 2 usage; 3 no server in time.
#include "Link.h"
#include "Sample.h"

#include <CLI/CLI.hpp>
#include <QVLib/Formatting/DecimalFormat.h>
#include <QVLib/Presentation/ColourValue.h>
#include <QVLib/Presentation/RTFOutput.h>
#include <QVLib/Security/ClientAccessContext.h>
#include <QVLib/Tags/StringFromAlarmState.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVLib/Tls/OpenSSLContext.h>
#include <QVPlatform/FilePath.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/Process.h>
#include <QVPlatform/SecureMemory.h>
#include <QVPlatform/TextOutputFile.h>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <deque>
#include <map>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int ExitRefused = 1;
constexpr int ExitUnreachable = 3;

struct ClientOptions {
    std::vector<std::string> m_Servers;
    std::string m_TrustFile;
    std::string m_User;
    double m_Timeout = 10; // seconds
    double m_Last = 10;    // seconds
    unsigned int m_Limit = UINT_MAX;
    std::string m_RtfFile;
    double m_For = 5; // seconds
    std::string m_Alarm;
};

// Ends the program with an exit code.
class Failure : public std::runtime_error {
public:
    Failure(int exitCode, const std::string& text) : std::runtime_error(text), m_ExitCode(exitCode) {}

    const int m_ExitCode;
};

// What a server of this plant may send; another one is not to fill the memory.
constexpr std::size_t MaxAlarms = 10'000;
constexpr unsigned int ReadNumber = 1;

struct AlarmState {
    unsigned char m_Zone = 0;
    qvstring m_Colour;
    unsigned short m_State = 1;
    CQVTimestamp m_Time;
    qvstring m_User;
};

// The connection of one user, with what the server has told.
class Client final : public Link {
public:
    Client(OpenSSLContext& context, const ClientOptions& options, const CQVSecureWString& password)
        : Link(context), m_Options(options), m_Password(password), m_Access(qvstring()) {}

    // Logs on to the first server that is in charge. Throws a Failure when none is in time, or when it refuses.
    void LogOn() {
        const auto deadline = After(m_Options.m_Timeout);
        for (std::size_t next = 0; !m_bLoggedOn; next++) {
            std::string problem;
            if (Connect(m_Options.m_Servers[next % m_Options.m_Servers.size()], problem))
                Wait(std::min(deadline, After(5)), [this] { return m_bLoggedOn || !IsActive(); });
            else
                m_Problem = problem;
            if (m_bRefused)
                throw Failure(ExitRefused, m_Problem);
            if (m_bLoggedOn)
                break;
            if (Clock::now() >= deadline)
                throw Failure(ExitUnreachable, m_Problem.empty() ? "no server answers" : m_Problem);
            Wait(After(0.1), [] { return false; });
        }
    }

    // Handles events until `bDone` says so, or the time is over; which of them?
    template<class Done>
    bool Wait(Clock::time_point deadline, Done bDone) {
        while (!bDone()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0)
                return false;
            const bool bOpen = GetSocket().IsOpen();
            QVSocketInterest interest{&GetSocket(), WantsToWrite() ? QVSocket::Readable | QVSocket::Writable
                                                                   : QVSocket::Readable};
            const auto milliseconds = static_cast<int>(std::min<long long>(left.count(), 60'000));
            qv_wait_for_sockets({&interest, bOpen ? 1U : 0U}, milliseconds, &m_Stop);
            if (qv_stop_requested())
                throw Failure(ExitRefused, "stopped");
            if (bOpen && interest.m_Ready != 0)
                HandleEvents((interest.m_Ready & QVSocket::Readable) != 0,
                             (interest.m_Ready & QVSocket::Writable) != 0);
        }
        return true;
    }

    // Ends the connection as it should be ended.
    void Leave() {
        if (IsConnected() && StartShutdown())
            Wait(After(1), [this] { return !IsActive(); });
    }

    // Sends at once what fits.
    void Request(Message& message) {
        Send(message);
        HandleEvents(false, true);
    }

    static Clock::time_point After(double seconds) {
        return Clock::now() +
               std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    }

    // "2026-03-04 05:06:07.089   cpu 12.5 %   load 0.7 ...", as the user wants it.
    qvstring ToText(const Sample& sample) const {
        CTextOutputString out;
        m_Access.m_DataFormatSettings.FormatDateAndTime(sample.m_Time, out);
        for (unsigned int i = 0; i < m_Tags.size() && i < TagCount; i++) {
            out.Print("   %s ", m_Tags[i].c_str());
            m_Formats[i].FormatDouble(sample.m_Values[i], out);
            out.Print("%s%s", m_Units[i].empty() ? "" : " ", m_Units[i].c_str());
        }
        return out.GetCStr();
    }
    qvstring ToText(const qvstring& name, const AlarmState& alarm) const {
        CTextOutputString out;
        if (alarm.m_Time.GetValue() != 0)
            m_Access.m_DataFormatSettings.FormatDateAndTime(alarm.m_Time, out);
        char state[64] = "";
        CStringFromAlarmState(alarm.m_State)
            .GetDisplayText(m_Access.m_DataFormatSettings.m_Locale, state, sizeof state);
        out.Print("   %s (zone %c): %s", name.c_str(), 'A' + alarm.m_Zone % 4, state);
        if (!alarm.m_User.empty())
            out.Print(", by %s", alarm.m_User.c_str());
        return out.GetCStr();
    }

    qvstring m_ServerName;
    std::map<qvstring, AlarmState> m_Alarms;
    // The range, as far as it has come: how many records, the first and the last of them, steps that leave one out or go
    // back, and the last records, which are to be shown.
    std::size_t m_Count = 0;
    Sample m_First{};
    Sample m_Last{};
    unsigned long long m_Gaps = 0;
    std::deque<Sample> m_Shown;
    bool m_bReading = false;
    std::function<void(const Sample&)> m_OnLive = [](const Sample&) {};
    std::function<void(const qvstring&)> m_OnAlarm = [](const qvstring&) {};
    unsigned long long m_Skipped = 0;
    qvstring m_Refusal;
    std::string m_Problem;
    bool m_bLoggedOn = false;

private:
    void OnConnected() override {
        Message logon(MessageLogon);
        logon << WireVersion << static_cast<unsigned char>(RoleClient) << m_Options.m_User << m_Password;
        Send(logon);
        logon.SecureClearBuffer();
    }

    void OnMessage(unsigned char type, FrameInput& in) override {
        if ((type == MessageLogonReply) == m_bLoggedOn)
            throw ProtocolError("a message of type " + std::to_string(type) + " is out of place");
        TakeMessage(type, in);
        in.ExpectEnd();
    }

    void TakeMessage(unsigned char type, FrameInput& in) {
        switch (type) {
        case MessageLogonReply:
            return TakeLogonReply(in);
        case MessageRecords:
            return TakeRecords(in);
        case MessageLiveRecord: {
            Sample sample;
            unsigned int skipped = 0;
            in >> skipped;
            in.Read(&sample, sizeof sample);
            m_Skipped += skipped;
            return m_OnLive(sample);
        }
        case MessageAlarm:
            return TakeAlarm(in);
        case MessageRefusal: {
            unsigned char request = 0;
            unsigned int number = 0;
            in >> request >> number;
            m_Refusal = ReadText(in);
            return;
        }
        case MessageFarewell:
            m_Problem = "farewell: " + ReadText(in);
            return;
        default:
            throw ProtocolError("a message of type " + std::to_string(type));
        }
    }

    // A text for a terminal: what controls one does not come from elsewhere.
    static qvstring ReadText(FrameInput& in) {
        qvstring text;
        in.ReadWString(MaxNameLength, text);
        for (char& c : text)
            c = (c >= 0 && c < ' ') || c == 0x7F ? '?' : c;
        return text;
    }

    void OnEnded(const std::string& reason) override {
        if (!m_bRefused && (m_Problem.empty() || !m_bLoggedOn))
            m_Problem = m_bNotInCharge ? "the main is in charge, and not to be reached" : reason;
        m_bLoggedOn = m_bNotInCharge = false;
    }

    void TakeLogonReply(FrameInput& in) {
        unsigned char result = LogonRefused;
        in >> result;
        const qvstring text = ReadText(in);
        if (result == LogonNotInCharge) {
            m_bNotInCharge = true;
            return;
        }
        m_bRefused = result != LogonAccepted;
        if (m_bRefused) {
            m_Problem = "refused: " + text;
            return;
        }
        m_ServerName = ReadText(in);
        m_Access.LoadAccessContext(AccessContextVersion, in);
        unsigned int count = 0;
        in >> count;
        if (count != TagCount)
            throw ProtocolError("other tags than expected");
        m_Tags.resize(count);
        m_Units.resize(count);
        m_Formats.assign(count, DecimalFormat());
        for (unsigned int i = 0; i < count; i++) {
            m_Tags[i] = ReadText(in);
            m_Units[i] = ReadText(in);
            const qvstring pattern = ReadText(in);
            TextInputQVString input(pattern, "pattern");
            if (m_Formats[i].ParseDecimalFormat(&input) != 0)
                throw ProtocolError("a pattern that is none");
        }
        m_Problem.clear();
        m_bLoggedOn = true;
    }

    void TakeRecords(FrameInput& in) {
        unsigned int number = 0;
        bool bLast = false;
        unsigned int count = 0;
        in >> number >> bLast >> count;
        if (!m_bReading || number != ReadNumber)
            throw ProtocolError("records that were not asked for");
        for (; count != 0; count--) {
            Sample sample;
            in.Read(&sample, sizeof sample);
            if (m_Count++ == 0)
                m_First = sample;
            else if (sample.m_Sequence != m_Last.m_Sequence + 1 || sample.m_Time <= m_Last.m_Time)
                m_Gaps++;
            m_Last = sample;
            m_Shown.push_back(sample);
            if (m_Shown.size() > m_Options.m_Limit)
                m_Shown.pop_front();
        }
        m_bReading = !bLast;
    }

    void TakeAlarm(FrameInput& in) {
        const qvstring name = ReadText(in);
        if (m_Alarms.size() >= MaxAlarms && !m_Alarms.contains(name))
            throw ProtocolError("too many alarms");
        AlarmState& alarm = m_Alarms[name];
        in >> alarm.m_Zone;
        alarm.m_Colour = ReadText(in);
        in >> alarm.m_State >> alarm.m_Time;
        alarm.m_User = ReadText(in);
        m_OnAlarm(name);
    }

    const ClientOptions& m_Options;
    const CQVSecureWString& m_Password;
    CClientAccessContext m_Access;
    std::vector<qvstring> m_Tags;
    std::vector<qvstring> m_Units;
    std::vector<DecimalFormat> m_Formats;
    QVWakeEvent m_Stop{QVWakeEvent::OrStopSignals};
    bool m_bRefused = false;
    bool m_bNotInCharge = false;
};

// The alarms and the last records as a document for an office program.
bool ExportRtf(const Client& client, const CQVFilePath& path) {
    CRTFOutput rtf;
    const auto addLine = [&rtf](const qvstring& line) {
        rtf.Print((line + "\n").c_str(), static_cast<unsigned int>(line.size() + 1));
    };
    rtf.SetUnderline(true);
    addLine("Alarms of " + client.m_ServerName);
    rtf.SetUnderline(false);
    for (const auto& [name, alarm] : client.m_Alarms) {
        CColourValue colour;
        if (alarm.m_State != 1 && colour.ParseText(alarm.m_Colour))
            rtf.SetColour(colour.GetColour());
        addLine(client.ToText(name, alarm));
        rtf.SetColour(QVColourRGB(0, 0, 0));
    }
    rtf.SetUnderline(true);
    addLine("Records");
    rtf.SetUnderline(false);
    rtf.SetFontSize(9);
    for (const Sample& sample : client.m_Shown)
        addLine(client.ToText(sample));
    qvstring document;
    rtf.GenerateRTF(document);
    CTextOutputFile file;
    if (!file.OpenTextFileForReplace(path))
        return false;
    file.WriteBytes(reinterpret_cast<const unsigned char*>(document.data()),
                    static_cast<unsigned int>(document.size()));
    return file.CloseTextFile();
}

int Read(Client& client, const ClientOptions& options) {
    client.LogOn();
    CQVTimestamp from;
    from.SetUTC();
    from += CQVTimeInterval(-static_cast<long long>(options.m_Last * CQVTimeInterval::UnitsPerSecond));
    Message request(MessageRead);
    request << ReadNumber;
    request.WriteInt64(from.GetValue());
    request.WriteInt64(LLONG_MAX);
    const auto start = Clock::now();
    client.m_bReading = true;
    client.Request(request);
    const auto bDone = [&] { return !client.m_bReading || !client.m_Refusal.empty() || !client.IsActive(); };
    if (!client.Wait(Client::After(options.m_Timeout), bDone) || !client.IsActive())
        throw Failure(ExitUnreachable,
                      client.m_Problem.empty() ? "the answer takes too long" : client.m_Problem);
    if (!client.m_Refusal.empty())
        throw Failure(ExitRefused, "refused: " + client.m_Refusal);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();

    for (const Sample& sample : client.m_Shown)
        std::printf("%s\n", client.ToText(sample).c_str());
    if (!options.m_RtfFile.empty() && !ExportRtf(client, CQVFilePath(options.m_RtfFile)))
        throw Failure(ExitUnreachable, "'" + options.m_RtfFile + "' cannot be written");
    const double megabytes = static_cast<double>(client.m_Count * sizeof(Sample)) / 1e6;
    std::printf("%s: %zu records, sequence %llu to %llu, gaps %llu, %.2f MB in %.3f s, %.1f MB/s\n",
                client.m_ServerName.c_str(), client.m_Count, client.m_First.m_Sequence,
                client.m_Last.m_Sequence, client.m_Gaps, megabytes, seconds, megabytes / seconds);
    return client.m_Gaps == 0 ? 0 : ExitRefused;
}

int Follow(Client& client, const ClientOptions& options) {
    const auto end = Client::After(options.m_For);
    unsigned long long count = 0;
    unsigned long long last = 0;
    unsigned int lost = 0;
    client.m_OnLive = [&](const Sample& sample) {
        count++;
        last = sample.m_Sequence;
        if (options.m_Limit != 0)
            std::printf("%s\n", client.ToText(sample).c_str());
    };
    client.m_OnAlarm = [&](const qvstring& name) {
        std::printf("alarm %s\n", client.ToText(name, client.m_Alarms[name]).c_str());
    };
    while (Clock::now() < end) {
        try {
            client.LogOn();
        } catch (const Failure& failure) {
            if (failure.m_ExitCode != ExitUnreachable || Clock::now() < end)
                throw;
            break;
        }
        client.m_Refusal.clear();
        Message request(MessageFollow);
        request << true;
        client.Request(request);
        client.Wait(end, [&] { return !client.IsActive() || !client.m_Refusal.empty(); });
        if (!client.m_Refusal.empty()) { // a standby's; the main may be back soon
            client.Wait(std::min(end, Client::After(0.5)), [&] { return !client.IsActive(); });
            client.Disconnect();
            client.m_bLoggedOn = false;
        } else if (!client.IsActive()) {
            lost++;
            std::printf("connection lost: %s\n", client.m_Problem.c_str());
        }
        std::fflush(stdout);
    }
    std::printf("followed: %llu live values, the last of sequence %llu, skipped %llu, connections lost %u\n",
                count, last, client.m_Skipped, lost);
    return 0;
}

int ShowAlarms(Client& client, const ClientOptions& options) {
    client.LogOn();
    if (!options.m_Alarm.empty()) {
        Message request(MessageAcknowledge);
        request << options.m_Alarm;
        client.Request(request);
        const auto bDone = [&] {
            return client.m_Alarms[options.m_Alarm].m_State == 7 || !client.m_Refusal.empty() ||
                   !client.IsActive();
        };
        if (!client.Wait(Client::After(options.m_Timeout), bDone) || !client.IsActive())
            throw Failure(ExitUnreachable,
                          client.m_Problem.empty() ? "the answer takes too long" : client.m_Problem);
        if (!client.m_Refusal.empty())
            throw Failure(ExitRefused, "refused: " + client.m_Refusal);
    }
    for (const auto& [name, alarm] : client.m_Alarms)
        std::printf("%s\n", client.ToText(name, alarm).c_str());
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    ClientOptions options;
    CLI::App app("Reads, follows and acknowledges as an operator of the plant does.");
    app.require_subcommand(1);
    app.fallthrough();
    app.add_option("--server", options.m_Servers, "HOST:PORT; the main, then its standby")->required();
    app.add_option("--ca", options.m_TrustFile, "Certificate of the plant's authority")->required();
    app.add_option("--user", options.m_User, "Who logs on")->required();
    app.add_option("--timeout", options.m_Timeout, "Seconds to wait for a server")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 1e9));
    app.add_option("--limit", options.m_Limit,
                   "Show so many records at most, the last ones; live values: 0 for none");
    CLI::App& read = *app.add_subcommand("read", "Read what was recorded");
    read.add_option("--last", options.m_Last, "Seconds to go back")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 1e9));
    read.add_option("--rtf", options.m_RtfFile,
                    "Write alarms and records into this file, for office programs");
    CLI::App& follow = *app.add_subcommand("follow", "Follow live values and alarms");
    follow.add_option("--for", options.m_For, "Seconds")->capture_default_str()->check(CLI::Range(0.0, 1e9));
    app.add_subcommand("alarms", "Show the alarms");
    CLI::App& acknowledge = *app.add_subcommand("acknowledge", "Acknowledge an alarm");
    acknowledge.add_option("ALARM", options.m_Alarm, "Its name")->required();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }

    qv_catch_stop_signals();
    std::signal(SIGPIPE, SIG_IGN);
    try {
        CQVSecureWString password;
        if (!qv_read_password("Password: ", password))
            throw Failure(2, "there is no password");
        COutputLogToString problems;
        OpenSSLContext context(false);
        if (!context.SetTrustFile(CQVFilePath(options.m_TrustFile), &problems))
            throw Failure(2, "'" + options.m_TrustFile + "' holds no certificate to trust\n" +
                                 problems.GetString());
        Client client(context, options, password);
        const int result = read.parsed()     ? Read(client, options)
                           : follow.parsed() ? Follow(client, options)
                                             : ShowAlarms(client, options);
        client.Leave();
        return result;
    } catch (const Failure& failure) {
        std::fprintf(stderr, "plant_client: %s\n", failure.what());
        return failure.m_ExitCode;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "plant_client: %s\n", error.what());
        return ExitUnreachable;
    }
}
