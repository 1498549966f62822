#include <QVPlatform/FindFiles.h>

#include "support/FaultSystemCalls.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> FindAll(CQVFindFiles& find, const std::string& pattern) {
    std::vector<std::string> found;
    for (bool more = find.FirstFile(pattern); more; more = find.NextFile()) {
        qvstring name;
        find.GetName(name);
        found.push_back(name + " " + std::to_string(find.GetSize()));
    }
    std::sort(found.begin(), found.end());
    return found;
}

} // namespace

TEST(FindFiles, MatchesFilesAndLinksButNoFolders) {
    const TemporaryFolder folder;
    folder.Write("a.dat", "12345");
    folder.Write("bb.dat", "");
    folder.Write("c.txt", "1");
    folder.Write(".hidden.dat", "1");
    ASSERT_TRUE(folder.File("folder.dat").MakeDirectory());
    const std::string path = folder.GetPath() + "/";
    std::filesystem::create_symlink("a.dat", path + "link.dat");
    std::filesystem::create_symlink("folder.dat", path + "to-folder.dat");
    std::filesystem::create_symlink("nowhere", path + "broken.dat");
    std::filesystem::create_symlink("loop.dat", path + "loop.dat");

    CQVFindFiles find;
    EXPECT_THAT(FindAll(find, path + "*.dat"), ElementsAre("a.dat 5", "bb.dat 0", "link.dat 5"));
    EXPECT_EQ(find.GetLastError(), 0);
    EXPECT_FALSE(find.NextFile()) << "stays at its end";
    EXPECT_THAT(FindAll(find, path + "?.dat"), ElementsAre("a.dat 5"));
    EXPECT_THAT(FindAll(find, path + ".*"), ElementsAre(".hidden.dat 1"));
    EXPECT_THAT(FindAll(find, path + "*.none"), IsEmpty());
    EXPECT_EQ(find.GetLastError(), 0);

    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(path);
    EXPECT_THAT(FindAll(find, "c*"), ElementsAre("c.txt 1")) << "the working directory";
    std::filesystem::current_path(before);
}

TEST(FindFiles, SizesPastFourGigabytes) {
    const TemporaryFolder folder;
    folder.Write("big", "");
    std::filesystem::resize_file(folder.File("big").GetPath(), 5'000'000'000);
    CQVFindFiles find;
    ASSERT_TRUE(find.FirstFile(folder.GetPath() + "/big"));
    EXPECT_EQ(find.GetSize(), UINT_MAX);
    EXPECT_EQ(find.GetSize64(), 5'000'000'000);
}

TEST(FindFiles, AnErrorEndsTheSearchAndIsKept) {
    const TemporaryFolder folder;
    folder.Write("a", "");
    folder.Write("b", "");
    CQVFindFiles find;
    EXPECT_FALSE(find.FirstFile(folder.GetPath() + "/none/*"));
    EXPECT_EQ(find.GetLastError(), ENOENT);

    FaultSystemCalls system;
    for (const unsigned int call : {SystemCall::OpenFolder, SystemCall::ReadFolder, SystemCall::Stat}) {
        system.FailAt(call, 1, EIO);
        EXPECT_FALSE(find.FirstFile(folder.GetPath() + "/*"));
        EXPECT_EQ(find.GetLastError(), EIO);
        system.FailAt(call, 1, call == SystemCall::OpenFolder ? EINTR : ENOENT);
        EXPECT_EQ(FindAll(find, folder.GetPath() + "/*").size(), call == SystemCall::OpenFolder ? 2u
                                                                 : call == SystemCall::Stat     ? 1u
                                                                                                : 0u);
        EXPECT_EQ(find.GetLastError(), call == SystemCall::ReadFolder ? ENOENT : 0);
        system.Heal();
    }
    EXPECT_TRUE(find.FirstFile(folder.GetPath() + "/*"));
    EXPECT_TRUE(find.FirstFile(folder.GetPath() + "/*")) << "a new search ends the old one";
    while (find.NextFile()) {
    }
    EXPECT_EQ(system.GetCount(SystemCall::CloseFolder), system.GetCount(SystemCall::OpenFolder) - 2);
}
