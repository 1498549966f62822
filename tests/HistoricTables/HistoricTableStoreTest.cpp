// The store: which file takes a record, names, start-up, and flushes that fail.
#include "TestTable.h"
#include "support/FaultSystemCalls.h"

#include <cerrno>
#include <filesystem>
#include <gmock/gmock.h>
#include <random>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kFirstFile = NameOf(0, 2 * P);

Records At(const Numbers& times) {
    Records records;
    for (const long long time : times)
        records.push_back({time, static_cast<long long>(records.size())});
    return records;
}

} // namespace

TEST(HistoricTableStore, PicksTheFileOfARecordByItsTime) {
    struct Row {
        std::vector<std::pair<long long, long long>> existing; // spans of files with one record each
        Numbers times;
        const char* files;
    };
    const Row rows[] = {
        // The first file of a table has two periods, the following have one; ends are exclusive.
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
        {{}, {-P - 1}, "-1P..1P=1"},
        {{}, {-1, -1, -1}, "0..0=2 0..2P=1"},
        {{{-P, 0}}, {-P - 1, -P - 1, -2 * P - 1, -1}, "-1P..-1P=3 -1P..0=2"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.files);
        FolderTable::Files existing;
        for (const auto& span : row.existing)
            existing.push_back({span, {{span.first, 100}}});
        // All at once, and one flush for each: the same files, and the same again after a restart.
        for (const bool bSingly : {false, true}) {
            FolderTable table(existing);
            for (const Record& record : At(row.times)) {
                table->Put({record});
                if (bSingly)
                    table->Flush();
            }
            table->Flush();
            EXPECT_EQ(table->Describe(), row.files);
            EXPECT_EQ(table->Errors(), "");
            table.Restart();
            EXPECT_EQ(table->Describe(), row.files);
            EXPECT_EQ(table->Read().size(), row.existing.size() + row.times.size());
            EXPECT_TRUE(row.times[0] < 0 || table->Validate());
        }
    }
}

TEST(HistoricTableStore, NamesFilesAfterTheMinutesOfTheirSpan) {
    CQVTimestamp start, end;
    ASSERT_TRUE(start.SetDateAndHHMM(2021, 3, 4, 5, 6) && end.SetDateAndHHMM(2021, 3, 26, 23, 14));
    EXPECT_EQ(end.GetValue() - start.GetValue(), P);
    // Seconds are not in the name.
    const CHistoricTable::HistoricFile file{start.GetValue() + M - 1, P, 0, 0, 0};
    char name[CHistoricTable::FileNameBufferSize];
    EXPECT_EQ(file.GetFileName(name), 31);
    EXPECT_STREQ(name, "202103040506_202103262314.qvhis");
    Utf16String* const counted = file.GetFileName();
    char copy[64];
    WCharFromUtf16String(counted, copy, sizeof copy);
    Utf16StringFree(counted);
    EXPECT_STREQ(copy, name);
    EXPECT_EQ(NameOf(0, 2 * P), "160101010000_160102151216.qvhis");
}

TEST(HistoricTableStore, StartsFromTheFilesThatItsFolderHolds) {
    const FolderTable table;
    const char* const strangers[] = {
        "x.qvhis",
        "202113040506_202104262314.qvhis",
        "202102300506_202104262314.qvhis",
        "202103040560_202104262314.qvhis",
        "202103042400_202104262314.qvhis",
        "000003040506_202104262314.qvhis",
        "202103040506-202104262314.qvhis",
        "202103040506_202104262300.qvhis.old",
        "2021030405061_202104262314.qvhis",
        "20210304050_202104262314.qvhis",
        "202103040506_202114262314.qvhis",
    };
    for (const char* name : strangers)
        table.folder.Write(name, std::string(160, 'x'));
    std::filesystem::create_directory(table.folder.File("202001010000_202002010000.qvhis").GetPath());
    table.folder.Write("202103040506_202103262314.qvhis", std::string(1000, 'x'));
    table.folder.Write("201901010000_201902010000.qvhis", "");
    // Characters are not checked to be digits: ':' counts as 10, ' ' as something negative.
    table.folder.Write("20220101000 _202203010000.qvhis", "");
    table.folder.Write("202201010:00_202202010000.qvhis", "");

    table->InitialiseFromPath(table.folder.GetFilePath());
    CTextOutputString out;
    table->PrintContents(out);
    EXPECT_EQ(out.GetString(), "201901010000_201902010000.qvhis, 0 records\n"
                               "202103040506_202103262314.qvhis, 62 records\n"
                               "202201011000_202202010000.qvhis, 0 records\n");
    EXPECT_THAT(table->TakeLog(), IsEmpty());
    std::vector<CHistoricTable::HistoricFile> files(5);
    table->GetFiles(files);
    ASSERT_EQ(files.size(), 3u);
    EXPECT_EQ(files[1].m_NumRecords, 62u);
    EXPECT_EQ(TestTable(table.folder.File("missing")).Describe(), "");
}

