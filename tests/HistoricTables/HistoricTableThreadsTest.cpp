// Everything at once: writers, a flusher, housekeeping, validation and readers.
#include "TestTable.h"

#include <atomic>
#include <gtest/gtest.h>
#include <set>
#include <thread>

namespace {

constexpr long long kWriters = 4;
constexpr long long kRecordsEach = 20'000;

// A record of one of the writers. Times run on, a little out of order and over a period's end.
Record RecordOf(long long writer, long long i) {
    const long long step = i % 7 == 3 ? i - 3 : i;
    return {10 * P + step * (P / 15'000), writer * kRecordsEach + i};
}

} // namespace

TEST(HistoricTableThreads, CountsEveryRecordOnce) {
    const TemporaryFolder folder = TemporaryFolder::InMemory();
    TestTable table(folder.GetFilePath());
    std::atomic<long long> writing{kWriters};
    std::atomic<unsigned int> flushed{0};
    std::atomic<unsigned int> splits{0};

    std::vector<std::thread> threads;
    for (long long writer = 0; writer < kWriters; writer++) {
        threads.emplace_back([&, writer] {
            for (long long i = 0; i < kRecordsEach; i++) {
                const Record record = RecordOf(writer, i);
                table.WriteNewRecord(record.time, &record);
            }
            writing--;
        });
    }
    const auto whileWriting = [&](auto work) {
        threads.emplace_back([&, work]() mutable {
            COutputLogNull log;
            do
                work(log);
            while (writing != 0 || splits < 5);
        });
    };
    whileWriting([&](COutputLog& log) { flushed += table.FlushRecords(&log); });
    whileWriting([&](COutputLog& log) { flushed += table.FlushRecords(&log); });
    whileWriting([&](COutputLog& log) {
        EXPECT_EQ(table.TrimFilesToGetTargetNumberOfRecords(&log, UINT_MAX), 0);
        splits += table.SplitLargestFile(&log, 2'000);
    });
    whileWriting([&](COutputLog& log) { EXPECT_TRUE(table.ValidateFiles(log)); });
    whileWriting([&](COutputLog&) {
        std::vector<CHistoricTable::HistoricFile> files;
        table.GetFiles(files);
    });
    whileWriting([&, known = size_t{0}](COutputLog&) mutable {
        table.LockRead();
        const Records records = table.Read();
        table.UnLockRead();
        EXPECT_GE(records.size(), known) << "what was read once is read again";
        known = records.size();
        std::set<long long> numbers;
        for (const Record& record : records)
            EXPECT_TRUE(numbers.insert(record.number).second);
    });
    for (std::thread& thread : threads)
        thread.join();

    flushed += table.Flush();
    EXPECT_EQ(flushed, kWriters * kRecordsEach);
    EXPECT_EQ(table.Errors(), "");
    EXPECT_TRUE(table.Validate());
    Records expected;
    for (long long writer = 0; writer < kWriters; writer++)
        for (long long i = 0; i < kRecordsEach; i++)
            expected.push_back(RecordOf(writer, i));
    EXPECT_TRUE(Sorted(table.Read()) == Sorted(expected));
    EXPECT_TRUE(Sorted(TestTable(folder.GetFilePath()).Read()) == Sorted(expected));
}

TEST(HistoricTableThreads, WritersDoNotWaitForFiles) {
    // Whoever holds the files, here a flush that is about to say something, lets other threads write on.
    struct Log : COutputLogNull {
        bool AppendMessage(LogType, int, const char*, unsigned int) override {
            std::thread([this] { m_pTable->Put(Records(10'000, {1, 1})); }).join();
            m_pTable->Put({{5, 5}}); // and so does the thread of the flush
            return true;
        }
        TestTable* m_pTable;
    } log;
    const TemporaryFolder folder;
    folder.Write(NameOf(0, 2 * P), "torn");
    TestTable table(folder.GetFilePath());
    log.m_pTable = &table;
    table.Put({{1, 1}});
    EXPECT_EQ(table.FlushRecords(&log), 1u);
    EXPECT_EQ(table.Flush(), 10'001u);
}

TEST(HistoricTableThreads, TheLastOfManyHoldersDeletesTheTable) {
    struct Counted : TestTable {
        explicit Counted(std::atomic<int>& dead) : TestTable(CQVFilePath("missing")), m_Dead(dead) {}
        ~Counted() override { m_Dead++; }
        std::atomic<int>& m_Dead;
    };
    std::atomic<int> dead{0};
    for (int round = 0; round < 200; round++) {
        auto* const table = new Counted(dead);
        std::vector<std::jthread> holders(4);
        for (size_t i = 0; i < holders.size(); i++)
            table->AddRef();
        for (std::jthread& holder : holders)
            holder = std::jthread([table] {
                table->Put({{1, 1}});
                table->Release();
            });
        holders.clear();
        EXPECT_EQ(dead, round + 1);
    }
}
