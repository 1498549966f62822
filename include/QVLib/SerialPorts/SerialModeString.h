// CSerialModeString - the settings of a serial port, as one line of text and as a terminal's attributes.
//
//     CSerialModeString mode;
//     TextInputQVString input(text, "Mode");           // "BAUD=19200 PARITY=E DATA=8 STOP=1"
//     CSerialModeStringParser parser(&input, &log);
//     if (mode.ParseString(parser))
//         ...
//
// Language: KEYWORD=VALUE pairs, separated by blanks or line ends, in any order and any case. What is not
//           given keeps its default; what is given twice keeps the later value. docs/serial-mode-strings.md
//           is the engineer's manual.
//
//           BAUD    bits per second, from 1     RTS   ON OFF HS TG   RTS line; HS handshake, TG toggle
//           DATA    8 7 6 5                     DTR   ON OFF HS      DTR line
//           PARITY  N O E M S EVEN_P ODD_P      XON   OFF ON         XON/XOFF flow control
//           STOP    1 2                         IDSR  OFF ON         input only while DSR is on
//                                               OCTS  OFF ON         output only while CTS is on
//                                               ODSR  OFF ON         output only while DSR is on
//
// Device:   BAUD, DATA, PARITY, STOP and OCTS reach it. The others are kept, printed and read back for those
//           who drive the lines themselves; software flow control is always off. Only the rates of
//           GetUnixBaudRatConstant() reach it; all others become 19200.
// Errors:   go to the parser's log with their place: 101, 750, 751 and 752. Nothing is thrown.
// Threads:  one thread at a time.
#pragma once

#include <QVLib/Parsing/ParseContext.h>

class CTextOutput;
struct termios;

enum SerialModeTokenType : int {
    SerialModeKeywordBaud = 300,
    SerialModeKeywordData = 301,
    SerialModeKeywordParity = 302,
    SerialModeKeywordStop = 303,
    SerialModeKeywordRts = 304,
    SerialModeKeywordDtr = 305,
    SerialModeKeywordXon = 306,
    SerialModeKeywordOcts = 307,
    SerialModeKeywordOdsr = 308,
    SerialModeKeywordIdsr = 309,
};

// Reads the tokens of a mode string; its log gets the messages and its error count decides.
class CSerialModeStringParser : public CParseContext {
public:
    CSerialModeStringParser(CTextInput* input, COutputLog* log);

    // Reads the next token behind blanks and line ends. Letters, digits and underscores that follow a letter
    // without a gap are one token ("EVEN_P"; but a digit behind an underscore begins the next one), and a
    // keyword has its type.
    void GetSerialModeToken(CParseToken& token);
};

class CSerialModeString {
public:
    // What a keyword's value may be. The first row that fits counts.
    struct OptionValue {
        const char* m_pKeyword;     // the word in a mode string
        const char* m_pDescription; // what to show to people
        unsigned int m_Value;       // what is stored
    };
    struct OptionValueSet {
        const char* m_pName; // of the field, in messages
        const OptionValue* m_pValues;
        unsigned int m_nValues;
    };

    CSerialModeString() = default;
    void SetSerialModeStringToDefaults() { *this = CSerialModeString(); }

    // Reads a whole mode string over the defaults. True when it is valid, which is when the parser has
    // counted no error: take a new parser for each text. Else the fields hold what was valid before the first
    // fault of form; behind a value that is none, reading goes on, so that there may be several messages. One
    // fault has none: a text that ends where a value should stand.
    bool ParseString(CSerialModeStringParser& parser);

    // Set a field from the text of its value. Text that is no value changes nothing, and nobody is told.
    void SetBaudRate(const qvstring& value);
    void SetDataBits(const qvstring& value);
    void SetParity(const qvstring& value);
    void SetStopBits(const qvstring& value);

