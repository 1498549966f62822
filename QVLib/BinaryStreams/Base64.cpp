#include <QVLib/BinaryStreams/Base64.h>
#include <array>
#include <limits>
#include <string_view>

namespace {

constexpr std::string_view Digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Above all values, whatever they are shifted by.
constexpr unsigned int NoDigit = 0x80000000;

using DigitTable = std::array<unsigned int, 256>;

// What a character is worth at one of the four places of a group.
constexpr DigitTable MakeTable(int shift) {
    DigitTable table{};
    table.fill(NoDigit);
    for (unsigned int value = 0; value < Digits.size(); value++)
        table[static_cast<unsigned char>(Digits[value])] = value << shift;
    return table;
}

constexpr DigitTable First = MakeTable(18);
constexpr DigitTable Second = MakeTable(12);
constexpr DigitTable Third = MakeTable(6);
constexpr DigitTable Fourth = MakeTable(0);

// Decodes groups without padding, as far as there is room for them and nothing is wrong, and moves both on.
void DecodeFullGroups(const unsigned char*& group, const unsigned char* end, unsigned char*& output,
                      const unsigned char* outputEnd) {
    const unsigned char* from = group;
    unsigned char* to = output;
    for (; from != end && outputEnd - to >= 3; from += 4, to += 3) {
        const unsigned int bits = First[from[0]] | Second[from[1]] | Third[from[2]] | Fourth[from[3]];
        if ((bits & NoDigit) != 0)
            break;
        to[0] = static_cast<unsigned char>(bits >> 16);
        to[1] = static_cast<unsigned char>(bits >> 8);
        to[2] = static_cast<unsigned char>(bits);
    }
    group = from;
    output = to;
}

// Decodes the last one or two bytes of a padded group.
bool DecodePaddedGroup(const unsigned char* group, unsigned char*& output, const unsigned char* outputEnd) {
    const bool bTwoBytes = group[2] != '=';
    const unsigned int bits = First[group[0]] | Second[group[1]] | (bTwoBytes ? Third[group[2]] : 0);
    if (group[3] != '=' || outputEnd - output < (bTwoBytes ? 2 : 1) || (bits & NoDigit) != 0)
        return false;
    *output++ = static_cast<unsigned char>(bits >> 16);
    if (bTwoBytes)
        *output++ = static_cast<unsigned char>(bits >> 8);
    return true;
}

} // namespace

bool CBase64::DecodeBase64(const char* text, unsigned int length, unsigned char* output,
                           unsigned int outputSize, unsigned int& written) {
    written = 0;
    if (length % 4 != 0)
        return false;
    const unsigned char* group = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* const end = group + length;
    unsigned char* current = output;
    unsigned char* const outputEnd = output + outputSize;
    bool bDecoded = true;
    for (DecodeFullGroups(group, end, current, outputEnd); bDecoded && group != end;
         DecodeFullGroups(group, end, current, outputEnd)) {
        bDecoded = DecodePaddedGroup(group, current, outputEnd);
        group += bDecoded ? 4 : 0;
    }
    written = static_cast<unsigned int>(current - output);
    return bDecoded;
}

bool CBase64::DecodeBase64(const qvstring& text, unsigned char* output, unsigned int outputSize,
                           unsigned int& written) {
    written = 0;
    return text.size() <= std::numeric_limits<unsigned int>::max() &&
           DecodeBase64(text.data(), static_cast<unsigned int>(text.size()), output, outputSize, written);
}
