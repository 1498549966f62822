// Keeping house: trimming, splitting, validating, deleting; their messages, and what is noted for a standby.
#include "TestTable.h"
#include "support/FaultSystemCalls.h"

#include <cerrno>
#include <functional>
#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr long long P = kPeriod;
constexpr long long M = kMinute;
using Lines = std::vector<std::string>;

// Puts files on the disk, one a span, and gives their table.
struct Files {
    explicit Files(const std::vector<std::pair<std::pair<long long, long long>, Records>>& files) {
        for (const auto& [span, records] : files)
            folder.Write(NameOf(span.first, span.second), BytesOf(records));
        table = std::make_unique<TestTable>(folder.GetFilePath());
    }
    TestTable* operator->() const { return table.get(); }

    const TemporaryFolder folder;
    std::unique_ptr<TestTable> table;
};

Records Minutes(long long start, unsigned int count) {
    Records records;
    for (unsigned int i = 0; i < count; i++)
        records.push_back({start + i * M, i});
    return records;
}

std::string SplitLine(long long start, long long split, long long end, int records) {
    return "Split " + NameOf(start, end) + " (" + std::to_string(records) + " records) -> " +
           NameOf(start, split) + " and " + NameOf(split, end);
}

} // namespace

TEST(HistoricTableMaintenance, TrimsTheOldestFilesBeyondTheBudget) {
    struct Row {
        std::vector<unsigned int> counts;
        unsigned int target;
        int deleted;
    };
    const Row rows[] = {
        {{100, 100, 100}, 150, 1},
        {{100, 100, 100}, 199, 1},
        {{100, 100, 100}, 200, 0},
        {{100, 100, 100}, 100, 1},
        {{100, 100, 100}, 99, 2},
        {{100, 100, 100}, 0, 2},
        {{100, 100, 100}, 300, 0},
        {{100, 100, 100}, UINT_MAX, 0},
        {{5, 3, 0}, 0, 1}, // the newest file with records stays, and so do the empty ones behind it
        {{5, 0, 3}, 3, 0},
        {{0, 0, 3}, 2, 2},
        {{0}, 0, 0},
        {{}, 0, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.counts) + " to " + std::to_string(row.target));
        std::vector<std::pair<std::pair<long long, long long>, Records>> files;
        Lines log;
        for (const unsigned int count : row.counts) {
            const auto start = static_cast<long long>(files.size()) * P;
            if (static_cast<int>(files.size()) < row.deleted)
                log.push_back("Deleted expired file '" + NameOf(start, start + P) + "' (" +
                              std::to_string(count) + " records)");
            files.push_back({{start, start + P}, Minutes(start, count)});
        }
        const Files table(files);
        EXPECT_EQ(table->Trim(row.target), row.deleted);
        EXPECT_EQ(table->TakeLog(), log);
        EXPECT_EQ(table->m_Files.size(), row.counts.size() - static_cast<size_t>(row.deleted));
        EXPECT_EQ(table.folder.List().size(), table->m_Files.size());
        EXPECT_TRUE(table->Validate());
        EXPECT_THAT(table->m_DeletedFiles, IsEmpty()) << "no standby transfer is active";
    }
    // Counts whose sum passes 32 bits.
    const Files table({{{0, P}, {}}, {{P, 2 * P}, {}}, {{2 * P, 3 * P}, {}}});
    for (auto& [end, file] : table->m_Files)
        file.m_NumRecords = 4'000'000'000;
    EXPECT_EQ(table->Trim(UINT_MAX), 1);
}

TEST(HistoricTableMaintenance, TrimmingStopsAtAFileThatCannotBeErased) {
    const Files table({{{0, P}, Minutes(0, 1)},
                       {{P, 2 * P}, Minutes(P, 1)},
                       {{2 * P, 3 * P}, {}},
                       {{3 * P, 4 * P}, Minutes(3 * P, 1)}});
    table->m_TransferState = CHistoricTable::TransferStateActiveWaiting;
    {
        FaultSystemCalls system;
        system.FailAt(SystemCall::Erase, 2, EACCES);
        EXPECT_EQ(table->Trim(0), 1);
    }
    EXPECT_THAT(table->TakeLog(), ElementsAre("Deleted expired file '" + NameOf(0, P) + "' (1 records)",
                                              "Error deleting expired file '" + NameOf(P, 2 * P) + "'"));
    EXPECT_EQ(table->Describe(), "1P..2P=1 2P..3P=0 3P..4P=1");
    EXPECT_THAT(table->m_DeletedFiles, ElementsAre(P));
    // An entry without records whose file never came to be does not stand in the way; a lost file with records does.
    table.folder.Remove(NameOf(2 * P, 3 * P));
    EXPECT_EQ(table->Trim(0), 2);
    EXPECT_THAT(table->m_DeletedFiles, ElementsAre(P, 2 * P, 3 * P));
    table->Flush({{4 * P, 9}});
    table.folder.Remove(NameOf(3 * P, 4 * P));
    EXPECT_EQ(table->Trim(0), 0);
    EXPECT_EQ(table->Describe(), "3P..4P=1 4P..5P=1");
}

