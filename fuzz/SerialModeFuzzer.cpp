// Mode strings of any bytes. What is valid has no message. What was read, valid or not, prints as a mode
// string that reads back the same, and is within what a line can be.
#include <QVLib/SerialPorts/SerialModeString.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVLib/TextStreams/TextOutputString.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/SerialDevice.h>
#include <cstdint>

namespace {

qvstring Print(const CSerialModeString& mode, bool all) {
    CTextOutputString out;
    mode.Print(out, all);
    return out.GetString();
}

void CheckThatItReadsBack(const CSerialModeString& mode, bool all) {
    const qvstring printed = Print(mode, all);
    TextInputQVString input(printed, "n");
    COutputLogToString log;
    CSerialModeStringParser parser(&input, &log);
    CSerialModeString again;
    QV_ASSERT(again.ParseString(parser));
    QV_ASSERT(log.GetString().empty());
    QV_ASSERT(Print(again, true) == Print(mode, true));
}

void CheckAttributes(const CSerialModeString& mode) {
    QVTerminalAttributes attributes;
    mode.ApplyToTermios(attributes.Get());
    const QVTerminalWords once = qv_get_terminal_words(*attributes.Get());
    mode.ApplyToTermios(attributes.Get());
    const QVTerminalWords twice = qv_get_terminal_words(*attributes.Get());
    QV_ASSERT(once.m_ControlModes == twice.m_ControlModes && once.m_OutputSpeed == twice.m_OutputSpeed);
    QV_ASSERT(once.m_OutputSpeed == mode.GetUnixBaudRatConstant());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* const text = reinterpret_cast<const char*>(data);
    TextInputQVString input(text, static_cast<unsigned int>(size), "n");
    COutputLogToRawList log;
    CSerialModeStringParser parser(&input, &log);
    CSerialModeString mode;
    const bool bValid = mode.ParseString(parser);
    QV_ASSERT(log.GetLogEntries().size() == parser.GetErrorCount());
    QV_ASSERT(!bValid || parser.GetErrorCount() == 0);
    QV_ASSERT(mode.GetBaudRate() != 0);
    QV_ASSERT(mode.GetTotalBitsPerCharacter() >= 7 && mode.GetTotalBitsPerCharacter() <= 12);
    CheckThatItReadsBack(mode, false);
    CheckThatItReadsBack(mode, true);
    CheckAttributes(mode);

    const qvstring value(text, size);
    mode.SetBaudRate(value);
    mode.SetDataBits(value);
    mode.SetParity(value);
    mode.SetStopBits(value);
    CheckThatItReadsBack(mode, true);
    return 0;
}
