// Every operation that changes files, with every single file operation and system call failing: in memory and on
// the disk no flushed record is missing or doubled, and the table goes on.
#include "TestTable.h"
#include "support/FaultFileSystem.h"
#include "support/FaultSystemCalls.h"

#include <cerrno>
#include <functional>
#include <gmock/gmock.h>
#include <optional>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr long long P = kPeriod;
constexpr long long M = kMinute;
constexpr const char* kJournal = "split.journal";

// The content of a folder.
using Image = std::map<std::string, std::string>;

Image Save(const TemporaryFolder& folder) {
    Image image;
    for (const std::string& name : folder.List())
        image[name] = folder.Read(name);
    return image;
}

void Load(const TemporaryFolder& folder, const Image& image) {
    folder.Empty();
    for (const auto& [name, content] : image)
        folder.Write(name, content);
}

Records WholeRecords(const Image& image) {
    Records all;
    for (const auto& [name, content] : image) {
        const Records records = name.ends_with(".qvhis") ? RecordsIn(content) : Records();
        all.insert(all.end(), records.begin(), records.end());
    }
    return Sorted(all);
}

// What must be there after an operation, whatever failed.
struct Outcome {
    Records inMemory;        // what the table in use reads
    Records onDisk;          // what a new table reads
    bool bLeftovers = false; // files that are no longer in the table in use
};

Outcome Flush(TestTable& table, const TemporaryFolder&, const Image& image) {
    const Records records = {{5 * M, 100}, {2 * P + M, 101}, {6 * P, 102},
                             {7 * M, 103}, {4 * P, 104},     {6 * P + 1, 105}};
    const unsigned int written = table.Flush(records);
    Records all = WholeRecords(image);
    all.insert(all.end(), records.begin(), records.begin() + written);
    EXPECT_EQ(table.Errors().find("Lost Records (" + std::to_string(6 - written) + ")") != std::string::npos,
              written != 6);
    return {Sorted(all), Sorted(all)};
}

Outcome Split(TestTable& table, const TemporaryFolder&, const Image& image) {
    table.SplitLargest(3);
    EXPECT_EQ(table.Errors().find("Lost"), std::string::npos);
    return {WholeRecords(image), WholeRecords(image)};
}

Outcome Trim(TestTable& table, const TemporaryFolder&, const Image& image) {
    Image left = image;
    std::vector<std::string> names;
    for (const auto& [end, file] : table.m_Files)
        names.push_back(NameOf(file.m_Start, end));
    const int deleted = table.Trim(2);
    for (int i = 0; i < deleted; i++)
        left.erase(names[static_cast<size_t>(i)]);
    return {WholeRecords(left), WholeRecords(left)};
}

Outcome Delete(TestTable& table, const TemporaryFolder& folder, const Image& image) {
    table.DeleteAll();
    const Image left = Save(folder);
    for (const auto& [name, content] : left)
        EXPECT_TRUE(image.at(name) == content);
    return {{}, WholeRecords(left), !left.empty()};
}

struct Scenario {
    const char* name;
    Outcome (*operation)(TestTable&, const TemporaryFolder&, const Image&);
    Image image;
    Image strangers; // that come into the folder once the table is in use
};

void PrintTo(const Scenario& scenario, std::ostream* out) {
    *out << scenario.name;
}

const Records kInOrder = {{0, 1}, {M, 2}, {2 * M, 3}, {3 * M, 4}, {3 * M, 5}, {9 * M, 6}, {P, 7}, {P + 1, 8}};
const Records kLate = {{9 * M, 1}, {6 * M, 2}, {7 * M, 3}, {8 * M, 4}, {8 * M, 5}, {9 * M, 6}, {6 * M, 7}};
const std::string kNewer = BytesOf({{2 * P, 20}, {2 * P + 9, 21}});
const Image kThreeFiles = {{NameOf(0, 2 * P), BytesOf(kInOrder)},
                           {NameOf(2 * P, 3 * P), kNewer},
                           {NameOf(4 * P, 5 * P), BytesOf({{4 * P, 30}})}};
// A file inside the span of another, as the rule for gaps makes them.
const Image kNested = {{NameOf(2 * M, 5 * M), BytesOf({{3 * M, 50}, {2 * M, 51}})},
                       {NameOf(0, P), BytesOf(kLate)},
                       {NameOf(2 * P, 3 * P), kNewer}};
