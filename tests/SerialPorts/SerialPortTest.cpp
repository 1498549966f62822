#include "support/ChildProcess.h"
#include "support/FaultSystemCalls.h"
#include <QVLib/SerialPorts/SerialPortAsync.h>
#include <QVPlatform/Format.h>
#include <QVPlatform/SerialDevice.h>
#include <QVPlatform/Socket.h>
#include <cstdarg>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// A driver that notes what it is told. Trace lines and events are apart.
class TestPort : public QVSerialPortAsync {
public:
    ~TestPort() { ClosePort(); }

    void Trace(const char* format, ...) override __attribute__((format(printf, 2, 3))) {
        va_list arguments;
        va_start(arguments, format);
        qv_vsprintf(m_Line, sizeof m_Line, format, arguments);
        va_end(arguments);
        m_Trace.push_back(m_Line);
    }
    void OnDataReceived(unsigned int count, const unsigned char* data) override {
        EXPECT_EQ(data, m_ReadBuffer);
        m_Received.append(reinterpret_cast<const char*>(data), count);
        m_Events.push_back("received " + std::to_string(count));
    }
    void OnModemLinesChanged(unsigned int, unsigned int) override {}
    void OnWriteComplete(unsigned int count) override {
        EXPECT_FALSE(m_bWritePending);
        m_Events.push_back("written " + std::to_string(count));
        if (!m_Next.empty()) {
            m_Current = std::exchange(m_Next, "");
            Send(m_Current);
        }
    }
    void OnIOError(int error, const char* format, ...) override __attribute__((format(printf, 3, 4))) {
        va_list arguments;
        va_start(arguments, format);
        qv_vsprintf(m_Line, sizeof m_Line, format, arguments);
        va_end(arguments);
        m_Events.push_back(m_Line + (" " + std::to_string(error)));
    }

    // `data` must outlive the request.
    void Send(const std::string& data) {
        WriteSerialData(static_cast<unsigned int>(data.size()),
                        reinterpret_cast<const unsigned char*>(data.data()));
    }
    // A driver's event loop, until `done` holds. False when nothing happens for ten seconds.
    template<typename Done>
    bool RunUntil(Done done) {
        while (!done()) {
            const unsigned int events =
                m_bWritePending ? QVSocket::Readable | QVSocket::Writable : QVSocket::Readable;
            QVHandleInterest line{m_hPort, events};
            if (qv_wait_for_handles({&line, 1}, 10'000) != QVWaitResult::Ready)
                return false;
            if ((line.m_Ready & QVSocket::Writable) != 0)
                WriteNextDataBlock();
            if ((line.m_Ready & QVSocket::Readable) != 0)
                DoUnixRead();
        }
        return true;
    }
    std::vector<std::string> TakeEvents() { return std::exchange(m_Events, {}); }
    std::vector<std::string> TakeTrace() { return std::exchange(m_Trace, {}); }

    std::string m_Received;
    std::string m_Next; // written when the current request is complete

private:
    char m_Line[512];
    std::vector<std::string> m_Trace;
    std::vector<std::string> m_Events;
    std::string m_Current;
};

class SerialPort : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_Pty.Create()) << m_Pty.GetLastError(); }

    void Open(const char* mode = "BAUD=115200") {
        ASSERT_EQ(m_Port.OpenAsyncPort(m_Pty.GetName()), QVSerialPortSuccess) << m_Port.m_szErrorMessage;
        ASSERT_EQ(m_Port.SetPortMode(mode), QVSerialPortSuccess) << m_Port.m_szErrorMessage;
        m_Port.TakeTrace();
    }
    void ExpectClosed() const {
        EXPECT_FALSE(m_Port.IsPortOpen());
        EXPECT_EQ(m_Port.m_hPort, -1);
        EXPECT_EQ(m_Port.m_PortName, "");
        EXPECT_EQ(m_Port.m_PortKey, "");
    }
    // The error record; the numbers must fit the texts.
    std::string Record() const {
        EXPECT_EQ(m_Port.m_nErrorFunctionLength, static_cast<int>(strlen(m_Port.m_szErrorFunction)));
        EXPECT_EQ(m_Port.m_nErrorMessageLength, static_cast<int>(strlen(m_Port.m_szErrorMessage)));
        return std::string(m_Port.m_szErrorSummary) + "|" + std::to_string(m_Port.m_nErrorCode) + "|" +
               m_Port.m_szErrorFunction + "|" + m_Port.m_szErrorMessage;
    }
    speed_t GetDeviceSpeed() const {
        QVTerminalAttributes attributes;
        EXPECT_EQ(QVSerialDevice::GetAttributes(m_Port.m_hPort, attributes), 0);
        return cfgetospeed(attributes.Get());
    }
    std::string ReceiveFromPort(std::size_t count) {
        std::string text;
        char bytes[4096];
        for (int part = 1; text.size() < count && part > 0;) {
            part = m_Pty.ReceiveData(bytes, sizeof bytes);
            text.append(bytes, static_cast<std::size_t>(std::max(part, 0)));
        }
        return text;
    }

    QVPseudoTerminal m_Pty;
    TestPort m_Port;
};

