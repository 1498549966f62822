// Reading records back. Nothing here locks: see the header.
#include "HistoricFileName.h"
#include <QVLib/HistoricTables/HistoricTable.h>
#include <algorithm>
#include <climits>

namespace {

// Moves a freshly opened file past `bytes` bytes, in steps that the file object's 32 bits can hold.
bool SkipBytesFromStart(QVFileInterface& file, unsigned long long bytes) {
    while (bytes > 0) {
        const unsigned int step = static_cast<unsigned int>(std::min<unsigned long long>(bytes, UINT_MAX));
        if (!file.SkipForward(step))
            return false;
        bytes -= step;
    }
    return true;
}

} // namespace

CHistoricTable::ReadContext::ReadContext()
    : m_From(0), m_To(LLONG_MAX), m_State(ReadStateNone), m_RecordIndex(0), m_pFile(nullptr), m_RecordSize(0),
      m_pBuffer(nullptr), m_pRecord(nullptr), m_NumFilesOpened(0), m_NumRecordsRead(0),
      m_pFileSystem(nullptr), m_bHasMore(false) {}

CHistoricTable::ReadContext::~ReadContext() {
    delete m_pFile;
    delete[] m_pBuffer;
}

void CHistoricTable::ReadContext::InitReadContext(QVFileSystemInterface* fileSystem, long long from,
                                                  long long to, unsigned int recordSize,
                                                  ReadContextState state) {
    CloseFile();
    m_bHasMore = false;
    if (m_pFileSystem != fileSystem) {
        delete m_pFile;
        m_pFile = nullptr;
        m_pFileSystem = fileSystem;
    }
    if (!m_pFile)
        m_pFile = fileSystem->CreateFileObject();
    m_From = from;
    m_To = to;
    m_State = state;
    if (recordSize != m_RecordSize) {
        delete[] m_pBuffer;
        m_pRecord = m_pBuffer = nullptr;
        m_RecordSize = 0;
        m_pRecord = m_pBuffer = new unsigned char[recordSize];
        m_RecordSize = recordSize;
    }
    m_NumFilesOpened = 0;
    m_NumRecordsRead = 0;
}

void CHistoricTable::ReadContext::CloseFile() {
    if (m_pFile)
        m_pFile->CloseFile();
}

// Finds the first record of the range from m_FileIterator's file onward.
bool CHistoricTable::ReadContext::HistoricFileNextRecord(const CQVFilePath& directory, const FileMap& files) {
    for (; m_FileIterator != files.end(); ++m_FileIterator) {
        const HistoricFile& file = m_FileIterator->second;
        if (!file.OverlapsSearchRange(m_From, m_To))
            continue;
        ++m_NumFilesOpened;
        CQVFilePath path;
        file.GetFilePath(directory, path);
        if (!m_pFile->OpenFileForRead(path, false))
            continue;
        m_RecordIndex = 0;
        if (HistoricFileReadNextRecord())
            return true;
        CloseFile();
    }
    return false;
}

// Finds the next record of the range in the open file. Records that lie in the file object's buffer are
// tested there, and only those of the range are copied.
bool CHistoricTable::ReadContext::HistoricFileReadNextRecord() {
    for (;; ++m_RecordIndex) {
        if (m_pFile->BufferedBytes() >= m_RecordSize) {
            const unsigned char* const record = m_pFile->PeekBuffered();
            const long long timestamp = qv_record_timestamp(record);
            m_pFile->SkipBuffered(m_RecordSize);
            ++m_NumRecordsRead;
            if (timestamp >= m_From && timestamp <= m_To) {
                qv_copy_record(m_pBuffer, record, m_RecordSize);
                return true;
            }
        } else {
            unsigned int got = 0;
            if (!m_pFile->ReadBytes(m_pBuffer, m_RecordSize, got) || got < m_RecordSize)
                return false;
            ++m_NumRecordsRead;
            const long long timestamp = qv_record_timestamp(m_pBuffer);
            if (timestamp >= m_From && timestamp <= m_To)
                return true;
        }
    }
}

bool CHistoricTable::BeginRead(long long from, long long to, ReadContext& ctx) const {
    ctx.InitReadContext(m_pFileSystem, from, to, m_RecordSize, ReadStateRange);
    // No file that ends before the range can overlap it.
    ctx.m_FileIterator = m_Files.lower_bound(from);
    ctx.m_RecordIndex = 0;
    return ctx.m_bHasMore = ctx.HistoricFileNextRecord(m_Path, m_Files);
}

bool CHistoricTable::BeginReadFLowerBound(long long time, ReadContext& ctx) const {
    ctx.InitReadContext(m_pFileSystem, 0, time, m_RecordSize, ReadStateRange);
    ctx.m_FileIterator = m_Files.upper_bound(time);
    if (ctx.m_FileIterator != m_Files.begin())
        --ctx.m_FileIterator;
    ctx.m_RecordIndex = 0;
    return ctx.m_bHasMore = ctx.HistoricFileNextRecord(m_Path, m_Files);
}

bool CHistoricTable::BeginReadFile(const char* fileName, unsigned int fileNameLength,
                                   ReadContext& ctx) const {
    ctx.InitReadContext(m_pFileSystem, 0, LLONG_MAX, m_RecordSize, ReadStateFile);
    CQVTimestamp start;
    CQVTimestamp end;
    if (!qv_parse_historic_file_name(fileName, fileNameLength, start, end))
        return false;
    ctx.m_FileIterator = m_Files.find(end.GetValue());
    if (ctx.m_FileIterator == m_Files.end())
        return false;
    ctx.m_RecordIndex = 0;
    return ctx.m_bHasMore = ctx.HistoricFileNextRecord(m_Path, m_Files);
}

bool CHistoricTable::BeginReadRecord(const char* fileName, unsigned int fileNameLength,
                                     unsigned int recordIndex, ReadContext& ctx) const {
    ctx.InitReadContext(m_pFileSystem, 0, LLONG_MAX, m_RecordSize, ReadStateRecord);
    CQVTimestamp start;
    CQVTimestamp end;
    if (!qv_parse_historic_file_name(fileName, fileNameLength, start, end))
        return false;
    ctx.m_FileIterator = m_Files.find(end.GetValue());
    if (ctx.m_FileIterator == m_Files.end())
        return false;
    ctx.m_RecordIndex = recordIndex;
    const HistoricFile& file = ctx.m_FileIterator->second;
    if (recordIndex >= file.m_NumRecords)
        return false;
    CQVFilePath path;
    file.GetFilePath(m_Path, path);
    return ctx.m_pFile->OpenFileForRead(path, false) &&
           SkipBytesFromStart(*ctx.m_pFile, static_cast<unsigned long long>(recordIndex) * m_RecordSize) &&
           ctx.HistoricFileReadNextRecord();
}

bool CHistoricTable::NextRecordBeyondBuffer(ReadContext& ctx) const {
    if (!ctx.m_bHasMore)
        return false;
    ++ctx.m_RecordIndex;
    if (ctx.HistoricFileReadNextRecord())
        return true;
    ctx.CloseFile();
    if (ctx.m_State == ReadStateRange) {
        ++ctx.m_FileIterator;
        return ctx.m_bHasMore = ctx.HistoricFileNextRecord(m_Path, m_Files);
    }
    return ctx.m_bHasMore = false;
}

void CHistoricTable::EndRead(ReadContext& ctx) const {
    ctx.CloseFile();
    ctx.m_bHasMore = false;
}
