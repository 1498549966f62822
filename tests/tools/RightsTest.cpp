// qv rights, run as an engineer runs it.
#include "QvProgram.h"
#include "support/PamStack.h"

#include <QVLib/Security/SecuritySettings.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/SerialDevice.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <thread>

namespace {

using std::filesystem::perms;
using testing::HasSubstr;

class RightsTool : public QvProgram {
protected:
    void WriteRights(const std::string& name, const std::string& text) {
        m_Folder.Write(name, text);
        std::filesystem::permissions(m_Folder.File(name).GetPath(), perms::owner_read | perms::owner_write);
    }

    // The entries of a program that set names which no text can hold.
    void WriteBinary(const std::string& name) {
        CSecuritySettings settings;
        settings.AddNewUser("john.doe", 1);
        settings.AddNewUser("bob", 0x800);
        settings.AddNewUser("carol", 2);
        COutputLogNull log;
        ASSERT_TRUE(settings.SaveBinaryFile(m_Folder.File(name), &log));
    }
};

TEST_F(RightsTool, CheckShowsEachFaultUnderItsLine) {
    WriteRights("good.conf", "# fine\nroot: World=Full;\n*: ZoneA=Write;\n");
    EXPECT_EQ(Do("rights check good.conf"), "good.conf: 2 entries, nothing to complain of\n");
    EXPECT_EQ(Do("rights check good.conf --json"), "");

    WriteRights("bad.conf",
                "root: World=Full;\r\nbob World=Full;\njohn.doe: World=Write;\n*: ZoneE=Write;\n");
    const Result result = Fails(1, "rights check bad.conf",
                                "bad.conf(2,5-10): error 101: Found 'World' when expecting ':'.\n"
                                "  2 | bob World=Full;\n"
                                "    |     ^^^^^\n");
    EXPECT_THAT(result.m_Error, HasSubstr("bad.conf(3,5-6): error 101: Found '.' when expecting ':'.\n"));
    EXPECT_THAT(result.m_Error,
                HasSubstr("bad.conf(4,4-9): error 960: User rights zone 'ZoneE', invalid.\n"));
    Fails(1, "rights check bad.conf --json",
          "\"line\":4,\"column\":4,\"end_column\":9,\"kind\":\"error\",\"number\":960");

    EXPECT_EQ(Run("rights check missing.conf").m_ExitCode, 3);
    EXPECT_EQ(Run("rights check").m_ExitCode, 2);
}

TEST_F(RightsTool, CheckFindsWhatProgramsPassOver) {
    WriteRights("zero.conf", std::string("root: World=Full;\n\0*: World=Full;", 33));
    EXPECT_THAT(Run("rights check zero.conf").m_Error, HasSubstr("zero.conf(2,1-2): error: A zero byte"));
    WriteRights("open.conf", "root: World=Full;");
    std::filesystem::permissions(m_Folder.File("open.conf").GetPath(),
                                 perms::group_write | perms::others_write,
                                 std::filesystem::perm_options::add);
    const Result open = Fails(1, "rights check open.conf", "warning: The file's group may write");
    EXPECT_THAT(open.m_Error, HasSubstr("warning: Everybody on this machine may write"));

    WriteBinary("Rights.qvusr");
    const Result binary =
        Fails(1, "rights check Rights.qvusr", "The entry of 'john.doe' cannot be read back");
    EXPECT_THAT(binary.m_Error, HasSubstr("The entry of 'bob' cannot be read back"));
    EXPECT_THAT(binary.m_Error, testing::Not(HasSubstr("carol")));
    EXPECT_THAT(Run("rights show .").m_Out, HasSubstr("0x800"));
    const std::string whole = m_Folder.Read("Rights.qvusr");
    for (const std::size_t length : {3u, 5u, 20u}) {
        m_Folder.Write("cut.qvusr", whole.substr(0, length));
        EXPECT_THAT(Run("rights check cut.qvusr").m_Error, HasSubstr("cut or damaged")) << length;
    }
}

TEST_F(RightsTool, InitNeverOverwrites) {
    EXPECT_EQ(Run("rights show .").m_ExitCode, 3);
    Do("rights init . --guest");
    EXPECT_EQ(m_Folder.Read("user-rights.conf"), "root: World=Full;\n*: World=Full;\nGuest: World=Full;\n");
    EXPECT_EQ(Do("rights show . --csv"), "entry,kind,world,zone_a,zone_b,zone_c,zone_d\n"
                                         "root,user,Full,,,,\n"
                                         "*,everybody who has logged on,Full,,,,\n"
                                         "Guest,guest,Full,,,,\n");
    EXPECT_EQ(Run("rights init .").m_ExitCode, 3);
    EXPECT_THAT(m_Folder.Read("user-rights.conf"), HasSubstr("Guest"));
    m_Folder.Remove("user-rights.conf");
    WriteBinary("Rights.qvusr");
    EXPECT_EQ(Run("rights init .").m_ExitCode, 3);
    EXPECT_FALSE(m_Folder.Exists("user-rights.conf"));
    EXPECT_EQ(Run("rights init missing").m_ExitCode, 3);
}

TEST_F(RightsTool, DiffComparesWhatTheEntriesAddUpTo) {
    WriteRights("a", "root: World=Full;\nbob: World=Write;\n@ops: ZoneA=Force;\n");
    WriteRights(
        "b", "@ops: ZoneA=Force;\nroot: World=Full;\nbob: World=Write, ZoneB=Write;\nGuest: World=None;\n");
    const Result result = Run("rights diff a b --csv");
    EXPECT_EQ(result.m_ExitCode, 1);
    EXPECT_EQ(result.m_Out, "change,entry,first,second\n"
                            "changed,bob,World=Write,\"World=Write, ZoneB=Write\"\n"
                            "added,Guest,,World=None\n");
    EXPECT_THAT(Run("rights diff b a --csv").m_Out, HasSubstr("removed,Guest,World=None,\n"));
    WriteRights("c", "bob: World=Write;\nroot: World=Full;\n@ops: ZoneA=None;\n@ops: ZoneA=Force;\n");
    EXPECT_THAT(Do("rights diff a c"), HasSubstr("another order"));
    EXPECT_EQ(Do("rights diff a a"), "The same entries\n");
}

TEST_F(RightsTool, ExplainAddsUpTheEntriesOfUserAndGroups) {
    PamStack stack;
    std::vector<std::string> groups = {"operators"};
    for (int i = 0; i < 300; ++i)
        groups.push_back("group" + std::to_string(i));
    stack.AddUser("alice", "secret", groups);
    stack.AddUser("bob", "secret");
    if (stack.GetEnvironment().empty())
        GTEST_SKIP() << "libpam-wrapper is not installed";
    WriteRights("user-rights.conf", "*: World=Refresh;\nbob: World=Full;\n@operators: ZoneA=Write;\n"
                                    "@group299: ZoneB=Force;\nGuest: World=None, ZoneA=Refresh;\n");
    EXPECT_EQ(Do("rights explain . alice --csv", stack.GetEnvironment()),
              "entry,because,world,zone_a,zone_b,zone_c,zone_d\n"
              "*,everybody who has logged on,Refresh,,,,\n"
              "@operators,group,,Write,,,\n"
              "@group299,group,,,Force,,\n"
              ",all of these,Refresh,Write,Force,,\n");
    EXPECT_EQ(Do("rights explain . alice --zone a --csv", stack.GetEnvironment()),
              "entry,because,rights\n*,everybody who has logged on,Refresh\n@operators,group,Write\n"
              "@group299,group,\n,all of these,Refresh+Write\n");
    EXPECT_EQ(Do("rights explain . Guest --csv"), "entry,because,world,zone_a,zone_b,zone_c,zone_d\nGuest,"
                                                  "guest,,Refresh,,,\n,all of these,,Refresh,,,\n");
    EXPECT_THAT(Run("rights explain . nobody17", stack.GetEnvironment()).m_Error, HasSubstr("knows no user"));
    EXPECT_EQ(Run("rights explain . bob --zone E").m_ExitCode, 2);
}

TEST_F(RightsTool, LogonAsksTheSystem) {
    PamStack stack;
    stack.AddUser("alice", "s3cret", {"operators", "audit"});
    stack.AddUser("bob", "pw", {}, "special");
    stack.AddService("special", "auth required PASSWORDS\naccount required PASSWORDS\n");
    const std::string environment = stack.GetEnvironment();
    if (environment.empty())
        GTEST_SKIP() << "libpam-wrapper is not installed";
    EXPECT_EQ(Do("rights logon alice", "echo s3cret | " + environment),
              "alice is logged on; groups: audit,operators\n");
    EXPECT_EQ(Do("rights logon bob --service special --json", "printf pw | " + environment),
              "{\"user\":\"bob\",\"result\":\"logged on\",\"error\":0,\"text\":\"\",\"groups\":\"\"}\n");
    const Result wrong = Fails(1, "rights logon alice", "'alice' is refused: Authentication failure",
                               "echo wrong | " + environment);
    EXPECT_THAT(wrong.m_Error, testing::Not(HasSubstr("wrong")));
    EXPECT_EQ(Run("rights logon alice </dev/null", environment).m_ExitCode, 3);
}

// At a terminal what is typed is not shown, and what is typed later is again.
TEST_F(RightsTool, LogonReadsFromATerminalInSilence) {
    PamStack stack;
    stack.AddUser("alice", "s3cret");
    const std::string environment = stack.GetEnvironment();
    if (environment.empty())
        GTEST_SKIP() << "libpam-wrapper is not installed";
    QVPseudoTerminal terminal;
    ASSERT_TRUE(terminal.Create());
    ASSERT_EQ(std::system(("stty sane <" + terminal.GetName()).c_str()), 0);
    Result result;
    std::thread program(
        [&] { result = Run("rights logon alice <" + std::string(terminal.GetName()), environment); });
    while (!m_Folder.Exists("err.txt") ||
           m_Folder.Read("err.txt").find("Password of 'alice': ") == std::string::npos)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_TRUE(terminal.SendData("s3cret\n", 7));
    program.join();
    EXPECT_EQ(result.m_ExitCode, 0) << result.m_Error;
    EXPECT_EQ(result.m_Error, "Password of 'alice': \n");
    ASSERT_TRUE(terminal.SendData("#", 1));
    char echoed[64];
    const int count = terminal.ReceiveData(echoed, sizeof echoed);
    EXPECT_EQ(std::string(echoed, static_cast<std::size_t>(std::max(count, 0))), "#");
}

} // namespace