TEST_F(SerialPort, OpensSetsItsModeAndCloses) {
    ExpectClosed();
    EXPECT_EQ(Record(), "|0||");
    m_Port.ClosePort();
    const std::string name = m_Pty.GetName();
    ASSERT_EQ(m_Port.OpenPort(name, false), QVSerialPortSuccess);
    EXPECT_TRUE(m_Port.IsPortOpen());
    const std::string handle = std::to_string(m_Port.m_hPort);
    EXPECT_EQ(m_Port.m_PortName, name);
    EXPECT_EQ(m_Port.m_PortKey, "dev_pts_" + name.substr(9));
    EXPECT_THAT(m_Port.TakeTrace(), ElementsAre("Opening port '" + name + "'...", "Port Handle " + handle));

    EXPECT_EQ(m_Port.SetPortMode("BAUD=1200 STOP=2"), QVSerialPortSuccess);
    const std::vector<std::string> trace = m_Port.TakeTrace();
    ASSERT_EQ(trace.size(), 18u);
    EXPECT_EQ(trace[0], "Set mode: BAUD=1200 STOP=2");
    EXPECT_EQ(trace[1], "Baud rate 1200, Data bits per byte 11");
    EXPECT_EQ(trace[2], "tcgetattr() returns for " + name + ":");
    EXPECT_EQ(trace[10], "Input to tcsetattr() for " + name + ":");
    EXPECT_EQ(trace[11], "\tc_iflag:  0x00000000");
    EXPECT_EQ(trace[12], "\tc_oflag:  0x00000000");
    EXPECT_EQ(trace[13], "\tc_cflag:  0x000008F9"); // two stop bits, no carrier needed
    EXPECT_THAT(trace[14], HasSubstr("\tc_lflag:  0x000"));
    EXPECT_THAT(trace[15], testing::MatchesRegex("\tc_cc:     [0-9]+( [0-9]+){31}"));
    EXPECT_EQ(trace[16], "\tc_ispeed: 0x00000009");
    EXPECT_EQ(trace[17], "\tc_ospeed: 0x00000009");
    EXPECT_EQ(GetDeviceSpeed(), speed_t{B1200});

    // A mode of its own is not kept.
    EXPECT_TRUE(m_Port.SetSerialPortMode(CSerialModeString()));
    EXPECT_EQ(GetDeviceSpeed(), speed_t{B9600});
    EXPECT_EQ(m_Port.m_ModeString.GetBaudRate(), 1200u);
    EXPECT_EQ(m_Port.GetSerialTransmissionTimeMS(12), 110u);
    m_Port.TakeTrace();
    m_Port.ClosePort();
    EXPECT_THAT(m_Port.TakeTrace(), ElementsAre("Closing port handle " + handle));
    ExpectClosed();
    EXPECT_EQ(m_Port.OpenPort(name, false), QVSerialPortSuccess) << "closing must free the device";
}

