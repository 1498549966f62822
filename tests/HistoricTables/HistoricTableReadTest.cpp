// Reading where the random lives of HistoricTableModelTest do not go: names, times before 0, damage, large files, and
// what a context may be put through.
#include "TestTable.h"
#include "support/FaultFileSystem.h"

#include <cerrno>
#include <filesystem>
#include <gmock/gmock.h>

using Context = CHistoricTable::ReadContext;

namespace {

// Three files: A [0, 2P), B [2P, 3P), C [4P, 5P).
const std::string A = NameOf(0, 2 * P);
const std::string B = NameOf(2 * P, 3 * P);
const std::string C = NameOf(4 * P, 5 * P);
const Records kRecords = {{10, 1}, {30, 2}, {20, 3}, {2 * P, 4}, {2 * P + 50, 5}, {4 * P + 1, 6}};

class HistoricTableRead : public testing::Test {
protected:
    HistoricTableRead() { EXPECT_EQ(m_Table.Flush(kRecords), 6u); }

    bool BeginFile(const std::string& name, Context& context) const {
        return m_Table.BeginReadFile(name.data(), static_cast<unsigned int>(name.size()), context);
    }
    bool BeginRecord(const std::string& name, unsigned int index, Context& context) const {
        return m_Table.BeginReadRecord(name.data(), static_cast<unsigned int>(name.size()), index, context);
    }
    Numbers Rest(Context& context, bool found) const { return NumbersOf(m_Table.ReadOn(context, found)); }

    const TemporaryFolder m_Folder;
    FaultFileSystem m_Files;
    TestTable m_Table{m_Folder.GetFilePath(), &m_Files};
};

} // namespace

TEST_F(HistoricTableRead, FindsFilesByTheEndInTheirNames) {
    const std::pair<std::string, Numbers> rows[] = {
        {A, {1, 2, 3}},
        {NameOf(P, 3 * P), {4, 5}},
        {NameOf(P, 4 * P), {}},
        {"x.qvhis", {}},
        {A.substr(0, 30), {}},
        {A + "x", {}},
        {A.substr(0, 25) + "xqvhis", {}},
    };
    Context context;
    for (const auto& [name, numbers] : rows) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Rest(context, BeginFile(name, context)), numbers);
        EXPECT_EQ(context.m_State, CHistoricTable::ReadStateFile);
        EXPECT_EQ(BeginRecord(name, 1, context), !numbers.empty());
        EXPECT_EQ(context.m_State, CHistoricTable::ReadStateRecord);
    }
    EXPECT_TRUE(m_Table.BeginReadFile((B + "more").c_str(), 31, context)) << "need not be terminated";
    const TestTable empty(m_Folder.File("missing"));
    EXPECT_FALSE(empty.BeginReadFLowerBound(5, context));
}

TEST_F(HistoricTableRead, PassesOverRecordsFromBeforeTime0) {
    m_Folder.Write(A, BytesOf({{-5, 7}, {-4, 8}, {5, 9}}));
    m_Folder.Write(B, Record{-5, 9}.Bytes());
    Context context;
    EXPECT_EQ(NumbersOf(m_Table.Read(-4, LLONG_MAX)), (Numbers{8, 9, 6})) << "unless asked for";
    EXPECT_EQ(Rest(context, m_Table.BeginReadFLowerBound(15, context)), Numbers{9});
    EXPECT_EQ(Rest(context, BeginFile(B, context)), Numbers{6}) << "the first of the next file";
    ASSERT_TRUE(BeginRecord(A, 0, context));
    EXPECT_EQ(RecordIn(context).number, 9);
    EXPECT_EQ(context.m_RecordIndex, 2u);
}

TEST_F(HistoricTableRead, FindsNoRecordThatIsNotThere) {
    Context context;
    m_Files.FailAt(UINT_MAX, EIO);
    EXPECT_FALSE(BeginRecord(A, 3, context));
    EXPECT_EQ(m_Files.GetCount(), 0u) << "nothing is opened for it";
    m_Folder.Write(A, BytesOf({{5, 7}}) + "torn");
    EXPECT_FALSE(BeginRecord(A, 1, context)) << "shorter than the map says";
    m_Folder.Remove(A);
    EXPECT_FALSE(BeginRecord(A, 0, context));
}

