// QVSerialPortAsync - a serial port for a driver that runs an event loop. Nothing waits: the loop says when
// the device is readable or writable, and the port reports data, finished writes and errors through virtual
// operations.
//
//     port.OpenAsyncPort("/dev/ttyS0");
//     port.SetPortMode("BAUD=9600");
//     port.WriteSerialData(length, request);
//     for (;;) {
//         const unsigned int events = port.m_bWritePending ? QVSocket::Readable | QVSocket::Writable
//                                                          : QVSocket::Readable;
//         QVHandleInterest line{port.m_hPort, events};
//         qv_wait_for_handles({&line, 1}, timeout);
//         if (line.m_Ready & QVSocket::Writable)
//             port.WriteNextDataBlock();
//         if (line.m_Ready & QVSocket::Readable)
//             port.DoUnixRead();
//     }
//
// examples/serial_echo.cpp is a whole one.
//
// Writing:  one request at a time: idle -> writing -> (pending, while the device is full) ->
//           OnWriteComplete() or OnIOError() -> idle. The data is borrowed until then.
// Calls:    the virtual operations are called as the last step of the operation that the loop called, so they
//           may do anything with the port: start the next write, close it. A write that the device takes at
//           once is complete before WriteSerialData() returns; a driver that starts the next one from
//           OnWriteComplete() goes one call deeper for each of those.
// Hang-up:  a line that is gone stays readable; reading it gives 0 bytes or an error. The driver then
//           closes the port, else its loop spins.
// Threads:  one thread at a time.
#pragma once

#include <QVLib/SerialPorts/SerialPort.h>

// The lines on which a modem or device tells its state.
enum QVSerialModemLine : unsigned int {
    QVSerialModemLineCTS = 1,
    QVSerialModemLineDSR = 2,
    QVSerialModemLineRI = 4,
    QVSerialModemLineDCD = 8,
};

class QVSerialPortAsync : public QVSerialPort {
public:
    // `count` bytes have come. 0: the other side has hung up. `data` is m_ReadBuffer.
    virtual void OnDataReceived(unsigned int count, const unsigned char* data) = 0;
    // For drivers that watch the modem lines: the lines of `changed` have changed, and those of `lines` are
    // on now (QVSerialModemLine each). The library watches none and never calls it.
    virtual void OnModemLinesChanged(unsigned int lines, unsigned int changed) = 0;
    // The write request is finished; `count` is its whole length.
    virtual void OnWriteComplete(unsigned int count) = 0;
    // A read or write failed with errno `error`; the format and its argument say which.
    virtual void OnIOError(int error, const char* format, ...) __attribute__((format(printf, 3, 4))) = 0;

    // Opens the port for reading and writing without waiting. A request of an earlier opening is forgotten.
    QVSerialPortResult OpenAsyncPort(const qvstring& name);

    // Starts to write; `data` must stay until the request is finished. Replaces a request that is not.
    void WriteSerialData(unsigned int length, const unsigned char* data);
    // Goes on writing. For the loop, when the device is writable while m_bWritePending is set.
    void WriteNextDataBlock();
    // Reads what is there, at most 256 bytes. For the loop, when the device is readable.
    void DoUnixRead();
    // Sends a break of the system's length (a quarter to half of a second) and waits for it; `duration` is
    // not used. A failure is traced.
    void WriteBreak(int duration);
    // Reports the request as finished. A step of WriteNextDataBlock().
    void CompleteWriteRequest();

    unsigned int m_nWriteLength = 0;             // of the request
    const unsigned char* m_pWriteData = nullptr; // of the request; the caller's
    unsigned int m_nWritten = 0;                 // of it, so far
    bool m_bWritePending = false;                // the rest waits for the device to become writable
    unsigned char m_ReadBuffer[256];

protected:
    QVSerialPortAsync() = default;
    ~QVSerialPortAsync() = default;
};
