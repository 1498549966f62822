#include <QVPlatform/SerialDevice.h>

#include "SystemCalls.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <unistd.h>

static_assert(sizeof(termios) <= sizeof(QVTerminalAttributes) && alignof(termios) <= 8);
static_assert(NCCS == QVTerminalWords::CharacterCount);

namespace {

struct Speed {
    unsigned int rate;
    speed_t constant;
};
constexpr Speed Speeds[] = {
    {75, B75},     {110, B110},   {150, B150},   {300, B300},     {600, B600},     {1200, B1200},
    {2400, B2400}, {4800, B4800}, {9600, B9600}, {38400, B38400}, {57600, B57600}, {115200, B115200},
};

void Assign(tcflag_t& modes, tcflag_t bits, bool set) {
    modes = set ? modes | bits : modes & ~bits;
}

tcflag_t CharacterSize(unsigned int dataBits) {
    switch (dataBits) {
    case 5:
        return CS5;
    case 6:
        return CS6;
    case 7:
        return CS7;
    default:
        return CS8;
    }
}

void SetParity(tcflag_t& modes, QVLineMode::Parity parity) {
    if (parity == QVLineMode::ParityAsItWas)
        return;
    const bool stick = parity == QVLineMode::MarkParity || parity == QVLineMode::SpaceParity;
    Assign(modes, PARENB, parity != QVLineMode::NoParity);
    Assign(modes, PARODD, parity == QVLineMode::OddParity || parity == QVLineMode::MarkParity);
    Assign(modes, CMSPAR, stick);
}

int ErrorOf(int result) {
    return result < 0 ? errno : 0;
}

int CountOf(ssize_t result, int& error) {
    if (result < 0)
        error = errno;
    return static_cast<int>(result);
}

unsigned int AtMostInt(unsigned int size) {
    return std::min<unsigned int>(size, INT_MAX);
}

} // namespace

unsigned int qv_line_speed_constant(unsigned int bitsPerSecond) {
    for (const Speed& speed : Speeds) {
        if (speed.rate == bitsPerSecond)
            return speed.constant;
    }
    return B19200;
}

void qv_set_line_mode(termios& attributes, const QVLineMode& mode) {
    ::cfsetospeed(&attributes, mode.m_SpeedConstant);
    ::cfsetispeed(&attributes, mode.m_SpeedConstant);
    Assign(attributes.c_iflag,
           IGNBRK | BRKINT | IGNPAR | ISTRIP | INLCR | IGNCR | ICRNL | IXON | IXANY | IXOFF, false);
    attributes.c_oflag = 0;
    Assign(attributes.c_cflag, CREAD | CLOCAL, true);
    Assign(attributes.c_cflag, CSIZE, false);
    Assign(attributes.c_cflag, CharacterSize(mode.m_DataBits), true);
    Assign(attributes.c_cflag, CSTOPB, mode.m_bTwoStopBits);
    SetParity(attributes.c_cflag, mode.m_Parity);
    Assign(attributes.c_cflag, CRTSCTS, mode.m_bHardwareFlowControl);
    Assign(attributes.c_lflag, ISIG | ICANON | ECHO | ECHONL | IEXTEN, false);
    attributes.c_cc[VMIN] = 1;
    attributes.c_cc[VTIME] = 0;
}

QVTerminalWords qv_get_terminal_words(const termios& attributes) {
    QVTerminalWords words{};
    words.m_InputModes = attributes.c_iflag;
    words.m_OutputModes = attributes.c_oflag;
    words.m_ControlModes = attributes.c_cflag;
    words.m_LocalModes = attributes.c_lflag;
    std::copy_n(attributes.c_cc, NCCS, words.m_ControlCharacters);
    words.m_InputSpeed = attributes.c_ispeed;
    words.m_OutputSpeed = attributes.c_ospeed;
    return words;
}

const int QVSerialDevice::WouldBlock = EAGAIN;
const int QVSerialDevice::Busy = EBUSY;

int QVSerialDevice::Open(const qvstring& name, int& handle) {
    // The system would open what stands in front of the zero.
    if (name.find('\0') != qvstring::npos)
        return ENOENT;
    handle = qv_system().open(name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC, 0);
    return ErrorOf(handle);
}

