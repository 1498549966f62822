// qv history compare: whether two tables hold the same records.
//
// The tables' files may be cut differently, so both are looked at in the spans between all boundaries of
// either. A span whose records come in the same order on both sides is read once and needs no memory. Any
// other is read again and sorted; one that is too large for that is halved first.

#include "Help.h"
#include "History.h"
#include "HistoryFolder.h"
#include "Output.h"

#include <CLI/CLI.hpp>
#include <QVPlatform/Timestamp.h>
#include <algorithm>
#include <cstring>
#include <memory>
#include <set>

namespace {

// Of both tables' records in one span; a span with more is halved as long as its times can be told apart.
constexpr unsigned long long BytesSortedAtOnce = 128u << 20;

struct CompareOptions {
    std::string m_First;
    std::string m_Second;
    std::string m_Layout = SampleLayout::Standard;
};

struct Differences {
    unsigned long long m_Missing = 0;   // in the second table
    unsigned long long m_Extra = 0;     // in the second table
    unsigned long long m_Different = 0; // of the same time on both sides, but of other content

    bool Any() const { return m_Missing != 0 || m_Extra != 0 || m_Different != 0; }
    void Add(const Differences& other) {
        m_Missing += other.m_Missing;
        m_Extra += other.m_Extra;
        m_Different += other.m_Different;
    }
};

// The records of a table in a span, one at a time.
class SpanReader {
public:
    SpanReader(const CHistoricTable& table, const TimeRange& span) : m_Table(table) {
        m_bFound = m_Table.BeginRead(span.m_From, span.m_To, m_Context);
    }
    ~SpanReader() { m_Table.EndRead(m_Context); }
    SpanReader(const SpanReader&) = delete;
    SpanReader& operator=(const SpanReader&) = delete;

    // Null behind the last one.
    const unsigned char* GetRecord() const { return m_bFound ? m_Context.m_pRecord : nullptr; }
    void Next() {
        m_bFound = m_Table.NextRecord(m_Context);
        ++m_Count;
    }
    unsigned long long GetCount() const { return m_Count; }

private:
    const CHistoricTable& m_Table;
    CHistoricTable::ReadContext m_Context;
    bool m_bFound;
    unsigned long long m_Count = 0;
};

// The records of a table in a span, sorted by time, and by content where times are the same.
class SortedSpan {
public:
    SortedSpan(const CHistoricTable& table, const TimeRange& span) : m_RecordSize(table.GetRecordSize()) {
        for (SpanReader reader(table, span); reader.GetRecord() != nullptr; reader.Next())
            m_Bytes.insert(m_Bytes.end(), reader.GetRecord(), reader.GetRecord() + m_RecordSize);
        for (std::size_t offset = 0; offset < m_Bytes.size(); offset += m_RecordSize)
            m_Records.push_back(m_Bytes.data() + offset);
        std::sort(m_Records.begin(), m_Records.end(),
                  [this](const unsigned char* left, const unsigned char* right) {
                      return Compare(left, right, m_RecordSize) < 0;
                  });
    }

    const std::vector<const unsigned char*>& GetRecords() const { return m_Records; }

    static int Compare(const unsigned char* left, const unsigned char* right, unsigned int recordSize) {
        const long long leftTime = SampleLayout::GetTime(left);
        const long long rightTime = SampleLayout::GetTime(right);
        if (leftTime != rightTime)
            return leftTime < rightTime ? -1 : 1;
        return std::memcmp(left, right, recordSize);
    }

private:
    const unsigned int m_RecordSize;
    std::vector<unsigned char> m_Bytes;
    std::vector<const unsigned char*> m_Records;
};

// Pairs what is only in one table with what is only in the other, as long as their times are the same.
class UnmatchedRecords {
public:
    void AddFirst(const unsigned char* record) { ++At(record).m_First; }
    void AddSecond(const unsigned char* record) { ++At(record).m_Second; }

    Differences Take() {
        Settle();
        return m_Differences;
    }

private:
    struct Counts {
        unsigned long long m_First = 0;
        unsigned long long m_Second = 0;
    };

    // Records come in the order of their times.
    Counts& At(const unsigned char* record) {
        const long long time = SampleLayout::GetTime(record);
        if (time != m_Time)
            Settle();
        m_Time = time;
        return m_Counts;
    }

    void Settle() {
        const unsigned long long pairs = std::min(m_Counts.m_First, m_Counts.m_Second);
        m_Differences.Add({m_Counts.m_First - pairs, m_Counts.m_Second - pairs, pairs});
        m_Counts = {};
    }

    long long m_Time = 0;
    Counts m_Counts; // at m_Time
    Differences m_Differences;
};

Differences CompareSorted(const CHistoricTable& first, const CHistoricTable& second, const TimeRange& span) {
    const SortedSpan firstSpan(first, span);
    const SortedSpan secondSpan(second, span);
    auto left = firstSpan.GetRecords().begin();
    auto right = secondSpan.GetRecords().begin();
    const auto leftEnd = firstSpan.GetRecords().end();
    const auto rightEnd = secondSpan.GetRecords().end();
    UnmatchedRecords unmatched;
    while (left != leftEnd || right != rightEnd) {
        const int order = left == leftEnd     ? 1
                          : right == rightEnd ? -1
                                              : SortedSpan::Compare(*left, *right, first.GetRecordSize());
        if (order < 0)
            unmatched.AddFirst(*left++);
        else if (order > 0)
            unmatched.AddSecond(*right++);
        else
            ++left, ++right;
    }
    return unmatched.Take();
}

Differences CompareInPieces(const CHistoricTable& first, const CHistoricTable& second, const TimeRange& span,
                            unsigned long long bytes) {
    if (bytes <= BytesSortedAtOnce || span.m_From == span.m_To)
        return CompareSorted(first, second, span);
    const long long middle = span.m_From + (span.m_To - span.m_From) / 2;
    Differences differences = CompareInPieces(first, second, {span.m_From, middle}, bytes / 2);
    differences.Add(CompareInPieces(first, second, {middle + 1, span.m_To}, bytes / 2));
    return differences;
}

class Comparison {
public:
    Comparison(const CompareOptions& options, OutputFormat format)
        : m_Format(format), m_First({options.m_First, options.m_Layout}, HistoryFolder::Read),
          m_Second({options.m_Second, options.m_Layout}, HistoryFolder::Read),
          m_Writer(format, {{"from", Column::Text},
                            {"to", Column::Text},
                            {"records1", Column::Number},
                            {"records2", Column::Number},
                            {"missing", Column::Number},
                            {"extra", Column::Number},
                            {"different", Column::Number}}) {}

