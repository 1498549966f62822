// Keeping house: trimming, splitting, validating, deleting, and their messages.
#include "TestTable.h"
#include "support/FaultSystemCalls.h"

#include <cerrno>
#include <functional>
#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

TEST(HistoricTableMaintenance, TrimsTheOldestFilesBeyondTheBudget) {
    struct Row {
        std::vector<unsigned int> counts;
        unsigned int target;
        int deleted;
    };
    const Row rows[] = {
        {{100, 100, 100}, 199, 1}, {{100, 100, 100}, 200, 0},
        {{100, 100, 100}, 100, 1}, {{100, 100, 100}, 99, 2},
        {{100, 100, 100}, 0, 2},   {{100, 100, 100}, UINT_MAX, 0},
        {{5, 3, 0}, 0, 1}, // the newest file with records stays, and so do the empty ones behind it
        {{0, 0, 3}, 2, 2},         {{}, 0, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.counts) + " to " + std::to_string(row.target));
        FolderTable::Files files;
        Lines log;
        for (const unsigned int count : row.counts) {
            const auto start = static_cast<long long>(files.size()) * P;
            if (static_cast<int>(files.size()) < row.deleted)
                log.push_back("Deleted expired file '" + NameOf(start, start + P) + "' (" +
                              std::to_string(count) + " records)");
            files.push_back({{start, start + P}, Minutes(start, count)});
        }
        const FolderTable table(files);
        EXPECT_EQ(table->Trim(row.target), row.deleted);
        EXPECT_EQ(table->TakeLog(), log);
        EXPECT_EQ(table->m_Files.size(), row.counts.size() - static_cast<size_t>(row.deleted));
        EXPECT_TRUE(table->Validate());
        EXPECT_THAT(table->m_DeletedFiles, IsEmpty()) << "no standby transfer is active";
    }
    // Counts whose sum passes 32 bits.
    const FolderTable table({{{0, P}, {}}, {{P, 2 * P}, {}}, {{2 * P, 3 * P}, {}}});
    for (auto& [end, file] : table->m_Files)
        file.m_NumRecords = 4'000'000'000;
    EXPECT_EQ(table->Trim(UINT_MAX), 1);
}