const Image kTorn = {{NameOf(0, 2 * P), BytesOf(kInOrder) + "torn"},
                     {NameOf(2 * P, 3 * P), kNewer + "0123456789abcde"}};

const Scenario kScenarios[] = {
    {"Flush", Flush, {}, {}},
    {"FlushToFiles", Flush, kThreeFiles, {}},
    {"FlushToTornFiles", Flush, kTorn, {}},
    {"Split", Split, kThreeFiles, {}},
    {"SplitLateRecordsAmongOthers", Split, kNested, {{NameOf(0, 8 * M), "stranger"}}},
    {"SplitTornFile", Split, kTorn, {}},
    {"Trim", Trim, kThreeFiles, {}},
    {"Delete", Delete, kThreeFiles, {}},
};

struct Mode {
    const char* name;
    void (*files)(FaultFileSystem&, unsigned int n);
    void (*system)(FaultSystemCalls&, unsigned int n);
    bool bDeath = false; // the process ends there, so the table in use is not asked any more
};

using F = FaultFileSystem;
using S = FaultSystemCalls;
const Mode kModes[] = {
    {"a file operation fails", [](F& files, unsigned int n) { files.FailAt(n, EIO); }, nullptr},
    {"a file operation is torn", [](F& files, unsigned int n) { files.TearAt(n, ENOSPC); }, nullptr},
    {"files fail from then on", [](F& files, unsigned int n) { files.FailFrom(n, EIO); }, nullptr},
    {"a write is torn, then files fail",
     [](F& files, unsigned int n) { files.TearFrom(n, ENOSPC, F::All, 15); }, nullptr},
    {"writes and cuts fail from then on",
     [](F& files, unsigned int n) { files.TearFrom(n, ENOSPC, F::Write | F::Cut); }, nullptr},
    {"a call fails", nullptr, [](S& system, unsigned int n) { system.FailAt(SystemCall::All, n, EIO); }},
    {"calls fail from then on", nullptr,
     [](S& system, unsigned int n) { system.FailFrom(SystemCall::All, n, EIO); }},
    {"the file system turns read-only", nullptr,
     [](S& system, unsigned int n) { system.FailFrom(SystemCall::Changes, n, EROFS); }},
    {"the disk is full", nullptr,
     [](S& system, unsigned int n) {
         system.PartAt(SystemCall::Write | SystemCall::Writev, n, 21);
         system.FailFrom(SystemCall::Write | SystemCall::Writev, n + 1, ENOSPC);
     }},
    {"erasing fails from then on", nullptr,
     [](S& system, unsigned int n) { system.FailFrom(SystemCall::Erase, n, EACCES); }},
    {"syncing fails from then on", nullptr,
     [](S& system, unsigned int n) { system.FailFrom(SystemCall::Sync | SystemCall::SyncData, n, EIO); }},
    {"renaming fails", nullptr,
     [](S& system, unsigned int n) { system.FailAt(SystemCall::Rename, n, EACCES); }},
    {"the folder is out of reach", nullptr,
     [](S& system, unsigned int n) { system.FailFrom(SystemCall::Paths, n, EACCES); }},
    {"the process dies", nullptr,
     [](S& system, unsigned int n) {
         system.PartAt(SystemCall::Changes, n, 5);
         system.FailFrom(SystemCall::Changes, n + 1, EIO);
     },
     true},
};

void CheckInMemory(TestTable& table, const TemporaryFolder& folder, const Outcome& outcome) {
    EXPECT_EQ(Sorted(table.Read()), outcome.inMemory);
    const std::map<std::string, Records> files = RecordsOnDisk(folder);
    for (const auto& [end, file] : table.m_Files) {
        const auto found = files.find(NameOf(file.m_Start, end));
        EXPECT_EQ(file.m_NumRecords, found == files.end() ? 0 : found->second.size()) << table.Describe();
    }
}

void CheckNewTable(const TemporaryFolder& folder, const Records& expected) {
    TestTable table(folder.GetFilePath());
    EXPECT_EQ(Sorted(table.Read()), expected) << table.Describe();
    bool bTorn = false;
    RecordsOnDisk(folder, &bTorn);
    EXPECT_EQ(table.Validate(), !bTorn) << testing::PrintToString(table.TakeLog());
}

