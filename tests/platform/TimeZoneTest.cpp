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
using namespace std::string_view_literals;

namespace {

constexpr long long Second = CQVTimeInterval::UnitsPerSecond;
constexpr long long UnixEpoch = 11'644'473'600 * Second;
constexpr const char* DatabaseFolder = "/usr/share/zoneinfo";

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
        const std::string name = entry.path().string().substr(std::string_view(DatabaseFolder).size() + 1);
        const bool bOther = name.starts_with("posix") || name.starts_with("right") || name == "localtime" ||
                            name.find('.') != name.npos || name.find("leap") != name.npos;
        if (entry.is_regular_file() && !bOther)
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
        {"Europe/Berlin", "9999-07-01T12:00:00Z", "9999-07-01T14:00:00.0000000Z"},
        {"Europe/Berlin", "1850-01-01T00:00:00Z", "1850-01-01T00:53:28.0000000Z"}, // the sun's time
        {"Asia/Kolkata", "2024-07-01T00:00:00Z", "2024-07-01T05:30:00.0000000Z"},
        {"Etc/UTC", "-0100-07-01T00:00:00Z", "-0100-07-01T00:00:00.0000000Z"},
    };
    for (const auto& c : cases) {
        CQVTimeZone zone;
        ASSERT_TRUE(zone.UseSpecifiedTimeZone(c.zone));
        CQVTimestamp time;
        ASSERT_TRUE(time.FromText(c.time));
        qvstring local;
        zone.ToLocalTime(time).ToText(local);
        EXPECT_EQ(local, c.local) << c.zone << ' ' << c.time;
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
    const std::string_view unknown[] = {
        ""sv, "Europe"sv, "Europe/"sv, "/Europe/Berlin"sv, "Europe//Berlin"sv, "europe/berlin"sv,
        "Europe/Berlin "sv, "Europe/./Berlin"sv, "../../etc/passwd"sv, "../zoneinfo/Europe/Berlin"sv,
        "Europe/../Europe/Paris"sv, "/usr/share/zoneinfo/Europe/Berlin"sv, "tzdata.zi"sv, "localtime"sv,
        "posix/Europe/Berlin"sv, "right/Europe/Berlin"sv, "Nowhere/Atlantis"sv, "Europe/Berlin\0"sv,
        // Rules that other libraries understand.
        "Fixed/UTC+01:00:00"sv, "UTC+1"sv, "CET-1CEST"sv, ":Europe/Berlin"sv, "file:Europe/Berlin"sv,
        "libc:localtime"sv};
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
    for (const std::string_view name : {""sv, ".UTF-8"sv, "d"sv, "de-"sv, "-de"sv, "de--DE"sv, "de DE"sv,
                                        "d3"sv, "de-D\xC3\x84"sv, "abcdefghi"sv, "de-abcdefghi"sv, "de\0"sv,
                                        "../../etc/passwd"sv, "de-aaaaaaaa-bbbbbbbb-cccccccc-ddddddd"sv})
        EXPECT_FALSE(locale.SetFromLocaleName(name)) << name;
    EXPECT_STREQ(locale.GetLocaleName(), "de-DE");
    EXPECT_EQ(locale.GetLanguageId(), CQVLocale::German);
    EXPECT_STREQ(CQVLocale(1036).GetLocaleName(), "und");
}

TEST(Locale, OfTheCurrentUser) {
    const struct {
        const char *all, *time, *messages, *lang, *name;
    } cases[] = {
        {"de_DE.UTF-8", "fr_FR", "it", "es_ES", "de-DE"},
        {"", "fr_FR", "it", "es_ES", "fr-FR"},
        {"", nullptr, "it", "es_ES", "it"},
        {"", nullptr, nullptr, "es_ES", "es-ES"},
        {"", nullptr, nullptr, "?", "en-US"},
        {"", nullptr, nullptr, nullptr, "en-US"},
    };
    for (const auto& [all, time, messages, lang, name] : cases) {
        const EnvironmentVariable variables[] = {
            {"LC_ALL", all}, {"LC_TIME", time}, {"LC_MESSAGES", messages}, {"LANG", lang}};
        CQVLocale locale(CQVLocale::German);
        locale.SetFromCurrentUser();
        EXPECT_STREQ(locale.GetLocaleName(), name);
    }
}
