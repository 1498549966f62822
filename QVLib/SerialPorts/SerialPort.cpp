#include <QVLib/SerialPorts/SerialPort.h>

#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/Error.h>
#include <QVPlatform/Format.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/SerialDevice.h>

namespace {

// The name of a port with '_' for '/', without the slashes in front.
qvstring MakePortKey(const qvstring& name) {
    qvstring key;
    for (const char character : name) {
        if (character != '/')
            key.push_back(character);
        else if (!key.empty())
            key.push_back('_');
    }
    return key;
}

unsigned long ErrorNumber(int error) {
    return static_cast<unsigned int>(error);
}

} // namespace

QVSerialPort::~QVSerialPort() {
    RequireClosedPort();
}

void QVSerialPort::RequireClosedPort() const {
    // Spelt as those expect it who look for it in what a process printed last.
    // clang-format off
    QV_ASSERT(! IsPortOpen());
    // clang-format on
}

QVSerialPortResult QVSerialPort::OpenPort(const qvstring& name, bool nonBlocking) {
    RequireClosedPort();
    if (name.empty()) {
        ReportPortOpenError("Port name is not configured", 0, nullptr);
        return QVSerialPortNotConfigured;
    }
    Trace("Opening port '%s'...", name.c_str());
    int handle = -1;
    if (const int error = QVSerialDevice::Open(name, handle); error != 0) {
        ReportPortOpenError("Cannot open port", error, "open( '%s' )", name.c_str());
        return QVSerialPortOpenFailed;
    }
    if (QVSerialDevice::Lock(handle) != 0) {
        PrintErrorUnlessDone(QVSerialDevice::Close(handle), "close()");
        ReportPortOpenError("Cannot lock port", QVSerialDevice::Busy, "flock( '%s' )", name.c_str());
        return QVSerialPortOpenFailed;
    }
    m_hPort = handle;
    m_bPortOpen = true;
    m_PortName = name;
    m_PortKey = MakePortKey(name);
    Trace("Port Handle %d", m_hPort);
    PrintErrorUnlessDone(QVSerialDevice::SetExclusive(m_hPort, true), "ioctl( TIOCEXCL )");
    PrintErrorUnlessDone(QVSerialDevice::Discard(m_hPort), "tcflush()");
    if (nonBlocking)
        PrintErrorUnlessDone(QVSerialDevice::SetNonBlocking(m_hPort), "ioctl()");
    return QVSerialPortSuccess;
}

QVSerialPortResult QVSerialPort::SetPortMode(const qvstring& mode) {
    Trace("Set mode: %s", mode.c_str());
    TextInputQVString input(mode, "Mode");
    COutputLogToRawList log;
    CSerialModeStringParser parser(&input, &log);
    if (!m_ModeString.ParseString(parser)) {
        if (const COutputLogToRawList::LogEntry* const entry = log.GetFirstLogEntry())
            Trace("%s", entry->text.c_str());
        ReportPortOpenError("Invalid mode string", 0, nullptr);
        return QVSerialPortInvalidMode;
    }
    Trace("Baud rate %u, Data bits per byte %d", m_ModeString.GetBaudRate(),
          static_cast<int>(m_ModeString.GetTotalBitsPerCharacter()));
    return SetSerialPortMode(m_ModeString) ? QVSerialPortSuccess : QVSerialPortInvalidMode;
}

bool QVSerialPort::SetSerialPortMode(const CSerialModeString& mode) {
    QVTerminalAttributes attributes;
    if (const int error = QVSerialDevice::GetAttributes(m_hPort, attributes); error != 0)
        return CloseRefusedPort("Unexpected error", error, "tcgetattr()");
    LogTermios("tcgetattr() returns", attributes.Get());
    mode.ApplyToTermios(attributes.Get());
    LogTermios("Input to tcsetattr()", attributes.Get());
    if (const int error = QVSerialDevice::SetAttributes(m_hPort, attributes); error != 0)
        return CloseRefusedPort("Mode string not supported", error, "tcsetattr()");
    return true;
}

