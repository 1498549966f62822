// Date and time patterns, and their binary form, of any bytes. What is written is bounded, and comes through
// saving and loading unchanged.
#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>
#include <QVLib/Formatting/DataFormatSettings.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/TextOutput.h>
#include <cstdint>
#include <cstring>
#include <exception>

namespace {

constexpr unsigned int LongestPattern = 16384;     // characters that can be loaded
constexpr unsigned int MostBytesPerCharacter = 12; // one letter may be a name

qvstring Format(const DateTimeFormat& format, const CQVTimeZone* zone, long long time) {
    CTextOutputString out;
    format.FormatDateTime(CQVLocale(CQVLocale::German), zone, time, out);
    return out.GetString();
}

DateTimeFormat SavedAndLoaded(const DateTimeFormat& format) {
    BinaryOutputBuffer output(BinaryStringLengthUTF8Character);
    format.SaveDateTimeFormat(output);
    CBinaryInputFromBinaryOutputBuffer input(&output);
    DateTimeFormat loaded;
    loaded.LoadDateTimeFormat(input);
    QV_ASSERT(input.IsEOF());
    return loaded;
}

void Check(const DateTimeFormat& format, const CQVTimeZone* zone, long long time) {
    const DateTimeFormat loaded = SavedAndLoaded(format);
    const qvstring text = Format(format, zone, time);
    QV_ASSERT(text.size() <= LongestPattern * MostBytesPerCharacter);
    QV_ASSERT(Format(loaded, zone, time) == text);
    QV_ASSERT(loaded.GetDateTimeFormatComponents() == format.GetDateTimeFormatComponents());
}

} // namespace

// The first eight bytes are the time.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    long long time = 0;
    if (size < sizeof time || size > LongestPattern)
        return 0;
    std::memcpy(&time, data, sizeof time);
    const auto length = static_cast<unsigned int>(size - sizeof time);
    CQVTimeZone zone;
    QV_ASSERT(zone.UseSpecifiedTimeZone("UTC"));

    DateTimeFormat format;
    format.ParseDateTimeFormat(reinterpret_cast<const char*>(data) + sizeof time, length);
    Check(format, &zone, time);

    CDataFormatSettings settings;
    BinaryInputFromReadOnlyData input(BinaryStringLengthUTF8Character, data + sizeof time, length);
    try {
        settings.LoadDataFormatSettings(44, input);
    } catch (const std::exception&) {
        return 0; // cut, or not what a client may send
    }
    Check(settings.m_DateFormat, &settings.m_TimeZone, time);
    Check(settings.m_DateTimeFormat, &settings.m_TimeZone, time);
    return 0;
}
