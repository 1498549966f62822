// Long random lives of a table beside the simplest one there is: a list of records, and whole files read without it.
#include "TestTable.h"
#include "support/FaultFileSystem.h"

#include <gtest/gtest.h>
#include <random>

namespace {

class Life {
public:
    // Every second one on foreign file objects.
    explicit Life(unsigned int seed) : m_Random(seed), m_bForeign(seed % 2 == 0) { Restart(); }

    void Step() {
        switch (Any(12)) {
        case 0:
            Restart();
            break;
        case 1:
            Trim();
            break;
        case 2:
        case 3:
            m_pTable->SplitLargest(static_cast<unsigned int>(5 + Any(40)));
            break;
        case 4:
        case 5:
        case 6:
            Read();
            break;
        case 7:
        case 8:
            EXPECT_EQ(m_pTable->Flush(), m_Queued.size());
            m_Flushed.insert(m_Flushed.end(), m_Queued.begin(), m_Queued.end());
            m_Queued.clear();
            break;
        default:
            Write();
        }
    }

    void Check() {
        EXPECT_EQ(Sorted(m_pTable->Read()), Sorted(m_Flushed)) << m_pTable->Describe();
        EXPECT_TRUE(m_pTable->Validate()) << testing::PrintToString(m_pTable->TakeLog());
        EXPECT_EQ(m_pTable->Errors(), "");
        m_pTable->TakeLog();
    }

private:
    long long Any(long long below) {
        return std::uniform_int_distribution<long long>(0, below - 1)(m_Random);
    }
    // Mostly a step on, sometimes late, sometimes far off.
    long long NextTime() {
        const long long kind = Any(30);
        if (kind == 0)
            m_Now += Any(3 * P);
        if (kind == 1)
            return Any(m_Now + P);
        if (kind < 10)
            return std::max(m_Now - Any(100 * M), 0LL);
        return m_Now += Any(20 * M);
    }

    void Restart() {
        m_pTable.reset(); // what is queued is dropped
        m_Queued.clear();
        m_pTable = std::make_unique<TestTable>(m_Folder.GetFilePath(),
                                               m_bForeign ? &m_Files : QVFileSystem::GetUnsyncedInstance());
    }
    void Write() {
        for (long long count = Any(20); count > 0; count--) {
            m_Queued.push_back({NextTime(), m_NextNumber++});
            m_pTable->Put({m_Queued.back()});
        }
    }
    void Trim() {
        const auto target = static_cast<unsigned int>(Any(2 * static_cast<long long>(m_Flushed.size()) + 1));
        const std::map<std::string, Records> files = RecordsOnDisk(m_Folder);
        std::vector<std::string> names;
        for (const auto& [end, file] : m_pTable->m_Files)
            names.push_back(NameOf(file.m_Start, end));
        const int deleted = m_pTable->Trim(target);
        for (int i = 0; i < deleted; i++)
            for (const Record& record : files.at(names[static_cast<size_t>(i)]))
                std::erase(m_Flushed, record);
        EXPECT_TRUE(deleted == 0 || m_Flushed.size() >= target);
    }
    // A time anywhere, or at a border of a file.
    long long AnyTime() {
        if (m_pTable->m_Files.empty() || Any(2) == 0)
            return Any(m_Now + P);
        const auto file =
            m_pTable->File(static_cast<int>(Any(static_cast<long long>(m_pTable->m_Files.size()))));
        return (Any(2) == 0 ? file->first : file->second.m_Start) + Any(3) - 1;
    }
    // A read of any kind gives the records of the folder's files, file by file in order of their ends.
    void Read() {
        const std::map<std::string, Records> folder = RecordsOnDisk(m_Folder);
        const auto& files = m_pTable->m_Files;
        const auto recordsOf = [&](CHistoricTable::FileMap::const_iterator file) -> Records {
            const auto found = folder.find(NameOf(file->second.m_Start, file->first));
            return found == folder.end() ? Records() : found->second;
        };
        const bool bBefore = Any(2) == 0;
        const long long from = bBefore ? 0 : AnyTime();
        const long long to = Any(4) == 0 ? from : AnyTime();
        auto file = files.begin();
        if (bBefore && files.upper_bound(to) != file)
            file = std::prev(files.upper_bound(to));
        Records expected;
        unsigned int opened = 0, read = 0;
        for (; file != files.end(); ++file) {
            if (file->second.m_Start > to || file->first < from)
                continue;
            opened++;
            for (const Record& record : recordsOf(file)) {
                read++;
                if (record.time >= from && record.time <= to)
                    expected.push_back(record);
            }
        }
        EXPECT_EQ(m_pTable->ReadOn(m_Context, bBefore ? m_pTable->BeginReadFLowerBound(to, m_Context)
                                                      : m_pTable->BeginRead(from, to, m_Context)),
                  expected)
            << m_pTable->Describe();
        EXPECT_EQ(m_Context.m_NumFilesOpened, opened);
        EXPECT_EQ(m_Context.m_NumRecordsRead, read);
        EXPECT_FALSE(m_pTable->NextRecord(m_Context)) << "after the end it stays at the end";
        if (files.empty())
            return;

        // One file, or if it is empty the next that is not; and one record of it.
        file = std::next(files.begin(), Any(static_cast<long long>(files.size())));
        const std::string name = NameOf(file->second.m_Start, file->first);
        const auto index = static_cast<unsigned int>(Any(file->second.m_NumRecords + 2));
        const bool bFound = m_pTable->BeginReadRecord(name.data(), 31, index, m_Context);
        EXPECT_EQ(bFound, index < file->second.m_NumRecords);
        EXPECT_TRUE(!bFound || RecordIn(m_Context) == recordsOf(file)[index]);
        EXPECT_FALSE(m_pTable->NextRecord(m_Context));
        while (recordsOf(file).empty() && std::next(file) != files.end())
            ++file;
        EXPECT_EQ(m_pTable->ReadOn(m_Context, m_pTable->BeginReadFile(name.data(), 31, m_Context)),
                  recordsOf(file));
    }

    FaultFileSystem m_Files; // without faults
    std::mt19937 m_Random;
    const bool m_bForeign;
    const TemporaryFolder m_Folder = TemporaryFolder::InMemory();
    std::unique_ptr<TestTable> m_pTable;
    CHistoricTable::ReadContext m_Context;
    Records m_Queued;
    Records m_Flushed;
    long long m_Now = 50 * P;
    long long m_NextNumber = 1;
};

} // namespace

TEST(HistoricTableModel, BehavesLikeAListOfRecords) {
    for (unsigned int seed = 1; seed <= 25; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        Life life(seed);
        for (int step = 0; step < 400 && !testing::Test::HasFailure(); step++) {
            SCOPED_TRACE(testing::Message() << "step " << step);
            life.Step();
            if (step % 10 == 0)
                life.Check();
        }
        life.Check();
    }
}