bool QVSerialPort::CloseRefusedPort(const char* summary, int error, const char* function) {
    ClosePort();
    ReportPortOpenError(summary, error, "%s", function);
    return false;
}

void QVSerialPort::ClosePort() {
    if (!m_bPortOpen)
        return;
    Trace("Closing port handle %d", m_hPort);
    // A terminal whose other end stays open would go on refusing others. Only while the lock is held, so that
    // no other process loses its exclusiveness. On a line that is gone both fail, and there is nothing to
    // give back.
    QVSerialDevice::SetExclusive(m_hPort, false);
    QVSerialDevice::Unlock(m_hPort);
    const int error = QVSerialDevice::Close(m_hPort);
    m_hPort = -1;
    m_PortName.clear();
    m_PortKey.clear();
    m_bPortOpen = false;
    PrintErrorUnlessDone(error, "close()");
}

unsigned int QVSerialPort::GetSerialTransmissionTimeMS(unsigned int byteCount) const {
    QV_ASSERT(m_ModeString.GetBaudRate() != 0);
    return byteCount * m_ModeString.GetTotalBitsPerCharacter() * 1000u / m_ModeString.GetBaudRate();
}

void QVSerialPort::ReportPortOpenError(const char* summary, int error, const char* functionFormat, ...) {
    va_list arguments;
    va_start(arguments, functionFormat);
    ReportPortOpenErrorVA(summary, error, functionFormat, arguments);
    va_end(arguments);
}

void QVSerialPort::ReportPortOpenErrorVA(const char* summary, int error, const char* functionFormat,
                                         va_list arguments) {
    Trace("%s", summary);
    qv_strcpy(m_szErrorSummary, sizeof m_szErrorSummary, summary);
    m_nErrorCode = error;
    m_szErrorFunction[0] = '\0';
    m_szErrorMessage[0] = '\0';
    m_nErrorFunctionLength = 0;
    m_nErrorMessageLength = 0;
    if (functionFormat == nullptr)
        return;
    m_nErrorFunctionLength =
        static_cast<int>(qv_vsprintf(m_szErrorFunction, sizeof m_szErrorFunction, functionFormat, arguments));
    m_nErrorMessageLength =
        static_cast<int>(QVFormatMessage(error, m_szErrorMessage, sizeof m_szErrorMessage));
    Trace("%s returns error %lu: %s", m_szErrorFunction, ErrorNumber(error), m_szErrorMessage);
}

void QVSerialPort::PrintFunctionError(int error, const char* functionFormat, ...) {
    char function[256];
    va_list arguments;
    va_start(arguments, functionFormat);
    qv_vsprintf(function, sizeof function, functionFormat, arguments);
    va_end(arguments);
    char message[256];
    QVFormatMessage(error, message, sizeof message);
    Trace("IO: %s Failed. Error %lu: %s", function, ErrorNumber(error), message);
}

void QVSerialPort::PrintErrorUnlessDone(int error, const char* function) {
    if (error != 0)
        PrintFunctionError(error, "%s", function);
}

void QVSerialPort::LogTermios(const char* title, const termios* attributes) {
    const QVTerminalWords words = qv_get_terminal_words(*attributes);
    char characters[129];
    unsigned int length = 0;
    for (const unsigned int character : words.m_ControlCharacters)
        length += qv_sprintf_with_elipsis(characters + length, sizeof characters - length,
                                          length == 0 ? "%u" : " %u", character);
    Trace("%s for %s:", title, m_PortName.c_str());
    Trace("\tc_iflag:  0x%08X", words.m_InputModes);
    Trace("\tc_oflag:  0x%08X", words.m_OutputModes);
    Trace("\tc_cflag:  0x%08X", words.m_ControlModes);
    Trace("\tc_lflag:  0x%08X", words.m_LocalModes);
    Trace("\tc_cc:     %s", characters);
    Trace("\tc_ispeed: 0x%08X", words.m_InputSpeed);
    Trace("\tc_ospeed: 0x%08X", words.m_OutputSpeed);
}
