// The vocabulary of the historic table's tests: a table whose steps can be called, and short ways to say what is
// put in, what is in memory and what is on the disk.
//
//     TestTable table(folder.GetFilePath());
//     table.Put({{5, 1}, {2 * P, 2}});
//     EXPECT_EQ(table.Flush(), 2u);
//     EXPECT_EQ(table.Describe(), "0..2P=1 2P..3P=1");
//     EXPECT_THAT(table.TakeLog(), ElementsAre("! Write file '...' returns: No space left on device"));
#pragma once

#include <QVLib/HistoricTables/HistoricTable.h>
#include <QVPlatform/Timestamp.h>

#include "support/TemporaryFolder.h"

#include <algorithm>
#include <climits>
#include <compare>
#include <cstring>
#include <gmock/gmock.h>
#include <map>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

// A file's period, and a minute.
constexpr long long P = CHistoricTable::FilePeriod;
constexpr long long M = CQVTimeInterval::UnitsPerMinute;

// A record of a test: the number stands behind the time stamp as far as there is room, then comes a filling.
struct Record {
    long long time = 0;
    long long number = 0;

    auto operator<=>(const Record&) const = default;

    std::string Bytes(size_t size = 16) const {
        std::string bytes(std::max(size, sizeof *this), static_cast<char>(number));
        std::memcpy(bytes.data(), this, sizeof *this);
        bytes.resize(size);
        return bytes;
    }
    friend void PrintTo(const Record& record, std::ostream* out) {
        *out << record.time << '#' << record.number;
    }
};
using Records = std::vector<Record>;
using Numbers = std::vector<long long>;
using Lines = std::vector<std::string>;

// One record a minute.
inline Records Minutes(long long start, unsigned int count, long long firstNumber = 0) {
    Records records;
    for (unsigned int i = 0; i < count; i++)
        records.push_back({start + i * M, firstNumber + i});
    return records;
}

inline std::string BytesOf(const Records& records, size_t size = 16) {
    std::string bytes;
    for (const Record& record : records)
        bytes += record.Bytes(size);
    return bytes;
}

inline Numbers NumbersOf(const Records& records) {
    Numbers numbers;
    for (const Record& record : records)
        numbers.push_back(record.number);
    return numbers;
}

inline Records Sorted(Records records) {
    std::sort(records.begin(), records.end());
    return records;
}

inline Records Joined(Records records, const Records& more) {
    records.insert(records.end(), more.begin(), more.end());
    return Sorted(records);
}

inline std::string NameOf(long long start, long long end) {
    char name[CHistoricTable::FileNameBufferSize];
    CHistoricTable::HistoricFile{start, end - start, 0, 0, 0}.GetFileName(name);
    return name;
}

// The line that says that a file was split.
inline std::string SplitLine(long long start, long long split, long long end, int records) {
    return "Split " + NameOf(start, end) + " (" + std::to_string(records) + " records) -> " +
           NameOf(start, split) + " and " + NameOf(split, end);
}

// The whole records in a file's bytes.
inline Records RecordsIn(const std::string& bytes) {
    Records records(bytes.size() / sizeof(Record));
    bytes.copy(reinterpret_cast<char*>(records.data()), records.size() * sizeof(Record));
    return records;
}

inline Record RecordIn(const CHistoricTable::ReadContext& context) {
    return RecordsIn(std::string(reinterpret_cast<const char*>(context.m_pRecord), sizeof(Record)))[0];
}

// The whole records in a folder's files by name, read without a table.
inline std::map<std::string, Records> RecordsOnDisk(const TemporaryFolder& folder) {
    std::map<std::string, Records> files;
    for (const std::string& name : folder.List())
        if (name.ends_with(".qvhis"))
            files[name] = RecordsIn(folder.Read(name));
    return files;
}

// A log that can be made to throw at its n-th message from now on, once.
class TestLog : public COutputLogToRawList {
public:
    bool AppendMessage(LogType type, int number, const char* text, unsigned int length) override {
        if (m_ThrowAt != 0 && --m_ThrowAt == 0)
            throw std::runtime_error("log");
        return COutputLogToRawList::AppendMessage(type, number, text, length);
    }

    unsigned int m_ThrowAt = 0;
};

// What a table needs to live, made before it.
struct TestTableSurroundings {
    HistoricTableErrorSummary m_Errors;
    TestLog m_Log;
};

