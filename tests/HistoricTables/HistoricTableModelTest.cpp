// Long random lives of a table beside the simplest one there is: a list of records.
#include "TestTable.h"

#include <gtest/gtest.h>
#include <random>

namespace {

class Life {
public:
    explicit Life(unsigned int seed) : m_Random(seed) { Restart(); }

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
            ReadARange();
            break;
        case 6:
            ReadBefore();
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
        m_pTable = std::make_unique<TestTable>(m_Folder.GetFilePath());
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
        size_t gone = 0;
        for (int i = 0; i < deleted; i++) {
            for (const Record& record : files.at(names[static_cast<size_t>(i)])) {
                std::erase(m_Flushed, record);
                gone++;
            }
        }
        EXPECT_TRUE(gone == 0 || m_Flushed.size() >= target);
        EXPECT_TRUE(target == 0 || m_pTable->m_Files.empty() || gone != 0 ||
                    m_Flushed.size() - m_pTable->m_Files.begin()->second.m_NumRecords <= target);
    }
    void ReadARange() {
        const long long from = Any(m_Now + P);
        const long long to = from + Any(Any(2) != 0 ? P : 100 * M);
        Records expected;
        std::copy_if(m_Flushed.begin(), m_Flushed.end(), std::back_inserter(expected),
                     [&](const Record& record) { return record.time >= from && record.time <= to; });
        EXPECT_EQ(Sorted(m_pTable->Read(from, to)), Sorted(expected)) << m_pTable->Describe();
    }
    // The newest record before a time is found, though it may lie in an earlier file.
    void ReadBefore() {
        const long long time = Any(m_Now + P);
        CHistoricTable::ReadContext context;
        const Records read = m_pTable->ReadOn(context, m_pTable->BeginReadFLowerBound(time, context));
        for (const Record& record : read)
            EXPECT_LE(record.time, time);
        const auto start = m_pTable->m_Files.upper_bound(time);
        for (const Record& record : m_Flushed) {
            const bool bWanted = start != m_pTable->m_Files.end() && record.time >= start->second.m_Start &&
                                 record.time <= time;
            EXPECT_TRUE(!bWanted || std::find(read.begin(), read.end(), record) != read.end());
        }
    }

    std::mt19937 m_Random;
    const TemporaryFolder m_Folder = TemporaryFolder::InMemory();
    std::unique_ptr<TestTable> m_pTable;
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