TEST(HistoricTableMaintenance, HouseKeepingTrimsAndThenSplits) {
    const Files table({{{0, P}, Minutes(0, 10)}, {{P, 2 * P}, Minutes(P, 14)}});
    table->HouseKeepFiles(&table->m_Log, 13, 10 * 16 + 15);
    EXPECT_THAT(table->TakeLog(), ElementsAre("Deleted expired file '" + NameOf(0, P) + "' (10 records)",
                                              SplitLine(P, P + 10 * M, 2 * P, 14)));
    EXPECT_EQ(table->Describe(), "1P..1P+10m=10 1P+10m..2P=4");
}

TEST(HistoricTableMaintenance, SplitsTheLargestFileAboveFourThirds) {
    for (const unsigned int count : {1333u, 1334u}) {
        const Files table({{{0, 2 * P}, Minutes(0, count)}});
        EXPECT_EQ(table->SplitLargest(1000), count == 1334);
        EXPECT_EQ(table->Describe(), count == 1333 ? "0..2P=1333" : "0..1000m=1000 1000m..2P=334");
        EXPECT_EQ(table->Read(), Minutes(0, count));
        EXPECT_TRUE(table->Validate());
        EXPECT_EQ(TestTable(table.folder.GetFilePath()).Describe(), table->Describe());
    }
    // The older of two alike; none of a minute or less, however large; one file a call.
    const Files table({{{0, M}, Minutes(0, 1)},
                       {{P, P + M}, Records(9, {P, 1})},
                       {{2 * P, 3 * P}, Minutes(2 * P, 5)},
                       {{3 * P, 4 * P}, Minutes(3 * P, 5)}});
    EXPECT_TRUE(table->SplitLargest(3));
    EXPECT_EQ(table->Describe(), "0..1m=1 1P..1P+1m=9 2P..2P+3m=3 2P+3m..3P=2 3P..4P=5");
    EXPECT_TRUE(table->SplitLargest(3));
    EXPECT_FALSE(table->SplitLargest(3));
    EXPECT_THAT(table->TakeLog(), ElementsAre(SplitLine(2 * P, 2 * P + 3 * M, 3 * P, 5),
                                              SplitLine(3 * P, 3 * P + 3 * M, 4 * P, 5)));
    EXPECT_FALSE(TestTable(CQVFilePath("missing")).SplitLargest(0));
}

