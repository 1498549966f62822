#include <QVPlatform/FilePath.h>

#include "support/FaultSystemCalls.h"
#include "support/TemporaryFolder.h"

#include <cerrno>
#include <gmock/gmock.h>

using testing::ElementsAre;

TEST(Error, TextOfANumber) {
    struct {
        int error;
        unsigned int size;
        const char* text;
    } const cases[] = {
        {ENOENT, 80, "No such file or directory"},
        {ENOENT, 8, "No such"}, // cut to the buffer
        {ENOENT, 1, ""},
        {99999, 80, "Error 99999"},
        {-5, 80, "Error -5"},
    };
    for (const auto& c : cases) {
        CQVError error;
        error.SetLastError(c.error);
        std::string buffer(100, '#');
        EXPECT_EQ(error.GetLastErrorString(buffer.data(), c.size), std::string(c.text).size());
        EXPECT_STREQ(buffer.c_str(), c.text);
        EXPECT_EQ(buffer.substr(c.size), std::string(100 - c.size, '#')) << "written past the buffer";
    }
    char untouched = '#';
    EXPECT_EQ(QVFormatMessage(ENOENT, &untouched, 0), 0u);
    EXPECT_EQ(untouched, '#');
}

TEST(FilePath, Parts) {
    struct {
        const char* path;
        const char* name;
        const char* folder;
        const char* withExtension;
        const char* without;
    } const cases[] = {
        {"a/b.txt", "b.txt", "a", "a/b.bin", "a/b"},
        {"b", "b", ".", "b.bin", "b"},
        {"/b.c.d", "b.c.d", "/", "/b.c.bin", "/b.c"},
        {"a.d/b", "b", "a.d", "a.d/b.bin", "a.d/b"}, // the dot of a folder is none of the file's
        {"a/.hidden", ".hidden", "a", "a/.hidden.bin", "a/.hidden"},
        {"a/b.", "b.", "a", "a/b.bin", "a/b"},
        {"a/..", "..", "a", "a/...bin", "a/.."},
        {"a//b/", "b", "a", "a//b.bin", "a//b"},
        {"/", "", "/", ".bin", ""},
        {"", "", ".", ".bin", ""},
    };
    for (const auto& c : cases) {
        CQVFilePath path(c.path);
        EXPECT_EQ(path.GetFileName(), c.name) << c.path;
        EXPECT_EQ(path.GetFolder().GetPath(), c.folder) << c.path;
        CQVFilePath other = path;
        other.ChangeExtension("bin");
        EXPECT_EQ(other.GetPath(), c.withExtension) << c.path;
        path.ChangeExtension("");
        EXPECT_EQ(path.GetPath(), c.without) << c.path;
    }
}

TEST(FilePath, AppendPutsOneSlashBetween) {
    const char* const cases[][3] = {{"a", "b", "a/b"}, {"a/", "b", "a/b"}, {"a", "/b", "a/b"},
                                    {"/", "b", "/b"},  {"", "b", "b"},     {"", "/b", "/b"}};
    for (const auto& [path, name, expected] : cases) {
        CQVFilePath file(path), folder(path);
        file.AppendFileName(name);
        folder.AppendFolder(name);
        EXPECT_EQ(file.GetPath(), expected);
        EXPECT_EQ(folder.GetPath(), expected);
    }
}

TEST(FilePath, ExistsEraseAndMakeDirectory) {
    const TemporaryFolder folder;
    folder.Write("file", "x");
    CQVFilePath file = folder.File("file"), fresh = folder.File("fresh"), deep = folder.File("no/parent");
    EXPECT_TRUE(fresh.MakeDirectory());
    EXPECT_TRUE(fresh.MakeDirectory()) << "there already";
    EXPECT_FALSE(file.MakeDirectory());
    EXPECT_EQ(file.GetLastError(), EEXIST);
    EXPECT_FALSE(deep.MakeDirectory());
    EXPECT_EQ(deep.GetLastError(), ENOENT);
    EXPECT_FALSE(fresh.EraseFile()) << "a folder is no file";
    EXPECT_TRUE(file.FileExists());
    EXPECT_TRUE(file.EraseFile());
    EXPECT_FALSE(file.FileExists());
    EXPECT_FALSE(file.EraseFile());
    EXPECT_EQ(file.GetLastError(), ENOENT);
}

TEST(FilePath, RenameSyncsTheFileBeforeAndTheFoldersAfter) {
    const TemporaryFolder folder;
    ASSERT_TRUE(folder.File("from").MakeDirectory() && folder.File("to").MakeDirectory());
    folder.Write("from/new", "new");
    folder.Write("to/old", "old");
    FaultSystemCalls system;
    system.InterruptEverySecond(SystemCall::Open | SystemCall::Sync);
    EXPECT_TRUE(folder.File("to/old").ReplaceFileWith(folder.File("from/new")));
    system.Heal();
    EXPECT_EQ(folder.Read("to/old"), "new");
    EXPECT_FALSE(folder.Exists("from/new"));

    system.ClearRecord();
    EXPECT_TRUE(folder.File("to/old").RenameFile(folder.File("to/name")));
    EXPECT_EQ(folder.Read("to/name"), "new");
    EXPECT_THAT(system.GetRecord(), ElementsAre("open old", "fsync old", "close old", "rename old name",
                                                "open to", "fsync to", "close to"));
    system.ClearRecord();
    EXPECT_TRUE(folder.File("to/name").RenameFile(folder.File("from/back")));
    EXPECT_THAT(system.GetRecord(),
                ElementsAre("open name", "fsync name", "close name", "rename name back", "open from",
                            "fsync from", "close from", "open to", "fsync to", "close to"));
}

TEST(FilePath, AFailedStepOfReplacingIsReportedByTheTarget) {
    const unsigned int steps = SystemCall::Open | SystemCall::Sync | SystemCall::Rename;
    for (unsigned int n = 1; n <= 5; n++) {
        const TemporaryFolder folder;
        folder.Write("target", "old");
        folder.Write("temporary", "new");
        CQVFilePath target = folder.File("target"), temporary = folder.File("temporary");
        FaultSystemCalls system;
        system.FailAt(steps, n, EIO);
        EXPECT_FALSE(target.ReplaceFileWith(temporary)) << n;
        EXPECT_EQ(target.GetLastError(), EIO);
        EXPECT_EQ(temporary.GetLastError(), 0);
        EXPECT_EQ(folder.Read("target"), n <= 3 ? "old" : "new") << n;
        EXPECT_EQ(temporary.FileExists(), n <= 3) << "nothing is deleted before the replacement";
        EXPECT_EQ(system.GetCount(SystemCall::Open), system.GetCount(SystemCall::Close) + (n == 1 || n == 4));
    }
}
