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
    for (const auto& [name, content] : image)
        if (name.ends_with(".qvhis"))
            all = Joined(all, RecordsIn(content));
    return all;
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
    EXPECT_EQ(table.Errors().find("Lost Records (" + std::to_string(6 - written) + ")") != std::string::npos,
              written != 6);
    const Records all = Joined(WholeRecords(image), {records.begin(), records.begin() + written});
    return {all, all};
}

Outcome Split(TestTable& table, const TemporaryFolder&, const Image& image) {
    for (auto& [end, file] : table.m_Files)
        file.m_NumRecordsSent = file.m_NumRecordsTransferred = 1;
    if (!table.SplitLargest(3)) {
        for (const auto& [end, file] : table.m_Files)
            EXPECT_EQ(file.m_NumRecordsSent + file.m_NumRecordsTransferred, 2u) << "not as it was before";
    }
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
                           {NameOf(4 * P, 5 * P), BytesOf({{4 * P, 30}, {4 * P, 31}})}};
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

constexpr unsigned int kWrites = SystemCall::Write | SystemCall::Writev;
constexpr unsigned int kSyncs = SystemCall::Sync | SystemCall::SyncData;

// How operations of the file objects, or system calls, fail.
struct Mode {
    const char* name;
    enum { Files, Calls } of;
    unsigned int which;
    int error;
    enum { Once, ForGood } fails;
    std::optional<unsigned int>
        part;                 // of the n-th write that is done; then that one, or the next call, fails
    bool bDeath = false;      // the process ends there, so the table in use is not asked any more
    unsigned int throwAt = 0; // the log throws at that message: the operation ends there, and nothing else

    void Arm(FaultFileSystem& files, FaultSystemCalls& system, unsigned int n) const {
        if (of == Calls) {
            if (part)
                system.PartAt(which, n++, *part);
            fails == Once ? system.FailAt(which, n, error) : system.FailFrom(which, n, error);
        } else if (part) {
            fails == Once ? files.TearAt(n, error, which, *part) : files.TearFrom(n, error, which, *part);
        } else {
            fails == Once ? files.FailAt(n, error, which) : files.FailFrom(n, error, which);
        }
    }
};

using F = FaultFileSystem;
const Mode kDeath = {"the process dies", Mode::Calls, SystemCall::Changes, EIO, Mode::ForGood, 5, true};
const Mode kModes[] = {
    {"a file operation fails", Mode::Files, F::All, EIO, Mode::Once, {}},
    {"a file operation is torn", Mode::Files, F::All, ENOSPC, Mode::Once, F::Half},
    {"files fail from then on", Mode::Files, F::All, EIO, Mode::ForGood, {}},
    {"a write is torn, then files fail", Mode::Files, F::All, ENOSPC, Mode::ForGood, 15},
    {"writes and cuts fail", Mode::Files, F::Write | F::Cut, ENOSPC, Mode::ForGood, F::Half},
    {"a call fails", Mode::Calls, SystemCall::All, EIO, Mode::Once, {}},
    {"calls fail from then on", Mode::Calls, SystemCall::All, EIO, Mode::ForGood, {}},
    {"the file system turns read-only", Mode::Calls, SystemCall::Changes, EROFS, Mode::ForGood, {}},
    {"the disk is full", Mode::Calls, kWrites, ENOSPC, Mode::ForGood, 21},
    {"erasing fails from then on", Mode::Calls, SystemCall::Erase, EACCES, Mode::ForGood, {}},
    {"syncing fails from then on", Mode::Calls, kSyncs, EIO, Mode::ForGood, {}},
    {"renaming fails", Mode::Calls, SystemCall::Rename, EACCES, Mode::Once, {}},
    {"the folder is out of reach", Mode::Calls, SystemCall::Paths, EACCES, Mode::ForGood, {}},
    {"the log throws at once", Mode::Calls, SystemCall::Changes, EIO, Mode::ForGood, {}, false, 1},
    {"the log throws later", Mode::Calls, SystemCall::Changes, EIO, Mode::ForGood, {}, false, 2},
    {"the log throws late", Mode::Calls, SystemCall::Changes, EIO, Mode::ForGood, {}, false, 3},
    kDeath,
};

void CheckInMemory(TestTable& table, const TemporaryFolder& folder, const Outcome& outcome) {
    EXPECT_EQ(Sorted(table.Read()), outcome.inMemory);
    std::map<std::string, Records> files = RecordsOnDisk(folder);
    for (const auto& [end, file] : table.m_Files)
        EXPECT_EQ(file.m_NumRecords, files[NameOf(file.m_Start, end)].size()) << table.Describe();
}

