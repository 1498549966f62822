#include <QVLib/Tls/DEREncodedOID.h>

#include <QVPlatform/TextOutput.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace {

constexpr unsigned int kGroupBits = 7;
constexpr unsigned char kMore = 0x80; // in every byte of a sub-identifier but its last
constexpr unsigned int kLargest = std::numeric_limits<unsigned int>::max();

// Takes the next sub-identifier from the bytes; false when none is left.
bool TakeSubIdentifier(const unsigned char*& current, const unsigned char* end, unsigned int& value) {
    if (current == end)
        return false;
    value = 0;
    bool bTooLarge = false;
    for (bool bMore = true; bMore && current != end; ++current) {
        bTooLarge = bTooLarge || value > kLargest >> kGroupBits;
        value = value << kGroupBits | (*current & ~kMore & 0xFFu);
        bMore = (*current & kMore) != 0;
    }
    if (bTooLarge)
        value = kLargest;
    return true;
}

void SplitFirst(unsigned int subIdentifier, unsigned int& first, unsigned int& second) {
    first = subIdentifier < 40 ? 0 : subIdentifier < 80 ? 1 : 2;
    second = subIdentifier - 40 * first;
}

// Reads digits, with blanks and a '+' before them; what is no number is 0, and nothing is read. Past 32 bits the
// result is more than they hold.
unsigned long long TakeNumber(const char*& text) {
    const char* current = text + std::strspn(text, " \t\n\v\f\r");
    if (*current == '+')
        current++;
    unsigned long long number = 0;
    for (; *current >= '0' && *current <= '9'; text = ++current)
        number = std::min(number * 10 + static_cast<unsigned int>(*current - '0'), kLargest + 1ULL);
    return number;
}

} // namespace

DEREncodedOID::DEREncodedOID(const char* text) {
    Parse(text);
}

bool DEREncodedOID::Parse(const char* text) {
    *this = DEREncodedOID();
    const unsigned long long first = TakeNumber(text);
    if (*text != '.' || first > kLargest)
        return false;
    const unsigned long long second = TakeNumber(++text);
    if (second > kLargest ||
        !AddFirstArc(static_cast<unsigned int>(first), static_cast<unsigned int>(second)))
        return false;
    bool bGood = true;
    while (bGood && *text == '.') {
        const unsigned long long arc = TakeNumber(++text);
        bGood = arc <= kLargest && AddArc(static_cast<unsigned int>(arc));
    }
    bGood = bGood && *text == '\0';
    if (!bGood)
        *this = DEREncodedOID();
    return bGood;
}

bool DEREncodedOID::SetData(const unsigned char* data, unsigned int length) {
    if (length > MaxOIDLength)
        return false;
    if (length != 0)
        std::memmove(m_Data, data, length);
    m_Length = length;
    return true;
}

bool DEREncodedOID::AddFirstArc(unsigned int first, unsigned int second) {
    const unsigned long long subIdentifier = 40ULL * first + second;
    return subIdentifier <= kLargest && AddArc(static_cast<unsigned int>(subIdentifier));
}

bool DEREncodedOID::AddArc(unsigned int value) {
    unsigned int groups = 1;
    for (unsigned int rest = value >> kGroupBits; rest != 0; rest >>= kGroupBits)
        groups++;
    if (groups > MaxOIDLength - m_Length)
        return false;
    while (groups-- != 0) {
        const unsigned int group = value >> (groups * kGroupBits) & (kMore - 1u);
        m_Data[m_Length++] = static_cast<unsigned char>(group | (groups != 0 ? kMore : 0u));
    }
    return true;
}

unsigned int DEREncodedOID::GetArcCount() const {
    const unsigned char* current = m_Data;
    unsigned int value = 0;
    unsigned int count = 0;
    while (TakeSubIdentifier(current, m_Data + m_Length, value))
        count++;
    return count == 0 ? 0 : count + 1;
}

unsigned int DEREncodedOID::GetArcValue(unsigned int index) const {
    const unsigned char* current = m_Data;
    unsigned int value = 0;
    if (!TakeSubIdentifier(current, m_Data + m_Length, value))
        return 0;
    if (index < 2) {
        unsigned int arcs[2];
        SplitFirst(value, arcs[0], arcs[1]);
        return arcs[index];
    }
    for (unsigned int i = 1; i < index; ++i) {
        if (!TakeSubIdentifier(current, m_Data + m_Length, value))
            return 0;
    }
    return value;
}

void DEREncodedOID::Print(CTextOutput& out) const {
    Print(m_Data, m_Length, out);
}

void DEREncodedOID::Print(const unsigned char* data, unsigned int length, CTextOutput& out) {
    if (length == 0)
        return;
    const unsigned char* const end = data + length;
    unsigned int value = 0;
    TakeSubIdentifier(data, end, value);
    unsigned int first = 0;
    unsigned int second = 0;
    SplitFirst(value, first, second);
    out.Print("%u.%u", first, second);
    while (TakeSubIdentifier(data, end, value))
        out.Print(".%u", value);
}

bool DEREncodedOID::operator<(const DEREncodedOID& other) const {
    if (m_Length != other.m_Length)
        return m_Length < other.m_Length;
    return std::memcmp(m_Data, other.m_Data, m_Length) < 0;
}
