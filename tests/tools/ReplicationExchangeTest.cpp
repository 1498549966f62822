// Both sides of a replication in one process: what reaches the standby, and what happens when it does not.

#include "ReplicationTesting.h"

#include "support/FaultFileSystem.h"

#include <QVPlatform/Timestamp.h>

#include <cerrno>
#include <functional>
#include <gtest/gtest.h>

namespace {

constexpr long long kMinute = CQVTimeInterval::UnitsPerMinute;

bool Eventually(const std::function<bool()>& condition) {
    for (int attempt = 0; attempt < 1000 && !condition(); ++attempt)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return condition();
}

} // namespace

class Replication : public testing::Test {
protected:
    TemporaryFolder m_MainFolder;
    TemporaryFolder m_StandbyFolder;
    TestTable m_Main{m_MainFolder.GetFilePath()};
};

TEST_F(Replication, KeepsAStandbyUpToDateWhileTheTableIsWritten) {
    TestTable standbyTable(m_StandbyFolder.GetFilePath());
    RunningStandby standby(standbyTable, SettingsFor("127.0.0.1:0"));
    LiveLine log(LiveLine::NoInformation);
    ReplicationThread thread(m_Main.m_Table, SettingsFor(standby.GetAddress()), log);
    for (long long i = 0; i < 400; ++i) {
        for (long long j = 0; j < 50; ++j)
            m_Main.Put((i * 10 + j % 7) * kMinute, i * 50 + j);
        m_Main.Flush();
        thread.NoteNewRecords();
        if (i % 10 == 9) {
            const unsigned int begun = thread.GetSender().BeginHousekeeping();
            m_Main.m_Table.HouseKeepFiles(&m_Main.m_Log, 10'000, 1500 * sizeof(TestRecord));
            thread.GetSender().EndHousekeeping(begun);
        }
        EXPECT_NE(thread.GetSender().GetStatusText(), "");
    }
    EXPECT_TRUE(Eventually([&] { return thread.GetSender().GetLag().m_Records == 0; }));
    // Also what housekeeping did while replies were awaited reaches the standby, without a new connection.
    EXPECT_TRUE(Eventually([&] { return standbyTable.GetRecords() == m_Main.GetRecords(); }));
    EXPECT_GT(m_Main.GetRecords().size(), 9'000u);
    EXPECT_LT(m_Main.GetRecords().size(), 19'000u);

    m_Main.Put(1'000'000 * kMinute, 1);
    m_Main.Flush();
    thread.Finish(std::chrono::seconds(10));
    EXPECT_EQ(standbyTable.GetRecords(), m_Main.GetRecords());
}

TEST_F(Replication, TellsHowFarTheStandbyIsBehind) {
    for (long long i = 0; i < 90; ++i)
        m_Main.Put(i * kMinute, i);
    m_Main.Flush();
    const ReplicationSettings settings = SettingsFor("127.0.0.1:1");
    ReplicationSignals signals(QVWakeEvent::SetOnly);
    LiveLine log;
    const ReplicationSender sender(m_Main.m_Table, settings, signals, log);
    EXPECT_EQ(sender.GetLag().m_Records, 90u);
    EXPECT_EQ(sender.GetLag().m_Seconds, 89 * 60);
    EXPECT_EQ(sender.GetStatusText(), "standby: connecting");
}

TEST_F(Replication, FinishesInTimeWithoutAStandby) {
    m_Main.Put(1, 1);
    m_Main.Flush();
    LiveLine log(LiveLine::NoInformation);
    ReplicationThread thread(m_Main.m_Table, SettingsFor("unix:" + m_MainFolder.GetPath() + "/nobody"), log);
    EXPECT_TRUE(Eventually([&] {
        return thread.GetSender().GetStatusText() == "standby: not connected (No such file or directory)";
    }));
    const auto start = std::chrono::steady_clock::now();
    thread.Finish(std::chrono::hours(1));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

// A full disk loses records on the standby, and costs nothing else; they come again when there is room.
TEST_F(Replication, RepairsAStandbyThatCouldNotStoreEverything) {
    FaultFileSystem files;
    TestTable standbyTable(m_StandbyFolder.GetFilePath(), &files);
    ReplicationSettings settings = SettingsFor("127.0.0.1:0");
    settings.m_TimeBeforeAskingAgain = std::chrono::milliseconds(300);
    RunningStandby standby(standbyTable, settings);
    for (long long i = 0; i < 1000; ++i)
        m_Main.Put(i * kMinute, i);
    m_Main.Flush();
    files.TearFrom(500, ENOSPC, FaultFileSystem::Write);
    LiveLine log(LiveLine::NoInformation);
    ReplicationThread thread(m_Main.m_Table, SettingsFor(standby.GetAddress()), log);
    EXPECT_TRUE(Eventually([&] { return standbyTable.m_Errors.HasError(); }));
    EXPECT_LT(standbyTable.GetRecords().size(), 1000u);
    files.Heal();
    EXPECT_TRUE(Eventually([&] { return standbyTable.GetRecords() == m_Main.GetRecords(); }));
}

TEST_F(Replication, SaysWhenPartOfTheTableCannotBeRead) {
    for (long long i = 0; i < 100; ++i)
        m_Main.Put(i, i);
    m_Main.Flush();
    std::string name;
    for (const std::string& entry : m_MainFolder.List())
        name = entry;
    m_MainFolder.Write(name, m_MainFolder.Read(name).substr(0, 40 * sizeof(TestRecord)));
    TestTable standbyTable(m_StandbyFolder.GetFilePath());
    RunningStandby standby(standbyTable, SettingsFor("127.0.0.1:0"));
    EXPECT_EQ(ReplicateOnce(m_Main.m_Table, SettingsFor(standby.GetAddress())),
              ReplicationSender::Outcome::Unreadable);
    EXPECT_EQ(standbyTable.GetRecords().size(), 40u);
}