int QVSerialDevice::Close(int handle) {
    return ErrorOf(qv_system().close(handle));
}

int QVSerialDevice::Lock(int handle) {
    return ErrorOf(qv_retry_interrupted([&] { return qv_system().flock(handle, LOCK_EX | LOCK_NB); }));
}

int QVSerialDevice::Unlock(int handle) {
    return ErrorOf(qv_system().flock(handle, LOCK_UN));
}

int QVSerialDevice::SetExclusive(int handle, bool exclusive) {
    const int error = ErrorOf(qv_system().ioctl(handle, exclusive ? TIOCEXCL : TIOCNXCL, nullptr));
    return error == ENOTTY || error == EINVAL ? 0 : error;
}

int QVSerialDevice::Discard(int handle) {
    return ErrorOf(qv_system().tcflush(handle, TCIOFLUSH));
}

int QVSerialDevice::SetNonBlocking(int handle) {
    int on = 1;
    return ErrorOf(qv_system().ioctl(handle, FIONBIO, &on));
}

int QVSerialDevice::GetAttributes(int handle, QVTerminalAttributes& attributes) {
    return ErrorOf(qv_system().tcgetattr(handle, attributes.Get()));
}

int QVSerialDevice::SetAttributes(int handle, const QVTerminalAttributes& attributes) {
    return ErrorOf(
        qv_retry_interrupted([&] { return qv_system().tcsetattr(handle, TCSANOW, attributes.Get()); }));
}

int QVSerialDevice::Read(int handle, void* buffer, unsigned int size, int& error) {
    return CountOf(qv_retry_interrupted([&] { return qv_system().read(handle, buffer, AtMostInt(size)); }),
                   error);
}

int QVSerialDevice::Write(int handle, const void* data, unsigned int size, int& error) {
    return CountOf(qv_retry_interrupted([&] { return qv_system().write(handle, data, AtMostInt(size)); }),
                   error);
}

int QVSerialDevice::GetUnsent(int handle, unsigned int& bytes) {
    int count = 0;
    const int error = ErrorOf(qv_system().ioctl(handle, TIOCOUTQ, &count));
    if (error == 0)
        bytes = static_cast<unsigned int>(count);
    return error;
}

int QVSerialDevice::SendBreak(int handle) {
    return ErrorOf(qv_system().tcsendbreak(handle, 0));
}

QVPseudoTerminal::~QVPseudoTerminal() {
    HangUp();
}

bool QVPseudoTerminal::Create() {
    HangUp();
    char name[64];
    m_Handle = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    bool created = m_Handle >= 0 && ::grantpt(m_Handle) == 0 && ::unlockpt(m_Handle) == 0 &&
                   ::ptsname_r(m_Handle, name, sizeof name) == 0;
    if (created)
        m_NearEnd = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios attributes{};
    created = created && m_NearEnd >= 0 && ::tcgetattr(m_NearEnd, &attributes) == 0;
    if (created) {
        ::cfmakeraw(&attributes);
        created = ::tcsetattr(m_NearEnd, TCSANOW, &attributes) == 0;
    }
    if (!created) {
        SetLastError(errno);
        HangUp();
        return false;
    }
    m_Name = name;
    return true;
}

int QVPseudoTerminal::ReceiveData(void* buffer, unsigned int size) {
    const ssize_t got = qv_retry_interrupted([&] { return ::read(m_Handle, buffer, AtMostInt(size)); });
    if (got < 0)
        SetLastError(errno);
    return static_cast<int>(got);
}

bool QVPseudoTerminal::SendData(const void* data, unsigned int size) {
    const char* current = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t sent = qv_retry_interrupted([&] { return ::write(m_Handle, current, size); });
        if (sent < 0) {
            SetLastError(errno);
            return false;
        }
        current += sent;
        size -= static_cast<unsigned int>(sent);
    }
    return true;
}

void QVPseudoTerminal::HangUp() {
    if (m_NearEnd >= 0)
        ::close(m_NearEnd);
    if (m_Handle >= 0)
        ::close(m_Handle);
    m_NearEnd = -1;
    m_Handle = -1;
    m_Name.clear();
}
