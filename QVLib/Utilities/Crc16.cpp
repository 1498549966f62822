#include <QVLib/Utilities/Crc16.h>
#include <array>

namespace {

// How many bytes AddBytes() takes at once.
constexpr unsigned int Stride = 8;

using Table = std::array<unsigned short, 256>;

// Table n holds what a byte does to the check value when n zero bytes follow it. Because the check is linear, the
// effects of several bytes in a row can be looked up side by side and combined.
constexpr std::array<Table, Stride> MakeTables() {
    std::array<Table, Stride> tables{};
    for (unsigned int byte = 0; byte < 256; byte++) {
        unsigned int value = byte;
        for (int bit = 0; bit < 8; bit++)
            value = (value & 1) != 0 ? value >> 1 ^ 0xA001 : value >> 1;
        tables[0][byte] = static_cast<unsigned short>(value);
    }
    for (unsigned int n = 1; n < Stride; n++) {
        for (unsigned int byte = 0; byte < 256; byte++) {
            const unsigned int before = tables[n - 1][byte];
            tables[n][byte] = static_cast<unsigned short>(before >> 8 ^ tables[0][before & 0xFF]);
        }
    }
    return tables;
}

constexpr std::array<Table, Stride> Tables = MakeTables();

} // namespace

void CCrc16::AddByte(unsigned char byte) {
    const unsigned int entry = Tables[0][byte ^ m_Low];
    m_Low = static_cast<unsigned char>((entry & 0xFF) ^ m_High);
    m_High = static_cast<unsigned char>(entry >> 8);
}

void CCrc16::AddBytes(const unsigned char* data, unsigned int count) {
    unsigned int crc = GetValue();
    for (; count >= Stride; data += Stride, count -= Stride) {
        const unsigned int first = data[0] ^ (crc & 0xFF);
        const unsigned int second = data[1] ^ crc >> 8;
        crc = Tables[7][first] ^ Tables[6][second] ^ Tables[5][data[2]] ^ Tables[4][data[3]] ^
              Tables[3][data[4]] ^ Tables[2][data[5]] ^ Tables[1][data[6]] ^ Tables[0][data[7]];
    }
    Reset(static_cast<unsigned short>(crc));
    for (; count > 0; data++, count--)
        AddByte(*data);
}
