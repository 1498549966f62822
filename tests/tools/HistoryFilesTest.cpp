#include "QvProgram.h"

#include <QVPlatform/FileLock.h>
#include <gmock/gmock.h>

using testing::HasSubstr;

namespace {

class QvHistoryFiles : public QvProgram {
protected:
    // Ten minutes with a record each second.
    void SetUp() override {
        std::string csv;
        for (long long second = 0; second < 600; ++second)
            csv += std::to_string(second * 10'000'000) + ",a,1\n";
        Import(csv);
    }
};

} // namespace

TEST_F(QvHistoryFiles, ListsAndValidates) {
    EXPECT_EQ(Do("history files t --csv"),
              "file,from,to,records,bytes\n160101010000_160102151216.qvhis,1601-01-01T00:00:00.0000000Z,"
              "1601-02-15T12:16:00.0000000Z,600,14400\n");
    EXPECT_THAT(Do("history files t"), HasSubstr("\n1 file, 600 records, 14,400 bytes\n"));
    EXPECT_EQ(Do("history validate t"),
              "Checking 160101010000_160102151216.qvhis...\nNo faults in 1 file, 600 records\n");

    m_Folder.Write("t/stray.qvhis", "");
    const Result result = Run("history validate t --csv");
    EXPECT_EQ(result.m_ExitCode, 1);
    EXPECT_THAT(result.m_Out, HasSubstr("\nerror,** Unexpected file 'stray.qvhis' found\n"));
}

TEST_F(QvHistoryFiles, KeepsHouseDownToTheBudgets) {
    Result result = Run("history housekeep t --keep 600 --max-file 2400 --json");
    EXPECT_EQ(result.m_ExitCode, 0) << result.m_Error;
    EXPECT_THAT(result.m_Error, HasSubstr("qv: Split 160101010000_160102151216.qvhis (600 records) -> "));
    EXPECT_GE(JsonNumber(result.m_Out, "files"), 5);
    EXPECT_EQ(JsonNumber(result.m_Out, "records"), 600);
    result = Run("history housekeep t --keep 250 --max-file 2400 --json");
    EXPECT_THAT(result.m_Error, HasSubstr("qv: Deleted expired file '160101010000_"));
    EXPECT_GE(JsonNumber(result.m_Out, "records"), 250);
    EXPECT_LT(JsonNumber(result.m_Out, "records"), 400);
    EXPECT_EQ(JsonNumber(result.m_Out, "records") + JsonNumber(result.m_Out, "erased_records"), 600);
    Do("history validate t");

    EXPECT_EQ(Run("history housekeep t --keep 1 --max-file 23").m_ExitCode, 2); // less than a record
    EXPECT_EQ(Run("history housekeep t --keep 1 --max-file 4G").m_ExitCode, 2);
    EXPECT_EQ(Run("history housekeep t --keep 1 --max-file 99999999999G").m_ExitCode, 2);
}

TEST_F(QvHistoryFiles, DeletesOnlyWhenSure) {
    Fails(2, "history delete t", "--yes");
    EXPECT_EQ(JsonNumber(Do("history files t --json"), "records"), 600);
    EXPECT_EQ(Do("history delete t --yes --csv"), "erased_files,erased_records\n1,600\n");
    EXPECT_THAT(m_Folder.List("t"), testing::ElementsAre(".qv-lock", "tags.txt"));
    EXPECT_EQ(Run("history delete t2 --yes").m_ExitCode, 3);
}

TEST_F(QvHistoryFiles, HaveOneOwnerAtATime) {
    CQVFileLock lock;
    ASSERT_TRUE(lock.TryLock(m_Folder.File("t/.qv-lock")));
    for (const char* const arguments :
         {"history record t --for 1s", "history import t in.csv",
          "history housekeep t --keep 1 --max-file 1M", "history delete t --yes"}) {
        const Result result = Run(arguments);
        EXPECT_EQ(result.m_ExitCode, 3) << arguments;
        EXPECT_THAT(result.m_Error, HasSubstr("another process is recording into or changing 't'"))
            << arguments;
    }
    // Looking on is allowed.
    Do("history validate t");
    EXPECT_EQ(Do("history read t --csv | wc -l"), "601\n");
}
