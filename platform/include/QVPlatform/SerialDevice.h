// Serial lines, as the system has them: terminals that are opened by name and driven through a descriptor.
//
// QVTerminalAttributes  the attributes of a terminal, for code that does not know the system's structure
// qv_set_line_mode()    and its neighbours: what the library writes into such a structure and reads from it
// QVSerialDevice        the calls on an open line
// QVPseudoTerminal      a line without hardware, for simulators, examples and tests
//
// Errors:   QVSerialDevice's operations return the system's errno, 0 when they have worked, and those that
//           count return -1 and leave errno in the given variable. EAGAIN (QVSerialDevice::WouldBlock) is
//           what a non-blocking line answers when there is nothing to read or no room to write.
// Signals:  reading and writing go on behind a handled signal. Opening and breaks do not, since both may wait
//           for long: they fail with EINTR, unless the handler was installed to restart calls.
// Children: no line is inherited by a program that the process starts.
// Threads:  one thread at a time per line.
#pragma once

#include <QVPlatform/Error.h>
#include <QVPlatform/String.h>
#include <cstddef>

struct termios;

class QVTerminalAttributes {
public:
    termios* Get() { return reinterpret_cast<termios*>(m_Storage); }
    const termios* Get() const { return reinterpret_cast<const termios*>(m_Storage); }

private:
    alignas(8) std::byte m_Storage[64]{};
};

// How characters travel over a line.
struct QVLineMode {
    enum Parity { NoParity, OddParity, EvenParity, MarkParity, SpaceParity, ParityAsItWas };

    unsigned int m_SpeedConstant; // qv_line_speed_constant()
    unsigned int m_DataBits;      // 5, 6 or 7; all else is 8
    bool m_bTwoStopBits;
    Parity m_Parity;
    bool m_bHardwareFlowControl; // output waits for CTS
};

// The terminal speed constant (B9600, ...) of the rates that mode strings can reach: 75, 110, 150, 300, 600,
// 1200, 2400, 4800, 9600, 19200, 38400, 57600 and 115200 bits per second. Every other rate gives B19200's.
unsigned int qv_line_speed_constant(unsigned int bitsPerSecond);

// Makes the attributes those of a raw line of the given mode: bytes pass unchanged both ways, nothing is
// echoed, no signal is raised, no software flow control; reading needs one byte and waits for no more. The
// marking and checking of parity errors (PARMRK, INPCK) stays as it was.
void qv_set_line_mode(termios& attributes, const QVLineMode& mode);

// The content of attributes, for showing it.
struct QVTerminalWords {
    static constexpr unsigned int CharacterCount = 32;

    unsigned int m_InputModes;
    unsigned int m_OutputModes;
    unsigned int m_ControlModes;
    unsigned int m_LocalModes;
    unsigned char m_ControlCharacters[CharacterCount];
    unsigned int m_InputSpeed;
    unsigned int m_OutputSpeed;
};
QVTerminalWords qv_get_terminal_words(const termios& attributes);

// The calls. A handle is the system's descriptor; -1, or one that is closed, makes every call fail with
// EBADF.
class QVSerialDevice {
public:
    static const int WouldBlock;
    static const int Busy;

    // Opens a line for reading and writing; it does not become the process's controlling terminal. Blocking.
    // Waits for the carrier where the line is set to need one (no CLOCAL) and has none.
    static int Open(const qvstring& name, int& handle);
    // May wait for what is written and not sent (closing_wait of the device).
    static int Close(int handle);

    // Takes the lock that all programs which drive lines agree on (flock), without waiting; it goes with the
    // descriptor, so with the process too.
    static int Lock(int handle);
    static int Unlock(int handle);
    // Has the system refuse further openings of the line (but to root), or allow them again. It ends with the
    // last descriptor that anybody has of the line, not with this one. 0 where the device is no terminal.
    static int SetExclusive(int handle, bool exclusive);

    // Throws away what has arrived and was not read, and what was written and is not sent.
    static int Discard(int handle);
    static int SetNonBlocking(int handle);

    static int GetAttributes(int handle, QVTerminalAttributes& attributes);
    // At once, without waiting for what is still to be sent.
    static int SetAttributes(int handle, const QVTerminalAttributes& attributes);

    // The number of bytes moved. Reading gives 0 when the other side has hung up.
    static int Read(int handle, void* buffer, unsigned int size, int& error);
    static int Write(int handle, const void* data, unsigned int size, int& error);
    // How many of the bytes written are still to be sent (a pseudo terminal keeps none).
    static int GetUnsent(int handle, unsigned int& bytes);
    // Holds the line in the break state for a quarter to half of a second, and waits for that.
    static int SendBreak(int handle);
};

// Two ends of a line: what is written to one is read from the other. The far end is this object; the near end
// has a name and is opened by it like any serial port. It transports bytes at once, whatever rate is set, and
// knows neither parity nor fewer than 8 bits.
class QVPseudoTerminal : public CQVError {
public:
    QVPseudoTerminal() = default;
    // Hangs up.
    ~QVPseudoTerminal();
    QVPseudoTerminal(const QVPseudoTerminal&) = delete;
    QVPseudoTerminal& operator=(const QVPseudoTerminal&) = delete;

    // Makes the pair, raw from the start. The near end has a line mode of its own and survives being closed.
    bool Create();
    // The near end's name ("/dev/pts/3"); empty while there is no pair.
    const qvstring& GetName() const { return m_Name; }

    // Waits for something to arrive; the number of bytes, -1 on an error.
    int ReceiveData(void* buffer, unsigned int size);
    // Waits until all of it has room.
    bool SendData(const void* data, unsigned int size);
    // Closes the far end: the near end, where open, is hung up.
    void HangUp();

    // The system's descriptor of the far end, -1 when there is none, for waits.
    int GetHandle() const { return m_Handle; }

private:
    int m_Handle = -1;
    int m_NearEnd = -1; // held, because a pair whose near end nobody has open is hung up for its far end
    qvstring m_Name;
};
