// The replicating commands as processes, also as ones that are killed at any moment.

#include "QvProgram.h"
#include "ReplicationTesting.h"

#include "support/ChildProcess.h"

#include <QVPlatform/Timestamp.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <iostream>
#include <random>

using testing::HasSubstr;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

long long Now() {
    CQVTimestamp now;
    now.SetUTC();
    return now.GetValue();
}

} // namespace

class HistoryReplication : public QvProgram {
protected:
    std::unique_ptr<ChildProgram> StartQv(const std::vector<std::string>& arguments,
                                          const std::string& output) {
        std::vector<std::string> words = {QV_PROGRAM, "history"};
        words.insert(words.end(), arguments.begin(), arguments.end());
        return std::make_unique<ChildProgram>(words, m_Folder.GetPath() + "/" + output);
    }
    std::unique_ptr<ChildProgram> StartStandby(const std::vector<std::string>& more = {}) {
        std::vector<std::string> arguments = {"standby", Path("s"), "--listen", m_Address};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return StartQv(arguments, "standby.txt");
    }
    std::string Path(const std::string& name) const { return m_Folder.GetPath() + "/" + name; }
    bool HasPrinted(const std::string& output, const std::string& text) const {
        for (int attempt = 0; attempt < 1000; ++attempt) {
            if (m_Folder.Exists(output) && m_Folder.Read(output).find(text) != std::string::npos)
                return true;
            std::this_thread::sleep_for(milliseconds(10));
        }
        return false;
    }

    // Replicates what is left, with nobody recording, and compares.
    void ExpectEqualInTheEnd() {
        const auto standby = StartStandby();
        const Result once = Run("history replicate m --once --to " + m_Address);
        EXPECT_EQ(once.m_ExitCode, 0) << once.m_Error;
        EXPECT_EQ(standby->Stop(), 0);
        const Result compared = Run("history compare m s");
        EXPECT_EQ(compared.m_ExitCode, 0) << compared.m_Out << compared.m_Error;
        EXPECT_EQ(Run("history validate m").m_ExitCode, 0);
        EXPECT_EQ(Run("history validate s").m_ExitCode, 0);
    }

    // Lets a main and a standby live and kills each of them `kills` times, at moments of its own.
    template<typename StartMain>
    void KillAtRandom(int kills, StartMain startMain) {
        const unsigned int seed = std::random_device()();
        std::cout << "seed " << seed << "\n";
        std::mt19937 random(seed);
        const auto life = [&random] { return milliseconds(std::uniform_int_distribution(60, 550)(random)); };
        auto main = startMain();
        auto standby = StartStandby();
        Clock::time_point mainEnd = Clock::now() + life();
        Clock::time_point standbyEnd = Clock::now() + life();
        for (int mainKills = 0, standbyKills = 0; mainKills < kills || standbyKills < kills;) {
            std::this_thread::sleep_until(std::min(mainEnd, standbyEnd));
            if (mainEnd <= standbyEnd) {
                ASSERT_TRUE(main->Kill()) << "the main ended by itself; seed " << seed;
                ++mainKills;
                main = startMain();
                mainEnd = Clock::now() + life();
            } else {
                ASSERT_TRUE(standby->Kill()) << m_Folder.Read("standby.txt");
                ++standbyKills;
                standby = StartStandby();
                standbyEnd = Clock::now() + life();
            }
        }
        main->Kill();
        standby->Kill();
        ExpectEqualInTheEnd();
    }

    std::string m_Address = "unix:" + m_Folder.GetPath() + "/socket";
};

TEST_F(HistoryReplication, TransfersATableOnce) {
    Import("time,tag,value\n2024-05-01T00:00:00Z,a,1\n2024-07-01T00:00:00Z,a,2\n2020-01-01T00:00:00Z,b,3\n");
    Do("history import m in.csv");
    const auto standby = StartStandby();
    ASSERT_TRUE(HasPrinted("standby.txt", "listens on " + m_Address));
    const Result result = Run("history replicate m --once --json --to " + m_Address);
    EXPECT_EQ(result.m_ExitCode, 0) << result.m_Error;
    EXPECT_EQ(JsonNumber(result.m_Out, "records"), 3);
    EXPECT_EQ(JsonNumber(result.m_Out, "left"), 0);
    // Its folder is its own while it runs.
    EXPECT_EQ(Run("history import s in.csv").m_ExitCode, 3);
    EXPECT_EQ(standby->Stop(), 0);
    EXPECT_THAT(m_Folder.Read("standby.txt"), HasSubstr("Standby update: Added 3 records"));
    EXPECT_EQ(Do("history compare m s"), "Equal: 3 records\n");
}

