// The whole plant on one machine: what is recorded survives whatever is killed, and clients get what they may.
#include "PlantTesting.h"

#include "support/PamStack.h"
#include "support/SmallDisk.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <thread>

using testing::HasSubstr;

TEST_F(PlantTest, LosesNothingHoweverItsServersEnd) {
    m_Main.Start();
    m_Folder.Write("main.port", m_Main.GetAddress().substr(m_Main.GetAddress().rfind(':') + 1));
    m_Standby.Start();
    ASSERT_TRUE(m_Main.Says("The standby has all records"));
    m_Folder.Write("password", "m\n");
    // A client that follows all the while, through every end of a connection.
    const std::string port = m_Folder.Read("main.port");
    ChildProgram follower(
        {"/bin/sh", "-c",
         "exec '" PLANT_CLIENT "' --server localhost:" + port + " --ca '" + m_Folder.GetPath() +
             "/config/Certificates/authority.cer' --user maria --timeout 60 follow --for 3600 <'" +
             m_Folder.GetPath() + "/password'"},
        m_Folder.File("follower.txt").GetPath());
    ASSERT_TRUE(ComesTrue([&] { return NumberBehind("   cpu ", m_Folder.Read("follower.txt")) >= 0; }));

    // The standby is killed and comes back, then the main.
    ASSERT_TRUE(m_Standby.Kill());
    m_Standby.Start();
    ASSERT_TRUE(m_Main.Says("The standby has all records", 2)) << m_Main.GetLog();
    const Result before = RunClient("maria", "m", "--limit 0 read --last 3600");
    ASSERT_EQ(before.m_ExitCode, 0) << before.m_Error;
    ASSERT_TRUE(m_Main.Kill());
    const Result between = RunClient("maria", "m", "--limit 0 --timeout 60 read --last 3600");
    EXPECT_EQ(between.m_ExitCode, 0) << between.m_Error;
    EXPECT_THAT(between.m_Out, HasSubstr("standby: "));
    EXPECT_GE(NumberBehind(" to ", between.m_Out), NumberBehind(" to ", before.m_Out));
    m_Main.Start();
    ASSERT_TRUE(m_Standby.Says("The main is in charge again"));
    ASSERT_TRUE(m_Main.Says("The standby has all records", 3));
    ASSERT_TRUE(
        ComesTrue([&] { return NumberBehind("connection lost", m_Folder.Read("follower.txt")) >= 0; }));

    const Result after = RunClient("maria", "m", "--limit 0 read --last 3600");
    EXPECT_EQ(after.m_ExitCode, 0) << after.m_Error;
    EXPECT_EQ(NumberBehind("sequence ", after.m_Out), 1);
    EXPECT_EQ(NumberBehind("gaps ", after.m_Out), 0);
    EXPECT_GT(NumberBehind(" to ", after.m_Out), NumberBehind(" to ", between.m_Out));

    // What has been sampled by the end is on both disks.
    EXPECT_EQ(m_Main.Stop(), 0);
    EXPECT_EQ(m_Standby.Stop(), 0);
    ExpectSameTables();
    EXPECT_EQ(follower.Stop(), 1); // told to stop
}

TEST_F(PlantTest, AFullStandbyGetsWhatItLacksWhenThereIsRoomAgain) {
    const SmallDisk disk(512);
    if (!disk.IsMounted())
        GTEST_SKIP() << "may not mount";
    std::filesystem::create_directory_symlink(disk.GetFolder().GetPath(), m_Folder.File("standby").GetPath());
    disk.GetFolder().Write("filler", std::string(500 << 10, 'x'));
    m_Main.Start();
    m_Folder.Write("main.port", m_Main.GetAddress().substr(m_Main.GetAddress().rfind(':') + 1));
    m_Standby.Start();
    ASSERT_TRUE(m_Standby.Says("the records cannot be written"));
    disk.GetFolder().Remove("filler");
    ASSERT_TRUE(m_Standby.Says("The main at localhost", 2)) << m_Standby.GetLog();
    EXPECT_EQ(m_Main.Stop(), 0);
    EXPECT_EQ(m_Standby.Stop(), 0);
    ExpectSameTables();
}

TEST_F(PlantTest, ServersThatStartTogetherShareOneAuthority) {
    PlantServer other(m_Folder, "other", "--test-users");
    {
        const std::jthread starter([&] { other.Start(); });
        m_Main.Start();
    }
    for (const PlantServer* const server : {&m_Main, &other})
        EXPECT_TRUE(Intruder(m_Folder).Reach(*server)) << server->GetLog();
    // Without its key it stays what it is.
    EXPECT_EQ(m_Main.Stop(), 0);
    const std::string authority = m_Folder.Read("config/Certificates/authority.cer");
    m_Folder.Remove("config/Certificates/authority.key");
    m_Main.Start();
    EXPECT_EQ(m_Folder.Read("config/Certificates/authority.cer"), authority);
    EXPECT_TRUE(Intruder(m_Folder).Reach(m_Main)) << m_Main.GetLog();
}

