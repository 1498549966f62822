#include <QVLib/Formatting/DataFormatSettings.h>

#include "support/BinaryBytes.h"
#include "support/EnvironmentVariable.h"
#include <QVPlatform/TextOutput.h>
#include <climits>
#include <gtest/gtest.h>
#include <random>
#include <stdexcept>
#include <unicode/gregocal.h>
#include <unicode/smpdtfmt.h>

namespace {

const CQVLocale English;
const CQVLocale German(CQVLocale::German);

CQVTimestamp Time(const std::string& text) {
    CQVTimestamp time;
    EXPECT_TRUE(time.FromText(text)) << text;
    return time;
}

CQVTimeZone Zone(const char* name) {
    CQVTimeZone zone;
    EXPECT_TRUE(zone.UseSpecifiedTimeZone(name)) << name;
    return zone;
}

std::string Format(const DateTimeFormat& format, CQVTimestamp time, const CQVLocale& locale = English,
                   const CQVTimeZone* zone = nullptr) {
    CTextOutputString out;
    format.FormatDateTime(locale, zone, time, out);
    return out.GetString();
}

std::string Format(const std::string& pattern, CQVTimestamp time, const CQVLocale& locale = English,
                   const CQVTimeZone* zone = nullptr) {
    DateTimeFormat format;
    format.ParseDateTimeFormat(pattern);
    return Format(format, time, locale, zone);
}

std::string Field(const CQVTimestamp::TimestampStruct& fields, int offset, int letter, int repeat) {
    CTextOutputString out;
    DateTimeFormat().PrintDateTimeField(English, nullptr, fields, offset, letter, repeat, out);
    return out.GetString();
}

// Items as a client sends them.
struct Item {
    unsigned char literal;
    int repeat;
    int codePoint;
};
void Load(DateTimeFormat& format, unsigned int count, const std::vector<Item>& items) {
    const std::string bytes = Saved([&](CBinaryOutput& output) {
        output << count;
        for (const Item& item : items) {
            output << item.literal;
            output.Write7BitEncodedInt(item.repeat);
            output.WriteUTFCharacter(item.codePoint);
        }
    });
    BytesInput input(bytes);
    format.LoadDateTimeFormat(input);
}

} // namespace