// More is flushed, to every file there is, and split; then everything is as if nothing had ever failed.
void GoOn(TestTable& table, const TemporaryFolder& folder, Outcome outcome) {
    EXPECT_EQ(table.Trim(UINT_MAX), 0);
    Records more;
    long long previousEnd = LLONG_MIN;
    for (const auto& [end, file] : table.m_Files) {
        if (std::max(file.m_Start, previousEnd) < end)
            more.push_back({std::max(file.m_Start, previousEnd), static_cast<long long>(1000 + more.size())});
        previousEnd = end;
    }
    more.push_back({std::max(previousEnd, 20 * P), 1999});
    EXPECT_EQ(table.Flush(more), more.size());
    table.SplitLargest(3);
    for (Records* records : {&outcome.inMemory, &outcome.onDisk}) {
        records->insert(records->end(), more.begin(), more.end());
        *records = Sorted(*records);
    }
    CheckInMemory(table, folder, outcome);
    table.TakeLog();
    EXPECT_TRUE(table.Validate() || outcome.bLeftovers) << testing::PrintToString(table.TakeLog());
    CheckNewTable(folder, outcome.onDisk);
    EXPECT_FALSE(folder.Exists(kJournal));
}

class HistoricTableFault : public testing::TestWithParam<Scenario> {
protected:
    // Does the operation with the n-th fault of a mode and checks what is left; false when there was no n-th.
    bool Run(const Mode& mode, unsigned int n, bool bGoOn) const {
        const Scenario& scenario = GetParam();
        SCOPED_TRACE(testing::Message()
                     << mode.name << ", n = " << n << (bGoOn ? ", going on" : ", starting anew"));
        Load(m_Folder, scenario.image);
        FaultFileSystem files;
        std::optional<TestTable> table(std::in_place, m_Folder.GetFilePath(),
                                       mode.files ? &files : QVFileSystem::GetInstance());
        for (const auto& [name, content] : scenario.strangers)
            m_Folder.Write(name, content);
        FaultSystemCalls system;
        mode.files ? mode.files(files, n) : mode.system(system, n);
        Outcome outcome = scenario.operation(*table, m_Folder, scenario.image);
        const bool bFailed = files.HasFailed() || system.GetFaults() != 0;
        system.Heal();
        files.Heal();
        EXPECT_EQ(files.GetLiveObjects(), 0);
        for (const auto& [name, content] : scenario.strangers) {
            if (m_Folder.Exists(name) && m_Folder.Read(name) == content)
                m_Folder.Remove(name);
        }

        if (!mode.bDeath)
            CheckInMemory(*table, m_Folder, outcome);
        if (!bGoOn) {
            table.reset();
            CheckNewTable(m_Folder, outcome.onDisk);
            outcome = {outcome.onDisk, outcome.onDisk};
            table.emplace(m_Folder.GetFilePath());
        }
        GoOn(*table, m_Folder, outcome);
        return bFailed;
    }

    const TemporaryFolder m_Folder = TemporaryFolder::InMemory();
};

} // namespace

TEST_P(HistoricTableFault, LosesAndDoublesNoRecord) {
    unsigned int runs = 0;
    for (const Mode& mode : kModes) {
        unsigned int n = 1;
        while (Run(mode, n, false) && (mode.bDeath || Run(mode, n, true)) && !HasFailure())
            n++;
        runs += n;
    }
    EXPECT_GT(runs, std::size(kModes)) << "nothing has failed";
}

INSTANTIATE_TEST_SUITE_P(, HistoricTableFault, testing::ValuesIn(kScenarios),
                         [](const auto& scenario) { return std::string(scenario.param.name); });

// Every state that a death in the middle of a split leaves, and the operation on it that fails in its turn.
class HistoricTableRecovery : public HistoricTableFault {
protected:
    // Calls `visit` with the folder left by a death at each change of the scenario's split.
    void ForEachDeath(const std::function<void(const Image&)>& visit) const {
        const Mode& death = kModes[std::size(kModes) - 1];
        for (unsigned int n = 1;; n++) {
            SCOPED_TRACE(testing::Message() << "death at n = " << n);
            Load(m_Folder, GetParam().image);
            {
                TestTable table(m_Folder.GetFilePath());
                FaultSystemCalls system;
                death.system(system, n);
                table.SplitLargest(3);
                if (system.GetFaults() == 0)
                    return;
            }
            visit(Save(m_Folder));
        }
    }
};

TEST_P(HistoricTableRecovery, MayItselfDie) {
    const Records expected = WholeRecords(GetParam().image);
    ForEachDeath([&](const Image& image) {
        for (unsigned int n = 1;; n++) {
            SCOPED_TRACE(testing::Message() << "and at the start at n = " << n);
            Load(m_Folder, image);
            FaultSystemCalls system;
            system.FailFrom(SystemCall::Changes, n, EIO);
            TestTable(m_Folder.GetFilePath()).Read();
            const bool bDied = system.GetFaults() != 0;
            system.Heal();
            CheckNewTable(m_Folder, expected);
            if (!bDied)
                break;
        }
    });
}

