#include "QvProgram.h"

#include "Trend.h"

#include <cmath>
#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

class QvHistoryRead : public QvProgram {
protected:
    // Late records, two tags, three minutes.
    void SetUp() override {
        Import("2021-01-01T00:00:00Z,a,1\n"
               "2021-01-01T00:01:00Z,a,3\n"
               "2021-01-01T00:00:30Z,b,10\n"
               "2021-01-01T00:00:40Z,a,2\n"
               "2021-01-01T00:01:30Z,b,nan\n"
               "2021-01-01T00:01:59.9999999Z,a,-4.5\n");
    }

    // The values that a read prints, in order.
    std::string Values(const std::string& options) {
        return Do("history read t --csv " + options + " | cut -d, -f3 | tail -n +2 | tr '\\n' ' '");
    }
};

} // namespace

TEST_F(QvHistoryRead, SelectsByTimeTagAndCount) {
    EXPECT_EQ(Values(""), "1 3 10 2 nan -4.5 ");
    EXPECT_EQ(Values("--sorted"), "1 10 2 3 nan -4.5 ");
    EXPECT_EQ(Values("--from 2021-01-01T00:00:30Z --to 2021-01-01T00:01Z"), "3 10 2 ");
    EXPECT_EQ(Values("--last 30s"), "nan -4.5 ");
    EXPECT_EQ(Values("--to 2021-01-01T00:00:40Z --last 10s"), "10 2 ");
    EXPECT_EQ(Values("--tag b"), "10 nan ");
    EXPECT_EQ(Values("--tag 1 --limit 2"), "1 3 ");
    EXPECT_EQ(Values("--sorted --limit 2"), "1 10 ");
    EXPECT_EQ(Values("--limit 0"), "");
    EXPECT_EQ(Values("--from -10m --to now"), "");

    const Result nothing = Run("history read t --from 2022-01-01");
    EXPECT_EQ(nothing.m_ExitCode, 0);
    EXPECT_EQ(nothing.m_Out, "");
    EXPECT_THAT(nothing.m_Error, HasSubstr("no such records in t (6 in all)"));
}

TEST_F(QvHistoryRead, PrintsForPeopleAndForPrograms) {
    m_Folder.Write("t/tags.txt", "1 a\\\"b bar\n2 \xC3\xA4\n");
    EXPECT_EQ(Do("history read t --limit 3"),
              "time                      tag   value  unit  quality\n"
              "2021-01-01T00:00:00.000Z  a\\\"b      1  bar         0\n"
              "2021-01-01T00:01:00.000Z  a\\\"b      3  bar         0\n"
              "2021-01-01T00:00:30.000Z  \xC3\xA4        10              0\n");
    EXPECT_EQ(
        Do("--json history read t --limit 1"),
        "{\"time\":\"2021-01-01T00:00:00.0000000Z\",\"tag\":\"a\\\\\\\"b\",\"value\":1,\"quality\":0}\n");
    EXPECT_EQ(
        Do("history read t --json --from 2021-01-01T00:01:30Z --limit 1"),
        "{\"time\":\"2021-01-01T00:01:30.0000000Z\",\"tag\":\"\xC3\xA4\",\"value\":null,\"quality\":0}\n");
}

TEST_F(QvHistoryRead, ShowsLocalTimes) {
    const auto time = [&](const std::string& options, const std::string& variables = "") {
        return Do("history read t --limit 1 " + options + " | tail -n 1 | sed 's/  .*//'", variables);
    };
    EXPECT_EQ(time("--zone Asia/Kolkata"), "2021-01-01 05:30:00.000 +05:30\n");
    EXPECT_EQ(time("--zone local --time-format 'EEE d MMMM HH:mm'", "TZ=Asia/Tokyo LC_ALL=de_DE.UTF-8"),
              "Fr 1 Januar 09:00\n");
    EXPECT_EQ(time("--time-format 'd.M.yy H:mm XXX'"), "1.1.21 0:00 Z\n");
}

