// A telegram of a serial field bus with its check value, the rate of such telegrams, and a device's address taken apart.
#include <QVLib/TextStreams/TextInputString.h>
#include <QVLib/Utilities/Crc16.h>
#include <QVLib/Utilities/Guid.h>
#include <QVLib/Utilities/RateCalculator.h>
#include <QVLib/Utilities/UniformResourceLocator.h>
#include <QVPlatform/TextOutput.h>
#include <cstdio>

int main() {
    // Read two registers of device 17 from address 107 on.
    unsigned char frame[8] = {17, 3, 0, 107, 0, 2};
    CCrc16 crc(0xFFFF);
    crc.AddBytes(frame, 6);
    frame[6] = crc.GetLowByte();
    frame[7] = crc.GetHighByte();
    for (const unsigned char byte : frame)
        std::printf("%02X ", byte);
    // Whoever receives it computes over all of it and gets 0.
    crc.Reset(0xFFFF);
    crc.AddBytes(frame, sizeof frame);
    std::printf("is %s\n", crc.GetValue() == 0 ? "whole" : "damaged");

    // Ten telegrams a second for a minute, counted by the second.
    RateCalculator rate(CQVTimeInterval{CQVTimeInterval::UnitsPerSecond});
    for (int telegram = 0; telegram < 600; ++telegram)
        rate.AddSample(sizeof frame, CQVTimestamp(telegram * CQVTimeInterval::UnitsPerSecond / 10));
    std::printf("%.0f bytes a second\n", rate.GetRate());

    UniformResourceLocator address;
    if (address.ParseURL("modbus.tcp://panel@192.0.2.17:502/1") == UniformResourceLocator::ParseDone)
        std::printf("%s on host %s, port %s\n", address.GetScheme().c_str(), address.GetHost().c_str(),
                    address.GetPort().c_str());

    TextInputQVString text("0F1E2D3C-4B5A-4978-8796-A5B4C3D2E1F0", "GUID");
    QVGuid guid;
    CTextOutputString printed;
    if (guid.ParseGuid(&text) == QVGuid::ParseDone)
        guid.PrintGuid(printed);
    std::printf("%s\n", printed.GetCStr());
}
