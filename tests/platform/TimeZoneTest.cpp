#include <QVPlatform/Locale.h>
#include <QVPlatform/TimeZone.h>

#include "CurrentTimeZone.h"

#include "support/EnvironmentVariable.h"
#include "support/TemporaryFolder.h"
#include <atomic>
#include <climits>
#include <ctime>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

namespace fs = std::filesystem;
using testing::ElementsAre;

namespace {

constexpr long long Second = CQVTimeInterval::UnitsPerSecond;
constexpr long long UnixEpoch = 11'644'473'600 * Second;
constexpr const char* DatabaseFolder = "/usr/share/zoneinfo";

std::string TextOf(CQVTimestamp time) {
    qvstring text;
    time.ToText(text);
    return text;
}

long long OffsetAt(const CQVTimeZone& zone, long long unixTime) {
    const CQVTimestamp time(UnixEpoch + unixTime * Second);
    return (zone.ToLocalTime(time) - time).GetValue() / Second;
}

long long OffsetOfTheCLibrary(long long unixTime) {
    const auto time = static_cast<time_t>(unixTime);
    tm fields{};
    localtime_r(&time, &fields);
    return fields.tm_gmtoff;
}

// Compares all changes of the offset that the C library knows for its current zone, and one time in each
// stretch of `step` seconds. Returns the changes, -1 after a difference.
int CompareWithTheCLibrary(const CQVTimeZone& zone, long long from, long long to, long long step) {
    int changes = 0;
    long long before = OffsetOfTheCLibrary(from);
    for (long long time = from; time < to; time += step) {
        const long long after = OffsetOfTheCLibrary(time + step);
        if (OffsetAt(zone, time) != before)
            return -1;
        if (before != after) {
            long long low = time, high = time + step;
            while (high - low > 1) {
                const long long middle = low + (high - low) / 2;
                (OffsetOfTheCLibrary(middle) == before ? low : high) = middle;
            }
            if (OffsetAt(zone, low) != before || OffsetAt(zone, high) != OffsetOfTheCLibrary(high))
                return -1;
            changes++;
        }
        before = after;
    }
    return changes;
}

// The names of the database's zones, as its folder has them.
std::vector<std::string> NamesInDatabase() {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(DatabaseFolder)) {
        const std::string name = entry.path().string().substr(std::string(DatabaseFolder).size() + 1);
        const bool bZone = name.find('.') == name.npos && name.find("leap") == name.npos;
        if (entry.is_regular_file() && bZone && name.compare(0, 5, "posix") != 0 &&
            name.compare(0, 5, "right") != 0 && name != "localtime")
            names.push_back(name);
    }
    return names;
}

} // namespace

