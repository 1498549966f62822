#include <gmock/gmock.h>

#include "QvProgram.h"

using testing::HasSubstr;

namespace {

class QvHistoryRecord : public QvProgram {};

} // namespace

TEST_F(QvHistoryRecord, LosesNothingWhenItIsStopped) {
    // The time of the signal falls between two flushes, so records are still in memory when it comes. --foreground:
    // otherwise the signal is sent twice, and the second one is meant to end the program at once.
    for (const char* const signal : {"TERM", "INT"}) {
        const std::string folder = std::string("t") + signal;
        const Result result =
            Run("history record " + folder + " --every 20ms --json",
                std::string("timeout --foreground --preserve-status -s ") + signal + " 1.6");
        EXPECT_EQ(result.m_ExitCode, 0) << result.m_Error;
        EXPECT_EQ(result.m_Error, "");
        const long long records = JsonNumber(result.m_Out, "records");
        EXPECT_GT(records, 100);
        EXPECT_EQ(JsonNumber(result.m_Out, "lost"), 0);
        EXPECT_EQ(Do("history read " + folder + " --csv | tail -n +2 | wc -l"),
                  std::to_string(records) + "\n");
        Do("history validate " + folder);
    }
}

TEST_F(QvHistoryRecord, GoesOnWhereItStopped) {
    Do("history record t --every 50ms --for 0.3s");
    const std::string tags = m_Folder.Read("t/tags.txt");
    EXPECT_THAT(tags, HasSubstr(" load.1m\n"));
    EXPECT_THAT(tags, HasSubstr(" memory.used MiB\n"));
    Do("history record t --every 50ms --for 0.3s");
    EXPECT_EQ(m_Folder.Read("t/tags.txt"), tags);
    // Seven samples each, give or take a slow machine.
    const long long count = JsonNumber(Do("history stats t --tag load.1m --every 1d --json"), "count");
    EXPECT_GE(count, 4);
    EXPECT_LE(count, 14);
    // They lie on a grid of 50 ms, so none can be doubled.
    EXPECT_EQ(Do("history read t --tag load.1m --csv | cut -d, -f1 | sort | uniq -d"), "");
}

TEST_F(QvHistoryRecord, SaysWhatItLost) {
    // A file system that is full from the start: the shell limits the size of files.
    const Result result = Fails(3, "history record t --every 50ms --for 1.5s --json",
                                "qv: error: Write file 't/", "trap '' XFSZ; ulimit -f 1; ");
    EXPECT_THAT(result.m_Error, HasSubstr("not everything could be recorded: File too Big"));
    const long long records = JsonNumber(result.m_Out, "records");
    const long long lost = JsonNumber(result.m_Out, "lost");
    EXPECT_GT(records, 0);
    EXPECT_THAT(result.m_Error, HasSubstr("Lost Records (" + std::to_string(lost) + ")"));
    EXPECT_EQ(Do("history read t --csv | tail -n +2 | wc -l"), std::to_string(records) + "\n");

    EXPECT_EQ(Run("history record missing/t --for 1s").m_ExitCode, 3);
    EXPECT_EQ(Run("history record t --every 0.1").m_ExitCode, 2);
    EXPECT_EQ(Run("history record t2 --layout time:i64,tag:u32,value:i32").m_ExitCode, 2);
}
