// The store: which file takes a record, names, start-up, and flushes that fail.
#include "TestTable.h"
#include "support/FaultFileSystem.h"
#include "support/FaultSystemCalls.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <random>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr unsigned int kWrites = SystemCall::Write | SystemCall::Writev;
const std::string kFirstFile = NameOf(0, 2 * kPeriod);
const std::string kSecondFile = NameOf(2 * kPeriod, 3 * kPeriod);

Records At(const std::vector<long long>& times) {
    Records records;
    for (const long long time : times)
        records.push_back({time, static_cast<long long>(records.size())});
    return records;
}

} // namespace

TEST(HistoricTableStore, PicksTheFileOfARecordByItsTime) {
    constexpr long long P = kPeriod;
    constexpr long long M = kMinute;
    struct Row {
        std::vector<std::pair<long long, long long>> existing; // spans of files with one record each
        std::vector<long long> times;
        const char* files;
    };
    const Row rows[] = {
        // The first file of a table has two periods, the following have one; ends are exclusive.
        {{}, {0}, "0..2P=1"},
        {{}, {P + 5}, "1P..3P=1"},
        {{}, {5, 2 * P - 1}, "0..2P=2"},
        {{}, {5, 2 * P}, "0..2P=1 2P..3P=1"},
        {{}, {5, 3 * P + 1, 4 * P}, "0..2P=1 3P..4P=1 4P..5P=1"},
        // A gap is filled up to the next file, and so is the time before the oldest.
        {{}, {5, 4 * P + 1, 3 * P + 7, 2 * P}, "0..2P=1 2P..3P=1 3P..4P=1 4P..5P=1"},
        {{}, {4 * P + 5, 7}, "0..4P=1 4P..6P=1"},
        // Where a neighbour is not aligned: the newest end is kept, but a gap's file may begin inside the one before.
        {{{0, 2 * P + 20 * M}}, {2 * P + 30 * M}, "0..2P+20m=1 2P+20m..3P+20m=1"},
        {{{0, 2 * P + 20 * M}}, {3 * P + 30 * M}, "0..2P+20m=1 3P..4P=1"},
        {{{P, 2 * P + 20 * M}, {2 * P + 30 * M, 3 * P}},
         {2 * P + 25 * M, 2 * P + 10 * M, 2 * P + 29 * M},
         "1P..2P+20m=2 2P..2P+30m=2 2P+30m..3P=1"},
        // Before the epoch: rounded towards 0, also where that is past the record; nothing with records is reset.
        {{}, {-1}, "0..2P=1"},
        {{}, {-P - 1}, "-1P..1P=1"},
        {{}, {-1, -1, -1}, "0..0=2 0..2P=1"},
        {{{-P, 0}}, {-P - 1, -P - 1, -2 * P - 1, -1}, "-1P..-1P=3 -1P..0=2"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.files);
        const TemporaryFolder folder;
        for (const auto& [start, end] : row.existing)
            folder.Write(NameOf(start, end), Record{start, 100}.Bytes());
        // All at once, and one flush for each: the same files, and the same again after a restart.
        for (const bool bSingly : {false, true}) {
            const TemporaryFolder copy;
            std::filesystem::copy(folder.GetPath(), copy.GetPath());
            TestTable table(copy.GetFilePath());
            table.Put(bSingly ? Records() : At(row.times));
            for (const Record& record : bSingly ? At(row.times) : Records())
                EXPECT_EQ(table.Flush({record}), 1u);
            table.Flush();
            EXPECT_EQ(table.Describe(), row.files);
            TestTable again(copy.GetFilePath());
            EXPECT_EQ(again.Describe(), row.files);
            EXPECT_EQ(again.Read().size(), row.existing.size() + row.times.size());
            EXPECT_TRUE(row.times[0] < 0 || again.Validate());
            EXPECT_EQ(table.Errors(), "");
        }
    }
}