void CheckNewTable(const TemporaryFolder& folder, const Records& expected) {
    TestTable table(folder.GetFilePath());
    EXPECT_EQ(Sorted(table.Read()), expected) << table.Describe();
    bool bTorn = false;
    for (const auto& [name, content] : Save(folder))
        bTorn = bTorn || (name.ends_with(".qvhis") && content.size() % sizeof(Record) != 0);
    EXPECT_EQ(table.Validate(), !bTorn) << testing::PrintToString(table.TakeLog());
}

// More is flushed, to every file there is, and split; then everything is as if nothing had ever failed.
void GoOn(TestTable& table, const TemporaryFolder& folder, const Outcome& outcome) {
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
    CheckInMemory(table, folder, {Joined(outcome.inMemory, more), {}});
    table.TakeLog();
    EXPECT_TRUE(table.Validate() || outcome.bLeftovers) << testing::PrintToString(table.TakeLog());
    CheckNewTable(folder, Joined(outcome.onDisk, more));
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
                                       mode.of == Mode::Files ? &files : QVFileSystem::GetInstance());
        for (const auto& [name, content] : scenario.strangers)
            m_Folder.Write(name, content);
        FaultSystemCalls system;
        mode.Arm(files, system, n);
        table->m_Log.m_ThrowAt = mode.throwAt;
        Outcome outcome;
        try {
            outcome = scenario.operation(*table, m_Folder, scenario.image);
        } catch (const std::runtime_error&) {
            // Of a flush, what the disk has; a split may leave copies there, until they can be erased.
            const Records before = WholeRecords(scenario.image);
            outcome.inMemory = scenario.operation == Split ? before : WholeRecords(Save(m_Folder));
            outcome.onDisk = outcome.inMemory;
            if (scenario.operation == Flush) {
                const size_t lost = before.size() + 6 - outcome.inMemory.size();
                EXPECT_EQ(table->Errors().find("Lost Records (" + std::to_string(lost) + ")") ==
                              std::string::npos,
                          lost == 0);
            }
        }
        table->m_Log.m_ThrowAt = 0;
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
class HistoricTableRecovery : public HistoricTableFault {};

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

