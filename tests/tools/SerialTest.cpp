// The commands of `qv serial`, the talking one over a pseudo terminal with a device at its other end.

#include "QvProgram.h"
#include "SerialPortList.h"

#include "support/ChildProcess.h"

#include <QVPlatform/SerialDevice.h>

#include <filesystem>
#include <gmock/gmock.h>
#include <thread>

using testing::HasSubstr;

namespace {

class Serial : public QvProgram {
protected:
    void SetUp() override { ASSERT_TRUE(m_Device.Create()) << m_Device.GetLastError(); }

    // What the device gets, up to and with `last`; a device that is hung up ends it.
    std::string Receive(char last) {
        std::string text;
        char byte;
        while (m_Device.ReceiveData(&byte, 1) == 1) {
            text += byte;
            if (byte == last)
                break;
        }
        return text;
    }
    void Send(const std::string& bytes) {
        EXPECT_TRUE(m_Device.SendData(bytes.data(), static_cast<unsigned int>(bytes.size())));
    }

    QVPseudoTerminal m_Device;
};

TEST_F(Serial, CheckShowsTheModeAndWhatReachesTheDevice) {
    EXPECT_EQ(Do("serial check 'baud=1200 parity=odd_p stop=2 octs=on xon=on rts=tg' --csv"),
              "key,value,meaning,device\n"
              "BAUD,1200,1200 bits per second,yes\n"
              "PARITY,O,Odd,yes\n"
              "DATA,8,8,yes\n"
              "STOP,2,Two,yes\n"
              "OCTS,ON,Suspend TX,yes\n"
              "DTR,ON,Always On,no\n"
              "RTS,TG,Toggle,no\n"
              "XON,ON,On,no\n"
              "IDSR,OFF,Off,no\n"
              "ODSR,OFF,Ignore,no\n");
    EXPECT_THAT(Do("serial check ''"), HasSubstr("10 bits on the line; 1000 of them take 1042 ms.\n"));
    EXPECT_EQ(Do("serial check 'BAUD=19200' --json").substr(0, 31), R"({"key":"BAUD","value":"19200",")");

    const Result slow = Run("serial check 'DATA=8 BAUD=1800'");
    EXPECT_EQ(slow.m_ExitCode, 1);
    EXPECT_THAT(slow.m_Out, HasSubstr("as 19200"));
    EXPECT_EQ(slow.m_Error, "MODE(1,13-17): warning: the device has no rate of 1800 and will use 19200\n"
                            "  1 | DATA=8 BAUD=1800\n"
                            "    |             ^^^^\n");
}

TEST_F(Serial, CheckPointsAtWhatIsWrong) {
    const Result result = Run("serial check 'BAUD=fast STOP=1'");
    EXPECT_EQ(result.m_ExitCode, 1);
    EXPECT_EQ(result.m_Out, "");
    EXPECT_EQ(result.m_Error, "MODE(1,6-10): error 752: 'fast', invalid baud rate.\n"
                              "  1 | BAUD=fast STOP=1\n"
                              "    |      ^^^^\n");
    EXPECT_EQ(Run("serial check 'STOP=2 BAUD='").m_Error,
              "MODE(1,13-14): error: the text ends where a value should stand\n"
              "  1 | STOP=2 BAUD=\n"
              "    |             ^\n");
    EXPECT_THAT(Run("--json serial check STOP=3").m_Error,
                HasSubstr(R"("line":1,"column":6,"end_column":7,"kind":"error","number":750)"));
    EXPECT_EQ(Run("serial check").m_ExitCode, 2);
}

// A kernel's folders with a port of the board, an empty socket, a console, and two devices on USB.
TEST_F(Serial, PortsAreFoundWithWhatIsBehindThem) {
    const auto makePort = [&](const std::string& name, const std::string& folder, const std::string& driver) {
        namespace fs = std::filesystem;
        const std::string root = m_Folder.GetPath() + "/sys/";
        fs::create_directories(root + "devices/" + folder);
        fs::create_directories(root + "drivers/" + driver);
        fs::create_directories(root + "class/tty/" + name);
        fs::create_symlink(root + "devices/" + folder, root + "class/tty/" + name + "/device");
        fs::create_symlink(root + "drivers/" + driver, root + "devices/" + folder + "/driver");
    };
    makePort("ttyUSB10", "usb/1-1/1-1:1.0/ttyUSB10", "ftdi_sio");
    makePort("ttyUSB9", "usb/1-2/1-2:1.0/ttyUSB9", "pl2303");
    makePort("ttyS0", "pnp/00:00/00:00.0", "port");
    makePort("ttyS1", "pnp/00:01/00:01.0", "port");
    std::filesystem::create_symlink(m_Folder.GetPath() + "/sys/drivers/serial",
                                    m_Folder.GetPath() + "/sys/devices/pnp/00:00/driver");
    std::filesystem::create_directories(m_Folder.GetPath() + "/sys/class/tty/tty1");
    m_Folder.Write("sys/class/tty/ttyS0/type", "4\n");
    m_Folder.Write("sys/class/tty/ttyS1/type", "0\n");
    m_Folder.Write("sys/devices/usb/1-1/idVendor", "0403\n");
    m_Folder.Write("sys/devices/usb/1-1/product", "Wire\n");
    m_Folder.Write("sys/devices/usb/1-1/serial", "A1\n");
    m_Folder.Write("sys/devices/usb/1-2/idVendor", "067b\n");
    m_Folder.Write("sys/devices/usb/1-2/idProduct", "2303\n");
    std::string found;
    for (const SerialPortEntry& port : FindSerialPorts(m_Folder.GetPath() + "/sys"))
        found += port.m_Port + "|" + port.m_Driver + "|" + port.m_Device + "\n";
    EXPECT_EQ(found, "/dev/ttyS0|serial|\n/dev/ttyUSB9|pl2303|067b:2303\n/dev/ttyUSB10|ftdi_sio|Wire A1\n");
    EXPECT_TRUE(FindSerialPorts(m_Folder.GetPath() + "/nowhere").empty());
    EXPECT_EQ(Run("serial ports").m_ExitCode, 0);
}

TEST_F(Serial, TalkCarriesBothWaysAndEndsWithItsInput) {
    std::string got;
    std::thread device([&] {
        got = Receive('\n');
        Send("17.5\r\n\x01\"");
    });
    const std::string json = Do("--json serial talk " + m_Device.GetName() + " 'BAUD=9600' --line-end crlf",
                                "printf 'temp?\\n' |");
    device.join();
    EXPECT_EQ(got, "temp?\r\n");
    EXPECT_THAT(json,
                HasSubstr(R"("direction":"sent","bytes":7,"hex":"74656d703f0d0a","text":"temp?\\r\\n"})"));
    EXPECT_THAT(json, HasSubstr(R"("direction":"received")"));

    // Every byte passes, more than the device holds at a time too.
    std::string large;
    for (int i = 0; i < 100'000; ++i)
        large += static_cast<char>(5 + i % 251); // every byte above the one that ends it
    large += '\x04';
    m_Folder.Write("large", large);
    std::thread echo([&] {
        got = Receive('\x04');
        Send(got);
    });
    const std::string raw = Do("serial talk " + m_Device.GetName() + " '' --raw <large");
    echo.join();
    EXPECT_TRUE(got == large);
    EXPECT_TRUE(raw == large);
}

TEST_F(Serial, TalkEndsWithAStopSignalOrWhenTheLineIsGone) {
    // Its input stays open and says nothing, so that only the signal ends it.
    const std::string output = m_Folder.GetPath() + "/talk.txt";
    {
        ChildProgram talk(
            {"/bin/sh", "-c",
             "exec '" QV_PROGRAM "' serial talk " + m_Device.GetName() + " BAUD=300 </dev/zero"},
            output);
        char byte = 1;
        EXPECT_EQ(m_Device.ReceiveData(&byte, 1), 1); // it is open and at work
        EXPECT_EQ(byte, 0);
        EXPECT_EQ(talk.Stop(), 0);
    }
    EXPECT_THAT(m_Folder.Read("talk.txt"), HasSubstr(" sent      1024  \\x00\\x00"));

    std::thread device([&] {
        Receive('\n');
        m_Device.HangUp();
    });
    const Result result = Run("serial talk " + m_Device.GetName() + " ''", "printf 'x\\n' |");
    device.join();
    EXPECT_EQ(result.m_ExitCode, 3);
    EXPECT_THAT(result.m_Error, HasSubstr("the line is gone"));
}

TEST_F(Serial, TalkTellsWhyAPortCannotBeUsed) {
    const Result missing = Run("serial talk /nowhere/tty ''");
    EXPECT_EQ(missing.m_ExitCode, 3);
    EXPECT_EQ(missing.m_Error, "qv: error: '/nowhere/tty': Cannot open port: No such file or directory\n");
    const std::string talk = "serial talk " + m_Device.GetName();
    EXPECT_EQ(Run(talk + " PARITY=Q").m_ExitCode, 2);
    EXPECT_EQ(Run(talk + " '' --linger soon").m_ExitCode, 2);

    int handle = -1;
    ASSERT_EQ(QVSerialDevice::Open(m_Device.GetName(), handle), 0);
    ASSERT_EQ(QVSerialDevice::Lock(handle), 0);
    const Result locked =
        Fails(3, talk + " '' --trace", " ) returns error 16: Device or resource busy\nqv: error: '");
    EXPECT_THAT(locked.m_Error,
                HasSubstr("': Cannot lock port: Device or resource busy; another program has the port\n"));
    EXPECT_EQ(QVSerialDevice::Close(handle), 0);
}

} // namespace