    ExitCode Run() {
        AddBoundaries(m_First);
        AddBoundaries(m_Second);
        for (auto from = m_Boundaries.begin(); from != m_Boundaries.end(); ++from) {
            const auto to = std::next(from);
            if (to != m_Boundaries.end())
                CompareSpan({*from, *to - 1});
        }
        if (m_Writer.GetRows() != 0 || m_Format != OutputFormat::Human)
            m_Writer.Finish();
        const bool bComplete =
            CheckComplete(m_First, m_FirstRecords) & CheckComplete(m_Second, m_SecondRecords);
        PrintSum();
        return bComplete && !m_Sum.Any() ? ExitDone : ExitFindings;
    }

private:
    void AddBoundaries(const HistoryFolder& folder) {
        std::vector<CHistoricTable::HistoricFile> files;
        folder.GetTable().GetFiles(files);
        for (const CHistoricTable::HistoricFile& file : files) {
            m_Boundaries.insert(file.m_Start);
            m_Boundaries.insert(file.GetEnd());
        }
    }

    void CompareSpan(const TimeRange& span) {
        SpanReader first(m_First.GetTable(), span);
        SpanReader second(m_Second.GetTable(), span);
        const unsigned int recordSize = m_First.GetLayout().GetRecordSize();
        bool bSame = true;
        while (first.GetRecord() != nullptr || second.GetRecord() != nullptr) {
            bSame = bSame && first.GetRecord() != nullptr && second.GetRecord() != nullptr &&
                    std::memcmp(first.GetRecord(), second.GetRecord(), recordSize) == 0;
            if (first.GetRecord() != nullptr)
                first.Next();
            if (second.GetRecord() != nullptr)
                second.Next();
        }
        m_FirstRecords += first.GetCount();
        m_SecondRecords += second.GetCount();
        if (bSame)
            return;
        const Differences differences = CompareInPieces(m_First.GetTable(), m_Second.GetTable(), span,
                                                        (first.GetCount() + second.GetCount()) * recordSize);
        m_Sum.Add(differences);
        if (differences.Any())
            PrintSpan(span, first.GetCount(), second.GetCount(), differences);
    }

    void PrintSpan(const TimeRange& span, unsigned long long first, unsigned long long second,
                   const Differences& differences) {
        m_Writer.AddTime(span.m_From);
        m_Writer.AddTime(span.m_To + 1);
        m_Writer.AddUnsigned(first);
        m_Writer.AddUnsigned(second);
        m_Writer.AddUnsigned(differences.m_Missing);
        m_Writer.AddUnsigned(differences.m_Extra);
        m_Writer.AddUnsigned(differences.m_Different);
        m_Writer.EndRow();
    }

    // Records outside the span of their file are seen in no span, and files may be unreadable.
    static bool CheckComplete(const HistoryFolder& folder, unsigned long long seen) {
        const unsigned long long records = folder.GetRecordCount();
        if (seen == records)
            return true;
        SayError(Quoted(folder.GetPath()) + " has " + CountText(records, "record") +
                 " in its files, of which " + WithSeparators(seen) +
                 " can be read by their times; 'qv history validate' tells more");
        return false;
    }

    void PrintSum() const {
        if (m_Format != OutputFormat::Human)
            return;
        std::string text = m_Sum.Any() ? "Different: " + WithSeparators(m_Sum.m_Missing) + " missing from " +
                                             Quoted(m_Second.GetPath()) + ", " +
                                             WithSeparators(m_Sum.m_Extra) + " extra there, " +
                                             WithSeparators(m_Sum.m_Different) + " with other content"
                                       : "Equal: " + CountText(m_FirstRecords, "record");
        WriteStandardOutput(text + "\n");
    }

    const OutputFormat m_Format;
    const HistoryFolder m_First;
    const HistoryFolder m_Second;
    TableWriter m_Writer;
    std::set<long long> m_Boundaries;
    unsigned long long m_FirstRecords = 0; // seen
    unsigned long long m_SecondRecords = 0;
    Differences m_Sum;
};

} // namespace

void AddHistoryCompareCommand(CLI::App& history, ToolContext& context) {
    CLI::App* const command = history.add_subcommand(
        "compare", "Compare the records of two tables that nobody changes; exit 1 when they differ");
    const auto options = std::make_shared<CompareOptions>();
    command->add_option("DIR1", options->m_First, "folder of the table that is right, the main's say")
        ->required();
    command->add_option("DIR2", options->m_Second, "folder of the table that is checked")->required();
    command->add_option("--layout", options->m_Layout, "fields of a record of both tables, as for read");
    SetExample(*command, "qv history compare plant copy");
    command->callback(
        [options, &context] { context.m_ExitCode = Comparison(*options, context.m_Format).Run(); });
}
