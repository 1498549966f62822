#include "QvProgram.h"

#include <filesystem>
#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::StartsWith;

class HistoryCompare : public QvProgram {
protected:
    // Two tables with the records of `count` minutes, equal but for what the test does to them.
    void MakeTables(int count) {
        std::string csv = "time,tag,value\n";
        for (int i = 0; i < count; ++i)
            csv += std::to_string(kStart + i * 600'000'000LL) + ",t" + std::to_string(i % 3) + "," +
                   std::to_string(i) + "\n";
        Import(csv);
        std::filesystem::copy(m_Folder.GetPath() + "/t", m_Folder.GetPath() + "/u");
    }

    // Appends records to a table: minute and value.
    void Add(const std::string& table, const std::vector<std::pair<int, int>>& records) {
        std::string csv = "time,tag,value\n";
        for (const auto& [minute, value] : records)
            csv += std::to_string(kStart + minute * 600'000'000LL) + ",t0," + std::to_string(value) + "\n";
        m_Folder.Write("more.csv", csv);
        Do("history import " + table + " more.csv");
    }

    // The findings of the two tables, one line each: missing, extra, different.
    std::vector<std::vector<long long>> GetFindings() {
        const Result result = Run("history compare t u --json");
        std::vector<std::vector<long long>> findings;
        for (std::size_t line = 0; line < result.m_Out.size(); line = result.m_Out.find('\n', line) + 1) {
            const std::string json = result.m_Out.substr(line, result.m_Out.find('\n', line) - line);
            findings.push_back(
                {JsonNumber(json, "missing"), JsonNumber(json, "extra"), JsonNumber(json, "different")});
        }
        EXPECT_EQ(result.m_ExitCode, findings.empty() ? 0 : 1) << result.m_Error;
        return findings;
    }

    static constexpr long long kStart = 131'000'000'400'000'000; // in 2016, at a full minute
};

TEST_F(HistoryCompare, FindsNothingWhereOnlyTheFilesDiffer) {
    MakeTables(2000);
    EXPECT_EQ(Do("history compare t u"), "Equal: 2,000 records\n");
    EXPECT_EQ(Run("history housekeep u --keep 100000 --max-file 4800").m_ExitCode, 0);
    EXPECT_NE(Do("history files t"), Do("history files u"));
    EXPECT_EQ(Do("history compare t u"), "Equal: 2,000 records\n");
    EXPECT_EQ(Do("history compare t u --json"), "");

    // Nor does the order of arrival count.
    Add("t", {{5000, 1}, {5001, 2}, {5000, 3}});
    Add("u", {{5000, 3}, {5000, 1}, {5001, 2}});
    EXPECT_EQ(Do("history compare t u"), "Equal: 2,003 records\n");
}

TEST_F(HistoryCompare, CountsRecordsByContentAndHowOftenTheyAreThere) {
    MakeTables(30);
    Add("t", {{100, 1}, {100, 1}, {101, 5}, {102, 7}, {102, 8}});
    Add("u", {{100, 1}, {101, 6}, {102, 9}, {103, 1}});
    // Missing are one of the two at 100 and one of those at 102; the others of 101 and 102 are different.
    EXPECT_EQ(GetFindings(), (std::vector<std::vector<long long>>{{2, 1, 2}}));
    const Result result = Run("history compare t u");
    EXPECT_EQ(result.m_ExitCode, 1);
    EXPECT_THAT(result.m_Out,
                HasSubstr("\nDifferent: 2 missing from 'u', 1 extra there, 2 with other content\n"));
    EXPECT_THAT(Run("history compare t u --csv").m_Out,
                StartsWith("from,to,records1,records2,missing,extra,different\n"));
}

// Each span between boundaries of either table is told apart.
TEST_F(HistoryCompare, TellsTheSpanOfADifference) {
    MakeTables(2000);
    EXPECT_EQ(Run("history housekeep u --keep 100000 --max-file 9600").m_ExitCode, 0);
    std::string oldest;
    std::string newest;
    for (const std::string& name : m_Folder.List("u")) {
        if (!name.ends_with(".qvhis"))
            continue;
        oldest = oldest.empty() ? name : oldest;
        newest = name;
    }
    const auto lost = static_cast<long long>(m_Folder.Read("u/" + oldest).size() / 24);
    m_Folder.Remove("u/" + oldest);
    std::string content = m_Folder.Read("u/" + newest);
    content[20] ^= 1; // within the first record's value
    m_Folder.Write("u/" + newest, content);
    EXPECT_EQ(GetFindings(), (std::vector<std::vector<long long>>{{lost, 0, 0}, {0, 0, 1}}));
}

TEST_F(HistoryCompare, DistrustsRecordsThatNoSpanCovers) {
    MakeTables(20);
    std::string name;
    for (const std::string& entry : m_Folder.List("u"))
        name = entry.ends_with(".qvhis") ? entry : name;
    std::string content = m_Folder.Read("u/" + name);
    content[24 + 7] = 0x7f; // a time far away
    m_Folder.Write("u/" + name, content);
    Fails(1, "history compare t u", "'u' has 20 records in its files, of which 19 can be read");
}

TEST_F(HistoryCompare, NeedsTwoTables) {
    MakeTables(3);
    EXPECT_EQ(Run("history compare t").m_ExitCode, 2);
    EXPECT_EQ(Run("history compare t missing").m_ExitCode, 3);
    std::filesystem::create_directory(m_Folder.GetPath() + "/empty");
    EXPECT_EQ(Run("history compare t empty").m_ExitCode, 1);
}