TEST(TimeZone, AllZonesFollowTheCLibraryFrom1900To2250) {
    constexpr long long Year1900 = -2'208'988'800, Year2250 = 8'835'955'200, Step = 13 * 86'400 + 3601;
    EnvironmentVariable variable("TZ", nullptr);
    const std::vector<std::string> names = NamesInDatabase();
    EXPECT_GT(names.size(), 300U);
    int total = 0;
    for (const std::string& name : names) {
        variable.Set(name.c_str());
        tzset();
        CQVTimeZone zone;
        ASSERT_TRUE(zone.UseSpecifiedTimeZone(name)) << name;
        EXPECT_EQ(zone.GetIANATimeZoneName(), name);
        const int changes = CompareWithTheCLibrary(zone, Year1900, Year2250, Step);
        EXPECT_GE(changes, 0) << name;
        total += changes;
    }
    EXPECT_GT(total, 30'000);
}

TEST(TimeZone, LocalTimes) {
    const struct {
        const char* zone;
        const char* time;
        const char* local;
    } cases[] = {
        {"Europe/Berlin", "2024-03-31T00:59:59.9999999Z", "2024-03-31T01:59:59.9999999Z"},
        {"Europe/Berlin", "2024-03-31T01:00:00Z", "2024-03-31T03:00:00.0000000Z"},
        {"Europe/Berlin", "2024-10-27T00:59:59.9999999Z", "2024-10-27T02:59:59.9999999Z"},
        {"Europe/Berlin", "2024-10-27T01:00:00Z", "2024-10-27T02:00:00.0000000Z"},
        {"Europe/Berlin", "2050-07-01T12:00:00Z", "2050-07-01T14:00:00.0000000Z"},
        {"Europe/Berlin", "9999-07-01T12:00:00Z", "9999-07-01T14:00:00.0000000Z"},
        {"Europe/Berlin", "1850-01-01T00:00:00Z", "1850-01-01T00:53:28.0000000Z"}, // the sun's time
        {"Australia/Lord_Howe", "2024-07-01T00:00:00Z", "2024-07-01T10:30:00.0000000Z"},
        {"Asia/Kolkata", "2024-07-01T00:00:00Z", "2024-07-01T05:30:00.0000000Z"},
        {"America/St_Johns", "2024-07-01T00:00:00Z", "2024-06-30T21:30:00.0000000Z"},
        {"Etc/UTC", "-0100-07-01T00:00:00Z", "-0100-07-01T00:00:00.0000000Z"},
    };
    for (const auto& c : cases) {
        CQVTimeZone zone;
        ASSERT_TRUE(zone.UseSpecifiedTimeZone(c.zone));
        CQVTimestamp time;
        ASSERT_TRUE(time.FromText(c.time));
        EXPECT_EQ(TextOf(zone.ToLocalTime(time)), c.local) << c.zone << ' ' << c.time;
    }
    CQVTimeZone ahead, behind;
    ASSERT_TRUE(ahead.UseSpecifiedTimeZone("Europe/Berlin") &&
                behind.UseSpecifiedTimeZone("America/New_York"));
    EXPECT_EQ(ahead.ToLocalTime(CQVTimestamp(LLONG_MAX)).GetValue(), LLONG_MAX);
    EXPECT_EQ(behind.ToLocalTime(CQVTimestamp(LLONG_MIN)).GetValue(), LLONG_MIN);
}

TEST(TimeZone, ThreadsShareAZone) {
    CQVTimeZone zone;
    ASSERT_TRUE(zone.UseSpecifiedTimeZone("Europe/Berlin"));
    constexpr long long Winter = 1'704'067'200, Summer = 1'719'792'000; // 2024
    std::atomic<int> wrong{0};
    const auto work = [&](long long first, long long second) {
        for (int i = 0; i < 5000; i++)
            wrong += OffsetAt(zone, i % 2 == 0 ? first : second) !=
                     ((i % 2 == 0) == (first == Winter) ? 3600 : 7200);
    };
    std::thread one(work, Winter, Summer), two(work, Summer, Winter);
    one.join();
    two.join();
    EXPECT_EQ(wrong, 0);
}

TEST(TimeZone, UnknownNamesKeepTheZone) {
    CQVTimeZone zone;
    EXPECT_EQ(zone.GetIANATimeZoneName(), "Etc/UTC");
    ASSERT_TRUE(zone.UseSpecifiedTimeZone("Asia/Tokyo"));
    const std::string_view unknown[] = {"",
                                        "Europe",
                                        "Europe/",
                                        "/Europe/Berlin",
                                        "Europe//Berlin",
                                        "europe/berlin",
                                        "Europe/Berlin ",
                                        "Europe/./Berlin",
                                        "../../etc/passwd",
                                        "../zoneinfo/Europe/Berlin",
                                        "Europe/../Europe/Paris",
                                        "/usr/share/zoneinfo/Europe/Berlin",
                                        "tzdata.zi",
                                        "localtime",
                                        "posix/Europe/Berlin",
                                        "right/Europe/Berlin",
                                        "Fixed/UTC+01:00:00",
                                        "UTC+1",
                                        "CET-1CEST",
                                        ":Europe/Berlin",
                                        "file:Europe/Berlin",
                                        "libc:localtime",
                                        "Nowhere/Atlantis",
                                        {"Europe/Berlin\0", 14}};
    for (const std::string_view name : unknown)
        EXPECT_FALSE(zone.UseSpecifiedTimeZone(name)) << name;
    EXPECT_FALSE(zone.UseSpecifiedTimeZone(std::string(1 << 20, 'a')));
    EXPECT_EQ(zone.GetIANATimeZoneName(), "Asia/Tokyo");
    EXPECT_EQ(OffsetAt(zone, 0), 9 * 3600);
}

TEST(TimeZone, UtcNeedsNoDatabaseAndABrokenFileIsNoZone) {
    TemporaryFolder folder;
    folder.Write("Broken", "TZif2");
    const EnvironmentVariable variable("TZDIR", folder.GetPath().c_str());
    CQVTimeZone zone;
    EXPECT_FALSE(zone.UseSpecifiedTimeZone("Broken"));
    EXPECT_TRUE(zone.UseSpecifiedTimeZone("UTC"));
    EXPECT_EQ(zone.GetIANATimeZoneName(), "UTC");
}

TEST(TimeZone, CurrentZoneComesFromTheEnvironment) {
    EnvironmentVariable variable("TZ", nullptr);
    CQVTimeZone zone;
    const char* const values[][2] = {{"Europe/Berlin", "Europe/Berlin"},
                                     {":Asia/Tokyo", "Asia/Tokyo"},
                                     {"/usr/share/zoneinfo/Asia/Kolkata", "Asia/Kolkata"},
                                     {"", "UTC"}};
    for (const auto& [value, name] : values) {
        variable.Set(value);
        EXPECT_TRUE(zone.UseCurrentTimeZone());
        EXPECT_EQ(zone.GetIANATimeZoneName(), name);
    }
}

TEST(TimeZone, CurrentZoneOfASystem) {
    TemporaryFolder folder;
    const std::string path = folder.GetPath();
    fs::create_directories(path + "/etc");
    fs::create_directories(path + "/usr/zoneinfo/Europe");
    folder.Write("usr/zoneinfo/Europe/Zurich", "");
    fs::create_symlink("Zurich", path + "/usr/zoneinfo/Europe/Vaduz");
    fs::create_symlink("../usr/zoneinfo/Europe/Vaduz", path + "/etc/localtime");
    fs::create_symlink("localtime", path + "/etc/again");
    fs::create_symlink("loop", path + "/etc/loop");
    folder.Write("etc/timezone", "Europe/Rome\n# old\n");
    const auto names = [&](const char* variable, const char* link, const char* file = "none") {
        return qv_current_time_zone_names({variable, path + "/etc/" + link, path + "/etc/" + file});
    };
    EXPECT_THAT(names("Asia/Tokyo", "localtime", "timezone"),
                ElementsAre("Asia/Tokyo", "Europe/Vaduz", "Europe/Zurich", "Europe/Rome"));
    EXPECT_THAT(names(nullptr, "again"), ElementsAre("Europe/Vaduz", "Europe/Zurich", ""));
    EXPECT_THAT(names((":" + path + "/etc/again").c_str(), "none"),
                ElementsAre("Europe/Vaduz", "Europe/Zurich", ""));
    EXPECT_THAT(names(nullptr, "loop", "timezone"), ElementsAre("Europe/Rome"));
    EXPECT_THAT(names(nullptr, "timezone", "timezone"), ElementsAre("Europe/Rome")); // a file, no link
}

TEST(Locale, NamesAndWhatTheyMean) {
    const struct {
        const char* name;
        const char* kept;
        unsigned int language;
    } cases[] = {{"de-DE", "de-DE", CQVLocale::German},
                 {"de_AT.UTF-8", "de-AT", CQVLocale::German},
                 {"DE", "de", CQVLocale::German},
                 {"de_DE@euro", "de-DE", CQVLocale::German},
                 {"den", "den", CQVLocale::English},
                 {"fr_fr.ISO8859-1", "fr-FR", CQVLocale::English},
                 {"zh-hans-cn", "zh-Hans-CN", CQVLocale::English},
                 {"es-419", "es-419", CQVLocale::English},
                 {"C.UTF-8", "en-US", CQVLocale::English},
                 {"POSIX", "en-US", CQVLocale::English}};
    for (const auto& c : cases) {
        CQVLocale locale(CQVLocale::German);
        EXPECT_TRUE(locale.SetFromLocaleName(c.name)) << c.name;
        EXPECT_STREQ(locale.GetLocaleName(), c.kept);
        EXPECT_EQ(locale.GetLanguageId(), c.language) << c.name;
    }
    CQVLocale locale(CQVLocale::German);
    const std::string_view wrong[] = {"",
                                      ".UTF-8",
                                      "d",
                                      "de-",
                                      "-de",
                                      "de--DE",
                                      "de DE",
                                      "d3",
                                      "de-D\xC3\x84",
                                      "abcdefghi",
                                      "de-abcdefghi",
                                      {"de\0", 3},
                                      "../../etc/passwd",
                                      "de-aaaaaaaa-bbbbbbbb-cccccccc-ddddddd"}; // 36 characters
    for (const std::string_view name : wrong)
        EXPECT_FALSE(locale.SetFromLocaleName(name)) << name;
    EXPECT_STREQ(locale.GetLocaleName(), "de-DE");
    EXPECT_EQ(locale.GetLanguageId(), CQVLocale::German);
    EXPECT_STREQ(CQVLocale(1036).GetLocaleName(), "und");
}

TEST(Locale, OfTheCurrentUser) {
    EnvironmentVariable all("LC_ALL", "de_DE.UTF-8"), time("LC_TIME", "fr_FR"), messages("LC_MESSAGES", "it"),
        lang("LANG", "es_ES");
    CQVLocale locale;
    const auto name = [&] {
        locale.SetFromCurrentUser();
        return std::string(locale.GetLocaleName());
    };
    EXPECT_EQ(name(), "de-DE");
    all.Set("");
    EXPECT_EQ(name(), "fr-FR");
    time.Set(nullptr);
    EXPECT_EQ(name(), "it");
    messages.Set(nullptr);
    EXPECT_EQ(name(), "es-ES");
    lang.Set("?");
    EXPECT_EQ(name(), "en-US");
    lang.Set(nullptr);
    EXPECT_EQ(name(), "en-US");
}