TEST(HistoricTableMaintenance, SplitsAtAFullMinuteInsideTheSpanOrNotAtAll) {
    struct Row {
        long long start;
        long long end;
        std::vector<long long> times;
        unsigned int max;
        const char* files;
        const char* log; // behind "! File NAME is not split at time stamp "; null for nothing
    };
    const char* const silent = nullptr;
    const Row rows[] = {
        // The time stamp at the position, sorted, rounded down.
        {0, P, {3 * M + 5, 9 * M, 1 * M, 2 * M}, 2, "0..3m=2 3m..1P=2", silent},
        {0, P, {5 * M - 1, 5 * M - 1, 5 * M - 1}, 1, "0..4m=0 4m..1P=3", silent},
        // In the first minute: behind it, though the second half gets nothing.
        {P, 2 * P, {P + 1, P + 2, P + 3}, 1, "1P..1P+1m=3 1P+1m..2P=0", silent},
        {P, P + 2 * M, {P, P + M, P + M}, 0, "1P..1P+1m=1 1P+1m..1P+2m=2", silent},
        // No split point.
        {0, P, {M, 2 * M}, 2, "0..1P=2", silent},
        {0, P, {}, 0, "0..1P=0", silent},
        {0, M, {1, 2, 3}, 1, "0..1m=3", silent},
        {0, 3 * M, {M, 3 * M, 3 * M}, 1, "0..3m=3", silent},
        // Records that are not of the file's span, put there by hand.
        {P, 2 * P, {5 * M, P, P}, 0, "1P..2P=3", "3000000000: the time is not inside its span"},
        {P,
         2 * P,
         {5 * M, P, P + 9 * M},
         2,
         "1P..2P=3",
         "19666200000000: it holds records that belong to another file"},
        {P,
         2 * P,
         {P, P + 9 * M, 3 * P},
         1,
         "1P..2P=3",
         "19666200000000: it holds records that belong to another file"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.files);
        Records records;
        for (const long long time : row.times)
            records.push_back({time, static_cast<long long>(records.size())});
        const Files table({{{row.start, row.end}, records}});
        const bool bSplits = std::string(row.files).find(' ') != std::string::npos;
        table->LockWrite();
        EXPECT_EQ(table->SplitFile(&table->m_Log, table->File(0), row.max), bSplits);
        table->UnLockWrite();
        EXPECT_EQ(table->Describe(), row.files);
        if (bSplits)
            EXPECT_THAT(table->TakeLog(), ElementsAre(SplitLine(row.start, table->File(0)->first, row.end,
                                                                static_cast<int>(records.size()))));
        else if (row.log)
            EXPECT_THAT(table->TakeLog(), ElementsAre("! File " + NameOf(row.start, row.end) +
                                                      " is not split at time stamp " + row.log));
        else
            EXPECT_THAT(table->TakeLog(), IsEmpty());
        EXPECT_EQ(table.folder.List().size(), table->m_Files.size()) << "empty halves too, and no journal";
        EXPECT_EQ(Sorted(table->Read()), Sorted(records));
        EXPECT_EQ(TestTable(table.folder.GetFilePath()).Describe(), row.files);
        EXPECT_EQ(table->Validate(), row.log == nullptr && table->Read(row.end, LLONG_MAX).empty());
        EXPECT_EQ(table->Errors(), "");
    }
}

TEST(HistoricTableMaintenance, ASplitLeavesOtherFilesAlone) {
    // A file inside the span of the one to be split, made by the rule for gaps, ends where the split would be.
    const Records inner = {{3 * M, 50}};
    const Records outer = {{5 * M + 1, 1}, {6 * M, 2}, {5 * M + 9, 3}};
    const Files table({{{2 * M, 5 * M}, inner}, {{0, P}, outer}});
    EXPECT_FALSE(table->SplitLargest(1));
    EXPECT_THAT(table->TakeLog(), ElementsAre("! File " + NameOf(0, P) + " is not split at time stamp " +
                                              std::to_string(5 * M) + ": another file ends at that time"));
    EXPECT_EQ(table->Describe(), "2m..5m=1 0..1P=3");
    table->LockWrite();
    EXPECT_TRUE(table->SplitFile(&table->m_Log, table->File(1), 2));
    table->UnLockWrite();
    EXPECT_EQ(table->Describe(), "2m..5m=1 0..6m=2 6m..1P=1");
    EXPECT_TRUE(table->Validate());

    // Strangers that bear the names of the halves are renamed, not appended to and not erased.
    const Files other({{{0, P}, Minutes(0, 3)}});
    other.folder.Write(NameOf(0, 2 * M), "stranger");
    other.folder.Write(NameOf(2 * M, P), "second");
    other.folder.Write(NameOf(2 * M, P) + ".aside", "third");
    EXPECT_TRUE(other->SplitLargest(2));
    const auto aside = [](const std::string& name, const char* suffix) {
        return "File '" + name + "' is none of the table's and was renamed to '" + name + suffix + "'";
    };
    EXPECT_THAT(other->TakeLog(), ElementsAre(aside(NameOf(0, 2 * M), ".aside"),
                                              aside(NameOf(2 * M, P), ".aside2"), SplitLine(0, 2 * M, P, 3)));
    EXPECT_EQ(other.folder.Read(NameOf(0, 2 * M) + ".aside"), "stranger");
    EXPECT_EQ(other.folder.Read(NameOf(2 * M, P) + ".aside"), "third");
    EXPECT_TRUE(other->Validate());
}

