#include "Store.h"

#include <QVPlatform/FindFiles.h>
#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace {

// However the reading ends: a lock that stays would stop the recording.
class ReadLock {
public:
    explicit ReadLock(const CHistoricTable& table) : m_Table(table) { m_Table.LockRead(); }
    ~ReadLock() { m_Table.UnLockRead(); }
    ReadLock(const ReadLock&) = delete;
    ReadLock& operator=(const ReadLock&) = delete;

private:
    const CHistoricTable& m_Table;
};

} // namespace

Store::Store(const CQVFilePath& folder) : m_Table(QVFileSystem::GetInstance(), sizeof(Sample), &m_Errors) {
    CQVFilePath path = folder;
    if (!path.MakeDirectory())
        throw std::runtime_error("the folder '" + folder.GetPath() + "' cannot be made");
    path.AppendFileName(".qv-lock");
    if (!m_Lock.TryLock(path))
        throw std::runtime_error(m_Lock.IsHeldElsewhere() ? "'" + folder.GetPath() + "' is another process's"
                                                          : "'" + path.GetPath() + "' cannot be locked");
    m_Table.InitialiseFromPath(folder);
    // The table would make do with what it can see. A main would begin anew then, and take from its standby what it
    // does not see itself.
    CQVFindFiles files;
    for (bool bMore = files.FirstFile(folder.GetPath() + "/*.qvhis"); bMore; bMore = files.NextFile()) {
    }
    if (files.GetLastError() != 0)
        throw std::runtime_error("the folder '" + folder.GetPath() + "' cannot be read");
}

qvstring Store::GetErrorText() const {
    CTextOutputString text;
    m_Errors.GetHistoricTableErrorSummary(text);
    return text.GetCStr();
}

bool Store::ReadLast(Sample& sample) {
    std::vector<CHistoricTable::HistoricFile> files;
    m_Table.GetFiles(files);
    const auto file =
        std::find_if(files.rbegin(), files.rend(), [](const auto& f) { return f.m_NumRecords > 0; });
    if (file == files.rend())
        return false;
    char name[CHistoricTable::FileNameBufferSize];
    const auto length = static_cast<unsigned int>(file->GetFileName(name));
    CHistoricTable::ReadContext context;
    if (!m_Table.BeginReadRecord(name, length, file->m_NumRecords - 1, context))
        throw std::runtime_error(qvstring("the last sample cannot be read from '") + name + "'");
    std::memcpy(&sample, context.m_pRecord, sizeof sample);
    m_Table.EndRead(context);
    return true;
}

bool Store::Reader::Read(std::size_t maxSamples, std::vector<Sample>& samples) {
    const ReadLock lock(m_Store.m_Table);
    const unsigned int changes = m_Store.m_Changes;
    const bool bGoOn = m_bBegun && changes == m_Changes && changes % 2 == 0;
    if (!bGoOn)
        m_Store.m_Table.EndRead(m_Context);
    bool bMore =
        bGoOn ? m_Store.m_Table.NextRecord(m_Context) : m_Store.m_Table.BeginRead(m_From, m_To, m_Context);
    m_bBegun = true;
    m_Changes = changes;
    Sample sample;
    for (std::size_t count = 0; bMore; bMore = m_Store.m_Table.NextRecord(m_Context)) {
        std::memcpy(&sample, m_Context.m_pRecord, sizeof sample);
        samples.push_back(sample);
        m_From = sample.m_Time + 1;
        if (++count == maxSamples)
            break;
    }
    return bMore;
}

bool Store::TryBeginExchange() {
    const std::lock_guard lock(m_TurnMutex);
    if (m_bHouseKeeping || m_bExchange)
        return false;
    m_bExchange = true;
    return true;
}

void Store::EndExchange() {
    const std::lock_guard lock(m_TurnMutex);
    m_bExchange = false;
}

bool Store::TryBeginHouseKeeping() {
    const std::lock_guard lock(m_TurnMutex);
    m_bHouseKeeping = true;
    return !m_bExchange;
}

void Store::EndHouseKeeping() {
    const std::lock_guard lock(m_TurnMutex);
    m_bHouseKeeping = false;
}
