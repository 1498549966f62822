// The library's messages: the resource module that holds their texts, and a name for each number.
//
// Texts are printf-style; the arguments that each asks for stand behind its name here, and hold for every
// language. English has every text, German only the month and day names.
// Threads: constants, ready before the first constructor runs.
#pragma once

#include <QVPlatform/Module.h>

extern const CQVModule g_LibModule;

namespace QVMessage {

// Parsing (%s each: the text found, then what was expected; 104, 105 and 108 the other way round).
constexpr unsigned int UnexpectedToken = 101;      // found, expected
constexpr unsigned int UnexpectedTokenOf2 = 102;   // found, expected, expected
constexpr unsigned int UnexpectedTokenOf3 = 103;   // found, expected, expected, expected
constexpr unsigned int MissingTokenBefore = 104;   // missing, found
constexpr unsigned int MissingTokenAfter = 105;    // missing, found
constexpr unsigned int SyntaxError = 106;          // found
constexpr unsigned int UnexpectedExtraToken = 107; // found
constexpr unsigned int MissingKeywordBefore = 108; // keyword, found
constexpr unsigned int ExpectedOneOf = 109;        // found, list

// Sockets.
constexpr unsigned int UnableToCreateSocket = 111;
constexpr unsigned int ConnectFailed = 112;
constexpr unsigned int ReadFailed = 113;
constexpr unsigned int WriteFailed = 114;
constexpr unsigned int GetPeerNameFailed = 115;
constexpr unsigned int ConnectWithoutSocket = 116;
constexpr unsigned int ConnectionClosed = 117;       // %s peer
constexpr unsigned int ConnectionShutDown = 118;     // %s peer
constexpr unsigned int SecureConnectionClosed = 119; // %s peer
constexpr unsigned int PeerCertificateRefused = 120; // %s peer, %s reason

// Alarm states: the first of eight, and the text for a state that does not exist.
constexpr unsigned int FirstAlarmState = 210;
constexpr unsigned int InvalidAlarmState = 218;

// Months, days (Sunday first) and the two halves of a day: the first number of each row.
constexpr unsigned int FirstShortMonth = 500;
constexpr unsigned int FirstLongMonth = 512;
constexpr unsigned int FirstShortDay = 524;
constexpr unsigned int FirstLongDay = 531;
constexpr unsigned int BeforeNoon = 538;
constexpr unsigned int AfterNoon = 539;

// Serial mode strings and OPC item names.
constexpr unsigned int SerialValueInvalid = 750;     // %s name, %s value, %s allowed values
constexpr unsigned int SerialParameterInvalid = 751; // %s parameter
constexpr unsigned int SerialBaudRateInvalid = 752;  // %s rate
constexpr unsigned int OpcKeywordInvalid = 753;      // %s keyword
constexpr unsigned int OpcOffsetInvalid = 754;       // %s offset

// JSONata.
constexpr unsigned int ExpectedPrimary = 900;     // %s found
constexpr unsigned int LeftSideNotNumeric = 901;  // %s operator
constexpr unsigned int RightSideNotNumeric = 902; // %s operator
constexpr unsigned int CannotNegate = 903;
constexpr unsigned int SidesNotComparable = 904;   // %s operator
constexpr unsigned int SidesOfDifferentType = 905; // %s operator
constexpr unsigned int EscapedNameNotTerminated = 906;
constexpr unsigned int FunctionNotRecognized = 907; // %s function

// Colours, text styles and user rights.
constexpr unsigned int ColourFormatInvalid = 950; // %s value
constexpr unsigned int NamedColourNotFound = 951; // %s name
constexpr unsigned int ColourInvalid = 952;       // %s value
constexpr unsigned int TextStylesNotSupported = 953;
constexpr unsigned int TextStylesSaveAgain = 954;
constexpr unsigned int TooManyGradientStops = 955;      // %d maximum
constexpr unsigned int GradientOffsetInvalid = 956;     // %s offset
constexpr unsigned int GradientOffsetOutOfRange = 957;  // %g offset
constexpr unsigned int GradientPercentOutOfRange = 958; // %g offset in percent
constexpr unsigned int UpgradeApplication = 959;
constexpr unsigned int RightsZoneInvalid = 960; // %s zone
// Held for programs that number their messages as this library does; the library itself never raises it.
constexpr unsigned int RightsNotSupported = 961;

} // namespace QVMessage
