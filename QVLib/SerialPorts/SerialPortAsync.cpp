#include <QVLib/SerialPorts/SerialPortAsync.h>

#include <QVPlatform/SerialDevice.h>

QVSerialPortResult QVSerialPortAsync::OpenAsyncPort(const qvstring& name) {
    // The data of an old request may be gone; a loop must not be led to write it.
    m_nWriteLength = 0;
    m_pWriteData = nullptr;
    m_nWritten = 0;
    m_bWritePending = false;
    return OpenPort(name, true);
}

void QVSerialPortAsync::WriteSerialData(unsigned int length, const unsigned char* data) {
    m_nWriteLength = length;
    m_pWriteData = data;
    m_nWritten = 0;
    WriteNextDataBlock();
}

void QVSerialPortAsync::WriteNextDataBlock() {
    while (m_nWritten < m_nWriteLength) {
        const unsigned int left = m_nWriteLength - m_nWritten;
        int error = 0;
        const int written = QVSerialDevice::Write(m_hPort, m_pWriteData + m_nWritten, left, error);
        // A device that takes nothing and names no reason is full; trying at once again would never end.
        if (written == 0 || (written < 0 && error == QVSerialDevice::WouldBlock)) {
            m_bWritePending = true;
            return;
        }
        if (written < 0) {
            m_bWritePending = false;
            OnIOError(error, "write( %d )", static_cast<int>(left));
            return;
        }
        m_nWritten += static_cast<unsigned int>(written);
    }
    m_bWritePending = false; // first, because the next request may start within
    CompleteWriteRequest();
}

void QVSerialPortAsync::CompleteWriteRequest() {
    OnWriteComplete(m_nWriteLength);
}

void QVSerialPortAsync::DoUnixRead() {
    int error = 0;
    const int count = QVSerialDevice::Read(m_hPort, m_ReadBuffer, sizeof m_ReadBuffer, error);
    if (count >= 0)
        OnDataReceived(static_cast<unsigned int>(count), m_ReadBuffer);
    else if (error != QVSerialDevice::WouldBlock)
        OnIOError(error, "read( %d )", static_cast<int>(sizeof m_ReadBuffer));
}

void QVSerialPortAsync::WriteBreak(int /*duration*/) {
    if (const int error = QVSerialDevice::SendBreak(m_hPort); error != 0)
        PrintFunctionError(error, "tcsendbreak()");
}