TEST(HistoricTableMaintenance, TrimmingStopsAtAFileThatCannotBeErased) {
    const FolderTable table({{{0, P}, Minutes(0, 1)},
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
    table->Flush({{4 * P, 9}});
    table.folder.Remove(NameOf(3 * P, 4 * P));
    EXPECT_EQ(table->Trim(0), 0);
    EXPECT_EQ(table->Describe(), "3P..4P=1 4P..5P=1");
}

TEST(HistoricTableMaintenance, HouseKeepingTrimsAndThenSplits) {
    const FolderTable table({{{0, P}, Minutes(0, 10)}, {{P, 2 * P}, Minutes(P, 14)}});
    table->HouseKeepFiles(&table->m_Log, 13, 10 * 16 + 15);
    EXPECT_THAT(table->TakeLog(), ElementsAre("Deleted expired file '" + NameOf(0, P) + "' (10 records)",
                                              SplitLine(P, P + 10 * M, 2 * P, 14)));
}

TEST(HistoricTableMaintenance, SplitsTheLargestFileAboveFourThirds) {
    for (const unsigned int count : {1333u, 1334u}) {
        const FolderTable table({{{0, 2 * P}, Minutes(0, count)}});
        EXPECT_EQ(table->SplitLargest(1000), count == 1334);
        EXPECT_EQ(table->Describe(), count == 1333 ? "0..2P=1333" : "0..1000m=1000 1000m..2P=334");
        EXPECT_EQ(table->Read(), Minutes(0, count));
    }
    // The older of two alike; none of a minute or less, however large; one file a call.
    const FolderTable table({{{0, M}, Minutes(0, 1)},
                             {{P, P + M}, Records(9, {P, 1})},
                             {{2 * P, 3 * P}, Minutes(2 * P, 5)},
                             {{3 * P, 4 * P}, Minutes(3 * P, 5)}});
    EXPECT_TRUE(table->SplitLargest(3) && table->SplitLargest(3));
    EXPECT_FALSE(table->SplitLargest(3));
    EXPECT_THAT(table->TakeLog(), ElementsAre(SplitLine(2 * P, 2 * P + 3 * M, 3 * P, 5),
                                              SplitLine(3 * P, 3 * P + 3 * M, 4 * P, 5)));
    EXPECT_EQ(table->m_SplitCommands.size(), 0u) << "no standby transfer is active";
    EXPECT_FALSE(TestTable(CQVFilePath("missing")).SplitLargest(0));
}

TEST(HistoricTableMaintenance, SplitsAtAFullMinuteInsideTheSpanOrNotAtAll) {
    struct Row {
        long long start;
        long long end;
        Numbers times;
        unsigned int max;
        const char* files;
        std::string log = ""; // behind "! File NAME is not split at time stamp "
    };
    const std::string foreign = "19666200000000: it holds records that belong to another file";
    const Row rows[] = {
        // The time stamp at the position, sorted, rounded down.
        {0, P, {3 * M + 5, 9 * M, 1 * M, 2 * M}, 2, "0..3m=2 3m..1P=2"},
        {0, P, {5 * M - 1, 5 * M - 1, 5 * M - 1}, 1, "0..4m=0 4m..1P=3"},
        // In the first minute: behind it, though the second half gets nothing.
        {P, 2 * P, {P + 1, P + 2, P + 3}, 1, "1P..1P+1m=3 1P+1m..2P=0"},
        {P, P + 2 * M, {P, P + M, P + M}, 0, "1P..1P+1m=1 1P+1m..1P+2m=2"},
        // No split point.
        {0, P, {M, 2 * M}, 2, "0..1P=2"},
        {0, P, {}, 0, "0..1P=0"},
        {0, M, {1, 2, 3}, 1, "0..1m=3"},
        {0, 3 * M, {M, 3 * M, 3 * M}, 1, "0..3m=3"},
        // Records that are not of the file's span, put there by hand.
        {P, 2 * P, {5 * M, P, P}, 0, "1P..2P=3", "3000000000: the time is not inside its span"},
        {P, 2 * P, {5 * M, P, P + 9 * M}, 2, "1P..2P=3", foreign},
        {P, 2 * P, {P, P + 9 * M, 3 * P}, 1, "1P..2P=3", foreign},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.files);
        Records records;
        for (const long long time : row.times)
            records.push_back({time, static_cast<long long>(records.size())});
        const FolderTable table({{{row.start, row.end}, records}});
        const bool bSplits = std::string(row.files).find(' ') != std::string::npos;
        EXPECT_EQ(table->Split(0, row.max), bSplits);
        EXPECT_EQ(table->Describe(), row.files);
        Lines log;
        if (bSplits)
            log = {SplitLine(row.start, table->File(0)->first, row.end, static_cast<int>(records.size()))};
        else if (!row.log.empty())
            log = {"! File " + NameOf(row.start, row.end) + " is not split at time stamp " + row.log};
        EXPECT_EQ(table->TakeLog(), log);
        EXPECT_EQ(table.folder.List().size(), table->m_Files.size()) << "empty halves too, and no journal";
        EXPECT_EQ(Sorted(table->Read()), Sorted(records));
        EXPECT_EQ(TestTable(table.folder.GetFilePath()).Describe(), row.files);
        EXPECT_EQ(table->Validate(), row.log.empty() && table->Read(row.end, LLONG_MAX).empty());
        EXPECT_EQ(table->Errors(), "");
    }
}

TEST(HistoricTableMaintenance, ASplitLeavesOtherFilesAlone) {
    // A file inside the span of the one to be split, made by the rule for gaps, ends where the split would be.
    const FolderTable table(
        {{{2 * M, 5 * M}, {{3 * M, 50}}}, {{0, P}, {{5 * M + 1, 1}, {6 * M, 2}, {5 * M + 9, 3}}}});
    EXPECT_FALSE(table->SplitLargest(1));
    EXPECT_THAT(table->TakeLog(), ElementsAre("! File " + NameOf(0, P) + " is not split at time stamp " +
                                              std::to_string(5 * M) + ": another file ends at that time"));
    EXPECT_TRUE(table->Split(1, 2));
    EXPECT_EQ(table->Describe(), "2m..5m=1 0..6m=2 6m..1P=1");
    EXPECT_TRUE(table->Validate());

    // Strangers that bear the names of the halves are renamed, not appended to and not erased.
    const FolderTable other({{{0, P}, Minutes(0, 3)}});
    const std::string first = NameOf(0, 2 * M), second = NameOf(2 * M, P);
    other.folder.Write(first, "stranger");
    other.folder.Write(second, "second");
    other.folder.Write(second + ".aside", "third");
    EXPECT_TRUE(other->SplitLargest(2));
    const auto aside = [](const std::string& from, const std::string& to) {
        return "File '" + from + "' is none of the table's and was renamed to '" + to + "'";
    };
    EXPECT_THAT(other->TakeLog(), ElementsAre(aside(first, first + ".aside"),
                                              aside(second, second + ".aside2"), SplitLine(0, 2 * M, P, 3)));
    EXPECT_EQ(other.folder.Read(first + ".aside") + other.folder.Read(second + ".aside"), "strangerthird");
    EXPECT_TRUE(other->Validate());
}

TEST(HistoricTableMaintenance, AFileThatCannotBeReadWholeIsNotSplit) {
    const FolderTable table({{{0, P}, Minutes(0, 9)}});
    table.folder.Write(NameOf(0, P), BytesOf(Minutes(0, 8)) + "torn");
    EXPECT_FALSE(table->SplitLargest(3));
    EXPECT_THAT(table->TakeLog(), ElementsAre("! File " + NameOf(0, P) +
                                              " is not split: only 8 of its 9 records could be read"));
    table.folder.Remove(NameOf(0, P));
    EXPECT_FALSE(table->SplitLargest(3));
    EXPECT_THAT(table->TakeLog(), IsEmpty());
    EXPECT_EQ(table->Describe(), "0..1P=9");
}

TEST(HistoricTableMaintenance, ValidationNamesEveryFault) {
    const std::string first = NameOf(0, P), second = NameOf(P, 2 * P), wrongStart = NameOf(M, 2 * P);
    const std::string none;
    struct Row {
        std::function<void(const FolderTable&)> damage;
        std::string ofFirst, ofSecond, ofFolder; // the line for each
    };
    const Row rows[] = {
        {[](auto&) {}, none, none, none},
        {[](auto& t) { t->File(0)->second.m_Duration += 7; },
         "File key 19660800000000 does not match the expected end time 19660800000007", none, none},
        {[](auto& t) { t->File(1)->second.m_NumRecords = 8; }, none,
         "File size is 112, but expected size is 128", none},
        {[&](auto& t) { t.folder.Write(first, BytesOf(Minutes(0, 7)) + "x"); },
         "File size is 113, but expected size is 112", none, none},
        {[&](auto& t) { t->File(0)->second.m_NumRecords = 4'000'000'000; },
         "File size is 112, but expected size is 64000000000", none, none},
        // The first fault of a file ends its check; the next file is checked all the same.
        {[&](auto& t) {
             t.folder.Write(first, BytesOf({{0, 0}, {1, 0}, {-1, 0}, {2, 0}, {P, 0}, {3, 0}, {4, 0}}));
             t.folder.Write(second,
                            BytesOf({{P, 0}, {2 * P - 1, 0}, {2 * P, 0}, {0, 0}, {P, 0}, {P, 0}, {P, 0}}));
         },
         "Record 2 timestamp -1 is before the file start time 0",
         "Record 2 timestamp 39321600000000 is after the file end time 39321600000000", none},
        {[&](auto& t) {
             t.folder.Remove(first);
             t.folder.Write("notes.qvhis", "");
             t.folder.Write("notes.txt", "");
         },
         "File could not be opened", none, "Unexpected file 'notes.qvhis' found"},
        {[&](auto& t) { t.folder.Write(wrongStart, ""); }, none, none,
         "Unexpected file '" + wrongStart + "' found"},
    };
    for (const Row& row : rows) {
        Lines lines;
        for (const std::string& line : {"Checking " + first + "...", row.ofFirst,
                                        "Checking " + second + "...", row.ofSecond, row.ofFolder})
            if (!line.empty())
                lines.push_back((line[0] == 'C' ? "" : "! ** ") + line);
        SCOPED_TRACE(testing::PrintToString(lines));
        const FolderTable table({{{0, P}, Minutes(0, 7)}, {{P, 2 * P}, Minutes(P, 7)}});
        row.damage(table);
        const Lines before = table.folder.List();
        EXPECT_EQ(table->Validate(), lines.size() == 2);
        EXPECT_EQ(table->TakeLog(), lines);
        EXPECT_EQ(table.folder.List(), before);
        EXPECT_EQ(table->Errors(), "");
    }
}

TEST(HistoricTableMaintenance, ValidationReportsWhatItCannotSee) {
    const FolderTable table({{{0, P}, Minutes(0, 7)}});
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

TEST(HistoricTableMaintenance, DeletesFilesAndQueueAndNothingElse) {
    const FolderTable table({{{0, P}, Minutes(0, 7)}, {{P, 2 * P}, {}}});
    table.folder.Write("stranger", "");
    table->m_TransferState = CHistoricTable::TransferStateActiveWaiting;
    table->m_DeletedFiles.push_back(5);
    table->m_SplitCommands.push_back({1, 2, 3});
    table->Put({{1, 1}, {9 * P, 2}});
    table->DeleteAll();
    EXPECT_EQ(table->Flush(), 0u);
    EXPECT_THAT(table.folder.List(), ElementsAre("stranger"));
    EXPECT_EQ(table->Errors(), "");
    EXPECT_THAT(table->TakeLog(), IsEmpty());
    EXPECT_EQ(table->m_TransferState, CHistoricTable::TransferStateActiveWaiting);
    EXPECT_EQ(table->m_DeletedFiles.size() + table->m_SplitCommands.size(), 2u);
}