TEST_P(HistoricTableRecovery, IsSeenRightByALookerOn) {
    const Records expected = WholeRecords(GetParam().image);
    ForEachDeath([&](const Image& image) {
        HistoricTableErrorSummary errors;
        struct Looker : CHistoricTable {
            using CHistoricTable::CHistoricTable;
        } table(QVFileSystem::GetInstance(), 16, &errors);
        table.InitialiseForReading(m_Folder.GetFilePath());
        Records records;
        CHistoricTable::ReadContext context;
        for (bool found = table.BeginRead(0, LLONG_MAX, context); found; found = table.NextRecord(context)) {
            records.emplace_back();
            std::memcpy(&records.back(), context.m_pRecord, sizeof(Record));
        }
        EXPECT_EQ(Sorted(records), expected);
        EXPECT_TRUE(Save(m_Folder) == image) << "and touches nothing";
    });
}

TEST_P(HistoricTableRecovery, MayFailAndStillLosesNoRecord) {
    const Records expected = WholeRecords(GetParam().image);
    ForEachDeath([&](const Image& image) {
        for (const bool bOnce : {true, false}) {
            for (unsigned int n = 1;; n++) {
                SCOPED_TRACE(testing::Message()
                             << "and at the start call n = " << n << " fails" << (bOnce ? " once" : ""));
                Load(m_Folder, image);
                FaultSystemCalls system;
                bOnce ? system.FailAt(SystemCall::All, n, EIO) : system.FailFrom(SystemCall::All, n, EIO);
                TestTable table(m_Folder.GetFilePath());
                const bool bFailed = system.GetFaults() != 0;
                system.Heal();
                const Records more = {{1, 200}, {9 * M, 201}, {2 * P + 1, 202}, {5 * P, 203}};
                EXPECT_EQ(table.Flush(more), 4u);
                Records all = expected;
                all.insert(all.end(), more.begin(), more.end());
                EXPECT_EQ(Sorted(table.Read()), Sorted(all)) << table.Describe();
                CheckNewTable(m_Folder, Sorted(all));
                if (!bFailed || HasFailure())
                    break;
            }
        }
    });
}

INSTANTIATE_TEST_SUITE_P(, HistoricTableRecovery, testing::Values(kScenarios[3], kScenarios[4]),
                         [](const auto& scenario) { return std::string(scenario.param.name); });

// A log may throw. Then the operation ends there, and nothing else.
TEST_P(HistoricTableFault, OutlivesALogThatThrows) {
    const Scenario& scenario = GetParam();
    for (unsigned int message = 1; message <= 3; message++) {
        for (unsigned int n = 1;; n++) {
            SCOPED_TRACE(testing::Message() << "message " << message << ", changes fail from n = " << n);
            Load(m_Folder, scenario.image);
            TestTable table(m_Folder.GetFilePath());
            FaultSystemCalls system;
            system.FailFrom(SystemCall::Changes, n, EIO);
            table.m_Log.m_ThrowAt = message;
            bool bThrown = false;
            try {
                scenario.operation(table, m_Folder, scenario.image);
            } catch (const std::runtime_error&) {
                bThrown = true;
            }
            const bool bFailed = system.GetFaults() != 0;
            system.Heal();
            table.m_Log.m_ThrowAt = 0;
            if (bThrown) {
                // Of a flush, what the disk has; a split may leave copies there, until they can be erased.
                const Records inMemory = Sorted(table.Read());
                const bool bSplit = scenario.operation == Split;
                const Records before = WholeRecords(scenario.image);
                EXPECT_EQ(inMemory, bSplit ? before : WholeRecords(Save(m_Folder)));
                if (scenario.operation == Flush) {
                    const size_t lost = before.size() + 6 - inMemory.size();
                    const std::string counted = ", Lost Records (" + std::to_string(lost) + ")";
                    EXPECT_EQ(table.Errors().find(counted) != std::string::npos, lost != 0) << table.Errors();
                }
                GoOn(table, m_Folder, {inMemory, inMemory});
            }
            if (!bFailed || HasFailure())
                break;
        }
    }
}