TEST(HistoricTableMaintenance, AFileThatCannotBeReadWholeIsNotSplit) {
    const Files table({{{0, P}, Minutes(0, 9)}});
    table.folder.Write(NameOf(0, P), BytesOf(Minutes(0, 8)) + "torn");
    EXPECT_FALSE(table->SplitLargest(3));
    EXPECT_THAT(table->TakeLog(), ElementsAre("! File " + NameOf(0, P) +
                                              " is not split: only 8 of its 9 records could be read"));
    table.folder.Remove(NameOf(0, P));
    EXPECT_FALSE(table->SplitLargest(3));
    EXPECT_THAT(table->TakeLog(), IsEmpty());
    EXPECT_EQ(table->Describe(), "0..1P=9");
}

TEST(HistoricTableMaintenance, ASplitThatFailsRestoresTheEntry) {
    const Files table({{{0, P}, Minutes(0, 9)}});
    CHistoricTable::HistoricFile& file = table->m_Files.begin()->second;
    file.m_NumRecordsSent = 2;
    file.m_NumRecordsTransferred = 3;
    table->m_TransferState = CHistoricTable::TransferStateActiveWaiting;
    {
        FaultSystemCalls system;
        system.FailAt(SystemCall::Write | SystemCall::Writev, 3, ENOSPC); // journal, first half, second half
        EXPECT_FALSE(table->SplitLargest(4));
    }
    EXPECT_THAT(table->TakeLog(),
                ElementsAre("! Write file '" + NameOf(4 * M, P) + "' returns: No space left on device",
                            "Split " + NameOf(0, P) + " (9 records) FAILED"));
    EXPECT_EQ(table->Errors(), "Disk Full") << "nothing is lost";
    EXPECT_THAT(table.folder.List(), ElementsAre(NameOf(0, P)));
    ASSERT_EQ(table->Describe(), "0..1P=9");
    const CHistoricTable::HistoricFile restored = table->m_Files.begin()->second;
    EXPECT_EQ(restored.m_Start, 0);
    EXPECT_EQ(restored.m_Duration, P);
    EXPECT_EQ(restored.m_NumRecordsSent, 2u);
    EXPECT_EQ(restored.m_NumRecordsTransferred, 3u);
    EXPECT_THAT(table->m_SplitCommands, IsEmpty());
    EXPECT_TRUE(table->SplitLargest(4));
}

TEST(HistoricTableMaintenance, NotesSplitsForAStandby) {
    struct Row {
        Records records; // of [0, P), to be split at two minutes
        unsigned int sent;
        unsigned int transferred;
        unsigned int first; // transferred afterwards
        unsigned int second;
        bool bCommand; // or else a deletion
    };
    const Records inOrder = {{0, 1}, {M, 2}, {2 * M, 3}, {2 * M, 4}, {3 * M, 5}};
    Records late = inOrder;
    std::swap(late[0], late[4]);
    const Row rows[] = {
        {inOrder, 0, 0, 0, 0, true}, {inOrder, 1, 0, 1, 0, true}, {inOrder, 1, 1, 2, 0, true},
        {inOrder, 2, 1, 2, 1, true}, {inOrder, 0, 5, 2, 3, true}, {late, 2, 1, 0, 0, false},
    };
    for (const Row& row : rows) {
        for (const bool bActive : {true, false}) {
            SCOPED_TRACE(testing::Message() << row.sent << ' ' << row.transferred << ' ' << bActive);
            const Files table({{{0, P}, row.records}});
            table->m_TransferState = bActive ? CHistoricTable::TransferStateActiveTransferIncrement
                                             : CHistoricTable::TransferStateActiveQueryState;
            table->File(0)->second.m_NumRecordsSent = row.sent;
            table->File(0)->second.m_NumRecordsTransferred = row.transferred;
            ASSERT_TRUE(table->SplitLargest(2));
            EXPECT_EQ(table->Describe(), "0..2m=2 2m..1P=3");
            EXPECT_EQ(table->m_SplitCommands.size(), bActive && row.bCommand ? 1u : 0u);
            EXPECT_EQ(table->m_DeletedFiles,
                      bActive && !row.bCommand ? std::list{P} : std::list<long long>());
            EXPECT_EQ(table->File(0)->second.m_NumRecordsTransferred, bActive ? row.first : 0);
            EXPECT_EQ(table->File(1)->second.m_NumRecordsTransferred, bActive ? row.second : 0);
            EXPECT_EQ(table->File(0)->second.m_NumRecordsSent + table->File(1)->second.m_NumRecordsSent, 0u);
            if (bActive && row.bCommand) {
                EXPECT_EQ(table->m_SplitCommands.front().m_Start, 0);
                EXPECT_EQ(table->m_SplitCommands.front().m_End, P);
                EXPECT_EQ(table->m_SplitCommands.front().m_SplitTimestamp, 2 * M);
            }
        }
    }
}