TEST_F(QvHistoryRead, CountsPerTagAndInterval) {
    EXPECT_EQ(Do("history stats t --every 1m --csv"), "time,tag,count,min,mean,max\n"
                                                      "2021-01-01T00:00:00.0000000Z,a,2,1,1.5,2\n"
                                                      "2021-01-01T00:00:00.0000000Z,b,1,10,10,10\n"
                                                      "2021-01-01T00:01:00.0000000Z,a,2,-4.5,-0.75,3\n");
    EXPECT_EQ(
        Do("history stats t --every 1h --tag a --json"),
        "{\"time\":\"2021-01-01T00:00:00.0000000Z\",\"tag\":\"a\",\"count\":4,\"min\":-4.5,\"mean\":0.375,"
        "\"max\":3}\n");
    // The same over several files, and with an interval that the files cut.
    EXPECT_EQ(Run("history housekeep t --keep 100 --max-file 48").m_ExitCode, 0);
    EXPECT_THAT(Do("history files t --csv"), HasSubstr("202101010001_"));
    EXPECT_THAT(Do("history stats t --every 3m --csv --tag a"),
                HasSubstr("2021-01-01T00:00:00.0000000Z,a,4,-4.5,0.375,3"));
}

TEST_F(QvHistoryRead, RefusesWhatCannotBe) {
    const char* const wrong[] = {
        "", "history", "history read", "history read t --bogus", "history read t --tag nosuch",
        "history read t --from tomorrow", "history read t --last 5", "history read t --last -5s",
        "history read t --from 2021-01-02 --to 2021-01-01", "history read t --last 1m --from 2021-01-01",
        "history read t --limit -1", "history read t --zone Nowhere",
        "history read t --zone ../../etc/passwd", "history read t --zone local --json",
        "history read t --time-format d --csv", "history stats t", "history stats t --every 0s",
        "history stats t --every 1e99d", "history plot t --tag a --json", "history plot t --tag a --width 5",
        "history files t --json --csv",
        // Layouts.
        "history read t --layout time:i64,value", "history read t --layout value:f64",
        "history read t --layout ''", "history read t --layout time:i64,:b131065",
        "history read t --layout time:i64,x:u8,x:u8", "history read t --layout time:i64,x:b4",
        "history read t --layout time:i64,:b4294967297", "history read t --layout time:u64",
        "history read t --layout time:i64,tag:f64",
        "history stats t --every 1m --layout time:i64,tag:u32,:b12"};
    for (const char* const arguments : wrong) {
        const Result result = Run(arguments);
        EXPECT_EQ(result.m_ExitCode, 2) << arguments;
        EXPECT_THAT(result.m_Error, StartsWith("qv: error: ")) << arguments;
        EXPECT_EQ(result.m_Out, "") << arguments;
    }
    EXPECT_THAT(Run("history read nowhere").m_Error, HasSubstr("there is no folder 'nowhere'"));
    EXPECT_EQ(Run("history read nowhere").m_ExitCode, 3);
    EXPECT_EQ(Run("history read in.csv").m_ExitCode, 3);
    EXPECT_THAT(Do("history read --help"), HasSubstr("--sorted"));
    EXPECT_EQ(Run("history read t >/dev/full #").m_ExitCode, 3);
}