TEST(HistoricTableStartUp, GoesByTheJournalOfASplit) {
    const std::string old = NameOf(0, P);
    const std::string first = NameOf(0, 3 * M);
    const std::string second = NameOf(3 * M, P);
    const std::string journal = "split 0 1800000000 19660800000000\n";
    struct Row {
        std::string journal;
        bool bOld; // the file is there
        const char* files;
        std::vector<std::string> log;
    };
    const std::vector<std::string> undone = {"The split of " + old + " was interrupted and is undone"};
    const std::vector<std::string> complete = {"The split of " + old + " was interrupted and is complete"};
    const Row rows[] = {
        {journal, true, "0..1P=8", undone},
        {journal, false, "0..3m=3 3m..1P=5", complete},
        // One that is not complete, or names no split, was never acted on. The halves are then a stranger's.
        {"", false, "0..3m=3 3m..1P=5", {}},
        {journal.substr(0, journal.size() - 1), false, "0..3m=3 3m..1P=5", {}},
        {journal + "x", false, "0..3m=3 3m..1P=5", {}},
        {"split 0 1800000000", false, "0..3m=3 3m..1P=5", {}},
        {"split 0 1800000000 1800000000\n", false, "0..3m=3 3m..1P=5", {}},
        {"split 0 1800000000 9223372036854775807\n", false, "0..3m=3 3m..1P=5", {}},
        {"split 0 1800000000 99999999999999999999\n", false, "0..3m=3 3m..1P=5", {}},
        {std::string(34, '\0'), false, "0..3m=3 3m..1P=5", {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.journal);
        const TemporaryFolder folder;
        if (row.bOld)
            folder.Write(old, BytesOf(Records(8, {M, 1})));
        folder.Write(first, BytesOf(Records(3, {M, 1})));
        folder.Write(second, BytesOf(Records(5, {4 * M, 1})));
        folder.Write(kJournal, row.journal);
        TestTable table(folder.GetFilePath());
        EXPECT_EQ(table.Describe(), row.files);
        EXPECT_EQ(folder.List().size(), table.m_Files.size()) << "no journal, and no copies";
        table.Flush({{P, 1}});
        EXPECT_EQ(table.TakeLog(), row.log) << "said by the next operation with a log";
        EXPECT_TRUE(table.Validate());
    }
}

TEST(HistoricTableStartUp, ChangesNothingInAFolderThatItCannotRead) {
    const TemporaryFolder folder;
    Load(folder, kThreeFiles);
    FaultSystemCalls system;
    system.FailFrom(SystemCall::OpenFolder, 1, EMFILE);
    TestTable table(folder.GetFilePath());
    EXPECT_EQ(table.Flush({{5, 1}, {9 * P, 2}}), 0u);
    EXPECT_THAT(table.TakeLog(),
                ElementsAre("! Read folder '" + folder.GetPath() + "' returns: Too many open files"));
    EXPECT_EQ(table.Errors(), "Error 24, Lost Records (2)");
    EXPECT_EQ(table.Trim(0), 0);
    EXPECT_FALSE(table.SplitLargest(1));
    EXPECT_FALSE(table.Validate());
    EXPECT_TRUE(Save(folder) == kThreeFiles);
    system.Heal();
    table.TakeLog();
    EXPECT_EQ(table.Flush({{5, 100}}), 1u);
    EXPECT_THAT(table.TakeLog(), IsEmpty());
    EXPECT_EQ(table.Describe(), "0..2P=9 2P..3P=2 4P..5P=1");
}

// A split that could neither be done nor undone: its file must outlive its copies, or they would take its place.
TEST(HistoricTableUnfinishedSplit, KeepsItsFile) {
    const std::string old = NameOf(0, 2 * P);
    for (const bool bDeleteAll : {false, true}) {
        SCOPED_TRACE(bDeleteAll);
        const TemporaryFolder folder;
        Load(folder, kThreeFiles);
        TestTable table(folder.GetFilePath());
        FaultSystemCalls system;
        system.FailAt(SystemCall::Write | SystemCall::Writev, 3, ENOSPC); // journal, first half, second half
        system.FailFrom(SystemCall::Erase, 1, EACCES);
        EXPECT_FALSE(table.SplitLargest(3));
        EXPECT_TRUE(folder.Exists(kJournal) && folder.Exists(NameOf(0, 3 * M)));
        EXPECT_EQ(Sorted(table.Read()), WholeRecords(kThreeFiles));
        table.TakeLog();
        system.Heal();
        system.FailAt(SystemCall::Erase, 1, EACCES); // of the first half; the old file could be erased
        if (bDeleteAll) {
            table.DeleteAll();
        } else {
            EXPECT_EQ(table.Trim(2), 0);
            EXPECT_THAT(table.TakeLog(), ElementsAre("Error deleting expired file '" + old + "'"));
        }
        const Image image = Save(folder);
        EXPECT_EQ(TestTable(folder.GetFilePath()).Read(), bDeleteAll ? kInOrder : table.Read());
        EXPECT_FALSE(folder.Exists(kJournal));

        Load(folder, image);
        EXPECT_EQ(table.Trim(2), bDeleteAll ? 0 : 1);
        EXPECT_EQ(table.Flush({{20 * P, 1}}), 1u);
        if (bDeleteAll)
            folder.Remove(old);
        EXPECT_TRUE(table.Validate()) << testing::PrintToString(table.TakeLog());
        EXPECT_EQ(TestTable(folder.GetFilePath()).Read(), table.Read());
        EXPECT_FALSE(folder.Exists(kJournal));
    }
}

// What a power cut leaves depends on what was synced before what. The journal first, then the halves, then the
// old file goes, and only when that is for good the journal.
TEST(HistoricTableOrder, ASplitIsOnTheDiskStepByStep) {
    const TemporaryFolder folder = TemporaryFolder::InMemory();
    const std::string folderName = folder.GetFilePath().GetFileName();
    const std::string old = NameOf(0, 2 * P);
    const std::string first = NameOf(0, 3 * M);
    const std::string second = NameOf(3 * M, 2 * P);
    const std::vector<std::string> inOrder[] = {
        {"fdatasync split.journal", "fsync " + folderName, "open " + first},
        {"fdatasync split.journal", "fsync " + folderName, "open " + second},
        {"fdatasync " + first, "fsync " + folderName, "unlink " + old},
        {"fdatasync " + second, "fsync " + folderName, "unlink " + old},
        {"unlink " + old, "fsync " + folderName, "unlink split.journal"},
    };
    for (unsigned int n = 0; n <= 8; n++) { // the n-th sync fails
        SCOPED_TRACE(n);
        Load(folder, {{old, BytesOf(kInOrder)}});
        TestTable table(folder.GetFilePath(), QVFileSystem::GetInstance());
        FaultSystemCalls system;
        if (n != 0)
            system.FailAt(SystemCall::Sync | SystemCall::SyncData, n, EIO);
        const bool bSplit = table.SplitLargest(3);
        EXPECT_EQ(bSplit, n == 0 || n >= 7) << "a failure behind the erasing of the old file comes too late";
        const std::vector<std::string> record = system.GetRecord();
        for (const std::vector<std::string>& steps : inOrder) {
            auto at = record.begin();
            for (const std::string& step : steps) {
                at = std::find(at, record.end(), step);
                EXPECT_TRUE(n != 0 || at != record.end()) << step;
            }
        }
        EXPECT_EQ(folder.Exists(old), !bSplit);
        EXPECT_EQ(folder.Exists(kJournal), n == 7) << "stays when the old file may come back";
        system.Heal();
        CheckNewTable(folder, Sorted(kInOrder));
    }
}

TEST(HistoricTableOrder, AFlushThatReturnedIsOnTheDisk) {
    const TemporaryFolder folder = TemporaryFolder::InMemory();
    TestTable table(folder.GetFilePath(), QVFileSystem::GetInstance());
    FaultSystemCalls system;
    const std::string name = NameOf(0, 2 * P);
    const auto synced = [&](const std::string& call) {
        const std::vector<std::string> record = system.GetRecord();
        return std::count(record.begin(), record.end(), call);
    };
    table.Flush({{1, 1}});
    EXPECT_EQ(synced("fdatasync " + name), 1);
    EXPECT_EQ(synced("fsync " + folder.GetFilePath().GetFileName()), 1);
    table.Flush({{2, 2}});
    EXPECT_EQ(synced("fdatasync " + name), 2);
    EXPECT_EQ(synced("fsync " + folder.GetFilePath().GetFileName()), 1) << "the file is not new any more";
    system.FailAt(SystemCall::SyncData, 1, EIO);
    EXPECT_EQ(table.Flush({{3, 3}}), 1u);
    EXPECT_THAT(table.TakeLog(), ElementsAre("! Close file '" + name + "' returns: Input/output error"));
    EXPECT_EQ(table.Errors(), "Error 5");
}