TEST(HistoricTableStore, KeepsTheOrderOfArrivalInFilesThatTakeTurns) {
    // First one file for long, then three in turns: past the runs and the bytes that one gathering write takes, and
    // past many blocks of the queue.
    constexpr unsigned int count = 100'000;
    std::mt19937 random(1);
    Records records;
    std::map<std::string, Records> expected;
    for (long long i = 0; i < 2 * count; i++) {
        const long long start = Numbers{0, 2 * P, 3 * P}[i < count ? 0 : random() % 3];
        records.push_back({start + static_cast<long long>(random() % 1000), i});
        expected[NameOf(start, std::max(start + P, 2 * P))].push_back(records.back());
    }
    const FolderTable table;
    for (const bool bTurns : {false, true}) {
        FaultSystemCalls system;
        const auto first = records.begin() + bTurns * count;
        EXPECT_EQ(table->Flush({first, first + count}), count);
        EXPECT_EQ(system.GetCount(SystemCall::Close), bTurns ? 3u : 1u) << "each file is opened once";
        EXPECT_LE(system.GetCount(SystemCall::Write | SystemCall::Writev), bTurns ? count : 20u)
            << "consecutive records go together";
    }
    EXPECT_TRUE(RecordsOnDisk(table.folder) == expected);
}

