// A driver for a serial device, with a small event loop. The device here is a simulator in the same program
// that answers in capitals; give QVSerialPortAsync::OpenAsyncPort() a name such as /dev/ttyS0 for a real one.
#include <QVLib/SerialPorts/SerialPortAsync.h>
#include <QVPlatform/SerialDevice.h>
#include <QVPlatform/Socket.h>
#include <cstdio>
#include <string>
#include <thread>

class EchoDriver final : public QVSerialPortAsync {
public:
    ~EchoDriver() { ClosePort(); }

    void Trace(const char*, ...) override {} // a real driver writes to its log
    void OnWriteComplete(unsigned int count) override { std::printf("sent %u bytes\n", count); }
    void OnDataReceived(unsigned int count, const unsigned char* data) override {
        m_Answer.append(reinterpret_cast<const char*>(data), count);
        m_bGone = count == 0;
    }
    void OnModemLinesChanged(unsigned int, unsigned int) override {}
    void OnIOError(int error, const char*, ...) override {
        std::printf("error %d\n", error);
        m_bGone = true;
    }

    // What the device answers, up to a line feed; less when it says nothing for a second.
    std::string Ask(const std::string& question) {
        m_Answer.clear();
        WriteSerialData(static_cast<unsigned int>(question.size()),
                        reinterpret_cast<const unsigned char*>(question.data()));
        while (!m_bGone && !m_Answer.ends_with('\n')) {
            const unsigned int events =
                m_bWritePending ? QVSocket::Readable | QVSocket::Writable : QVSocket::Readable;
            QVHandleInterest line{m_hPort, events};
            if (qv_wait_for_handles({&line, 1}, 1000) != QVWaitResult::Ready)
                break;
            if ((line.m_Ready & QVSocket::Writable) != 0)
                WriteNextDataBlock();
            if ((line.m_Ready & QVSocket::Readable) != 0)
                DoUnixRead();
        }
        return m_Answer;
    }

private:
    std::string m_Answer;
    bool m_bGone = false;
};

// Answers so many lines, each byte as it comes.
void Simulate(QVPseudoTerminal& device, int lines) {
    char byte;
    while (lines > 0 && device.ReceiveData(&byte, 1) == 1) {
        lines -= byte == '\n';
        byte = static_cast<char>(byte >= 'a' && byte <= 'z' ? byte - 'a' + 'A' : byte);
        if (!device.SendData(&byte, 1))
            break;
    }
}

int main() {
    QVPseudoTerminal device;
    if (!device.Create())
        return 1;
    EchoDriver driver;
    if (driver.OpenAsyncPort(device.GetName()) != QVSerialPortSuccess ||
        driver.SetPortMode("BAUD=1200 PARITY=E STOP=2") != QVSerialPortSuccess) {
        std::printf("%s: %s %s\n", driver.m_szErrorSummary, driver.m_szErrorFunction,
                    driver.m_szErrorMessage);
        return 1;
    }
    std::thread simulator([&] { Simulate(device, 2); });
    for (const std::string question : {"temperature?\n", "pressure?\n"}) {
        const auto count = static_cast<unsigned int>(question.size());
        std::printf("%u ms on a line of that rate\n", driver.GetSerialTransmissionTimeMS(count));
        std::printf("%s", driver.Ask(question).c_str());
    }
    simulator.join();
}
