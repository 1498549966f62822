// A recording process that is killed again and again, and a disk that fills up.
#include "TestTable.h"
#include "support/ChildProcess.h"
#include "support/FaultSystemCalls.h"
#include "support/SmallDisk.h"

#include <chrono>
#include <gmock/gmock.h>
#include <random>
#include <set>
#include <thread>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr unsigned int kKeep = 600;    // records
constexpr unsigned int kPerFile = 100; // records

// The time of the n-th record: half a minute on each, every third up to 40 records late.
long long TimeOf(long long number) {
    const long long place = number % 3 == 2 ? number - number * 7 % 40 : number;
    return 100 * P + place * M / 2;
}

// Records numbers from `first` on for ever, and reports the last one of each flush that has returned.
void RecordUntilKilled(const CQVFilePath& path, long long first, bool bInSmallParts,
                       const ChildProcess::Report& report) {
    FaultSystemCalls system;
    if (bInSmallParts) // so that a kill often leaves a part of a record
        system.PartFrom(SystemCall::Write | SystemCall::Writev, 1, 41);
    TestTable table(path);
    for (long long number = first;;) {
        Records records;
        for (long long end = number + 1 + number % 37; number < end; number++)
            records.push_back({TimeOf(number), number});
        if (table.Flush(records) != records.size())
            throw std::runtime_error(table.Errors());
        report(number - 1);
        table.HouseKeepFiles(&table.m_Log, kKeep, kPerFile * 16);
        table.m_Log.Clear();
        system.ClearRecord();
    }
}

// What another process sees of the folder while it changes: files may vanish under its hands, but none doubles.
void LookOn(const CQVFilePath& path) {
    const TestTable table(path, QVFileSystem::GetUnsyncedInstance(), 16, true);
    std::set<long long> numbers;
    for (const long long number : NumbersOf(table.Read()))
        EXPECT_TRUE(number < 0 || numbers.insert(number).second) << number;
}

} // namespace

TEST(HistoricTableCrash, AKilledProcessLosesNothingThatItFlushed) {
    const unsigned int seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    const TemporaryFolder folder = TemporaryFolder::InMemory();
    long long next = 0;
    for (int round = 0; round < 60 && !HasFailure(); round++) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        ChildProcess child([&](const ChildProcess::Report& report) {
            RecordUntilKilled(folder.GetFilePath(), next, round % 2 == 1, report);
        });
        long long flushed = next - 1;
        for (auto reports = 1 + random() % 40; reports > 0; reports--) {
            ASSERT_TRUE(child.ReadReport(flushed)) << "the child ended by itself";
            LookOn(folder.GetFilePath());
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        ASSERT_TRUE(child.Kill());
        while (child.ReadReport(flushed)) {
        }

        TestTable table(folder.GetFilePath());
        const Numbers numbers = NumbersOf(table.Read());
        const std::set<long long> found(numbers.begin(), numbers.end());
        ASSERT_FALSE(found.empty());
        EXPECT_GE(*found.rbegin(), flushed);
        EXPECT_GE(static_cast<long long>(numbers.size()), std::min<long long>(flushed, kKeep));
        // Records go to the disk in order, so up to the last one each is there once, but for those of expired files.
        Numbers wrong;
        for (long long number = 0; number <= *found.rbegin(); number++)
            if (!found.contains(number) && TimeOf(number) >= table.File(0)->second.m_Start)
                wrong.push_back(number);
        EXPECT_THAT(wrong, IsEmpty()) << "missing";
        EXPECT_EQ(std::count_if(numbers.begin(), numbers.end(), [](long long number) { return number >= 0; }),
                  static_cast<long long>(found.size() - found.contains(-1)))
            << "a record is there twice";

        next = *found.rbegin() + 1;
        Records one; // for each file, so that each torn tail is cut
        for (const auto& [end, file] : table.m_Files)
            one.push_back({end - 1, -1});
        EXPECT_EQ(table.Flush(one), one.size());
        table.TakeLog();
        EXPECT_TRUE(table.Validate()) << testing::PrintToString(table.TakeLog());
    }
}

TEST(HistoricTableCrash, AFullDiskKeepsWholeRecordsOnly) {
    const SmallDisk disk(256);
    if (!disk.IsMounted())
        GTEST_SKIP() << "this process may not mount a file system";
    const TemporaryFolder& folder = disk.GetFolder();
    folder.Write("ballast", std::string(160 * 1024, 'x'));
    constexpr unsigned int size = 24; // does not divide a page
    TestTable table(folder.GetFilePath(), QVFileSystem::GetInstance(), size);
    Records expected;
    unsigned int lost = 0;
    const auto fill = [&] {
        for (bool bFull = false; !bFull;) {
            Records records;
            for (long long i = 0; i < 700; i++) {
                const auto number = static_cast<long long>(expected.size()) + i;
                records.push_back({number * M * 5, number});
            }
            const unsigned int written = table.Flush(records);
            expected.insert(expected.end(), records.begin(), records.begin() + written);
            lost += 700 - written;
            bFull = written < 700;
        }
    };
    const auto check = [&] {
        EXPECT_EQ(table.Read(), expected);
        EXPECT_TRUE(table.Validate());
        for (const auto& name : folder.List())
            EXPECT_TRUE(name == "ballast" || folder.Read(name).size() % size == 0) << name;
        table.TakeLog();
    };

    fill();
    EXPECT_THAT(table.TakeLog(), ElementsAre(HasSubstr("returns: No space left on device")));
    EXPECT_EQ(table.Errors(), "Disk Full, Lost Records (" + std::to_string(lost) + ")");
    check();
    EXPECT_FALSE(table.SplitLargest(1000)) << "no room for the halves";
    EXPECT_THAT(table.TakeLog().front(), HasSubstr("returns: No space left on device"));
    check();

    folder.Remove("ballast");
    EXPECT_TRUE(table.SplitLargest(1000));
    fill();
    check();
    const int deleted = table.Trim(static_cast<unsigned int>(expected.size()) / 2);
    EXPECT_GT(deleted, 0);
    expected = table.Read();
    EXPECT_TRUE(table.Validate());
}