TEST(HistoricTableMaintenance, SplitsAtAGivenTimeForTheMainSide) {
    const Files table({{{0, P}, Minutes(0, 3)}, {{P, 2 * P}, Minutes(P, 1)}});
    table->m_TransferState = CHistoricTable::TransferStateActiveWaiting;
    table->LockWrite();
    for (const long long time :
         {0LL, P, -M, 2 * P, LLONG_MAX, LLONG_MIN, 5LL}) // not inside, or without a name
        table->SplitFileAtTimestamp(&table->m_Log, table->File(0), time);
    EXPECT_EQ(table->TakeLog().size(), 7u);
    EXPECT_EQ(table->Describe(), "0..1P=3 1P..2P=1");
    table->SplitFileAtTimestamp(&table->m_Log, table->File(0), 7 * M);
    table->UnLockWrite();
    EXPECT_THAT(table->TakeLog(), ElementsAre(SplitLine(0, 7 * M, P, 3)));
    EXPECT_EQ(table->Describe(), "0..7m=3 7m..1P=0 1P..2P=1");
    EXPECT_TRUE(table->Validate());
    EXPECT_THAT(table->m_SplitCommands, IsEmpty());
    EXPECT_THAT(table->m_DeletedFiles, IsEmpty());
}

TEST(HistoricTableMaintenance, ReadsAFileWhole) {
    struct Row {
        Records records;
        bool bInTimeOrder;
    };
    const Row rows[] = {
        {{}, true},
        {{{5, 1}, {5, 2}, {6, 3}}, true},
        {{{5, 1}, {7, 2}, {6, 3}}, false},
        {{{-1, 1}}, false}, // the first is compared with 0
        {Minutes(0, 20'000), true},
    };
    for (const Row& row : rows) {
        const Files table({{{0, P}, row.records}});
        table.folder.Write(NameOf(0, P), BytesOf(row.records) + "torn");
        TestTable::FileContents contents(16);
        ASSERT_TRUE(table->ReadFileContents(table->File(0)->second, contents));
        EXPECT_EQ(contents.m_bInTimeOrder, row.bInTimeOrder);
        EXPECT_EQ(contents.m_Path.GetPath(), table.folder.File(NameOf(0, P)).GetPath());
        EXPECT_EQ(contents.m_Records.GetSize(), row.records.size());
        EXPECT_EQ(contents.m_Timestamps.size(), row.records.size());
        for (size_t i = 0; i < row.records.size(); i++)
            EXPECT_EQ(contents.m_Timestamps[i], row.records[i].time);
        table.folder.Remove(NameOf(0, P));
        TestTable::FileContents none(16);
        EXPECT_FALSE(table->ReadFileContents(table->File(0)->second, none));
    }
}

TEST(HistoricTableMaintenance, ValidationNamesEveryFault) {
    const std::string first = NameOf(0, P);
    const std::string second = NameOf(P, 2 * P);
    const std::string checkingFirst = "Checking " + first + "...";
    const std::string checkingSecond = "Checking " + second + "...";
    struct Row {
        std::function<void(const Files&)> damage;
        Lines lines;
    };
    const auto unexpected = [](const std::string& name) {
        return "! ** Unexpected file '" + name + "' found";
    };
    const std::string wrongStart = NameOf(M, 2 * P);
    const Row rows[] = {
        {[](const Files&) {}, {checkingFirst, checkingSecond}},
        {[](const Files& t) { t->File(0)->second.m_Duration += 7; },
         {checkingFirst, "! ** File key 19660800000000 does not match the expected end time 19660800000007",
          checkingSecond}},
        {[&](const Files& t) { t.folder.Remove(first); },
         {checkingFirst, "! ** File could not be opened", checkingSecond}},
        {[](const Files& t) { t->File(1)->second.m_NumRecords = 8; },
         {checkingFirst, checkingSecond, "! ** File size is 112, but expected size is 128"}},
        {[&](const Files& t) { t.folder.Write(first, BytesOf(Minutes(0, 7)) + "x"); },
         {checkingFirst, "! ** File size is 113, but expected size is 112", checkingSecond}},
        {[&](const Files& t) { t->File(0)->second.m_NumRecords = 4'000'000'000; },
         {checkingFirst, "! ** File size is 112, but expected size is 64000000000", checkingSecond}},
        // The first fault of a file ends its check; the next file is checked all the same.
        {[&](const Files& t) {
             t.folder.Write(first, BytesOf({{0, 0}, {1, 0}, {-1, 0}, {2, 0}, {P, 0}, {3, 0}, {4, 0}}));
             t.folder.Write(second,
                            BytesOf({{P, 0}, {2 * P - 1, 0}, {2 * P, 0}, {0, 0}, {P, 0}, {P, 0}, {P, 0}}));
         },
         {checkingFirst, "! ** Record 2 timestamp -1 is before the file start time 0", checkingSecond,
          "! ** Record 2 timestamp 39321600000000 is after the file end time 39321600000000"}},
        {[&](const Files& t) { t.folder.Write("notes.qvhis", ""); },
         {checkingFirst, checkingSecond, unexpected("notes.qvhis")}},
        {[&](const Files& t) {
             t.folder.Remove(first);
             t.folder.Write("notes.qvhis", "");
         },
         {checkingFirst, "! ** File could not be opened", checkingSecond, unexpected("notes.qvhis")}},
        {[&](const Files& t) { t.folder.Write(wrongStart, ""); },
         {checkingFirst, checkingSecond, unexpected(wrongStart)}},
        {[&](const Files& t) { t->m_Files.erase(P); }, {checkingSecond, unexpected(first)}},
        {[&](const Files& t) { t.folder.Write("notes.txt", ""); }, {checkingFirst, checkingSecond}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.lines));
        const Files table({{{0, P}, Minutes(0, 7)}, {{P, 2 * P}, Minutes(P, 7)}});
        row.damage(table);
        const std::vector<std::string> before = table.folder.List();
        const bool bFault =
            std::any_of(row.lines.begin(), row.lines.end(), [](auto& line) { return line[0] == '!'; });
        EXPECT_EQ(table->Validate(), !bFault);
        EXPECT_EQ(table->TakeLog(), row.lines);
        EXPECT_EQ(table.folder.List(), before);
        EXPECT_EQ(table->Errors(), "");
    }
}

TEST(HistoricTableMaintenance, ValidationReportsWhatItCannotSee) {
    const Files table({{{0, P}, Minutes(0, 7)}});
    FaultSystemCalls system;
    for (const unsigned int call :
         {SystemCall::Read, SystemCall::OpenFolder, SystemCall::ReadFolder, SystemCall::Stat}) {
        system.FailFrom(call, 1, EIO);
        EXPECT_FALSE(table->Validate()) << call;
        const Lines lines = table->TakeLog();
        EXPECT_EQ(lines.size(), 2u);
        EXPECT_EQ(lines.back().substr(0, 4), "! **");
        system.Heal();
    }
    EXPECT_TRUE(table->Validate());
}

TEST(HistoricTableMaintenance, DeletesEverything) {
    const Files table({{{0, P}, Minutes(0, 7)}, {{P, 2 * P}, Minutes(P, 7)}, {{2 * P, 3 * P}, {}}});
    table.folder.Write("stranger", "");
    table->m_TransferState = CHistoricTable::TransferStateActiveWaiting;
    table->m_DeletedFiles.push_back(5);
    table->m_SplitCommands.push_back({1, 2, 3});
    table->Put({{1, 1}, {9 * P, 2}});
    {
        FaultSystemCalls system;
        system.FailAt(SystemCall::Erase, 1, EACCES);
        table->DeleteAll();
    }
    EXPECT_EQ(table->Describe(), "");
    EXPECT_THAT(table.folder.List(), ElementsAre(NameOf(0, P), "stranger"));
    EXPECT_EQ(table->Flush(), 0u) << "the queue is empty, too";
    EXPECT_EQ(table->Errors(), "");
    EXPECT_THAT(table->TakeLog(), IsEmpty());
    EXPECT_EQ(table->m_TransferState, CHistoricTable::TransferStateActiveWaiting);
    EXPECT_THAT(table->m_DeletedFiles, ElementsAre(5));
    EXPECT_EQ(table->m_SplitCommands.size(), 1u);
    EXPECT_EQ(table->Flush({{1, 3}}), 1u);
    EXPECT_EQ(NumbersOf(table->Read()), Numbers{3});
}
