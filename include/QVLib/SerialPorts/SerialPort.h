// QVSerialPort - a serial port of the machine: opened by name, kept from other processes, set up from a mode
// string. Abstract: a driver derives from it and says where trace lines go.
//
//     class MeterPort : public QVSerialPort {
//     public:
//         ~MeterPort() { ClosePort(); }
//         void Trace(const char* format, ...) override;
//     };
//
//     if (port.OpenPort("/dev/ttyS0", false) != QVSerialPortSuccess ||
//         port.SetPortMode("BAUD=19200 PARITY=E") != QVSerialPortSuccess)
//         show(port.m_szErrorSummary, port.m_szErrorFunction, port.m_szErrorMessage);
//
// For an event loop take QVSerialPortAsync.
//
// States:   closed -> OpenPort() -> open -> SetPortMode(), any number of times -> ClosePort() -> closed. A
//           mode that the device refuses closes the port; a mode string that is wrong does not.
// Alone:    an open port holds the lock that programs agree on (flock), and where the device knows it the
//           system refuses others (TIOCEXCL; root it does not), so that who comes second fails at locking or
//           already at opening, with EBUSY both times. Both end with ClosePort(). A process that ends without
//           it leaves no lock, but the system goes on refusing while any other program has the device open.
// Waiting:  the device is opened blocking. One that is set to need a carrier makes OpenPort() wait for it; a
//           signal whose handler does not restart calls ends that, as EINTR. Closing waits for what is
//           written and not sent, as long as the system's setting for the device says (closing_wait, usually
//           up to 30 s): on a line whose other side holds the output back, that is the whole of it.
// Errors:   the result, a trace line, and the error record: the members from m_szErrorSummary to
//           m_nErrorMessageLength tell of the last failed opening or setting, and stay until the next one.
//           Texts that are longer than their room are cut.
// Threads:  one thread at a time.
#pragma once

#include <QVLib/SerialPorts/SerialModeString.h>
#include <QVPlatform/String.h>
#include <cstdarg>

enum QVSerialPortResult : int {
    QVSerialPortSuccess = 0,
    QVSerialPortNotConfigured = 1, // the port name is empty
    QVSerialPortInvalidMode = 2,   // the mode string is wrong, or the device refused it
    QVSerialPortOpenFailed = 4,    // the device could not be opened or locked
};

class QVSerialPort {
public:
    QVSerialPort() = default;
    QVSerialPort(const QVSerialPort&) = delete;
    QVSerialPort& operator=(const QVSerialPort&) = delete;

    // Takes a line about what the port does, without a line end.
    virtual void Trace(const char* format, ...) __attribute__((format(printf, 2, 3))) = 0;

    // Opens, locks and empties the device `name`; with `nonBlocking`, reading and writing no longer wait. The
    // port must be closed. The device keeps the terminal settings that it had until a mode is set. After a
    // failure everything is as it was before, but for the error record.
    QVSerialPortResult OpenPort(const qvstring& name, bool nonBlocking);
    // Reads a mode string into m_ModeString and gives it to the device. The port must be open. A wrong text
    // is traced with its first message; m_ModeString then holds what was read of it, the device is as it was
    // and the port stays open. A mode that the device does not take closes the port.
    QVSerialPortResult SetPortMode(const qvstring& mode);
    // Gives the device a mode that is not kept in m_ModeString. False when the device does not take it; the
    // port is closed then.
    bool SetSerialPortMode(const CSerialModeString& mode);
    // Does nothing on a closed port.
    void ClosePort();
    bool IsPortOpen() const { return m_bPortOpen; }

    // The milliseconds, rounded down, that the line needs for so many characters in the mode of m_ModeString,
    // whose rate must not be 0. Computed in 32 bits: right up to 357,913 bytes (12 bits per character).
    unsigned int GetSerialTransmissionTimeMS(unsigned int byteCount) const;

    // Traces a failure and keeps it in the error record. `functionFormat` and its arguments are printf's and
    // say which call failed with errno `error`; null when none did, and the record then has neither call nor
    // system text.
    void ReportPortOpenError(const char* summary, int error, const char* functionFormat, ...);
    // Traces a failed call that ends nothing. The error record stays.
    void PrintFunctionError(int error, const char* functionFormat, ...) __attribute__((format(printf, 3, 4)));
    // Traces a terminal's attributes, one line for each.
    void LogTermios(const char* title, const termios* attributes);

    qvstring m_PortName; // of the open port; empty while closed
    qvstring m_PortKey;  // the same, fit for a file name: "dev_ttyS0" for "/dev/ttyS0"
    char m_szErrorSummary[80] = {};
    char m_szErrorFunction[80] = {}; // the call that failed
    int m_nErrorFunctionLength = 0;
    int m_nErrorCode = 0;           // its errno
    char m_szErrorMessage[80] = {}; // the system's text for that
    int m_nErrorMessageLength = 0;
    CSerialModeString m_ModeString; // the last one that SetPortMode() read
    bool m_bPortOpen = false;
    int m_hPort = -1; // the system's descriptor

protected:
    // The port must be closed. Nobody deletes a port through this class.
    ~QVSerialPort();

private:
    void RequireClosedPort() const;
    void ReportPortOpenErrorVA(const char* summary, int error, const char* functionFormat, va_list arguments);
    bool CloseRefusedPort(const char* summary, int error, const char* function);
    void PrintErrorUnlessDone(int error, const char* function);
};
