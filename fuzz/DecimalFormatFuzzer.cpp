// A number and a pattern of any bytes. A faulty pattern changes nothing; what a good one writes is no longer than
// the pattern and the number give reason for.
#include <QVLib/Formatting/DecimalFormat.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/TextOutput.h>
#include <cstdint>
#include <cstring>

namespace {

// The digits before the point of the largest double, and those behind it of the smallest, with room to spare.
constexpr std::size_t LongestNumber = 1200;

qvstring Describe(const DecimalFormat& format) {
    CTextOutputString text;
    format.PrintDecimalFormat(text);
    return text.GetString();
}

template<class Write>
void RequireBoundedText(std::size_t patternLength, Write write) {
    CTextOutputString text;
    write(text);
    // A malformed byte of the pattern is three of U+FFFD, and a digit of it one digit and one ','.
    QV_ASSERT(!text.GetString().empty() && text.GetString().size() <= LongestNumber + 4 * patternLength);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    unsigned long long bits;
    if (size < sizeof bits)
        return 0;
    memcpy(&bits, data, sizeof bits);
    double value;
    memcpy(&value, data, sizeof value);
    const std::size_t length = size - sizeof bits;
    const char* const pattern = reinterpret_cast<const char*>(data) + sizeof bits;

    DecimalFormat format;
    const qvstring before = Describe(format);
    TextInputQVString input(pattern, static_cast<unsigned int>(length), "pattern");
    if (format.ParseDecimalFormat(&input) != 0) {
        QV_ASSERT(Describe(format) == before);
        return 0;
    }
    RequireBoundedText(length, [&](CTextOutput& text) { format.FormatDouble(value, text); });
    RequireBoundedText(length,
                       [&](CTextOutput& text) { format.FormatInt64(static_cast<long long>(bits), text); });
    RequireBoundedText(length, [&](CTextOutput& text) { format.FormatUInt64(bits, text); });
    return 0;
}
