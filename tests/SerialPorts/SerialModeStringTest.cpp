#include "support/FaultSystemCalls.h" // brings the terminal structure and its flags
#include <QVLib/SerialPorts/SerialModeString.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVLib/TextStreams/TextOutputString.h>
#include <gtest/gtest.h>

namespace {

constexpr char Usual[] = "Baud=9600 Parity=N Data=8 Stop=1";

std::string Printed(const CSerialModeString& mode, bool all = false) {
    CTextOutputString out;
    mode.Print(out, all);
    return out.GetString();
}

struct Parsed {
    explicit Parsed(const std::string& text) {
        m_Mode.m_bODSRControl = true; // reading begins with the defaults
        TextInputQVString input(text, "m");
        COutputLogToString log;
        CSerialModeStringParser parser(&input, &log);
        m_bValid = m_Mode.ParseString(parser);
        m_Messages = log.GetString();
    }

    CSerialModeString m_Mode;
    bool m_bValid;
    std::string m_Messages;
};

TEST(SerialModeString, ValidTextsGiveTheirSettings) {
    const struct {
        const char* text;
        const char* printed;
        unsigned int bits;
    } cases[] = {
        {" \n\t\r\n", Usual, 10},
        {"baud=19200 parity=e data=7 stop=2", "Baud=19200 Parity=E Data=7 Stop=2", 11},
        {"RTS=TG\nDTR = hs XON=on IDSR=ON OCTS=On ODSR=oN DATA=5 PARITY=ODD_P",
         "Baud=9600 Parity=O Data=5 Stop=1 Dtr=Hs Rts=Tg Xon=On Idsr=On Octs=On Odsr=On", 8},
        {"STOP=2 PARITY=S DTR=OFF RTS=OFF STOP=1 PARITY=even_p DATA=6 XON=ON XON=OFF",
         "Baud=9600 Parity=E Data=6 Stop=1 Dtr=Off Rts=Off", 9},
        {"RTS=HS DTR=HS DTR=ON PARITY=M BAUD=4294967295 IDSR=OFF OCTS=OFF ODSR=OFF",
         "Baud=4294967295 Parity=M Data=8 Stop=1 Rts=Hs", 11},
        {"RTS=OFF RTS=ON BAUD=0075PARITY=S", "Baud=75 Parity=S Data=8 Stop=1", 11},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const Parsed parsed(c.text);
        EXPECT_TRUE(parsed.m_bValid);
        EXPECT_EQ(parsed.m_Messages, "");
        EXPECT_EQ(Printed(parsed.m_Mode), c.printed);
        EXPECT_EQ(parsed.m_Mode.GetTotalBitsPerCharacter(), c.bits);
    }
    EXPECT_EQ(Printed(Parsed("").m_Mode, true),
              std::string(Usual) + " Dtr=On Rts=On Xon=Off Idsr=Off Octs=Off Odsr=Off");
    EXPECT_EQ(Parsed("RTS=HS").m_Mode.m_RTSControl, 2u);
    EXPECT_EQ(Parsed("RTS=TG").m_Mode.m_RTSControl, 3u);
    EXPECT_EQ(Parsed("DTR=HS").m_Mode.m_DTRControl, 2u);
}

TEST(SerialModeString, FaultsAreReportedAtTheirPlaceAndLeaveWhatWasValid) {
    const struct {
        const char* text;
        const char* messages;
        const char* printed; // what the settings are then
    } cases[] = {
        {"BAUD=300, DATA=7", "m(1,9-10): error 751: ',', invalid serial port mode parameter.\n",
         "Baud=300 Parity=N Data=8 Stop=1"},
        {"DATA=7\n WORD=1", "m(2,2-6): error 751: 'WORD', invalid serial port mode parameter.\n",
         "Baud=9600 Parity=N Data=7 Stop=1"},
        {"BAUD=0 BAUD=fast BAUD=4294967296 DATA=7",
         "m(1,6-7): error 752: '0', invalid baud rate.\n"
         "m(1,13-17): error 752: 'fast', invalid baud rate.\n"
         "m(1,23-33): error 752: '4294967296', invalid baud rate.\n",
         "Baud=9600 Parity=N Data=7 Stop=1"},
        {"BAUD==9600",
         "m(1,6-7): error 752: '=', invalid baud rate.\n"
         "m(1,7-11): error 751: '9600', invalid serial port mode parameter.\n",
         Usual},
        {"BAUD 9600", "m(1,6-10): error 101: Found '9600' when expecting '='.\n", Usual},
        {"STOP=2 BAUD", "m(1,12-12): error 101: Found 'End of File' when expecting '='.\n",
         "Baud=9600 Parity=N Data=8 Stop=2"},
        {"STOP=2 BAUD= ", "", "Baud=9600 Parity=N Data=8 Stop=2"},
        {"PARITY=EVEN DTR=TG DATA=08 STOP=EVEN_1",
         "m(1,8-12): error 750: Parity=EVEN, invalid value. Allowed values are: N, O, E, M, S, EVEN_P, "
         "ODD_P.\n"
         "m(1,17-19): error 750: Dtr=TG, invalid value. Allowed values are: ON, OFF, HS.\n"
         "m(1,25-27): error 750: Data=08, invalid value. Allowed values are: 8, 7, 6, 5.\n"
         "m(1,33-38): error 750: Stop=EVEN_, invalid value. Allowed values are: 1, 2.\n"
         "m(1,38-39): error 751: '1', invalid serial port mode parameter.\n",
         Usual},
        {"RTS=DATA XON=1 IDSR=X OCTS=X ODSR=X STOP=2",
         "m(1,5-9): error 750: Rts=DATA, invalid value. Allowed values are: ON, OFF, HS, TG.\n"
         "m(1,14-15): error 750: Xon=1, invalid value. Allowed values are: OFF, ON.\n"
         "m(1,21-22): error 750: Idsr=X, invalid value. Allowed values are: OFF, ON.\n"
         "m(1,28-29): error 750: Octs=X, invalid value. Allowed values are: OFF, ON.\n"
         "m(1,35-36): error 750: Odsr=X, invalid value. Allowed values are: OFF, ON.\n",
         "Baud=9600 Parity=N Data=8 Stop=2"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const Parsed parsed(c.text);
        EXPECT_FALSE(parsed.m_bValid);
        EXPECT_EQ(parsed.m_Messages, c.messages);
        EXPECT_EQ(Printed(parsed.m_Mode), c.printed);
    }
}

TEST(SerialModeString, LoneValuesAreStoredOrLeftAlone) {
    CSerialModeString mode;
    mode.SetBaudRate(" 1200 ");
    mode.SetDataBits("7");
    mode.SetParity("odd_p");
    mode.SetStopBits("2");
    for (const char* const text : {"", "Q", "=", "99999999999", "0"}) {
        mode.SetBaudRate(text);
        mode.SetDataBits(text);
        mode.SetParity(text);
        mode.SetStopBits(text);
        EXPECT_EQ(Printed(mode), "Baud=1200 Parity=O Data=7 Stop=2") << text;
    }
    mode.m_bOCTSControl = true;
    mode.m_RTSControl = 3;
    mode.SetSerialModeStringForSendingBreak(mode, 7);
    EXPECT_EQ(Printed(mode), "Baud=171 Parity=N Data=8 Stop=1");
    mode.SetSerialModeStringForSendingBreak(mode, -1);
    EXPECT_EQ(mode.GetBaudRate(), 0u);
}

// Of a field that no table gives, nothing is printed and nothing changes.
TEST(SerialModeString, UnknownValuesArePassedOver) {
    CSerialModeString mode;
    mode.m_StopBits = 1;
    mode.m_Parity = 5;
    mode.m_DTRControl = 3;
    mode.m_RTSControl = 4;
    EXPECT_EQ(Printed(mode, true), "Baud=9600 Data=8 Xon=Off Idsr=Off Octs=Off Odsr=Off");
    EXPECT_EQ(mode.GetTotalBitsPerCharacter(), 12u);
    termios attributes{};
    attributes.c_cflag = PARENB | CMSPAR | CSTOPB;
    mode.ApplyToTermios(&attributes);
    EXPECT_EQ(attributes.c_cflag & (PARENB | PARODD | CMSPAR | CSTOPB), PARENB | CMSPAR);
}

TEST(SerialModeString, RatesHaveTheTerminalsConstants) {
    const struct {
        unsigned int rate;
        speed_t constant;
    } cases[] = {{75, B75},       {110, B110},     {150, B150},       {300, B300},      {600, B600},
                 {1200, B1200},   {2400, B2400},   {4800, B4800},     {9600, B9600},    {19200, B19200},
                 {38400, B38400}, {57600, B57600}, {115200, B115200}, {230400, B19200}, {1800, B19200}};
    for (const auto& c : cases) {
        CSerialModeString mode;
        mode.m_BaudRate = c.rate;
        EXPECT_EQ(mode.GetUnixBaudRatConstant(), c.constant) << c.rate;
    }
}

TEST(SerialModeString, AttributesAreThoseOfARawLine) {
    constexpr tcflag_t Line = CSIZE | CSTOPB | PARENB | PARODD | CMSPAR | CRTSCTS | CREAD | CLOCAL;
    const struct {
        const char* text;
        tcflag_t control;
    } cases[] = {
        {"", CS8},
        {"DATA=7 PARITY=O", CS7 | PARENB | PARODD},
        {"DATA=6 PARITY=E STOP=2", CS6 | PARENB | CSTOPB},
        {"DATA=5 PARITY=M", CS5 | PARENB | PARODD | CMSPAR},
        {"PARITY=S OCTS=ON", CS8 | PARENB | CMSPAR | CRTSCTS},
        {"XON=ON DTR=HS RTS=HS IDSR=ON ODSR=ON", CS8},
    };
    for (const auto& c : cases) {
        // All bits off or on; the C library uses the highest one itself.
        for (const tcflag_t before : {tcflag_t{0}, ~tcflag_t{0} >> 1}) {
            SCOPED_TRACE(testing::Message() << c.text << " over " << before);
            termios attributes{};
            attributes.c_iflag = attributes.c_oflag = attributes.c_cflag = attributes.c_lflag = before;
            attributes.c_cc[VMIN] = attributes.c_cc[VTIME] = attributes.c_cc[VSTART] = 9;
            Parsed(c.text).m_Mode.ApplyToTermios(&attributes);
            EXPECT_EQ(cfgetospeed(&attributes), speed_t{B9600});
            EXPECT_EQ(cfgetispeed(&attributes), speed_t{B9600});
            EXPECT_EQ(attributes.c_cflag & (Line | HUPCL), c.control | CREAD | CLOCAL | (before & HUPCL));
            const tcflag_t cleared =
                IGNBRK | BRKINT | IGNPAR | ISTRIP | INLCR | IGNCR | ICRNL | IXON | IXANY | IXOFF;
            EXPECT_EQ(attributes.c_iflag, before & ~cleared);
            EXPECT_EQ(attributes.c_oflag, 0u);
            EXPECT_EQ(attributes.c_lflag, before & ~tcflag_t{ISIG | ICANON | ECHO | ECHONL | IEXTEN});
            EXPECT_EQ(attributes.c_cc[VMIN], 1);
            EXPECT_EQ(attributes.c_cc[VTIME], 0);
            EXPECT_EQ(attributes.c_cc[VSTART], 9);
        }
    }
}

} // namespace