TEST_F(HistoricTableRead, PassesOverWhatCannotBeRead) {
    m_Folder.Write(A, BytesOf({{10, 1}, {20, 2}}) + "a torn record");
    m_Folder.Remove(B);
    EXPECT_EQ(NumbersOf(m_Table.Read()), (Numbers{1, 2, 6}));
    // The same with every single operation failing: a file ends early, the others come.
    for (unsigned int n = 1;; n++) {
        m_Files.FailAt(n, EIO);
        const Numbers numbers = NumbersOf(m_Table.Read());
        if (!m_Files.HasFailed())
            break;
        EXPECT_THAT(numbers, testing::AnyOf(Numbers{6}, Numbers{1, 6}, Numbers{1, 2, 6}, Numbers{1, 2})) << n;
    }
    EXPECT_EQ(m_Table.TakeLog(), Lines());
    EXPECT_EQ(m_Table.Errors(), "");
}

TEST_F(HistoricTableRead, AContextServesAnyNumberOfReads) {
    Context context;
    m_Table.EndRead(context);
    EXPECT_FALSE(m_Table.NextRecord(context));

    // One abandoned, another begun on top of it: counters and state are new, the open file is closed.
    const int objects = m_Files.GetLiveObjects();
    ASSERT_TRUE(m_Table.BeginRead(0, LLONG_MAX, context) && m_Table.NextRecord(context));
    m_Files.FailAt(UINT_MAX, EIO, FaultFileSystem::Close);
    ASSERT_TRUE(BeginFile(B, context));
    EXPECT_EQ(m_Files.GetCount(), 1u);
    EXPECT_EQ(m_Files.GetLiveObjects(), objects + 1) << "one file object for all reads";
    EXPECT_EQ(context.m_NumFilesOpened, 1u);
    EXPECT_EQ(context.m_RecordIndex, 0u);
    EXPECT_TRUE(m_Table.NextRecord(context));
    EXPECT_EQ(context.m_RecordIndex, 1u);
    EXPECT_EQ(context.m_NumRecordsRead, 2u);
    EXPECT_FALSE(BeginFile("x", context));
    EXPECT_FALSE(m_Table.NextRecord(context)) << "the read before is over, too";

    // Another table: other records, other file system.
    const TemporaryFolder folder;
    TestTable large(folder.GetFilePath(), QVFileSystem::GetUnsyncedInstance(), 100);
    large.Flush({{1, 17}, {2, 18}});
    EXPECT_EQ(NumbersOf(large.ReadOn(context, large.BeginRead(0, 1, context))), Numbers{17});
    EXPECT_EQ(context.m_pRecord[99], 17);
    EXPECT_EQ(Rest(context, m_Table.BeginRead(20, 30, context)), (Numbers{2, 3}));

    // Several at once.
    Context other;
    EXPECT_TRUE(m_Table.BeginRead(0, LLONG_MAX, context) && m_Table.BeginRead(2 * P, LLONG_MAX, other));
    EXPECT_TRUE(m_Table.NextRecord(context));
    EXPECT_EQ(Rest(other, true), (Numbers{4, 5, 6}));
    EXPECT_EQ(Rest(context, true), (Numbers{2, 3, 4, 5, 6}));
}

TEST(HistoricTableLargeRead, ReachesRecordsBeyond4GiB) {
    constexpr unsigned int size = CHistoricTable::MaxRecordSize;
    constexpr unsigned int count = 32'770; // 4 GiB and two records, nearly all of it a hole
    const TemporaryFolder folder;
    folder.Write(A, "");
    std::filesystem::resize_file(folder.File(A).GetPath(), 1ULL * count * size);
    TestTable table(folder.GetFilePath(), QVFileSystem::GetUnsyncedInstance(), size);
    EXPECT_EQ(table.Describe(), "0..2P=32770");
    EXPECT_EQ(table.Flush({{5, 77}}), 1u);
    EXPECT_EQ(std::filesystem::file_size(folder.File(A).GetPath()), (count + 1ULL) * size);
    Context context;
    EXPECT_TRUE(table.BeginReadRecord(A.data(), 31, count, context));
    EXPECT_EQ(RecordIn(context).number, 77);
    EXPECT_TRUE(table.BeginReadRecord(A.data(), 31, count - 1, context));
    EXPECT_EQ(RecordIn(context).number, 0);
    table.EndRead(context);
    EXPECT_TRUE(table.Validate());
}