// Every state that a death in the middle of a split leaves is seen right by a looker-on, and whatever fails at the
// start on it loses no record, be it that the process dies again, that a call fails, or that all do from then on.
TEST_P(HistoricTableRecovery, LosesNoRecordEither) {
    const Records expected = WholeRecords(GetParam().image);
    const Records more = {{1, 200}, {9 * M, 201}, {2 * P + 1, 202}, {5 * P, 203}};
    const Mode modes[] = {{"it dies again", Mode::Calls, SystemCall::Changes, EIO, Mode::ForGood, {}, true},
                          kModes[5],
                          kModes[6]};
    FaultFileSystem files;
    bool bDied = true;
    for (unsigned int death = 1; bDied && !HasFailure(); death++) {
        SCOPED_TRACE(testing::Message() << "death at n = " << death);
        Load(m_Folder, GetParam().image);
        {
            TestTable table(m_Folder.GetFilePath());
            FaultSystemCalls system;
            kDeath.Arm(files, system, death);
            table.SplitLargest(3);
            bDied = system.GetFaults() != 0;
        }
        const Image image = Save(m_Folder);
        TestTable looker(m_Folder.GetFilePath(), QVFileSystem::GetInstance(), 16, true);
        EXPECT_EQ(Sorted(looker.Read()), expected);
        EXPECT_TRUE(Save(m_Folder) == image) << "a looker-on touches nothing";

        for (const Mode& mode : modes) {
            bool bFailed = true;
            for (unsigned int n = 1; bFailed && !HasFailure(); n++) {
                SCOPED_TRACE(testing::Message() << "and at the start, n = " << n << ", " << mode.name);
                Load(m_Folder, image);
                FaultSystemCalls system;
                mode.Arm(files, system, n);
                TestTable table(m_Folder.GetFilePath());
                bFailed = system.GetFaults() != 0;
                if (mode.bDeath)
                    table.Read();
                system.Heal();
                if (!mode.bDeath) {
                    EXPECT_EQ(table.Flush(more), 4u);
                    EXPECT_EQ(Sorted(table.Read()), Joined(expected, more)) << table.Describe();
                }
                CheckNewTable(m_Folder, mode.bDeath ? expected : Joined(expected, more));
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(, HistoricTableRecovery, testing::Values(kScenarios[3], kScenarios[4]),
                         [](const auto& scenario) { return std::string(scenario.param.name); });

TEST(HistoricTableStartUp, GoesByTheJournalOfASplit) {
    const std::string old = NameOf(0, P);
    const std::string journal = "split 0 1800000000 19660800000000\n";
    struct Row {
        std::string journal;
        bool bOld; // the file is there
        std::string log;
    };
    const Row rows[] = {
        {journal, true, "The split of " + old + " was interrupted and is undone"},
        {journal, false, "The split of " + old + " was interrupted and is complete"},
        // One that is not complete, or names no split, was never acted on. The halves are then a stranger's.
        {"", false, ""},
        {journal.substr(0, journal.size() - 1), false, ""},
        {journal + "x", false, ""},
        {"split 0 1800000000", false, ""},
        {"split 0 1800000000 1800000000\n", false, ""},
        {"split 1800000000 1800000000 19660800000000\n", false, ""},
        {"split 0 1800000000 9223372036854775807\n", false, ""},
        {"split 0 1800000000 99999999999999999999\n", false, ""},
        {std::string(34, '\0'), false, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.journal);
        FolderTable table({{{0, 3 * M}, Records(3, {M, 1})}, {{3 * M, P}, Records(5, {4 * M, 1})}});
        if (row.bOld)
            table.folder.Write(old, BytesOf(Records(8, {M, 1})));
        table.folder.Write(kJournal, row.journal);
        table.Restart();
        EXPECT_EQ(table->Describe(), row.bOld ? "0..1P=8" : "0..3m=3 3m..1P=5");
        EXPECT_EQ(table.folder.List().size(), table->m_Files.size()) << "no journal, and no copies";
        table->Flush({{P, 1}});
        table->Flush({{P, 2}});
        EXPECT_EQ(table->TakeLog(), row.log.empty() ? Lines() : Lines{row.log})
            << "once, by whom has a log first";
        EXPECT_TRUE(table->Validate());
    }
}

TEST(HistoricTableStartUp, ChangesNothingInAFolderThatItCannotReadToTheEnd) {
    const TemporaryFolder folder;
    for (unsigned int n = 1;; n++) {
        SCOPED_TRACE(n);
        Load(folder, kThreeFiles);
        FaultSystemCalls system;
        system.FailFrom(SystemCall::OpenFolder | SystemCall::ReadFolder, n, EMFILE);
        TestTable table(folder.GetFilePath());
        if (system.GetFaults() == 0)
            break;
        EXPECT_EQ(table.Trim(0), 0);
        EXPECT_FALSE(table.SplitLargest(1));
        EXPECT_EQ(table.Flush({{5, 1}, {9 * P, 2}}), 0u);
        const std::string line = "! Read folder '" + folder.GetPath() + "' returns: Too many open files";
        EXPECT_THAT(table.TakeLog(), ElementsAre(line, line, line));
        EXPECT_EQ(table.Errors(), "Error 24 (3), Lost Records (2)");
        EXPECT_FALSE(table.Validate());
        EXPECT_TRUE(Save(folder) == kThreeFiles);
        system.Heal();
        table.TakeLog();
        EXPECT_EQ(table.Flush({{5, 100}}), 1u);
        EXPECT_THAT(table.TakeLog(), IsEmpty());
        EXPECT_EQ(table.Describe(), "0..2P=9 2P..3P=2 4P..5P=2");
    }
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
        system.FailAt(kWrites, 3, ENOSPC); // journal, first half, second half
        system.FailFrom(SystemCall::Erase, 1, EACCES);
        EXPECT_FALSE(table.SplitLargest(3));
        EXPECT_THAT(table.TakeLog(), ElementsAre("! Write file '" + NameOf(3 * M, 2 * P) +
                                                     "' returns: No space left on device",
                                                 "Split " + old + " (8 records) FAILED"));
        EXPECT_TRUE(folder.Exists(kJournal) && folder.Exists(NameOf(0, 3 * M)));
        EXPECT_EQ(Sorted(table.Read()), WholeRecords(kThreeFiles));
        system.Heal();
        system.FailAt(SystemCall::Erase, 1, EACCES); // of the first half; the old file could be erased
        if (bDeleteAll) {
            table.DeleteAll();
        } else {
            EXPECT_EQ(table.Trim(3), 0);
            EXPECT_THAT(table.TakeLog(), ElementsAre("Error deleting expired file '" + old + "'"));
        }
        const Image image = Save(folder);
        EXPECT_EQ(TestTable(folder.GetFilePath()).Read(), bDeleteAll ? kInOrder : table.Read());
        EXPECT_FALSE(folder.Exists(kJournal));

        Load(folder, image);
        EXPECT_EQ(table.Trim(3), bDeleteAll ? 0 : 1);
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
    const Lines inOrder[] = {
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
            system.FailAt(kSyncs, n, EIO);
        const bool bSplit = table.SplitLargest(3);
        EXPECT_EQ(bSplit, n == 0 || n >= 7) << "a failure behind the erasing of the old file comes too late";
        const Lines record = system.GetRecord();
        for (const Lines& steps : inOrder) {
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
        const Lines record = system.GetRecord();
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
