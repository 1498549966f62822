#include <QVPlatform/FileSystem.h>

#include "support/FaultFileSystem.h"
#include "support/FaultSystemCalls.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <gmock/gmock.h>
#include <memory>
#include <random>

using testing::ElementsAre;

namespace {

constexpr unsigned int Writes = SystemCall::Write | SystemCall::Writev;
constexpr unsigned int Interruptible = SystemCall::Open | SystemCall::Read | Writes | SystemCall::Truncate |
                                       SystemCall::Sync | SystemCall::SyncData | SystemCall::Lock;

std::string RandomText(std::size_t size, unsigned int seed) {
    std::mt19937 random(seed);
    std::string text(size, ' ');
    std::generate(text.begin(), text.end(), [&] { return static_cast<char>(random()); });
    return text;
}

bool WriteText(QVFileInterface& file, const std::string& text) {
    return file.WriteBytes(text.data(), static_cast<unsigned int>(text.size()));
}

// Reads like a caller; "!" and the error where reading fails.
std::string ReadText(QVFileInterface& file, unsigned int count) {
    std::string text(count, '#');
    unsigned int got = count + 1;
    if (!file.ReadBytes(text.data(), count, got))
        return "!" + std::to_string(file.GetLastError()) + (got == 0 ? "" : " got");
    text.resize(got);
    return text;
}

} // namespace

