// HistoricRecordList - the records that wait to be written to a historic table's files.
//
// Model:    an append-only list of fixed-size records, each with the time stamp under which it is filed.
//           Records lie back to back in large blocks, so appending one is a copy, and a file takes a whole
//           block with one system call. A list may be handed blocks that another has emptied; then it
//           allocates nothing.
// Owns:     its blocks; they are released with the list.
// Threads:  one thread at a time. A historic table guards its own with its cache lock.
#pragma once

#include <cstddef>
#include <cstring>
#include <utility>

// Copies one record. The usual sizes are copied inline; both areas must not overlap.
inline void qv_copy_record(void* target, const void* source, unsigned int size) {
    switch (size) {
    case 16:
        std::memcpy(target, source, 16);
        break;
    case 24:
        std::memcpy(target, source, 24);
        break;
    case 32:
        std::memcpy(target, source, 32);
        break;
    case 64:
        std::memcpy(target, source, 64);
        break;
    default:
        std::memcpy(target, source, size);
    }
}

// The time stamp in a record's first 8 bytes.
inline long long qv_record_timestamp(const void* record) {
    long long timestamp;
    std::memcpy(&timestamp, record, sizeof timestamp);
    return timestamp;
}

class HistoricRecordList {
public:
    // One block: room for `capacity` records and their time stamps.
    struct Block {
        Block* next;
        unsigned int capacity;
        unsigned int count;
        long long* timestamps;
        unsigned char* data;
    };

    explicit HistoricRecordList(unsigned int recordSize) : m_RecordSize(recordSize) {}
    HistoricRecordList(HistoricRecordList&& other) noexcept : m_RecordSize(other.m_RecordSize) {
        Swap(other);
    }
    HistoricRecordList& operator=(HistoricRecordList&&) = delete;
    ~HistoricRecordList() { Clear(); }

    // Appends a copy of a record; false, and nothing done, when the last block is full or there is none. Then
    // AddBlock() makes room.
    bool TryAppend(long long timestamp, const void* record) {
        Block* const block = m_pLast;
        if (!block || block->count == block->capacity)
            return false;
        block->timestamps[block->count] = timestamp;
        qv_copy_record(block->data + static_cast<std::size_t>(block->count) * m_RecordSize, record,
                       m_RecordSize);
        ++block->count;
        ++m_Size;
        return true;
    }

    // Appends an empty block; the list owns it from then on.
    void AddBlock(Block* block);

    // Room for records that the caller fills itself: the address of the next record, and how many fit behind
    // one another there (at least one; a block is allocated when needed).
    unsigned char* ReserveSpace(unsigned int& records);
    // Makes the first `records` records of the reserved space part of the list, filed under the time stamps
    // in their own first 8 bytes.
    void CommitSpace(unsigned int records);

    std::size_t GetSize() const { return m_Size; }
    bool IsEmpty() const { return m_Size == 0; }
    unsigned int GetRecordSize() const { return m_RecordSize; }
    // The blocks in order of arrival; null when there are none.
    const Block* GetFirstBlock() const { return m_pFirst; }

    // Forgets the records and releases the blocks.
    void Clear();
    void Swap(HistoricRecordList& other) noexcept {
        std::swap(m_pFirst, other.m_pFirst);
        std::swap(m_pLast, other.m_pLast);
        std::swap(m_Size, other.m_Size);
    }
    // Takes the first block out of the list, emptied, for use in another list of the same record size; null
    // when there is none. The records in it are forgotten, so empty a list this way from front to end.
    Block* TakeBlock();

    // The number of records that the block to be allocated next should hold: small at first, then about 64
    // KiB.
    unsigned int GetNextBlockCapacity() const { return NextCapacity(m_RecordSize, m_Size); }
    static unsigned int NextCapacity(unsigned int recordSize, std::size_t recordsHeld);
    static Block* AllocateBlock(unsigned int recordSize, unsigned int capacity);
    static void FreeBlock(Block* block);

private:
    const unsigned int m_RecordSize;
    Block* m_pFirst = nullptr;
    Block* m_pLast = nullptr;
    std::size_t m_Size = 0;
};
