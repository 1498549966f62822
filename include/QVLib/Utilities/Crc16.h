// CCrc16 - the 16-bit cyclic redundancy check of serial field buses.
//
//     CCrc16 crc(0xFFFF);
//     crc.AddBytes(frame, length);
//     frame[length] = crc.GetLowByte(); // Modbus RTU sends the low byte first
//     frame[length + 1] = crc.GetHighByte();
//
// Reflected polynomial 0xA001, no final inversion, as the Modbus serial line specification publishes it. With the
// initial value 0xFFFF, "123456789" gives 0x4B37.
// Threads: one thread at a time.
#pragma once

#include <QVLib/BinaryStreams/DataSink.h>

class CCrc16 final : public QVDataSink {
public:
    explicit CCrc16(unsigned short initial) { Reset(initial); }

    void Reset(unsigned short initial) {
        m_High = static_cast<unsigned char>(initial >> 8);
        m_Low = static_cast<unsigned char>(initial & 0xFF);
    }
    void AddByte(unsigned char byte) override;
    // The same as AddByte() for each of `count` bytes, several at a time. The base's operation of this name, which
    // is the one called through a QVDataSink, takes them one by one.
    void AddBytes(const unsigned char* data, unsigned int count);

    unsigned short GetValue() const { return static_cast<unsigned short>(m_High << 8 | m_Low); }
    unsigned char GetHighByte() const { return m_High; }
    unsigned char GetLowByte() const { return m_Low; }

private:
    unsigned char m_High;
    unsigned char m_Low;
};