class TestTable : public TestTableSurroundings, public CHistoricTable {
public:
    explicit TestTable(const CQVFilePath& path,
                       QVFileSystemInterface* fileSystem = QVFileSystem::GetUnsyncedInstance(),
                       unsigned int recordSize = 16, bool bLooksOn = false)
        : CHistoricTable(fileSystem, recordSize, &m_Errors) {
        bLooksOn ? InitialiseForReading(path) : InitialiseFromPath(path);
    }

    using CHistoricTable::m_DeletedFiles;
    using CHistoricTable::m_Files;
    using CHistoricTable::m_SplitCommands;
    using CHistoricTable::m_TransferState;

    void Put(const Records& records) {
        for (const Record& record : records)
            WriteNewRecord(record.time, record.Bytes(GetRecordSize()).data());
    }
    unsigned int Flush() { return FlushRecords(&m_Log); }
    unsigned int Flush(const Records& records) {
        Put(records);
        return Flush();
    }
    int Trim(unsigned int target) { return TrimFilesToGetTargetNumberOfRecords(&m_Log, target); }
    bool SplitLargest(unsigned int maxRecords) { return SplitLargestFile(&m_Log, maxRecords); }
    // Splits the file of that index behind so many of its records.
    bool Split(int index, unsigned int records) {
        LockWrite();
        const bool bSplit = SplitFile(&m_Log, File(index), records);
        UnLockWrite();
        return bSplit;
    }
    bool Validate() { return ValidateFiles(m_Log); }

    // The file with that index, oldest first.
    FileMap::iterator File(int index) { return std::next(m_Files.begin(), index); }

    Records Read(long long from = LLONG_MIN, long long to = LLONG_MAX) const {
        ReadContext context;
        return ReadOn(context, BeginRead(from, to, context));
    }
    // The rest of a read whose begin gave `found`.
    Records ReadOn(ReadContext& context, bool found) const {
        Records records;
        for (; found; found = NextRecord(context)) {
            Record record;
            std::memcpy(&record, context.m_pRecord, std::min<size_t>(sizeof record, GetRecordSize()));
            records.push_back(record);
        }
        EndRead(context);
        return records;
    }

    // The map: "0..2P=3 2P+5m..3P=1" are a file of two periods with three records and one with one.
    std::string Describe() const {
        std::string text;
        for (const auto& [end, file] : m_Files)
            text += (text.empty() ? "" : " ") + Span(file.m_Start) + ".." + Span(end) + "=" +
                    std::to_string(file.m_NumRecords);
        return text;
    }

    // The lines logged since the last call; errors start with "! ". The table's folder is left out.
    Lines TakeLog() {
        Lines lines;
        for (const auto& entry : m_Log.GetLogEntries()) {
            std::string line = (entry.type == COutputLog::Error ? "! " : "") + entry.text;
            const std::string folder = m_Path.GetPath() + "/";
            for (size_t at; (at = line.find(folder)) != std::string::npos;)
                line.erase(at, folder.size());
            lines.push_back(line);
        }
        m_Log.Clear();
        return lines;
    }

    // What the error summary says.
    std::string Errors() const {
        CTextOutputString out;
        m_Errors.GetHistoricTableErrorSummary(out);
        return out.GetString();
    }

private:
    static std::string Span(long long time) {
        const long long periods = time / P;
        const long long minutes = time % P / M;
        std::string text = periods == 0 ? "" : std::to_string(periods) + "P";
        if (minutes != 0)
            text += (text.empty() || minutes < 0 ? "" : "+") + std::to_string(minutes) + "m";
        return text.empty() ? "0" : text;
    }
};

// A table in a folder of its own, and the files that are there before it: their spans and records.
class FolderTable {
public:
    using Files = std::vector<std::pair<std::pair<long long, long long>, Records>>;

    FolderTable(const Files& files = {},
                QVFileSystemInterface* fileSystem = QVFileSystem::GetUnsyncedInstance(),
                unsigned int recordSize = 16)
        : folder(TemporaryFolder::InMemory()), m_pFileSystem(fileSystem), m_RecordSize(recordSize) {
        for (const auto& [span, records] : files)
            folder.Write(NameOf(span.first, span.second), BytesOf(records));
        Restart();
    }
    TestTable& operator*() const { return *m_pTable; }
    TestTable* operator->() const { return m_pTable.get(); }
    // Makes a new table of the folder.
    void Restart() {
        m_pTable.reset();
        m_pTable = std::make_unique<TestTable>(folder.GetFilePath(), m_pFileSystem, m_RecordSize);
    }

    const TemporaryFolder folder;

private:
    QVFileSystemInterface* const m_pFileSystem;
    const unsigned int m_RecordSize;
    std::unique_ptr<TestTable> m_pTable;
};
