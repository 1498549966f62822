#include <QVLib/HistoricTables/RecordList.h>
#include <algorithm>
#include <cstdint>
#include <new>

namespace {

constexpr std::size_t kSmallBlock = 4 * 1024;
constexpr std::size_t kLargeBlock = 64 * 1024;

} // namespace

void HistoricRecordList::AddBlock(Block* block) {
    block->next = nullptr;
    block->count = 0;
    (m_pLast ? m_pLast->next : m_pFirst) = block;
    m_pLast = block;
}

unsigned char* HistoricRecordList::ReserveSpace(unsigned int& records) {
    if (!m_pLast || m_pLast->count == m_pLast->capacity)
        AddBlock(AllocateBlock(m_RecordSize, GetNextBlockCapacity()));
    records = m_pLast->capacity - m_pLast->count;
    return m_pLast->data + static_cast<std::size_t>(m_pLast->count) * m_RecordSize;
}

void HistoricRecordList::CommitSpace(unsigned int records) {
    Block& block = *m_pLast;
    const unsigned char* record = block.data + static_cast<std::size_t>(block.count) * m_RecordSize;
    for (unsigned int i = 0; i < records; ++i, record += m_RecordSize)
        block.timestamps[block.count + i] = qv_record_timestamp(record);
    block.count += records;
    m_Size += records;
}

void HistoricRecordList::Clear() {
    while (m_pFirst)
        FreeBlock(std::exchange(m_pFirst, m_pFirst->next));
    m_pLast = nullptr;
    m_Size = 0;
}

HistoricRecordList::Block* HistoricRecordList::TakeBlock() {
    Block* const block = m_pFirst;
    if (!block)
        return nullptr;
    m_pFirst = block->next;
    if (!m_pFirst)
        m_pLast = nullptr;
    m_Size -= block->count;
    block->next = nullptr;
    block->count = 0;
    return block;
}

unsigned int HistoricRecordList::NextCapacity(unsigned int recordSize, std::size_t recordsHeld) {
    const std::size_t bytes = std::clamp(recordsHeld * recordSize, kSmallBlock, kLargeBlock);
    return static_cast<unsigned int>(std::max<std::size_t>(bytes / recordSize, 1));
}

HistoricRecordList::Block* HistoricRecordList::AllocateBlock(unsigned int recordSize, unsigned int capacity) {
    const std::size_t timestamps = capacity * sizeof(long long);
    void* const memory =
        ::operator new(sizeof(Block) + timestamps + static_cast<std::size_t>(capacity) * recordSize);
    unsigned char* const behind = static_cast<unsigned char*>(memory) + sizeof(Block);
    static_assert(sizeof(Block) % alignof(long long) == 0);
    return new (memory)
        Block{nullptr, capacity, 0, reinterpret_cast<long long*>(behind), behind + timestamps};
}

void HistoricRecordList::FreeBlock(Block* block) {
    ::operator delete(block);
}