TEST_F(QvHistoryRead, KnowsOtherLayouts) {
    const std::string layout = "--layout time:i64,:b3,tag:u8,level:i16,value:f32,count:u64 ";
    m_Folder.Write("in.csv", "time,tag,value,level,count\n2021-01-01,x,0.1,-32768,18446744073709551615\n"
                             "2021-01-02,x,-2,32767,0\n");
    Do("history import o in.csv " + layout);
    EXPECT_EQ(Do("history read o --csv " + layout),
              "time,tag,value,level,count\n"
              "2021-01-01T00:00:00.0000000Z,x,0.1,-32768,18446744073709551615\n"
              "2021-01-02T00:00:00.0000000Z,x,-2,32767,0\n");
    m_Folder.Write("in.csv",
                   "time,tag,value,level,count\n5,x,1e39,0,0\n5,x,1,32768,0\n5,x,1,0,-1\n5,256,1,0,1\n");
    EXPECT_EQ(JsonNumber(Run("history import o in.csv --keep-going --json " + layout).m_Out, "skipped"), 4);

    // The wrong layout is found out before anything is read, cut or added.
    for (const char* const arguments :
         {"history read o", "history stats o --every 1s", "history import o in2.csv",
          "history record o --for 1s", "history housekeep o --keep 1 --max-file 1M"}) {
        m_Folder.Write("in2.csv", "7,x,1\n");
        Fails(3, arguments, "does not hold records of 24 bytes");
    }
    EXPECT_EQ(JsonNumber(Do("history files o --json " + layout), "bytes"), 52);
}

TEST_F(QvHistoryRead, DrawsTrends) {
    std::string csv;
    for (int minute = 0; minute < 600; ++minute)
        csv += std::to_string(600'000'000LL * minute) + ",ramp," + std::to_string(minute) + "\n";
    m_Folder.Write("in.csv", csv);
    Do("history import r in.csv");
    m_Folder.Write("r/tags.txt", "1 ramp <\xC2\xB0"
                                 "C>\n");

    // A ramp fills the diagonal: one dot or two in every column, from the bottom left to the top right.
    const std::string text = Do("history plot r --tag ramp --ascii --width 70 --height 13");
    EXPECT_THAT(text, StartsWith("ramp [<\xC2\xB0"
                                 "C>]  1601-01-01T00:00:00.000Z to 1601-01-01T09:59:00.000Z  600 values\n"));
    EXPECT_THAT(text,
                HasSubstr("\n     600 +                                                         ***\n"));
    EXPECT_THAT(text, HasSubstr("\n       0 +***\n          00:00:00                  04:59:30"));
    EXPECT_THAT(Do("history plot r --tag ramp --width 70"), HasSubstr("\xE2\xA0"));

    Do("history plot r --tag ramp --svg ramp.svg");
    const std::string svg = m_Folder.Read("ramp.svg");
    EXPECT_THAT(svg, StartsWith("<svg xmlns="));
    EXPECT_THAT(svg, HasSubstr(">ramp [&lt;\xC2\xB0"
                               "C&gt;]"));
    EXPECT_THAT(svg, HasSubstr(">600</text>"));
    EXPECT_THAT(svg, HasSubstr("M80.5 360.0L")); // starts at the bottom left
    EXPECT_EQ(Run("history plot r --tag ramp --svg /dev/full").m_ExitCode, 3);
    EXPECT_EQ(Run("history plot t --tag b --from 2021-01-01T00:01Z").m_ExitCode, 1);
}

TEST(QvTrend, KeepsWithinItsScaleWhateverTheValues) {
    const double huge = 1.7e308;
    for (const auto& values : std::vector<std::vector<double>>{{0},
                                                               {5, 5},
                                                               {-huge, huge},
                                                               {huge, huge},
                                                               {1e-320, 2e-320},
                                                               {0.1, 0.3},
                                                               {1e15, 1e15 + 1},
                                                               {NAN, 1, INFINITY}}) {
        Trend trend(-9'000'000'000'000'000'000, 9'000'000'000'000'000'000, 50);
        for (std::size_t index = 0; index < values.size(); ++index)
            trend.Add(static_cast<long long>(index), values[index]);
        const AxisScale scale(trend.GetMin(), trend.GetMax(), 5);
        EXPECT_TRUE(std::isfinite(scale.m_Start) && std::isfinite(scale.GetEnd()) && scale.m_Step > 0);
        EXPECT_THAT(DrawAsText(trend, {"x", ""}, {60, 8, true}), HasSubstr("*"));
        EXPECT_THAT(DrawAsSvg(trend, {"x", ""}), Not(HasSubstr("nan")));
    }
}