    // Makes this the mode in which a zero byte looks like a break to a line of mode `mode`: `divisor` times
    // slower, 8 data bits, no parity, one stop bit, RTS and DTR on, no flow control. `divisor` is not 0;
    // above the rate it gives rate 0, which no line has.
    void SetSerialModeStringForSendingBreak(const CSerialModeString& mode, int divisor);

    unsigned int GetBaudRate() const { return m_BaudRate; }
    // Start, data, parity and stop bits: 10 for 8 data bits without parity and one stop bit.
    unsigned int GetTotalBitsPerCharacter() const;
    // The terminal's constant for the rate: 75, 110, 150, 300, 600, 1200, 2400, 4800, 9600, 19200, 38400,
    // 57600 or 115200. Every other rate has that of 19200.
    unsigned int GetUnixBaudRatConstant() const;

    // Writes the settings into attributes that a terminal has at present (see "Device" above). The terminal
    // becomes raw: no echo, no signals, no translation, reading returns with the first byte.
    void ApplyToTermios(termios* attributes) const;

    // Writes the settings as a mode string that reads back the same; with `all` also the flags that are off
    // and the lines that are always on.
    void Print(CTextOutput& out, bool all) const;

    // Steps of ParseString(). ParseAttributeValue() reads the "=" and the value behind a keyword; false ends
    // the parse. ProcessKeywordValuePair() stores a value in the field of `keyword`, a SerialModeTokenType,
    // or reports it.
    bool ParseAttributeValue(CSerialModeStringParser& parser, CParseToken& value);
    void ProcessKeywordValuePair(CSerialModeStringParser& parser, int keyword, const CParseToken& value);
    void ParseBaud(CSerialModeStringParser& parser, const CParseToken& value);
    void ParseData(CSerialModeStringParser& parser, const CParseToken& value);
    void ParseParity(CSerialModeStringParser& parser, const CParseToken& value);
    void ParseStop(CSerialModeStringParser& parser, const CParseToken& value);
    void ParseRts(CSerialModeStringParser& parser, const CParseToken& value);
    void ParseDtr(CSerialModeStringParser& parser, const CParseToken& value);
    void ParseXon(CSerialModeStringParser& parser, const CParseToken& value);
    void ParseOcts(CSerialModeStringParser& parser, const CParseToken& value);
    void ParseOdsr(CSerialModeStringParser& parser, const CParseToken& value);
    void ParseIdsr(CSerialModeStringParser& parser, const CParseToken& value);
    // Finds the token's text in `set`. False, with a message and `value` left alone, when it is not there.
    static bool LookupAttributeValue(CSerialModeStringParser& parser, const CParseToken& token,
                                     const OptionValueSet* set, unsigned int& value);

    unsigned int m_BaudRate = 9600;
    unsigned char m_ByteSize = 8;
    unsigned int m_StopBits = 0;   // 0 one, 2 two
    unsigned int m_Parity = 0;     // 0 none, 1 odd, 2 even, 3 mark, 4 space
    unsigned int m_RTSControl = 1; // 0 off, 1 on, 2 handshake, 3 toggle
    unsigned int m_DTRControl = 1; // 0 off, 1 on, 2 handshake
    bool m_bXONControl = false;
    bool m_bIDSRControl = false;
    bool m_bOCTSControl = false;
    bool m_bODSRControl = false;
};

extern const CSerialModeString::OptionValueSet g_ByteSizeValues;
extern const CSerialModeString::OptionValueSet g_StopBitValues;
extern const CSerialModeString::OptionValueSet g_ParityValues;
extern const CSerialModeString::OptionValueSet g_RTSControlValues;
extern const CSerialModeString::OptionValueSet g_DTRControlValues;
extern const CSerialModeString::OptionValueSet g_XONControlValues;
extern const CSerialModeString::OptionValueSet g_IDSRControlValues;
extern const CSerialModeString::OptionValueSet g_OCTSControlValues;
extern const CSerialModeString::OptionValueSet g_ODSRControlValues;