TEST(FileUnix, WritesAppendsCutsAndReadsThroughInterruptedAndPartialCalls) {
    const TemporaryFolder folder;
    const CQVFilePath path = folder.File("file");
    FaultSystemCalls system;
    system.PartFrom(SystemCall::Read | Writes, 1, 3);
    system.InterruptEverySecond(Interruptible);
    QVFileUnix file;
    EXPECT_TRUE(file.OpenFileForAppend(path)) << file.GetLastError();
    EXPECT_TRUE(WriteText(file, "0123456789"));
    EXPECT_TRUE(file.OpenFileForAppend(path)) << "closes the open file first";
    EXPECT_EQ(file.GetFileSize(), 10);
    EXPECT_TRUE(WriteText(file, "abcdef"));
    EXPECT_TRUE(file.CutFile(12));
    EXPECT_TRUE(WriteText(file, "XYZ"));
    EXPECT_TRUE(file.CloseFile());
    EXPECT_EQ(folder.Read("file"), "0123456789abXYZ");
    EXPECT_TRUE(file.OpenFileForRead(path, true));
    EXPECT_EQ(ReadText(file, 100'000), "0123456789abXYZ");
    EXPECT_EQ(ReadText(file, 10), "");
    EXPECT_TRUE(file.OpenFileForWrite(path));
    EXPECT_TRUE(file.CloseFile() && file.CloseFile()) << "closing twice";
    EXPECT_EQ(folder.Read("file"), "");
    EXPECT_EQ(file.GetLastError(), 0);
}

TEST(FileUnix, OperationsOnAClosedOrWronglyOpenedFileFail) {
    const TemporaryFolder folder;
    folder.Write("file", "text");
    QVFileUnix file;
    const auto expectBad = [&](bool result) {
        EXPECT_FALSE(result);
        EXPECT_EQ(file.GetLastError(), EBADF);
        file.ClearLastError();
    };
    const QVRecordRun run{reinterpret_cast<const unsigned char*>("ab"), 1};
    expectBad(WriteText(file, "x"));
    expectBad(file.WriteRecords(&run, 1, 2) != 0);
    expectBad(file.CutFile(0));
    expectBad(file.SkipForward(1));
    expectBad(file.SeekToOffset(0));
    EXPECT_EQ(ReadText(file, 4), "!9");
    EXPECT_EQ(file.GetFileSize(), -1);
    ASSERT_TRUE(file.OpenFileForRead(folder.File("file"), false));
    expectBad(WriteText(file, "x"));
    ASSERT_TRUE(file.OpenFileForAppend(folder.File("file")));
    EXPECT_EQ(ReadText(file, 4), "!9");
    EXPECT_FALSE(file.OpenFileForRead(folder.File("none"), false));
    EXPECT_EQ(file.GetLastError(), ENOENT);
    EXPECT_FALSE(file.IsOpen());
    EXPECT_FALSE(file.OpenFileForAppend(folder.File("none/file")));
    EXPECT_EQ(file.GetLastError(), ENOENT);
    EXPECT_EQ(folder.Read("file"), "text");
}

TEST(FileUnix, ReadsSkipsAndSeeksAgreeWithTheContent) {
    const TemporaryFolder folder;
    const std::string content = RandomText(300'000, 1);
    folder.Write("file", content);
    QVFileUnix file;
    FaultSystemCalls system;
    std::mt19937 random(2);
    for (const bool rough : {false, true}) {
        system.Heal();
        if (rough) {
            system.PartFrom(SystemCall::Read, 1, 1000);
            system.InterruptEverySecond(SystemCall::Read);
        }
        ASSERT_TRUE(file.OpenFileForRead(folder.File("file"), false));
        std::size_t position = 0;
        for (int step = 0; step < 3000; step++) {
            constexpr unsigned int sizes[] = {1, 16, 1024, 5000, 65'536, 100'000};
            const auto count = static_cast<unsigned int>(random() % sizes[random() % std::size(sizes)]);
            const auto kind = random() % 8;
            if (kind == 0) { // often a little back, where a buffer may be stale
                position =
                    random() % 4 == 0 ? random() % 310'000 : position - std::min(position, random() % 70'000);
                ASSERT_TRUE(file.SeekToOffset(static_cast<unsigned int>(position)));
            } else if (kind == 1) {
                position += count % 8192;
                ASSERT_TRUE(file.SkipForward(count % 8192));
            } else {
                const std::string expected = content.substr(std::min(position, content.size()), count);
                ASSERT_TRUE(ReadText(file, count) == expected) << "step " << step << " at " << position;
                position += expected.size();
            }
            const std::string buffered(reinterpret_cast<const char*>(file.PeekBuffered()),
                                       file.BufferedBytes());
            ASSERT_TRUE(content.compare(std::min(position, content.size()), buffered.size(), buffered) == 0);
        }
    }
}

TEST(FileUnix, ReadingRecordByRecordCostsFewCallsAndASingleRecordLittle) {
    const TemporaryFolder folder;
    folder.Write("file", RandomText(1'600'000, 3));
    FaultSystemCalls system;
    QVFileUnix file;
    ASSERT_TRUE(file.OpenFileForRead(folder.File("file"), false));
    ReadText(file, 16);
    EXPECT_EQ(file.BufferedBytes(), 4096u - 16u);
    EXPECT_TRUE(file.SeekToOffset(4000) && file.SeekToOffset(0) && file.SkipForward(1600));
    char record[16];
    unsigned int got = 0;
    for (int i = 100; i < 100'000; i++)
        ASSERT_TRUE(file.ReadBuffered(record, 16, got) && got == 16);
    EXPECT_TRUE(file.ReadBuffered(record, 16, got) && got == 0);
    EXPECT_LE(system.GetCount(SystemCall::Read), 30u);
    EXPECT_EQ(system.GetCount(SystemCall::Seek), 0u);
}

TEST(FileUnix, AFailedReadDeliversNothingAndKeepsThePosition) {
    const TemporaryFolder folder;
    const std::string content = RandomText(200'000, 4);
    folder.Write("file", content);
    FaultSystemCalls system;
    QVFileUnix file;
    for (const unsigned int count : {10'000u, 150'000u}) {
        ASSERT_TRUE(file.OpenFileForRead(folder.File("file"), false));
        EXPECT_EQ(ReadText(file, 100), content.substr(0, 100));
        system.PartFrom(SystemCall::Read, 1, 5000);
        system.FailAt(SystemCall::Read, 2, EIO);
        EXPECT_EQ(ReadText(file, count), "!5");
        system.Heal();
        EXPECT_TRUE(ReadText(file, count) == content.substr(100, count));
    }
}

TEST(FileUnix, FilesPastFourGigabytes) {
    const TemporaryFolder folder;
    const CQVFilePath path = folder.File("big");
    constexpr long long size = 9'000'000'000;
    QVFileUnix file(false);
    ASSERT_TRUE(file.OpenFileForAppend(path) && file.CutFile(size)) << file.GetLastError();
    EXPECT_TRUE(WriteText(file, "end"));
    EXPECT_EQ(file.GetFileSize(), size + 3);
    ASSERT_TRUE(file.OpenFileForAppend(path));
    EXPECT_TRUE(WriteText(file, "more"));
    ASSERT_TRUE(file.OpenFileForRead(path, false));
    EXPECT_EQ(ReadText(file, 2), std::string(2, '\0'));
    EXPECT_TRUE(file.SkipForward(4'000'000'000) && file.SkipForward(4'000'000'000) &&
                file.SkipForward(999'999'998));
    EXPECT_EQ(ReadText(file, 100), "endmore");
    EXPECT_TRUE(file.SeekToOffset(4'294'967'295));
    EXPECT_EQ(ReadText(file, 3), std::string(3, '\0'));
}

TEST(FileUnix, AWriteThatCannotBeCompletedIsAFailure) {
    const TemporaryFolder folder;
    FaultSystemCalls system;
    QVFileUnix file;
    ASSERT_TRUE(file.OpenFileForWrite(folder.File("file")));
    system.PartAt(SystemCall::Write, 1, 4);
    system.FailFrom(SystemCall::Write, 2, ENOSPC);
    EXPECT_FALSE(WriteText(file, "0123456789"));
    EXPECT_EQ(file.GetLastError(), ENOSPC);
    EXPECT_EQ(file.GetFileSize(), 4);
    system.Heal();
    EXPECT_TRUE(file.CutFile(0) && WriteText(file, "after"));
    EXPECT_EQ(folder.Read("file"), "after");
    system.FailAt(SystemCall::Truncate, 1, EROFS);
    EXPECT_FALSE(file.CutFile(1));
    EXPECT_EQ(file.GetLastError(), EROFS);
    EXPECT_TRUE(WriteText(file, "!")) << "a failed cut moves nothing";
    EXPECT_EQ(folder.Read("file"), "after!");
}

TEST(FileUnix, CloseSyncsWhatWasWritten) {
    const TemporaryFolder folder;
    const CQVFilePath path = folder.File("file");
    FaultSystemCalls system;
    QVFileUnix file;
    ASSERT_TRUE(file.OpenFileForAppend(path) && WriteText(file, "x") && file.CloseFile());
    const std::string name = folder.GetFilePath().GetFileName();
    EXPECT_THAT(system.GetRecord(),
                ElementsAre("open file", "open file", "seek file", "write file", "fdatasync file",
                            "close file", "open " + name, "fsync " + name, "close " + name));
    system.ClearRecord();
    ASSERT_TRUE(file.OpenFileForAppend(path) && WriteText(file, "x") && file.CloseFile());
    EXPECT_THAT(system.GetRecord(),
                ElementsAre("open file", "seek file", "write file", "fdatasync file", "close file"));
    system.ClearRecord();
    ASSERT_TRUE(file.OpenFileForAppend(path) && file.CloseFile());
    EXPECT_THAT(system.GetRecord(), ElementsAre("open file", "seek file", "close file"));
    ASSERT_TRUE(file.OpenFileForWrite(path) && file.CloseFile());
    EXPECT_EQ(system.GetRecord().back(), "close file");
    EXPECT_EQ(system.GetCount(SystemCall::SyncData), 3u) << "emptying a file is a change";

    const std::unique_ptr<QVFileInterface> unsynced(QVFileSystem::GetUnsyncedInstance()->CreateFileObject());
    ASSERT_TRUE(unsynced->OpenFileForWrite(folder.File("other")) && WriteText(*unsynced, "x"));
    ASSERT_TRUE(unsynced->CloseFile());
    EXPECT_EQ(system.GetCount(SystemCall::Sync | SystemCall::SyncData), 4u);
}

TEST(FileUnix, AFailedCloseIsReportedAndClosesAllTheSame) {
    struct {
        unsigned int call;
        int error;
        bool closed;
    } const cases[] = {
        {SystemCall::SyncData, EIO, false},   {SystemCall::SyncData, EROFS, false},
        {SystemCall::SyncData, EINVAL, true}, // a pipe or device knows no syncing
        {SystemCall::Close, EDQUOT, false},   {SystemCall::Close, EINTR, true},
        {SystemCall::Sync, EIO, false}, // of the folder
    };
    for (const auto& c : cases) {
        const TemporaryFolder folder;
        FaultSystemCalls system;
        QVFileUnix file;
        ASSERT_TRUE(file.OpenFileForAppend(folder.File("file")) && WriteText(file, "x"));
        system.FailAt(c.call, 1, c.error);
        EXPECT_EQ(file.CloseFile(), c.closed) << c.call << " " << c.error;
        EXPECT_EQ(file.GetLastError(), c.closed ? 0 : c.error);
        EXPECT_FALSE(file.IsOpen());
        EXPECT_TRUE(file.CloseFile());
        EXPECT_EQ(folder.Read("file"), "x");
    }
}

TEST(FileUnix, LinksAndLocks) {
    const TemporaryFolder folder;
    folder.Write("target", "precious");
    std::filesystem::create_symlink("target", folder.File("link").GetPath());
    std::filesystem::create_symlink("missing", folder.File("dangling").GetPath());
    QVFileUnix file;
    for (const char* name : {"link", "dangling"}) {
        EXPECT_FALSE(file.OpenFileForWriteNoFollow(folder.File(name), 0666));
        EXPECT_EQ(file.GetLastError(), ELOOP);
    }
    EXPECT_EQ(folder.Read("target"), "precious");
    EXPECT_TRUE(file.OpenFileForWriteNoFollow(folder.File("fresh"), 0666) && WriteText(file, "x"));
    EXPECT_TRUE(file.OpenFileForWrite(folder.File("dangling")) && WriteText(file, "through"));
    EXPECT_EQ(folder.Read("missing"), "through");

    const QVSystemCalls& system = qv_real_system();
    const int holder = system.open(folder.File("target").GetPathCStr(), O_RDONLY, 0);
    ASSERT_EQ(system.flock(holder, LOCK_EX), 0);
    EXPECT_FALSE(file.OpenFileForRead(folder.File("target"), true));
    EXPECT_EQ(file.GetLastError(), EWOULDBLOCK);
    EXPECT_FALSE(file.IsOpen());
    EXPECT_TRUE(file.OpenFileForRead(folder.File("target"), false));
    ASSERT_EQ(system.flock(holder, LOCK_SH), 0);
    EXPECT_TRUE(file.OpenFileForRead(folder.File("target"), true));
    system.close(holder);
}

// Gathered records leave the bytes that one write per record leaves.
TEST(FileUnix, WriteRecordsEqualsOneWritePerRecord) {
    const TemporaryFolder folder;
    const std::string memory = RandomText(6'000'000, 5);
    const auto* const data = reinterpret_cast<const unsigned char*>(memory.data());
    std::mt19937 random(6);
    for (int round = 0; round < 24; round++) {
        const unsigned int recordSize = 8 + static_cast<unsigned int>(random() % 100);
        std::vector<QVRecordRun> runs;
        std::string expected;
        const bool large = round % 3 == 0; // past the bytes, or else the parts, of one gathering write
        for (int i = large ? 5 : 2500; i != 0; i--) {
            const bool adjacent = !runs.empty() && random() % 2 == 0;
            const unsigned char* start = adjacent ? runs.back().data + 1ULL * runs.back().count * recordSize
                                                  : data + random() % 1'000'000;
            const auto count = static_cast<unsigned int>(random() % (large ? 9000 : 4));
            if (start + 1ULL * count * recordSize > data + memory.size())
                continue;
            runs.push_back({start, count});
            expected.append(reinterpret_cast<const char*>(start), 1ULL * count * recordSize);
        }
        FaultSystemCalls system;
        if (round % 2 == 1) {
            system.PartFrom(Writes, 1, 300'001);
            system.InterruptEverySecond(Writes);
        }
        FaultFileSystem foreign;
        for (QVFileSystemInterface* files :
             {QVFileSystem::GetUnsyncedInstance(), static_cast<QVFileSystemInterface*>(&foreign)}) {
            const std::unique_ptr<QVFileInterface> file(files->CreateFileObject());
            ASSERT_TRUE(file->OpenFileForWrite(folder.File("file")));
            const unsigned int before = system.GetCount(Writes);
            EXPECT_EQ(file->WriteRecords(runs.data(), static_cast<unsigned int>(runs.size()), recordSize),
                      expected.size() / recordSize);
            if (files != &foreign) {
                EXPECT_LE(system.GetCount(Writes) - before, 2 * (5 + expected.size() / 300'000));
            }
            ASSERT_TRUE(folder.Read("file") == expected) << "round " << round;
        }
    }
}

TEST(FileUnix, WriteRecordsOnAFullDiskLeavesWholeRecords) {
    constexpr unsigned int recordSize = 10;
    const std::string memory = RandomText(2000, 7);
    const auto* const data = reinterpret_cast<const unsigned char*>(memory.data());
    const QVRecordRun runs[] = {{data, 20}, {data + 500, 0}, {data + 1000, 30}, {data + 1500, 50}};
    const std::string all =
        "head" + memory.substr(0, 200) + memory.substr(1000, 300) + memory.substr(1500, 500);
    for (const bool cutFails : {false, true}) {
        for (unsigned int space = 0; space < 1000; space += 7) {
            const TemporaryFolder folder;
            FaultSystemCalls system;
            QVFileUnix file(false);
            ASSERT_TRUE(file.OpenFileForAppend(folder.File("file")) && WriteText(file, "head"));
            system.FailFrom(Writes, 2, ENOSPC);
            system.PartAt(Writes, 1, space);
            if (space == 0)
                system.FailAt(Writes, 1, ENOSPC);
            if (cutFails)
                system.FailAt(SystemCall::Truncate, 1, EIO);
            const unsigned long long whole = space / recordSize;
            ASSERT_EQ(file.WriteRecords(runs, 4, recordSize), whole);
            EXPECT_EQ(file.GetLastError(), ENOSPC) << "the error of the write, not of the cut";
            if (!cutFails) {
                ASSERT_EQ(folder.Read("file"), all.substr(0, 4 + whole * recordSize));
            }
            // The next write begins at a whole record in either case.
            system.Heal();
            EXPECT_TRUE(WriteText(file, all.substr(4 + whole * recordSize)));
            ASSERT_EQ(folder.Read("file"), all);
        }
    }
}

TEST(FileUnix, WriteRecordsThatFailInsideAFileLeaveTheRestOfIt) {
    const TemporaryFolder folder;
    FaultSystemCalls system;
    QVFileUnix file(false);
    ASSERT_TRUE(file.OpenFileForWrite(folder.File("file")) && WriteText(file, "0123456789") &&
                file.SeekToOffset(0));
    system.FailAt(Writes, 2, EDQUOT);
    system.PartAt(Writes, 1, 3);
    system.FailAt(SystemCall::Seek, 1, ESPIPE);
    const QVRecordRun run{reinterpret_cast<const unsigned char*>("aabbcc"), 3};
    EXPECT_EQ(file.WriteRecords(&run, 1, 2), 1u);
    EXPECT_EQ(file.GetLastError(), EDQUOT);
    EXPECT_EQ(folder.Read("file"), "aab3456789");
}

// The double that other tests rely on: it must fail where it is told to, and leave what it says.
TEST(FaultFileSystem, FailsAndTearsAtTheChosenOperation) {
    const TemporaryFolder folder;
    FaultFileSystem files;
    const std::unique_ptr<QVFileInterface> file(files.CreateFileObject());
    files.TearFrom(3, ENOSPC);
    ASSERT_TRUE(file->OpenFileForWrite(folder.File("file")) && WriteText(*file, "1234"));
    EXPECT_FALSE(WriteText(*file, "5678") || WriteText(*file, "abcd") || file->CutFile(0));
    EXPECT_EQ(file->GetLastError(), ENOSPC);
    EXPECT_FALSE(file->CloseFile());
    EXPECT_FALSE(file->IsOpen());
    EXPECT_EQ(files.GetFailures(), 4u);
    EXPECT_EQ(folder.Read("file"), "123456");

    files.FailAt(2, EIO, FaultFileSystem::Write);
    const QVRecordRun run{reinterpret_cast<const unsigned char*>("aabbcc"), 3};
    ASSERT_TRUE(file->OpenFileForAppend(folder.File("file")));
    EXPECT_EQ(file->WriteRecords(&run, 1, 2), 1u);
    EXPECT_TRUE(WriteText(*file, "!")) << "once only";
    EXPECT_EQ(folder.Read("file"), "123456aa!");
}
