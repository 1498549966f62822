#include <QVLib/BinaryStreams/BinaryInput.h>
#include <QVLib/BinaryStreams/BinaryOutput.h>
#include <QVLib/TextStreams/TextInput.h>
#include <QVLib/Utilities/Guid.h>
#include <QVPlatform/Ascii.h>
#include <QVPlatform/SecureMemory.h>
#include <QVPlatform/TextOutput.h>
#include <cstring>

namespace {

bool ReadHyphen(CTextInput& input) {
    int codePoint;
    return input.ReadCodePoint(codePoint) && codePoint == '-';
}

// Exactly as many digits as T holds.
template<class T>
bool ReadHexadecimal(CTextInput& input, T& number) {
    unsigned int value = 0;
    for (unsigned int i = 0; i < 2 * sizeof(T); i++) {
        int codePoint;
        if (!input.ReadCodePoint(codePoint))
            return false;
        const int digit = qv_hexadecimal_digit(codePoint);
        if (digit < 0)
            return false;
        value = value << 4 | static_cast<unsigned int>(digit);
    }
    number = static_cast<T>(value);
    return true;
}

} // namespace

bool QVGuid::IsNull() const {
    return *this == QVGuid();
}

int QVGuid::CompareGuid(const QVGuid& other) const {
    return std::memcmp(this, &other, sizeof *this);
}

bool QVGuid::SetRandom() {
    if (!QVRandomGenerator::GetRandomBytes(this, sizeof *this)) {
        *this = QVGuid();
        return false;
    }
    SetVersionAndVariant(0x4000);
    return true;
}

void QVGuid::SetFromHashSHA1(const unsigned char* hash) {
    std::memcpy(static_cast<void*>(this), hash, sizeof *this);
    SetVersionAndVariant(0x5000);
}

void QVGuid::SetVersionAndVariant(unsigned short version) {
    m_Data3 = static_cast<unsigned short>((m_Data3 & 0x0FFF) | version);
    m_Data4[0] = static_cast<unsigned char>((m_Data4[0] & 0x0C) | 0x80);
}

int QVGuid::ParseGuid(CTextInput* input) {
    if (!ReadHexadecimal(*input, m_Data1))
        return ParseNoFirstNumber;
    if (!ReadHyphen(*input))
        return ParseNoFirstHyphen;
    if (!ReadHexadecimal(*input, m_Data2))
        return ParseNoSecondNumber;
    if (!ReadHyphen(*input))
        return ParseNoSecondHyphen;
    if (!ReadHexadecimal(*input, m_Data3))
        return ParseNoThirdNumber;
    if (!ReadHyphen(*input))
        return ParseNoThirdHyphen;
    for (int i = 0; i < 8; i++) {
        if (i == 2 && !ReadHyphen(*input))
            return ParseNoFourthHyphen;
        if (!ReadHexadecimal(*input, m_Data4[i]))
            return ParseNoByte;
    }
    return ParseDone;
}

void QVGuid::PrintGuid(CTextOutput& out) const {
    out.Print("%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", m_Data1, m_Data2, m_Data3, m_Data4[0],
              m_Data4[1], m_Data4[2], m_Data4[3], m_Data4[4], m_Data4[5], m_Data4[6], m_Data4[7]);
}

void QVGuid::LoadGuid(CBinaryInput& in) {
    QVGuid loaded;
    in.Read(&loaded, sizeof loaded);
    *this = loaded;
}

void QVGuid::SaveGuid(CBinaryOutput& out) const {
    out.Write(this, sizeof *this);
}