TEST_F(PlantTest, ShowsAndAllowsWhatTheUserMay) {
    m_Main.Start();
    ASSERT_TRUE(m_Main.Says("'Always' is active"));
    const Result alarms = RunClient("maria", "m", "alarms");
    EXPECT_THAT(alarms.m_Out, HasSubstr("Always (zone A): Active")) << alarms.m_Error;
    const Result read = RunClient("maria", "m", "--limit 3 read --rtf report.rtf");
    EXPECT_THAT(read.m_Out,
                testing::MatchesRegex("(..\\...\\..... ..:..:......   cpu .* of all.*\n)+main: .*\n"));
    EXPECT_THAT(m_Folder.Read("report.rtf"), HasSubstr("Always (zone A)"));
    EXPECT_THAT(RunClient("tom", "t", "--limit 1 follow --for 0.5").m_Out, HasSubstr("alarm 20"));

    struct Refused {
        const char* user;
        const char* password;
        const char* arguments;
        const char* text;
    };
    for (const Refused& refused : {
             Refused{"maria", "M", "alarms", "refused: wrong user or password"},
             Refused{"nobody", "m", "alarms", "refused: wrong user or password"},
             Refused{"eve", "e", "alarms", "refused: this user has no rights here"},
             Refused{"tom", "t", "acknowledge Always", "the right Acknowledge is missing"},
             Refused{"maria", "m", "acknowledge Never", "that alarm is not active"},
             Refused{"maria", "m", "acknowledge Sometimes", "there is no such alarm"},
         }) {
        const Result result = RunClient(refused.user, refused.password, refused.arguments);
        EXPECT_EQ(result.m_ExitCode, 1) << refused.text;
        EXPECT_THAT(result.m_Error, HasSubstr(refused.text));
    }
    EXPECT_THAT(RunClient("maria", "m", "acknowledge Always").m_Out, HasSubstr("by maria"));

    // Rights that are edited hold at once, a faulty edit changes nothing.
    m_Folder.Write("config/user-rights.conf", "tom: World=Refresh, ZoneB=Nothing;\n");
    ASSERT_TRUE(m_Main.Says("user-rights.conf"));
    EXPECT_EQ(RunClient("tom", "t", "alarms").m_ExitCode, 0);
    m_Folder.Write("config/user-rights.conf", "maria: World=Full;\n");
    ASSERT_TRUE(m_Main.Says("The user rights have changed"));
    EXPECT_EQ(RunClient("tom", "t", "alarms").m_ExitCode, 1);
}

TEST_F(PlantTest, LogsUsersOfTheSystemOn) {
    PamStack stack;
    stack.AddUser("maria", "secret", {"operators"});
    if (stack.GetEnvironment().empty())
        GTEST_SKIP() << "the wrappers of PAM are not installed";
    PlantServer server(m_Folder, "system", "--every 5", stack.GetEnvironment());
    server.Start();
    const std::string port = server.GetAddress().substr(server.GetAddress().rfind(':'));
    const std::string where = "--server localhost" + port;
    EXPECT_THAT(RunClient("maria", "secret", where + " alarms").m_Out, HasSubstr("Always"));
    EXPECT_EQ(RunClient("maria", "m", where + " alarms").m_ExitCode, 1);
}

TEST_F(PlantTest, DoesNotStartOnWhatItCannotUse) {
    struct Wrong {
        const char* file;
        const char* content;
        const char* text;
    };
    for (const Wrong& wrong : {
             Wrong{"plant.json", "{\"alarms\": [", "is no JSON"},
             Wrong{"plant.json", R"({"alarms": [{"name": "A", "condition": "cpu >"}]})", "'A' is no JSONata"},
             Wrong{"plant.json", R"({"alarms": [{"name": "A", "condition": "1", "zone": "E"}]})",
                   "cannot be 'E'"},
             Wrong{"plant.json", R"({"numbers": {"cpu": "0..0"}})", "'0..0' is no pattern"},
             Wrong{"plant.json", R"({"numbers": []})", "is no object"},
             Wrong{"users.json", "[1]", "is no object"},
         }) {
        const std::string name = std::string("config/") + wrong.file;
        const std::string good = m_Folder.Read(name);
        m_Folder.Write(name, wrong.content);
        const std::string command = "cd '" + m_Folder.GetPath() +
                                    "' && '" PLANT_SERVER "' config main --test-users >out.txt 2>err.txt";
        EXPECT_EQ(std::system(command.c_str()), 256) << wrong.content;
        EXPECT_THAT(m_Folder.Read("err.txt"), HasSubstr(wrong.text));
        m_Folder.Write(name, good);
    }
    const std::string command = "cd '" + m_Folder.GetPath() +
                                "' && ulimit -n 100 && '" PLANT_SERVER "' config main --test-users 2>err.txt";
    EXPECT_EQ(std::system(command.c_str()), 256);
    EXPECT_THAT(m_Folder.Read("err.txt"), HasSubstr("descriptors are needed"));
}