TEST_F(HistoryReplication, SaysWhyNothingIsTransferred) {
    Do("history import m -", "printf 'time,tag,value\\n1,a,1\\n' |");
    const std::string to = " --once --timeout 200ms --to ";
    Fails(3, "history replicate m" + to + m_Address, "is not connected: No such file or directory");
    EXPECT_EQ(Run("history replicate m --to nowhere").m_ExitCode, 2);
    EXPECT_EQ(Run("history standby s --listen host:99999").m_ExitCode, 2);
    EXPECT_EQ(Run("history standby s --listen unix:missing/socket").m_ExitCode, 3);
    EXPECT_EQ(Run("history replicate m --table 'a b' --to " + m_Address).m_ExitCode, 2);

    const auto standby = StartStandby({"--layout", "time:i64,value:f64"});
    ASSERT_TRUE(HasPrinted("standby.txt", "listens on"));
    EXPECT_EQ(Run("history replicate m --table other" + to + m_Address).m_ExitCode, 3);
    EXPECT_EQ(Run("history replicate m" + to + m_Address).m_ExitCode, 3);
    EXPECT_EQ(standby->Stop(), 0);
    EXPECT_THAT(m_Folder.Read("standby.txt"), HasSubstr("the other side has the table 'other'"));
    EXPECT_THAT(m_Folder.Read("standby.txt"),
                HasSubstr("Record size missmatch.  Rx record size is 24, but table record size is 16."));
}

TEST_F(HistoryReplication, RecordsAndReplicatesInOneProcess) {
    const auto standby = StartStandby();
    ASSERT_TRUE(HasPrinted("standby.txt", "listens on"));
    const Result result = Run(
        "history record m --every 10ms --for 500ms --flush-every 50ms --json --replicate-to " + m_Address);
    EXPECT_EQ(result.m_ExitCode, 0) << result.m_Error;
    EXPECT_GT(JsonNumber(result.m_Out, "records"), 100);
    EXPECT_EQ(JsonNumber(result.m_Out, "left"), 0);
    EXPECT_EQ(standby->Stop(), 0);
    Do("history compare m s");

    // Without a standby, recording goes on all the same.
    const Result alone = Run("history record m --every 10ms --for 200ms --json --replicate-to " + m_Address);
    EXPECT_EQ(alone.m_ExitCode, 0) << alone.m_Error;
    EXPECT_EQ(JsonNumber(alone.m_Out, "lost"), 0);
    EXPECT_GT(JsonNumber(alone.m_Out, "left"), 0);
}

TEST_F(HistoryReplication, LosesNothingWhenTheRecorderAndTheStandbyAreKilled) {
    KillAtRandom(30, [this] {
        return StartQv({"record", Path("m"), "--every", "3ms", "--flush-every", "20ms", "--keep", "20000",
                        "--max-file", "60K", "--replicate-to", m_Address},
                       "record.txt");
    });
    EXPECT_GT(JsonNumber(Do("history files m --json"), "records"), 1000);
}

// The same with a clock that runs a minute every millisecond, so that files are split and trimmed all the
// time, and in some of the main's lives with records that come late.
TEST_F(HistoryReplication, LosesNothingWhenFilesAreSplitAndTrimmedBetweenKills) {
    m_Address = FreeAddress();
    const long long start = Now();
    long long written = 0;
    unsigned int life = 0;
    const auto record = [&](const ChildProcess::Report& report) {
        TestTable table(CQVFilePath(Path("m")), QVFileSystem::GetInstance());
        LiveLine log(LiveLine::NoInformation);
        ReplicationThread replication(table.m_Table, SettingsFor(m_Address), log);
        std::mt19937 random(life);
        for (long long round = 0;; ++round) {
            const long long elapsed = Now() - start;
            const long long time = start + elapsed * 60'000;
            for (long long i = 0; i < 100; ++i) {
                const bool bLate = life % 4 == 0 && random() % 50 == 0;
                const long long delay = bLate ? std::min<long long>(random() % 5000, elapsed / 10'000) : 0;
                table.Put(time - delay * CQVTimeInterval::UnitsPerMinute,
                          life * 1'000'000'000LL + round * 100 + i);
            }
            report(table.Flush());
            replication.NoteNewRecords();
            if (round % 4 == 3) {
                const unsigned int begun = replication.GetSender().BeginHousekeeping();
                table.m_Table.HouseKeepFiles(&table.m_Log, 15'000, 800 * sizeof(TestRecord));
                replication.GetSender().EndHousekeeping(begun);
            }
            std::this_thread::sleep_for(milliseconds(3));
        }
    };

    // A main that collects what it has written, so that its pipe never fills.
    class CountingMain {
    public:
        CountingMain(const std::function<void(const ChildProcess::Report&)>& work, long long& written)
            : m_Process(work), m_Written(written) {}
        bool Kill() {
            const bool bKilled = m_Process.Kill();
            long long number = 0;
            while (m_Process.ReadReport(number))
                m_Written += number;
            return bKilled;
        }

    private:
        ChildProcess m_Process;
        long long& m_Written;
    };
    CQVFilePath(Path("m")).MakeDirectory();
    KillAtRandom(30, [&] {
        ++life;
        return std::make_unique<CountingMain>(record, written);
    });

    TestTable table(CQVFilePath(Path("m")));
    const auto left = static_cast<long long>(table.GetRecords().size());
    std::vector<CHistoricTable::HistoricFile> files;
    table.m_Table.GetFiles(files);
    EXPECT_GT(files.size(), 5u);
    EXPECT_LT(left, written) << "nothing was trimmed";
    for (const char* done : {"Standby update: Added ", "Standby Update deleted file ", "Split "})
        EXPECT_TRUE(HasPrinted("standby.txt", done)) << "the standby lived through none of: " << done;
}