TEST_F(SerialPort, TransmissionTimesAreRoundedDownAndWrapIn32Bits) {
    EXPECT_EQ(m_Port.GetSerialTransmissionTimeMS(10), 10u);
    m_Port.m_ModeString.m_BaudRate = 115200;
    EXPECT_EQ(m_Port.GetSerialTransmissionTimeMS(1), 0u);
    EXPECT_EQ(m_Port.GetSerialTransmissionTimeMS(429'496), 37282u);
    EXPECT_EQ(m_Port.GetSerialTransmissionTimeMS(429'497), 0u);
    m_Port.m_ModeString.m_BaudRate = 0;
    EXPECT_DEATH(m_Port.GetSerialTransmissionTimeMS(1), "GetBaudRate\\(\\) != 0");
}

TEST_F(SerialPort, MisuseFailsAnAssertion) {
    struct Careless : QVSerialPort {
        void Trace(const char*, ...) override {}
    };
    EXPECT_DEATH(Careless().OpenPort(m_Pty.GetName(), false), "! IsPortOpen\\(\\)");
    Open();
    EXPECT_DEATH(m_Port.OpenPort(m_Pty.GetName(), false), "! IsPortOpen\\(\\)");
}

TEST_F(SerialPort, FailedOpeningsAreRecordedAndLeaveThePortClosed) {
    EXPECT_EQ(m_Port.OpenPort("", false), QVSerialPortNotConfigured);
    EXPECT_THAT(m_Port.TakeTrace(), ElementsAre("Port name is not configured"));
    const std::string missing = "/nowhere/" + std::string(100, 'x');
    EXPECT_EQ(m_Port.OpenPort(missing, false), QVSerialPortOpenFailed);
    EXPECT_EQ(Record(),
              "Cannot open port|2|" + ("open( '" + missing).substr(0, 79) + "|No such file or directory");
    EXPECT_EQ(m_Port.TakeTrace().at(1), "Cannot open port");
    EXPECT_EQ(m_Port.OpenPort(m_Pty.GetName() + '\0', false), QVSerialPortOpenFailed);
    ExpectClosed();
    EXPECT_EQ(m_Port.OpenPort("", false), QVSerialPortNotConfigured);
    EXPECT_EQ(Record(), "Port name is not configured|0||") << "nothing may be left of an older error";
    m_Port.ReportPortOpenError(std::string(200, 's').c_str(), 99999, "%s", "call");
    EXPECT_EQ(Record(), std::string(79, 's') + "|99999|call|Error 99999");
}

TEST_F(SerialPort, AnotherProcessKeepsThePortUntilItDies) {
    ChildProcess holder([&](const ChildProcess::Report& report) {
        int handle = -1;
        const int error = QVSerialDevice::Open(m_Pty.GetName(), handle);
        report(error != 0 ? error : QVSerialDevice::Lock(handle));
        QVHandleInterest line{m_Pty.GetHandle(), QVSocket::Readable};
        qv_wait_for_handles({&line, 1}, -1);
    });
    long long error = -1;
    ASSERT_TRUE(holder.ReadReport(error));
    ASSERT_EQ(error, 0);
    EXPECT_EQ(m_Port.OpenPort(m_Pty.GetName(), false), QVSerialPortOpenFailed);
    EXPECT_STREQ(m_Port.m_szErrorSummary, "Cannot lock port");
    EXPECT_TRUE(holder.Kill());
    EXPECT_EQ(m_Port.OpenPort(m_Pty.GetName(), false), QVSerialPortSuccess);
}

// Root may open it all the same, so the device is asked.
TEST_F(SerialPort, AnOpenPortIsExclusiveAndAClosedOneIsNot) {
    int handle = -1;
    ASSERT_EQ(QVSerialDevice::Open(m_Pty.GetName(), handle), 0);
    int exclusive = 0;
    ASSERT_EQ(m_Port.OpenPort(m_Pty.GetName(), false), QVSerialPortSuccess);
    ASSERT_EQ(qv_real_system().ioctl(handle, TIOCGEXCL, &exclusive), 0);
    EXPECT_EQ(exclusive, 1);
    m_Port.ClosePort();
    ASSERT_EQ(qv_real_system().ioctl(handle, TIOCGEXCL, &exclusive), 0);
    EXPECT_EQ(exclusive, 0);
    EXPECT_EQ(QVSerialDevice::Close(handle), 0);
}

TEST_F(SerialPort, AWrongModeStringLeavesThePortOpenAndTheDeviceAlone) {
    Open("BAUD=300");
    EXPECT_EQ(m_Port.SetPortMode("BAUD=9600 PARITY=Q"), QVSerialPortInvalidMode);
    EXPECT_THAT(m_Port.TakeTrace(),
                ElementsAre("Set mode: BAUD=9600 PARITY=Q",
                            "Mode(1,18-19): error 750: Parity=Q, invalid value. Allowed values are: "
                            "N, O, E, M, S, EVEN_P, ODD_P.",
                            "Invalid mode string"));
    EXPECT_EQ(Record(), "Invalid mode string|0||");
    EXPECT_EQ(m_Port.m_ModeString.GetBaudRate(), 9600u);
    EXPECT_EQ(m_Port.SetPortMode("STOP="), QVSerialPortInvalidMode);
    EXPECT_THAT(m_Port.TakeTrace(), ElementsAre("Set mode: STOP=", "Invalid mode string"));
    EXPECT_EQ(GetDeviceSpeed(), speed_t{B300});
}

TEST_F(SerialPort, FailingCallsEndWhatTheyMust) {
    const std::string name = m_Pty.GetName();
    {
        FaultSystemCalls system;
        system.FailAt(SystemCall::Lock, 1, EIO); // whatever it says, the port counts as busy
        EXPECT_EQ(m_Port.OpenPort(name, false), QVSerialPortOpenFailed);
        EXPECT_EQ(Record(), "Cannot lock port|16|flock( '" + name + "' )|Device or resource busy");
        EXPECT_EQ(system.GetCount(SystemCall::Close), 1u);
        ExpectClosed();
        m_Port.TakeTrace();

        system.FailAt(SystemCall::Discard, 1, EIO);
        system.FailAt(SystemCall::Control, 2, ENODEV);
        EXPECT_EQ(m_Port.OpenAsyncPort(name), QVSerialPortSuccess);
        const std::vector<std::string> trace = m_Port.TakeTrace();
        ASSERT_EQ(trace.size(), 4u);
        EXPECT_EQ(trace[2], "IO: tcflush() Failed. Error 5: Input/output error");
        EXPECT_EQ(trace[3], "IO: ioctl() Failed. Error 19: No such device");
        EXPECT_EQ(m_Port.m_nErrorCode, EBUSY) << "the record is of openings that failed";
        m_Port.ClosePort();
        system.FailFrom(SystemCall::Control, 1, ENOTTY); // no terminal, nothing to be exclusive about
        EXPECT_EQ(m_Port.OpenPort(name, false), QVSerialPortSuccess);
        EXPECT_EQ(m_Port.TakeTrace().size(), 3u); // with the closing
        system.FailAt(SystemCall::Close, 1, EIO);
        m_Port.ClosePort();
        EXPECT_EQ(m_Port.TakeTrace().back(), "IO: close() Failed. Error 5: Input/output error");
        ExpectClosed();
    }
    const struct {
        unsigned int call;
        const char* record;
    } refused[] = {{SystemCall::GetAttributes, "Unexpected error|5|tcgetattr()|Input/output error"},
                   {SystemCall::SetAttributes, "Mode string not supported|5|tcsetattr()|Input/output error"}};
    for (const auto& c : refused) {
        ASSERT_EQ(m_Port.OpenPort(name, false), QVSerialPortSuccess);
        FaultSystemCalls system;
        system.FailAt(c.call, 1, EIO);
        system.FailFrom(SystemCall::Close | SystemCall::Lock, 1, EBADF); // must not get into the record
        EXPECT_EQ(m_Port.SetPortMode(""), QVSerialPortInvalidMode);
        EXPECT_EQ(Record(), c.record);
        ExpectClosed();
    }
}

TEST_F(SerialPort, BytesArriveOneByOneOrManyAtOnce) {
    ASSERT_TRUE(m_Pty.SendData("old", 3)); // from before the opening: thrown away
    Open();
    m_Port.DoUnixRead(); // nothing there: nothing happens
    EXPECT_THAT(m_Port.TakeEvents(), IsEmpty());
    std::string all;
    for (int i = 0; i < 600; ++i)
        all += static_cast<char>(i); // every byte passes, line ends and control characters too
    std::thread peer([&] {
        for (const char byte : all)
            ASSERT_TRUE(m_Pty.SendData(&byte, 1));
    });
    EXPECT_TRUE(m_Port.RunUntil([&] { return m_Port.m_Received.size() == all.size(); }));
    peer.join();
    EXPECT_EQ(m_Port.m_Received, all);
    m_Port.TakeEvents();

    ASSERT_TRUE(m_Pty.SendData(all.data(), 300));
    EXPECT_TRUE(m_Port.RunUntil([&] { return m_Port.m_Received.size() == all.size() + 300; }));
    EXPECT_EQ(m_Port.TakeEvents().front(), "received 256");
    EXPECT_EQ(m_Port.m_Received, all + all.substr(0, 300));
}

TEST_F(SerialPort, AFullDeviceMakesTheWriteWaitAndTheNextOneFollows) {
    Open();
    m_Port.WriteSerialData(0, nullptr);
    EXPECT_THAT(m_Port.TakeEvents(), ElementsAre("written 0"));
    std::string large;
    for (int i = 0; i < 200'000; ++i)
        large += static_cast<char>(i * 7 + i / 256);
    m_Port.m_Next = "the next one";
    m_Port.Send(large); // the peer stalls
    EXPECT_TRUE(m_Port.m_bWritePending);
    EXPECT_GT(m_Port.m_nWritten, 0u);
    EXPECT_THAT(m_Port.TakeEvents(), IsEmpty());
    std::string got;
    std::thread peer([&] { got = ReceiveFromPort(large.size() + 12); });
    EXPECT_TRUE(m_Port.RunUntil([&] { return m_Port.m_Next.empty() && !m_Port.m_bWritePending; }));
    peer.join();
    EXPECT_TRUE(got == large + "the next one");
    EXPECT_THAT(m_Port.TakeEvents(), ElementsAre("written 200000", "written 12"));
}

TEST_F(SerialPort, WritesInPartsAndFailuresAreToldApart) {
    Open();
    const std::string text = "0123456789";
    FaultSystemCalls system;
    system.FailAt(SystemCall::Write, 2, EAGAIN);
    system.PartAt(SystemCall::Write, 1, 4);
    m_Port.Send(text);
    EXPECT_TRUE(m_Port.m_bWritePending);
    EXPECT_EQ(m_Port.m_nWritten, 4u);
    EXPECT_THAT(m_Port.TakeEvents(), IsEmpty());
    m_Port.WriteNextDataBlock();
    EXPECT_THAT(m_Port.TakeEvents(), ElementsAre("written 10"));
    EXPECT_EQ(ReceiveFromPort(10), text);

    // A device that takes nothing is full; a signal changes nothing.
    system.PartAt(SystemCall::Write, 1, 0);
    m_Port.Send(text);
    EXPECT_TRUE(m_Port.m_bWritePending);
    system.InterruptEverySecond(SystemCall::Write | SystemCall::Read);
    m_Port.WriteNextDataBlock();
    ASSERT_TRUE(m_Pty.SendData("a", 1));
    m_Port.DoUnixRead();
    EXPECT_THAT(m_Port.TakeEvents(), ElementsAre("written 10", "received 1"));
    system.Heal();

    // An error ends the waiting.
    system.FailAt(SystemCall::Write, 3, EIO);
    system.FailAt(SystemCall::Write, 2, EAGAIN);
    system.PartAt(SystemCall::Write, 1, 4);
    m_Port.Send(text);
    EXPECT_TRUE(m_Port.m_bWritePending);
    m_Port.WriteNextDataBlock();
    EXPECT_FALSE(m_Port.m_bWritePending);
    system.FailAt(SystemCall::Read, 1, EIO);
    m_Port.DoUnixRead();
    EXPECT_THAT(m_Port.TakeEvents(), ElementsAre("write( 6 ) 5", "read( 256 ) 5"));

    system.FailAt(SystemCall::SendBreak, 1, EINTR);
    m_Port.WriteBreak(100);
    EXPECT_THAT(m_Port.TakeTrace(),
                ElementsAre("IO: tcsendbreak() Failed. Error 4: Interrupted system call"));
    m_Port.WriteBreak(100);
    EXPECT_THAT(m_Port.TakeTrace(), IsEmpty());
    EXPECT_EQ(system.GetCount(SystemCall::SendBreak), 2u);

    // A request does not outlive the port.
    system.FailAt(SystemCall::Write, 1, EAGAIN);
    m_Port.Send(text);
    m_Port.ClosePort();
    ASSERT_EQ(m_Port.OpenAsyncPort(m_Pty.GetName()), QVSerialPortSuccess);
    EXPECT_FALSE(m_Port.m_bWritePending);
    EXPECT_EQ(m_Port.m_nWriteLength, 0u);
}

TEST_F(SerialPort, AHangUpIsToldAndTheModeIsRefused) {
    Open();
    ASSERT_TRUE(m_Pty.SendData("end", 3));
    EXPECT_TRUE(m_Port.RunUntil([&] { return m_Port.m_Received == "end"; }));
    m_Port.TakeEvents();
    m_Pty.HangUp();
    EXPECT_TRUE(
        m_Port.RunUntil([&] { return m_Port.TakeEvents() == std::vector<std::string>{"received 0"}; }));
    m_Port.Send("x");
    EXPECT_THAT(m_Port.TakeEvents(), ElementsAre("write( 1 ) 5"));
    EXPECT_EQ(m_Port.SetPortMode(""), QVSerialPortInvalidMode);
    EXPECT_STREQ(m_Port.m_szErrorFunction, "tcgetattr()");
    ExpectClosed();
}

} // namespace