TEST(HistoricTableStore, StoresRecordsOfEverySize) {
    for (const unsigned int size : {8u, 9u, 16u, 24u, 32u, 64u, 1000u, 65'537u, 131'072u}) {
        SCOPED_TRACE(size);
        const Records records = Minutes(0, std::max(6u, 500'000 / size));
        const auto count = static_cast<unsigned int>(records.size());
        const FolderTable table({}, QVFileSystem::GetUnsyncedInstance(), size);
        EXPECT_EQ(table->Flush({records.begin(), records.begin() + 3}), 3u);
        EXPECT_EQ(table->Flush({records.begin() + 3, records.end()}), count - 3);
        const std::string bytes = BytesOf(records, size);
        EXPECT_TRUE(table.folder.Read(kFirstFile) == bytes);
        EXPECT_TRUE(table->SplitLargest(count / 2));
        EXPECT_TRUE(table->Validate());

        std::string read;
        CHistoricTable::ReadContext context;
        for (bool found = table->BeginRead(0, LLONG_MAX, context); found; found = table->NextRecord(context))
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
}

TEST(HistoricTableStore, AnAppendCutsATornTailAndBelievesTheFile) {
    struct Row {
        size_t size; // of the file when it is flushed to; the map says two records
        Lines log;
        unsigned int records;
    };
    const std::string cut = " bytes of an unfinished record from file '" + kFirstFile + "'";
    const std::string holds = "File '" + kFirstFile + "' holds ";
    const Row rows[] = {
        {33, {"Cut 1" + cut}, 2},
        {31, {"Cut 15" + cut, holds + "1 records, expected were 2"}, 1},
        {0, {holds + "0 records, expected were 2"}, 0},
        {64, {holds + "4 records, expected were 2"}, 4},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.size);
        const FolderTable table({{{0, 2 * P}, At({1, 2})}});
        CHistoricTable::HistoricFile& file = table->m_Files.begin()->second;
        file.m_NumRecordsTransferred = file.m_NumRecordsSent = 1;
        table.folder.Write(kFirstFile, BytesOf(At({1, 2, 3, 4})).substr(0, row.size));
        EXPECT_EQ(table->Flush({{9, 9}}), 1u);
        EXPECT_EQ(table->TakeLog(), row.log);
        EXPECT_EQ(file.m_NumRecords, row.records + 1);
        EXPECT_EQ(file.m_NumRecordsTransferred, std::min(row.records, 1u));
        EXPECT_EQ(file.m_NumRecordsSent, row.records < 2 ? 0u : 1u);
        EXPECT_EQ(table->Read().size(), row.records + 1);
        EXPECT_EQ(table->Read().back().number, 9);
        EXPECT_TRUE(table->Validate());
        EXPECT_EQ(table->Errors(), "");
    }
    // A tail that cannot be cut must not be appended to, nor a file whose size cannot be told.
    for (const unsigned int call : {SystemCall::Truncate, SystemCall::StatDescriptor}) {
        const FolderTable table({{{0, 2 * P}, At({1, 2})}});
        table.folder.Write(kFirstFile, std::string(20, '\0'));
        FaultSystemCalls system;
        system.FailFrom(call, 1, EIO);
        EXPECT_EQ(table->Flush({{9, 9}}), 0u);
        EXPECT_THAT(table->TakeLog(),
                    ElementsAre("! Open file '" + kFirstFile + "' (Append) returns: Input/output error"));
        EXPECT_EQ(table->Errors(), "Error 5, Lost Records (1)");
        EXPECT_EQ(table.folder.Read(kFirstFile).size(), 20u);
    }
}

TEST(HistoricTableStore, ATimeThatNoNameCanHoldLosesItsRecordAlone) {
    constexpr long long firstOfYear1 = -504'911'232'000'000'000;
    constexpr long long lastOf9999 = 2'650'467'743'999'999'999;
    constexpr long long lastPeriod = lastOf9999 / P; // its file would end in the year 10000
    for (const long long time : {LLONG_MAX, LLONG_MIN, firstOfYear1 - P, lastOf9999 + 1, lastPeriod * P}) {
        for (const Records& before : {Records(), At({5})}) {
            SCOPED_TRACE(testing::Message() << time << ' ' << before.size());
            FolderTable table;
            table->Flush(before);
            EXPECT_EQ(table->Flush({{time, 1}, {6, 2}, {time, 3}, {7, 4}}), 2u);
            const std::string line = "! Record with time stamp " + std::to_string(time) +
                                     " is lost: no file name can hold its time";
            EXPECT_THAT(table->TakeLog(), ElementsAre(line, line));
            EXPECT_EQ(table->Errors(), ", Lost Records (2)");
            EXPECT_EQ(table->m_Files.size(), 1u);
            table.Restart();
            EXPECT_EQ(table->Read().size(), before.size() + 2);
        }
    }
    // The last span that has a name. And a name in the folder that says more than it should be able to.
    FolderTable table;
    table.folder.Write(":00001010000_:00002010000.qvhis", "");
    table.Restart();
    EXPECT_EQ(table->Flush({{lastOf9999 + P / 2, 1}}), 0u);
    EXPECT_EQ(table->Errors(), ", Lost Records (1)");
    EXPECT_EQ(table.folder.List().size(), 1u);
    table->DeleteAll();
    EXPECT_EQ(table->Flush({{(lastPeriod - 2) * P, 1}, {lastPeriod * P - 1, 2}}), 2u);
    table.Restart();
    EXPECT_EQ(table->Read().size(), 2u);
}

TEST(HistoricTableStore, SumsUpErrorsForAnOperator) {
    struct Row {
        std::vector<int> codes;
        unsigned int lost;
        std::string ofFiles;
        std::string ofRecords;
    };
    const Row rows[] = {
        {{}, 0, "", ""},
        {{}, 12, "", ", Lost Records (12)"},
        {{28, 2, 28}, 0, "No File/Directory, Disk Full (2)", ""},
        {{13, 30, 1, 1}, 1, "Access Denied (2), Access Denied, Access Denied", ", Lost Records (1)"},
        {{27, -1, 0}, 0, "Error -1, Error 0, File too Big", ""},
    };
    for (const Row& row : rows) {
        HistoricTableErrorSummary summary;
        for (const int code : row.codes)
            summary.AddFileSystemError(code);
        summary.AddRecordLostCount(row.lost);
        CTextOutputString ofFiles, all;
        summary.GetFileSystemErrorSummary(ofFiles);
        summary.GetHistoricTableErrorSummary(all);
        EXPECT_EQ(ofFiles.GetString(), row.ofFiles);
        EXPECT_EQ(all.GetString(), row.ofFiles + row.ofRecords);
        EXPECT_EQ(summary.HasFileSystemErrors(), !row.codes.empty());
        EXPECT_EQ(summary.HasError(), !all.GetString().empty());
    }
    char buffer[8] = "#######";
    EXPECT_EQ(FileSystemErrorSummary::GetErrorTypeText(ENOENT, buffer, sizeof buffer), 7u);
    EXPECT_STREQ(buffer, "No File");
}

TEST(HistoricTableStore, QueuedRecordsAreDroppedWithTheTableAndNotCounted) {
    HistoricTableErrorSummary errors;
    {
        CHistoricTable table(QVFileSystem::GetInstance(), 16, &errors);
        table.WriteNewRecord(1, Record{1, 1}.Bytes().data());
    }
    EXPECT_FALSE(errors.HasError());
}

TEST(HistoricTableStore, AFlushOfNothingTakesNoLock) {
    TestTable table{CQVFilePath("missing")};
    table.LockWrite(); // not recursive
    EXPECT_EQ(table.Flush(), 0u);
    table.UnLockWrite();
}
