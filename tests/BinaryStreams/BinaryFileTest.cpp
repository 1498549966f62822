// The file streams on real files, and on files and system calls that fail.
#include "BinaryStreamsTesting.h"

#include <QVLib/BinaryStreams/BinaryFile.h>
#include <QVPlatform/Module.h>
#include <QVPlatform/OutputLog.h>
#include <array>
#include <cerrno>
#include <filesystem>
#include <gmock/gmock.h>
#include <support/FaultFileSystem.h>
#include <support/FaultSystemCalls.h>
#include <support/TemporaryFolder.h>

namespace {

constexpr BinaryStringLength Mode = BinaryStringLengthUTF8Character;

class BinaryFiles : public testing::Test {
protected:
    bool Write(CBinaryOutputFile& output, size_t count) {
        return output.Write(std::string(count, 'x').data(), static_cast<unsigned int>(count));
    }
    std::string Lines() const {
        std::string text = m_Log.GetString();
        for (size_t at; (at = text.find(m_Folder.GetPath() + "/")) != std::string::npos;)
            text.erase(at, m_Folder.GetPath().size() + 1);
        return text;
    }

    TemporaryFolder m_Folder;
    COutputLogToString m_Log;
};

TEST_F(BinaryFiles, InputIsLikeAString) {
    std::mt19937 random(2);
    for (const size_t size : {0u, 1u, 1024u, 10'000u}) {
        const std::string content = Numbered(size);
        m_Folder.Write("a", content);
        CBinaryInputFile input(Mode);
        ASSERT_TRUE(input.OpenBinaryFile(m_Folder.File("a")));
        InputBesideAString model(input, content, InputBesideAString::LeavesAll);
        model.m_bSeeksBeyond = false;
        model.Steps(random, 5000);
    }
}

TEST_F(BinaryFiles, InputFailuresCarryTheSystemsError) {
    CBinaryInputFile input(Mode);
    EXPECT_FALSE(input.OpenBinaryFile(m_Folder.File("missing")));
    EXPECT_EQ(input.GetLastError(), ENOENT);
    EXPECT_EQ(input.GetFileSize(), 0u);
    EXPECT_TRUE(input.IsEOF() && !input.Seek(0));

    m_Folder.Write("huge", "");
    std::filesystem::resize_file(m_Folder.File("huge").GetPath(), 0x100000000);
    EXPECT_FALSE(input.OpenBinaryFile(m_Folder.File("huge")));
    EXPECT_EQ(input.GetLastError(), EFBIG);
    std::filesystem::resize_file(m_Folder.File("huge").GetPath(), 0xFFFFFFFF);
    EXPECT_TRUE(input.OpenBinaryFile(m_Folder.File("huge")));
    EXPECT_EQ(input.GetLastError(), 0);
    EXPECT_EQ(input.GetLength(), 0xFFFFFFFF);
    std::filesystem::resize_file(m_Folder.File("huge").GetPath(), 0x100000010); // grows while it is open
    EXPECT_EQ(input.GetLength(), 0xFFFFFFFF);
    char buffer[2000];
    EXPECT_TRUE(input.Seek(0xFFFFFFF0) && input.TryRead(buffer, 15));
    EXPECT_FALSE(input.TryRead(buffer, 1)); // there, but its end has no position
    EXPECT_EQ(input.Tell(), 0xFFFFFFFF);
    EXPECT_FALSE(input.IsEOF());

    m_Folder.Write("a", "0123456789");
    for (const unsigned int count : {5u, 1025u}) {
        ASSERT_TRUE(input.OpenBinaryFile(m_Folder.File("a"))); // a second file starts afresh
        EXPECT_EQ(input.Tell(), 0u);
        FaultSystemCalls system;
        system.FailFrom(SystemCall::Read, 1, EIO);
        EXPECT_FALSE(input.TryRead(buffer, count));
        EXPECT_EQ(input.GetLastError(), EIO);
        EXPECT_EQ(input.Tell(), 0u);
    }
    input.CloseFile();
    EXPECT_FALSE(input.TryRead(buffer, 1));
}

TEST_F(BinaryFiles, OutputIsCachedUpTo1024Bytes) {
    FaultFileSystem files;
    files.FailAt(UINT_MAX, EIO, FaultFileSystem::Write); // only counts
    CBinaryOutputFile output(&files, Mode);
    EXPECT_TRUE(output.CloseFile()); // never opened
    ASSERT_TRUE(output.OpenDirect(m_Folder.File("a")));
    const std::array<size_t, 3> steps[] = {{1000, 0, 0},    {24, 0, 0},    {1, 1, 1024},    {1024, 2, 1025},
                                           {1025, 4, 3074}, {10, 4, 3074}, {5000, 6, 8084}, {0, 6, 8084}};
    for (const auto& [count, writes, size] : steps) {
        ASSERT_TRUE(Write(output, count));
        EXPECT_EQ(files.GetCount(), writes) << count;
        EXPECT_EQ(m_Folder.Read("a").size(), size) << count;
    }
    EXPECT_TRUE(output.FlushCache() && output.CloseFile() && output.CloseFile());
    EXPECT_EQ(files.GetCount(), 6u);

    // Another file, while one is open with bytes in the cache.
    ASSERT_TRUE(output.OpenDirect(m_Folder.File("b")));
    ASSERT_TRUE(Write(output, 5));
    ASSERT_TRUE(output.OpenDirect(m_Folder.File("c")));
    EXPECT_TRUE(output.CloseFile());
    EXPECT_EQ(m_Folder.Read("b").size() * 10 + m_Folder.Read("c").size(), 50u);
}

TEST_F(BinaryFiles, FailedFlushKeepsTheCache) {
    FaultFileSystem files;
    CBinaryOutputFile output(&files, Mode);
    ASSERT_TRUE(output.OpenDirect(m_Folder.File("a")) && Write(output, 1024));
    files.FailFrom(1, ENOSPC, FaultFileSystem::Write);
    EXPECT_FALSE(Write(output, 1));
    EXPECT_FALSE(output.FlushCache() || output.CloseFile());
    EXPECT_EQ(output.GetLastError(), ENOSPC);
    files.Heal();
    EXPECT_TRUE(output.CloseFile()); // it was still open
    EXPECT_EQ(m_Folder.Read("a"), std::string(1024, 'x'));

    // operator<< tells nobody that a large string failed, so the close must, although the next write would
    // succeed.
    ASSERT_TRUE(output.OpenDirect(m_Folder.File("a")));
    files.TearAt(2, EDQUOT, FaultFileSystem::Write); // the first is the string's length
    output << std::string(5000, 'x') << 1;
    EXPECT_FALSE(output.CloseFile());
    EXPECT_EQ(output.GetLastError(), EDQUOT);
    EXPECT_EQ(m_Folder.Read("a").size(), 3u + 2500);

    ASSERT_TRUE(output.OpenDirect(m_Folder.File("b")));
    files.FailAt(1, EIO, FaultFileSystem::Close);
    EXPECT_FALSE(output.CloseFile());
    EXPECT_TRUE(output.CloseFile()); // closed all the same
    files.FailAt(1, EACCES, FaultFileSystem::Open);
    EXPECT_FALSE(output.OpenDirect(m_Folder.File("b")));
    EXPECT_EQ(output.GetLastError(), EACCES);
}

TEST_F(BinaryFiles, CommitCreatesThenReplaces) {
    for (const char* text : {"first", "second"}) {
        CBinaryOutputFile output(Mode);
        ASSERT_TRUE(output.OpenTransacted(m_Folder.File("a.txt")));
        output << text;
        EXPECT_EQ(m_Folder.Exists("a.txt"), text == std::string("second"));
        EXPECT_TRUE(m_Folder.Exists("a.txtTemp"));
        ASSERT_TRUE(output.CloseAndCommitTransactedFile(&m_Log));
        EXPECT_THAT(m_Folder.List(), testing::ElementsAre("a.txt"));
        EXPECT_EQ(m_Folder.Read("a.txt").substr(1), text);
        EXPECT_FALSE(output.CloseAndCommitTransactedFile(&m_Log)); // nothing left to commit
    }
    EXPECT_EQ(Lines(), "Closing 'a.txtTemp'...\nRename a.txtTemp\n    to a.txt\n"
                       "Closing 'a.txtTemp'...\nReplace a.txt\n   with a.txtTemp\n"
                       "...Error 2: No such file or directory\n"
                       "Closing 'a.txtTemp'...\nReplace a.txt\n   with a.txtTemp\n"
                       "Closing 'a.txtTemp'...\nReplace a.txt\n   with a.txtTemp\n"
                       "...Error 2: No such file or directory\n");
}

// Whatever fails, and whether once or for good: the commit succeeds with all bytes or the target stays.
TEST_F(BinaryFiles, FailedTransactionLeavesTheTarget) {
    for (const bool bOnce : {false, true}) {
        for (unsigned int n = 1;; n++) {
            m_Folder.Empty();
            m_Folder.Write("a", "old");
            m_Log.Clear();
            FaultFileSystem files;
            CBinaryOutputFile output(&files, Mode);
            bOnce ? files.TearAt(n, ENOSPC) : files.TearFrom(n, ENOSPC);
            const bool bOpened = output.OpenTransacted(m_Folder.File("a"));
            for (int i = 0; i < 1000; i++)
                output << i;
            output << std::string(3000, 'x');
            const bool bCommitted = output.CloseAndCommitTransactedFile(&m_Log);
            ASSERT_EQ(bCommitted, !files.HasFailed()) << n;
            if (bCommitted) {
                EXPECT_EQ(m_Folder.Read("a").size(), 7003u);
                EXPECT_GT(n, 6u);
                break;
            }
            ASSERT_EQ(m_Folder.Read("a"), "old") << n;
            // Writes to no file have an error of their own.
            const std::string error =
                bOpened || !bOnce ? "28: No space left on device" : "9: Bad file descriptor";
            ASSERT_EQ(Lines(), "Closing 'aTemp'...\n...Error " + error + "\n") << n;
        }
    }
}

TEST_F(BinaryFiles, CommitKeepsLinkAndPermissions) {
    std::filesystem::create_symlink("target", m_Folder.File("link").GetPath());
    const std::string target = m_Folder.File("target").GetPath();
    const auto modeOf = [](const std::string& path) {
        return static_cast<unsigned int>(std::filesystem::status(path).permissions());
    };
    for (const bool bExists : {false, true}) {
        CBinaryOutputFile output(Mode);
        ASSERT_TRUE(output.OpenTransacted(m_Folder.File("link"), 0640));
        const unsigned int modeOfNew = modeOf(target + "Temp"); // 0640, less the umask
        EXPECT_EQ(modeOfNew | 0040, 0640u);
        EXPECT_TRUE(!bExists || modeOfNew == 0600) << "nobody else reads what may be secret";
        ASSERT_TRUE(output.CloseAndCommitTransactedFile(&m_Log));
        EXPECT_TRUE(std::filesystem::is_symlink(m_Folder.File("link").GetPath()));
        EXPECT_EQ(modeOf(target), bExists ? 0604u : modeOfNew);
        std::filesystem::permissions(target, static_cast<std::filesystem::perms>(0604));
    }
}

TEST_F(BinaryFiles, FailedRenameCanBeTriedAgain) {
    for (const bool bExists : {false, true}) {
        CBinaryOutputFile output(Mode);
        ASSERT_TRUE(output.OpenTransacted(m_Folder.File("a")));
        output << bExists;
        FaultSystemCalls system;
        system.FailAt(SystemCall::Rename, 1, EPERM);
        EXPECT_FALSE(output.CloseAndCommitTransactedFile(&m_Log));
        EXPECT_EQ(output.GetLastError(), EPERM);
        EXPECT_TRUE(m_Folder.Exists("aTemp") && m_Folder.Exists("a") == bExists);
        EXPECT_TRUE(output.CloseAndCommitTransactedFile(&m_Log));
        EXPECT_EQ(m_Folder.Read("a"), std::string(1, static_cast<char>(bExists)));
    }
}

TEST_F(BinaryFiles, TemporaryFileIsNeverAForeignLink) {
    m_Folder.Write("victim", "precious");
    m_Folder.Write("a", "old");
    std::filesystem::create_symlink("victim", m_Folder.File("aTemp").GetPath());
    CBinaryOutputFile output(Mode);
    EXPECT_FALSE(output.OpenTransacted(m_Folder.File("a")));
    EXPECT_EQ(output.GetLastError(), ELOOP);
    EXPECT_FALSE(output.CloseAndCommitTransactedFile(&m_Log)); // by a caller who looked away
    EXPECT_EQ(m_Folder.Read("victim") + m_Folder.Read("a"), "preciousold");
}

TEST(BinaryInputFromResource, ReadsTheModulesBytesInPlace) {
    static constexpr unsigned char bytes[] = {1, 0x7A};
    const CQVModule::DataResource table[] = {{5, CQVLocale::English, {2, bytes}}};
    const CQVModule module(table, 1);
    CBinaryInputFromResource input(Mode);
    EXPECT_TRUE(input.IsEOF());
    ASSERT_TRUE(input.OpenResourceDataFile(module, 5));
    std::string text;
    input >> text;
    EXPECT_EQ(text, "z");
    EXPECT_FALSE(input.OpenResourceDataFile(module, 6));
    EXPECT_EQ(input.Tell(), 2u);
}

} // namespace