TEST(HistoricTableStore, NamesFilesAfterTheMinutesOfTheirSpan) {
    CQVTimestamp start, end;
    ASSERT_TRUE(start.SetDateAndHHMM(2021, 3, 4, 5, 6) && end.SetDateAndHHMM(2021, 3, 26, 23, 14));
    EXPECT_EQ(end.GetValue() - start.GetValue(), kPeriod);
    // Seconds are not in the name.
    const CHistoricTable::HistoricFile file{start.GetValue() + kMinute - 1, kPeriod, 0, 0, 0};
    char name[CHistoricTable::FileNameBufferSize];
    EXPECT_EQ(file.GetFileName(name), 31);
    EXPECT_STREQ(name, "202103040506_202103262314.qvhis");
    Utf16String* const counted = file.GetFileName();
    char copy[64];
    WCharFromUtf16String(counted, copy, sizeof copy);
    Utf16StringFree(counted);
    EXPECT_STREQ(copy, name);
    CQVFilePath path;
    file.GetFilePath(CQVFilePath("a/b"), path);
    EXPECT_EQ(path.GetPath(), "a/b/202103040506_202103262314.qvhis");
    EXPECT_EQ(NameOf(0, 2 * kPeriod), "160101010000_160102151216.qvhis");
}

TEST(HistoricTableStore, StartsFromTheFilesThatItsFolderHolds) {
    const TemporaryFolder folder;
    const char* const strangers[] = {
        "x.qvhis",
        "202113040506_202103262314.qvhis",
        "202102300506_202103262314.qvhis",
        "202103040560_202103262314.qvhis",
        "202103042400_202103262314.qvhis",
        "000003040506_202103262314.qvhis",
        "202103040506-202103262314.qvhis",
        "202103040506_202103262300.qvhis.old",
        "2021030405061_202103262314.qvhis",
        "20210304050_202103262314.qvhis",
        "202103040506_202113262314.qvhis",
    };
    for (const char* name : strangers)
        folder.Write(name, std::string(160, 'x'));
    std::filesystem::create_directory(folder.File("202001010000_202002010000.qvhis").GetPath());
    folder.Write("202103040506_202103262314.qvhis", std::string(1000, 'x'));
    folder.Write("201901010000_201902010000.qvhis", "");
    // Characters are not checked to be digits: ':' counts as 10, ' ' as something negative.
    folder.Write("20220101000 _202203010000.qvhis", "");
    folder.Write("202201010:00_202202010000.qvhis", "");

    TestTable table(folder.GetFilePath());
    CTextOutputString out;
    table.PrintContents(out);
    EXPECT_EQ(out.GetString(), "201901010000_201902010000.qvhis, 0 records\n"
                               "202103040506_202103262314.qvhis, 62 records\n"
                               "202201011000_202202010000.qvhis, 0 records\n");
    EXPECT_THAT(table.TakeLog(), IsEmpty());
    std::vector<CHistoricTable::HistoricFile> files;
    table.GetFiles(files);
    ASSERT_EQ(files.size(), 3u);
    EXPECT_EQ(files[1].m_NumRecords, 62u);

    // Starting again adds; a folder that is missing adds nothing.
    table.InitialiseFromPath(folder.File("missing"));
    EXPECT_EQ(table.m_Files.size(), 3u);
    EXPECT_EQ(TestTable(folder.File("missing")).Describe(), "");
}