TEST(DateTimeFormat, Patterns) {
    const struct {
        const char* pattern;
        const char* time;
        const char* text;
    } cases[] = {
        {"yyyy-MM-dd HH:mm:ss.SSS", "2024-03-05T07:08:09.0459999", "2024-03-05 07:08:09.045"},
        {"h:mm aaa", "2024-03-05 13:05", "1:05 PM"},
        {"k kk K KKK H", "2024-03-05 00:00", "24 24 0 000 0"},
        {"k kk K KKK H", "2024-03-05 13:00", "13 13 1 001 13"},
        {"y yy yyy yyyy yyyyy", "2007-01-01", "07 07 07 2007 2007"},
        {"yy yyyy", "0033-01-01", "33 0033"},
        {"yy yyyy", "-0005-01-01", "05 -005"},
        {"yy yyyy", "+12345-01-01", "45 12345"},
        {"S SS SSS SSSS", "2024-03-05T07:08:09.045", "0 04 045 045"},
        {"D DDD d ddd m s", "2024-12-31T07:08:09", "366 366 31 031 8 9"},
        {"D DDD", "2023-01-01", "1 001"},
        {"E EE EEE EEEE EEEEE u uu", "2024-03-03", "Sun Sun Sun Sunday Sunday 7 07"},
        {"EEEE u", "2024-03-04", "Monday 1"},
        {"M MM MMM MMMM MMMMM", "2024-03-05", "3 03 Mar March March"},
        {"X XX XXX Z ZZZ", "2024-03-05", "Z Z Z +0000 +0000"},
        {"yy''yy", "2007-01-01", "2007"},
        {"yy'yy'yy", "2007-01-01", "07yy07"},
        {"''''", "2007-01-01", "'"},
        {"'no end: yyyy", "2007-01-01", "no end: yyyy"},
        {"GwzQ ää€😀\n%d\\", "2007-01-02", "GwzQ ää€😀\n%2\\"},
        {"\xFFyy", "2007-01-01", "\uFFFD07"},
        {"", "2007-01-01", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Format(c.pattern, Time(c.time)), c.text) << c.pattern << ' ' << c.time;
    std::string text;
    for (int i = 0; i < 200; i++)
        text += "ab€";
    EXPECT_EQ(Format("'" + text + "'yyyyMM'" + text + "'SSSS", Time("2007-01-01")),
              text + "200701" + text + "000");
    EXPECT_EQ(Format("EEE d MMM", Time("2024-03-05"), German), "Di 5 Mär");
    EXPECT_EQ(Format("EEEE MMMM a", Time("2024-03-05"), German), "Dienstag Marz AM");
    EXPECT_EQ(Format("yyyy D EEE", CQVTimestamp(LLONG_MIN)), "-27627 109 Thu");
    EXPECT_EQ(Format("yyyy D EEE", CQVTimestamp(LLONG_MAX)), "30828 258 Thu");
}

TEST(DateTimeFormat, OffsetsAndLocalTime) {
    const std::pair<int, const char*> cases[] = {
        {-210, "-03 -0330 -03:30 -0330"}, {330, "+05 +0530 +05:30 +0530"},
        {-30, "-00 -0030 -00:30 -0030"},  {0, "Z Z Z +0000"},
        {1, "+00 +0001 +00:01 +0001"},    {INT_MIN, "-35791394 -3579139408 -35791394:08 -3579139408"}};
    DateTimeFormat format;
    format.ParseDateTimeFormat("X XX XXX Z");
    for (const auto& [offset, text] : cases) {
        CTextOutputString out;
        format.FormatDateTime(English, nullptr, CQVTimestamp::TimestampStruct(), offset, out);
        EXPECT_EQ(out.GetString(), text);
    }
    const CQVTimeZone india = Zone("Asia/Kolkata"), newfoundland = Zone("America/St_Johns");
    const CQVTimestamp time = Time("2024-01-01T01:02:03");
    EXPECT_EQ(Format("d.M.yyyy H:mm X XXX", time, English, &india), "1.1.2024 6:32 +05 +05:30");
    EXPECT_EQ(Format("EEE d.M. H:mm Z", time, English, &newfoundland), "Sun 31.12. 21:32 -0330");
}

TEST(DateTimeFormat, FieldsThatDoNotExist) {
    CQVTimestamp::TimestampStruct fields;
    for (const unsigned int wrong : {0U, 13U, UINT_MAX, 0x80000000U}) {
        fields.month = wrong;
        EXPECT_EQ(Field(fields, 0, 'M', 3) + Field(fields, 0, 'M', 4), "??");
        fields.dayOfWeek = wrong + 7;
        EXPECT_EQ(Field(fields, 0, 'E', 3) + Field(fields, 0, 'E', 4),
                  wrong > 0x80000000U ? "SatSaturday" : "??");
    }
    fields.hour = fields.minute = fields.second = fields.millisecond = fields.dayOfYear = fields.day =
        UINT_MAX;
    for (const int letter : {'d', 'D', 'u', 'H', 'k', 'K', 'h', 'm', 's', 'S'})
        EXPECT_LE(Field(fields, 0, letter, 2).size(), 10U) << letter;
    for (const int repeat : {0, -1, INT_MIN})
        EXPECT_EQ(Field({}, 90, 'd', repeat) + Field({}, 90, 'X', repeat) + Field({}, 90, '-', repeat),
                  "1+01");
    EXPECT_EQ(Field({}, 0, 'd', INT_MAX), std::string(4095, '0') + '1');
    EXPECT_EQ(Field({}, 0, 0x20AC, INT_MAX).size(), 3U * 4096);
}

TEST(DateTimeFormat, Components) {
    const struct {
        const char* pattern;
        unsigned int components;
        bool date, time;
    } cases[] = {{"yyyy-MM-dd", 7, true, false},
                 {"MM/yy", 3, false, false},
                 {"yyyy D", 1, false, false},
                 {"'yyyy-MM-dd'", 0, false, false},
                 {"HH:mm:ss", 16 + 64 + 128, false, true},
                 {"hh:mm:ss", 8 + 64 + 128, false, false},
                 {"K:m:s a", 8 + 32 + 64 + 128, false, true},
                 {"d MMM y k:mm", 7 + 16 + 64, true, false}};
    for (const auto& c : cases) {
        DateTimeFormat format;
        format.ParseDateTimeFormat(c.pattern);
        EXPECT_EQ(format.GetDateTimeFormatComponents(), c.components) << c.pattern;
        EXPECT_EQ(format.IsCompleteDateFormat(), c.date) << c.pattern;
        EXPECT_EQ(format.IsCompleteTimeOfDayFormat(), c.time) << c.pattern;
    }
}

// Only what both understand alike: ICU pads "SSSS" on the right, writes the whole year for "y", minutes for
// "X" where there are any and an apostrophe for two of them anywhere, and knows more letters.
TEST(DateTimeFormat, AgreesWithIcu) {
    const char* const patterns[] = {"yyyy-MM-dd HH:mm:ss.SSS",  "EEEE d MMMM yyyy h:mm a",
                                    "yy M/dd D DDD k:K:hh kk",  "EEE, dd MMM yyyy HH:mm:ss Z",
                                    "yyyyMMdd'T'HHmmss'.'SSXX", "H 'o''clock' XXX S"};
    std::mt19937_64 random(7);
    for (const char* const name :
         {"Etc/UTC", "Europe/Berlin", "Asia/Kolkata", "America/St_Johns", "Australia/Sydney"}) {
        const CQVTimeZone zone = Zone(name);
        UErrorCode error = U_ZERO_ERROR;
        icu::GregorianCalendar calendar(icu::TimeZone::createTimeZone(name), icu::Locale("en", "US"), error);
        for (const char* const pattern : patterns) {
            icu::SimpleDateFormat peer(icu::UnicodeString(pattern), icu::Locale("en", "US"), error);
            peer.setCalendar(calendar);
            for (int i = 0; i < 500; i++) {
                const long long unixTime =
                    static_cast<long long>(random() % 1'600'000'000'000); // ms, to 2020
                icu::UnicodeString text;
                std::string expected;
                peer.format(static_cast<UDate>(unixTime), text).toUTF8String(expected);
                const CQVTimestamp time((unixTime + 11'644'473'600'000) *
                                        CQVTimeInterval::UnitsPerMillisecond);
                ASSERT_EQ(Format(pattern, time, English, &zone), expected) << name << ' ' << unixTime;
            }
        }
        ASSERT_TRUE(U_SUCCESS(error));
    }
}

TEST(DateTimeFormat, SavesAndLoads) {
    DateTimeFormat format;
    format.ParseDateTimeFormat("yyyy'y€'");
    const std::string bytes = Saved([&](CBinaryOutput& output) { format.SaveDateTimeFormat(output); });
    EXPECT_EQ(bytes, std::string("\3\0\0\0\0\4y\1\1y\1\1€", 15));
    for (unsigned int length = 0; length <= bytes.size(); length++) {
        DateTimeFormat loaded;
        loaded.ParseDateTimeFormat("d");
        const std::string part = bytes.substr(0, length);
        BytesInput input(part);
        if (length < bytes.size())
            EXPECT_THROW(loaded.LoadDateTimeFormat(input), CBinaryInput::EOFException);
        else
            loaded.LoadDateTimeFormat(input);
        EXPECT_EQ(Format(loaded, Time("2007-01-08")), length < bytes.size() ? "8" : "2007y€");
        EXPECT_EQ(loaded.GetFormat(), "d");
    }
}

TEST(DateTimeFormat, HostileItems) {
    DateTimeFormat format;
    format.ParseDateTimeFormat("d");
    const Item wrong[] = {{0, 0, 'd'}, {0, 1, 0x110000}, {1, 1, INT_MAX}};
    for (const Item& item : wrong)
        EXPECT_THROW(Load(format, 2, {{0, 1, 'M'}, item}), std::logic_error);
    const std::string negative = std::string(4, '\1') + std::string("\0\xFF\xFF\xFF\xFF\17d", 7);
    BytesInput input(negative);
    EXPECT_THROW(format.LoadDateTimeFormat(input), std::logic_error);
    EXPECT_THROW(Load(format, UINT_MAX, {{0, 1, 'M'}}), CBinaryInput::EOFException);
    Load(format, 0, {});
    EXPECT_EQ(Format(format, Time("2007-01-08")), "8");
    Load(format, 2, {{7, INT_MAX, 'd'}, {0, INT_MAX, 's'}});
    EXPECT_EQ(Format(format, Time("2007-01-08")), std::string(4096, 'd') + std::string(4096, '0'));
    std::vector<Item> longest{{0, INT_MAX, '-'}, {0, 5000, 's'}, {0, 4096, '-'}, {0, 4095, 'H'}, {0, 1, 'd'}};
    Load(format, 5, longest);
    EXPECT_EQ(Format(format, Time("2007-01-08")).size(), 16384U);
    longest.push_back({0, 1, 'M'});
    EXPECT_THROW(Load(format, 6, longest), std::logic_error);
    EXPECT_EQ(Format(format, Time("2007-01-08")).size(), 16384U);
}

TEST(DataFormatSettings, OfTheCurrentUser) {
    const EnvironmentVariable zone("TZ", "Asia/Kolkata"), locale("LC_ALL", "de_DE.UTF-8");
    const CQVTimestamp time = Time("2024-03-05T07:08:09.045");
    const auto text = [&](const CDataFormatSettings& settings) {
        CTextOutputString out;
        settings.FormatDateAndTime(time.GetValue(), out);
        return out.GetString();
    };
    CDataFormatSettings settings;
    EXPECT_EQ(settings.m_TimeZone.GetIANATimeZoneName(), "Etc/UTC");
    EXPECT_EQ(text(settings), "");
    settings.InitialiseForCurrentUser();
    EXPECT_EQ(text(settings), "2024-03-05 12:38:09.045");
    settings.InitialiseForCurrentUser("EEEE", "");
    EXPECT_EQ(text(settings), "Dienstag 12:38:09.045");
    settings.InitialiseForCurrentUser("", "H'h'");
    EXPECT_EQ(text(settings), "2024-03-05 12h");
    EXPECT_EQ(settings.m_DateTimeFormat.GetFormat(), "yyyy-MM-dd H'h'");
    const CDataFormatSettings copy(settings);
    EXPECT_EQ(text(copy), text(settings));
    settings.m_DateTimeFormat.SetFromDateAndTimeFormat(settings.m_DateTimeFormat, settings.m_DateTimeFormat);
    EXPECT_EQ(text(settings), "2024-03-05 12h 2024-03-05 12h");
}

TEST(DataFormatSettings, BinaryFormByVersion) {
    CDataFormatSettings settings;
    ASSERT_TRUE(settings.m_TimeZone.UseSpecifiedTimeZone("Asia/Tokyo") &&
                settings.m_Locale.SetFromLocaleName("de"));
    settings.m_DateFormat.ParseDateTimeFormat("d");
    const std::string zone = "\12Asia/Tokyo", locale = zone + "\2de";
    const std::string all = locale + std::string("\1\0\0\0\0\1d\0\0\0\0\0\0\0\0", 15);
    const std::pair<unsigned short, std::string> cases[] = {
        {17, ""}, {18, zone}, {20, zone}, {27, zone}, {28, locale}, {43, locale}, {44, all}, {65535, all}};
    for (const auto& [version, bytes] : cases) {
        const auto save = [&](CBinaryOutput& output) { settings.SaveDataFormatSettings(version, output); };
        EXPECT_EQ(Saved(save), bytes) << version;
        for (unsigned int length = 0; length <= bytes.size(); length++) {
            CDataFormatSettings loaded;
            const std::string part = bytes.substr(0, length);
            BytesInput input(part);
            const bool bCut = length < bytes.size();
            if (bCut)
                EXPECT_THROW(loaded.LoadDataFormatSettings(version, input), CBinaryInput::EOFException);
            else
                loaded.LoadDataFormatSettings(version, input);
            EXPECT_EQ(loaded.m_TimeZone.GetIANATimeZoneName(),
                      version < 18 || bCut ? "Etc/UTC" : "Asia/Tokyo");
            EXPECT_STREQ(loaded.m_Locale.GetLocaleName(), version < 28 || bCut ? "en-US" : "de");
            EXPECT_EQ(Format(loaded.m_DateFormat, CQVTimestamp()), version < 44 || bCut ? "" : "1");
        }
    }
    // Any other byte is understood or refused as a whole.
    int refused = 0;
    for (std::size_t i = 0; i < 8 * all.size(); i++) {
        std::string flipped = all;
        flipped[i / 8] = static_cast<char>(flipped[i / 8] ^ (1 << i % 8));
        BytesInput bytes(flipped);
        CDataFormatSettings loaded;
        try {
            loaded.LoadDataFormatSettings(44, bytes);
        } catch (const std::exception&) {
            refused++;
            EXPECT_EQ(loaded.m_TimeZone.GetIANATimeZoneName(), "Etc/UTC");
        }
        EXPECT_LE(Format(loaded.m_DateFormat, CQVTimestamp()).size(), 4096U);
    }
    EXPECT_GT(refused, 50);
    const std::string unknown = "\5../..\3d e";
    BytesInput input(unknown);
    settings.LoadDataFormatSettings(28, input);
    EXPECT_EQ(settings.m_TimeZone.GetIANATimeZoneName(), "Asia/Tokyo");
    EXPECT_STREQ(settings.m_Locale.GetLocaleName(), "de");
}
