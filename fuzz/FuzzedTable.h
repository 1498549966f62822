// A historic table as the fuzzers attack it: three files of a few records, the same for every input.
#pragma once

#include <QVLib/HistoricTables/HistoricTable.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/FindFiles.h>
#include <QVPlatform/Timestamp.h>

#include "support/TemporaryFolder.h"

struct FuzzedRecord {
    long long time = 0;
    long long number = 0;
};

class FuzzedTable {
public:
    static constexpr long long Period = CHistoricTable::FilePeriod;

    FuzzedTable() : m_Table(QVFileSystem::GetUnsyncedInstance(), sizeof(FuzzedRecord), &m_Errors) {
        GetFolder().Empty();
        for (unsigned int i = 0; i < 3; i++) {
            const CHistoricTable::HistoricFile file{i * Period, Period, 0, 0, 0};
            std::string records;
            for (unsigned int j = 0; j < 3 + i; j++) {
                const FuzzedRecord record{i * Period + j * CQVTimeInterval::UnitsPerMinute, j};
                records.append(reinterpret_cast<const char*>(&record), sizeof record);
            }
            char name[CHistoricTable::FileNameBufferSize];
            file.GetFileName(name);
            GetFolder().Write(name, records);
        }
        m_Table.InitialiseFromPath(GetFolder().GetFilePath());
    }
    CHistoricTable* operator->() { return &m_Table; }

    // Whatever was done: the table still takes a record, and its counts are those of its files.
    void Check() {
        const FuzzedRecord record{100 * Period, 1};
        m_Table.WriteNewRecord(record.time, &record);
        QV_ASSERT(m_Table.FlushRecords(&m_Log) == 1);
        std::vector<CHistoricTable::HistoricFile> files;
        m_Table.GetFiles(files);
        for (const CHistoricTable::HistoricFile& file : files) {
            QV_ASSERT(file.m_NumRecordsTransferred <= file.m_NumRecords);
            QV_ASSERT(file.m_NumRecordsSent <= file.m_NumRecords - file.m_NumRecordsTransferred);
            CQVFilePath path;
            file.GetFilePath(GetFolder().GetFilePath(), path);
            QVFileUnix object;
            QV_ASSERT(object.OpenFileForRead(path, false));
            QV_ASSERT(object.GetFileSize() ==
                      static_cast<long long>(file.m_NumRecords * sizeof(FuzzedRecord)));
        }
        size_t onDisk = 0;
        CQVFindFiles find;
        for (bool found = find.FirstFile(GetFolder().GetPath() + "/*"); found; found = find.NextFile())
            onDisk++;
        QV_ASSERT(onDisk == files.size());
    }

    COutputLogNull m_Log;

private:
    static const TemporaryFolder& GetFolder() {
        static const TemporaryFolder folder = TemporaryFolder::InMemory();
        return folder;
    }

    HistoricTableErrorSummary m_Errors;
    CHistoricTable m_Table;
};