TEST(HistoricTableStore, KeepsTheOrderOfArrivalInFilesThatTakeTurns) {
    // Past the runs and the bytes that one gathering write takes, and past many blocks of the queue.
    std::mt19937 random(1);
    Records records;
    std::map<std::string, Records> expected;
    for (long long i = 0; i < 200'000; i++) {
        const long long file = i < 100'000 ? 0 : static_cast<long long>(random() % 3);
        records.push_back(
            {(file == 0 ? 0 : file + 1) * kPeriod + static_cast<long long>(random() % 1000), i});
        expected[NameOf(file == 0 ? 0 : (file + 1) * kPeriod, (file + 2) * kPeriod)].push_back(
            records.back());
    }
    const TemporaryFolder folder;
    TestTable table(folder.GetFilePath());
    {
        FaultSystemCalls system;
        EXPECT_EQ(table.Flush({records.begin(), records.begin() + 100'000}), 100'000u);
        EXPECT_LE(system.GetCount(kWrites), 20u) << "consecutive records go together";
    }
    {
        FaultSystemCalls system;
        EXPECT_EQ(table.Flush({records.begin() + 100'000, records.end()}), 100'000u);
        EXPECT_EQ(system.GetCount(SystemCall::Close), 3u) << "each file is opened once";
    }
    EXPECT_TRUE(RecordsOnDisk(folder) == expected);

    // A foreign file object sees one open for each file and one write for each record.
    const TemporaryFolder other;
    FaultFileSystem files;
    TestTable foreign(other.GetFilePath(), &files);
    files.FailAt(UINT_MAX, EIO, FaultFileSystem::Open | FaultFileSystem::Write);
    EXPECT_EQ(foreign.Flush(records), 200'000u);
    EXPECT_EQ(files.GetCount(), 200'003u);
    EXPECT_EQ(files.GetLiveObjects(), 0);
    EXPECT_TRUE(RecordsOnDisk(other) == expected);
}

TEST(HistoricTableStore, StoresRecordsOfEverySize) {
    for (const unsigned int size : {8u, 9u, 16u, 24u, 32u, 1000u, 65'537u, 131'072u}) {
        SCOPED_TRACE(size);
        Records records;
        for (long long i = 0; i < std::max(6LL, 2'000'000LL / size / 4); i++)
            records.push_back({i * kMinute, i});
        const auto count = static_cast<unsigned int>(records.size());
        const TemporaryFolder folder;
        TestTable table(folder.GetFilePath(), QVFileSystem::GetUnsyncedInstance(), size);
        EXPECT_EQ(table.GetRecordSize(), size);
        EXPECT_EQ(table.Flush({records.begin(), records.begin() + 3}), 3u);
        EXPECT_EQ(table.Flush({records.begin() + 3, records.end()}), count - 3);
        const std::string bytes = BytesOf(records, size);
        EXPECT_TRUE(folder.Read(table.m_Files.size() == 1 ? kFirstFile : "") == bytes);
        EXPECT_TRUE(table.SplitLargest(count / 2));
        EXPECT_TRUE(table.Validate());

        std::string read;
        CHistoricTable::ReadContext context;
        for (bool found = table.BeginRead(0, LLONG_MAX, context); found; found = table.NextRecord(context))
            read.append(reinterpret_cast<const char*>(context.m_pRecord), size);
        EXPECT_TRUE(read == bytes);
    }
}

TEST(HistoricTableStoreDeathTest, RefusesWhatNoTableCanBeMadeOf) {
    HistoricTableErrorSummary errors;
    QVFileSystemInterface* const files = QVFileSystem::GetInstance();
    EXPECT_DEATH(CHistoricTable(files, 7, &errors), "recordSize");
    EXPECT_DEATH(CHistoricTable(files, 131'073, &errors), "recordSize");
    EXPECT_DEATH(CHistoricTable(files, 16, nullptr), "errorSummary");
    EXPECT_DEATH(CHistoricTable(nullptr, 16, &errors), "fileSystem");
    struct Unlocked : TestTable {
        using CHistoricTable::FlushListOfCachedRecord;
        using CHistoricTable::ListOfCachedRecord;
        using TestTable::TestTable;
    };
    Unlocked table{CQVFilePath("missing")};
    size_t written = 0;
    const Unlocked::ListOfCachedRecord none(16);
    EXPECT_DEATH(table.FlushListOfCachedRecord(&table.m_Log, none, written), "m_bFilesWriteLockActive");
}

TEST(HistoricTableStore, AFileThatCannotBeOpenedEndsTheFlush) {
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder.File(kSecondFile).GetPath());
    TestTable table(folder.GetFilePath());
    EXPECT_EQ(table.Flush({{1, 1}, {2, 2}, {2 * kPeriod, 3}, {3, 4}}), 2u);
    EXPECT_THAT(table.TakeLog(),
                ElementsAre("! Open file '" + kSecondFile + "' (Append) returns: Is a directory"));
    EXPECT_EQ(table.Errors(), "Error 21, Lost Records (2)");
    EXPECT_EQ(table.Describe(), "0..2P=2 2P..3P=0");
    EXPECT_EQ(NumbersOf(table.Read()), (Numbers{1, 2}));
    EXPECT_EQ(table.Flush(), 0u) << "what was lost is not tried again";
    folder.Remove(kSecondFile);
    EXPECT_EQ(table.Flush({{2 * kPeriod, 5}}), 1u);
    EXPECT_EQ(NumbersOf(table.Read()), (Numbers{1, 2, 5}));
}

TEST(HistoricTableStore, AWriteThatFailsLeavesWholeRecordsAndCountsTheRest) {
    // The third of five records fails after `keep` bytes: the record is cut off, or else its tail at the next flush.
    for (const bool bForeign : {true, false}) {
        for (const unsigned int keep : {0u, 1u, 15u}) {
            for (const bool bCutFails : {false, true}) {
                SCOPED_TRACE(testing::Message() << bForeign << ' ' << keep << ' ' << bCutFails);
                const TemporaryFolder folder;
                FaultFileSystem files;
                TestTable table(folder.GetFilePath(),
                                bForeign ? &files : QVFileSystem::GetUnsyncedInstance());
                table.Flush({{1, 1}});
                FaultSystemCalls system;
                using F = FaultFileSystem;
                if (bForeign) {
                    bCutFails ? files.TearFrom(3, ENOSPC, F::Write | F::Cut, keep)
                              : files.TearAt(3, ENOSPC, F::Write, keep);
                } else {
                    system.PartAt(kWrites, 1, 32 + keep);
                    system.FailAt(kWrites, 2, ENOSPC);
                    system.FailFrom(SystemCall::Truncate, bCutFails ? 1 : UINT_MAX, EIO);
                }
                EXPECT_EQ(table.Flush(At({10, 11, 12, 13, 14})), 2u);
                EXPECT_THAT(table.TakeLog(), ElementsAre("! Write file '" + kFirstFile +
                                                         "' returns: No space left on device"));
                EXPECT_EQ(table.Errors(), "Disk Full, Lost Records (3)");
                EXPECT_EQ(table.Describe(), "0..2P=3");
                const unsigned int tail = bCutFails ? keep : 0;
                EXPECT_EQ(folder.Read(kFirstFile).size(), 48 + tail);
                EXPECT_EQ(table.Read().size(), 3u);
                EXPECT_EQ(TestTable(folder.GetFilePath()).Validate(), tail == 0);

                files.Heal();
                system.Heal();
                EXPECT_EQ(table.Flush({{20, 20}}), 1u);
                EXPECT_EQ(NumbersOf(table.Read()), (Numbers{1, 0, 1, 20}));
                EXPECT_TRUE(table.Validate());
                EXPECT_EQ(table.TakeLog().size(), (tail == 0 ? 0u : 1u) + 1) << "the cut, and a file checked";
                EXPECT_EQ(files.GetLiveObjects(), 0);
            }
        }
    }
}

TEST(HistoricTableStore, AnAppendCutsATornTailAndBelievesTheFile) {
    struct Row {
        size_t size; // of the file when it is flushed to; the map says two records
        std::vector<std::string> log;
        unsigned int records;
    };
    const std::string cut = " bytes of an unfinished record from file '" + kFirstFile + "'";
    const std::string holds = "File '" + kFirstFile + "' holds ";
    const Row rows[] = {
        {32, {}, 2},
        {33, {"Cut 1" + cut}, 2},
        {47, {"Cut 15" + cut}, 2},
        {31, {"Cut 15" + cut, holds + "1 records, expected were 2"}, 1},
        {0, {holds + "0 records, expected were 2"}, 0},
        {64, {holds + "4 records, expected were 2"}, 4},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.size);
        const TemporaryFolder folder;
        TestTable table(folder.GetFilePath());
        table.Flush({{1, 1}, {2, 2}});
        CHistoricTable::HistoricFile& file = table.m_Files.begin()->second;
        file.m_NumRecordsTransferred = 1;
        file.m_NumRecordsSent = 1;
        folder.Write(kFirstFile, BytesOf(At({1, 2, 3, 4})).substr(0, row.size));
        EXPECT_EQ(table.Flush({{9, 9}}), 1u);
        EXPECT_EQ(table.TakeLog(), row.log);
        EXPECT_EQ(file.m_NumRecords, row.records + 1);
        EXPECT_EQ(file.m_NumRecordsTransferred, std::min(row.records, 1u));
        EXPECT_EQ(file.m_NumRecordsSent, row.records < 2 ? 0u : 1u);
        EXPECT_EQ(table.Read().size(), row.records + 1);
        EXPECT_EQ(table.Read().back().number, 9);
        EXPECT_TRUE(table.Validate());
        EXPECT_EQ(table.Errors(), "");
    }
    // A tail that cannot be cut must not be appended to.
    const TemporaryFolder folder;
    folder.Write(kFirstFile, std::string(20, '\0'));
    TestTable table(folder.GetFilePath());
    FaultSystemCalls system;
    system.FailAt(SystemCall::Truncate, 1, EIO);
    EXPECT_EQ(table.Flush({{9, 9}}), 0u);
    EXPECT_THAT(table.TakeLog(),
                ElementsAre("! Open file '" + kFirstFile + "' (Append) returns: Input/output error"));
    EXPECT_EQ(table.Errors(), "Error 5, Lost Records (1)");
    EXPECT_EQ(folder.Read(kFirstFile).size(), 20u);
}

TEST(HistoricTableStore, AFileWhoseSizeCannotBeToldIsNotAppendedTo) {
    const TemporaryFolder folder;
    TestTable table(folder.GetFilePath());
    table.Flush({{1, 1}});
    FaultSystemCalls system;
    system.FailFrom(SystemCall::StatDescriptor, 1, EIO);
    EXPECT_EQ(table.Flush({{2, 2}}), 0u);
    EXPECT_THAT(table.TakeLog(),
                ElementsAre("! Open file '" + kFirstFile + "' (Append) returns: Input/output error"));
    EXPECT_EQ(table.Errors(), "Error 5, Lost Records (1)");
}

TEST(HistoricTableStore, SurvivesAFolderThatVanishesOrTurnsReadOnly) {
    const TemporaryFolder parent;
    const auto makeFolder = [&] { std::filesystem::create_directory(parent.File("table").GetPath()); };
    makeFolder();
    TestTable table(parent.File("table"));
    EXPECT_EQ(table.Flush({{1, 1}, {2, 2}}), 2u);
    parent.Remove("table");
    EXPECT_EQ(table.Flush({{3, 3}}), 0u);
    EXPECT_THAT(table.TakeLog(),
                ElementsAre("! Open file '" + kFirstFile + "' (Append) returns: No such file or directory"));
    EXPECT_THAT(table.Read(), IsEmpty());
    EXPECT_FALSE(table.SplitLargest(1));
    EXPECT_FALSE(table.Validate());
    makeFolder();
    table.TakeLog();
    EXPECT_EQ(table.Flush({{4, 4}}), 1u);
    EXPECT_THAT(table.TakeLog(), ElementsAre("File '" + kFirstFile + "' holds 0 records, expected were 2"));
    EXPECT_EQ(table.Describe(), "0..2P=1");

    FaultSystemCalls system;
    system.FailFrom(SystemCall::Changes, 1, EROFS);
    EXPECT_EQ(table.Flush({{5, 5}, {6, 6}}), 0u);
    EXPECT_EQ(table.Errors(), "No File/Directory, Access Denied, Lost Records (3)");
    EXPECT_EQ(NumbersOf(table.Read()), Numbers{4});
}

TEST(HistoricTableStore, ATimeThatNoNameCanHoldLosesItsRecordAlone) {
    constexpr long long firstOfYear1 = -504'911'232'000'000'000;
    constexpr long long lastOf9999 = 2'650'467'743'999'999'999;
    constexpr long long lastPeriod = lastOf9999 / kPeriod; // its file would end in the year 10000
    const std::vector<long long> unnameable = {
        LLONG_MAX, LLONG_MIN, LLONG_MIN + 1, firstOfYear1 - kPeriod, lastOf9999 + 1, lastPeriod * kPeriod};
    for (const bool bEmpty : {true, false}) {
        for (const long long time : unnameable) {
            SCOPED_TRACE(testing::Message() << time << ' ' << bEmpty);
            const TemporaryFolder folder;
            TestTable table(folder.GetFilePath());
            table.Flush(bEmpty ? Records() : At({5}));
            EXPECT_EQ(table.Flush({{time, 1}, {6, 2}, {time, 3}, {7, 4}}), 2u);
            const std::string line = "! Record with time stamp " + std::to_string(time) +
                                     " is lost: no file name can hold its time";
            EXPECT_THAT(table.TakeLog(), ElementsAre(line, line));
            EXPECT_EQ(table.Errors(), ", Lost Records (2)");
            EXPECT_EQ(table.m_Files.size(), 1u);
            EXPECT_EQ(table.Read(), TestTable(folder.GetFilePath()).Read());
            EXPECT_TRUE(table.Validate());
        }
    }
    // The last span that has a name. And a name in the folder that says more than it should be able to.
    const TemporaryFolder folder;
    folder.Write(":00001010000_:00002010000.qvhis", "");
    TestTable table(folder.GetFilePath());
    EXPECT_EQ(table.Flush({{lastOf9999 + kPeriod / 2, 1}}), 0u);
    EXPECT_EQ(table.Errors(), ", Lost Records (1)");
    EXPECT_EQ(folder.List().size(), 1u);
    table.DeleteAll();
    EXPECT_EQ(table.Flush({{(lastPeriod - 2) * kPeriod, 1}, {lastPeriod * kPeriod - 1, 2}}), 2u);
    EXPECT_EQ(TestTable(folder.GetFilePath()).Read().size(), 2u);
}

TEST(HistoricTableStore, SumsUpErrorsForAnOperator) {
    struct Row {
        std::vector<int> codes;
        unsigned int lost;
        const char* text;
    };
    const Row rows[] = {
        {{}, 0, ""},
        {{}, 12, ", Lost Records (12)"},
        {{28, 28, 5}, 0, "Error 5, Disk Full (2)"},
        {{28, 2, 28}, 12, "No File/Directory, Disk Full (2), Lost Records (12)"},
        {{13, 30, 1, 1}, 1, "Access Denied (2), Access Denied, Access Denied, Lost Records (1)"},
        {{27, -1, 0}, 0, "Error -1, Error 0, File too Big"},
    };
    for (const Row& row : rows) {
        HistoricTableErrorSummary summary;
        for (const int code : row.codes)
            summary.AddFileSystemError(code);
        summary.AddRecordLostCount(row.lost);
        CTextOutputString out;
        summary.GetHistoricTableErrorSummary(out);
        EXPECT_EQ(out.GetString(), row.text);
        EXPECT_EQ(summary.HasFileSystemErrors(), !row.codes.empty());
        EXPECT_EQ(summary.HasError(), *row.text != '\0');
        out.Clear();
        summary.GetFileSystemErrorSummary(out);
        EXPECT_EQ(out.GetString(), std::string(row.text).substr(0, out.GetString().size()));
        EXPECT_EQ(out.GetString().find("Lost"), std::string::npos);
    }
    char buffer[8] = "#######";
    EXPECT_EQ(FileSystemErrorSummary::GetErrorTypeText(ENOENT, buffer, sizeof buffer), 7u);
    EXPECT_STREQ(buffer, "No File");
}

TEST(HistoricTableStore, QueuedRecordsAreDroppedWithTheTableAndNotCounted) {
    const TemporaryFolder folder;
    HistoricTableErrorSummary errors;
    {
        CHistoricTable table(QVFileSystem::GetInstance(), 16, &errors);
        table.InitialiseFromPath(folder.GetFilePath());
        table.WriteNewRecord(1, Record{1, 1}.Bytes().data());
    }
    EXPECT_FALSE(errors.HasError());
    EXPECT_THAT(folder.List(), IsEmpty());
}

TEST(HistoricTableStore, AFlushOfNothingTakesNoLock) {
    TestTable table{CQVFilePath("missing")};
    table.LockWrite(); // not recursive
    EXPECT_EQ(table.Flush(), 0u);
    table.UnLockWrite();
}

TEST(HistoricTableStore, TheLastHolderDeletesTheTable) {
    struct Counted : TestTable {
        explicit Counted(int& alive) : TestTable(CQVFilePath("missing")), m_Alive(alive) { m_Alive++; }
        ~Counted() override { m_Alive--; }
        int& m_Alive;
    };
    int alive = 0;
    auto* const table = new Counted(alive);
    table->AddRef();
    table->AddRef();
    table->Release();
    EXPECT_EQ(alive, 1);
    table->Release();
    EXPECT_EQ(alive, 0);
}
