// The vocabulary of the replication's tests: messages made by hand, and exchanges between two tables.
//
//     const Bytes request = Request(main);             // the next one; empty when none is due
//     const Bytes reply = Apply(standby, request);     // empty when it was refused
//     EXPECT_TRUE(Answer(main, reply));
//     Drain(main, standby);                            // all of it, until nothing is due
#pragma once

#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>

#include "TestTable.h"

using Bytes = std::string;

constexpr unsigned short kChannel = 0xabcd;

// A message in the making. Numbers are written byte by byte, so that nothing of the library is taken for granted.
struct Message {
    Bytes bytes;

    Message& U8(unsigned int value) { return Number(value, 1); }
    Message& U32(unsigned int value) { return Number(value, 4); }
    Message& I64(long long value) { return Number(static_cast<unsigned long long>(value), 8); }
    Message& Block(long long start, long long end, const Records& records, size_t size = 16) {
        I64(start).I64(end).U32(static_cast<unsigned int>(records.size()));
        bytes += BytesOf(records, size);
        return *this;
    }
    const Bytes& End() { return I64(LLONG_MIN).bytes; }

private:
    Message& Number(unsigned long long value, int count) {
        for (int i = 0; i < count; i++)
            bytes += static_cast<char>((value >> (8 * i)) & 0xff);
        return *this;
    }
};

struct Split {
    long long start, split, end;
};

// An update up to its record size; blocks and End() follow.
inline Message Update(const std::vector<long long>& deleted = {}, const std::vector<Split>& splits = {},
                      unsigned int recordSize = 16) {
    Message message;
    message.U8(2).U32(static_cast<unsigned int>(deleted.size()));
    for (const long long end : deleted)
        message.I64(end);
    message.U32(static_cast<unsigned int>(splits.size()));
    for (const Split& split : splits)
        message.I64(split.start).I64(split.split).I64(split.end);
    return message.U32(recordSize);
}

struct ListedFile {
    long long start, end;
    unsigned int records;
};

inline Bytes QueryReply(const std::vector<ListedFile>& files) {
    Message message;
    message.U8(1).U32(static_cast<unsigned int>(files.size()));
    for (const ListedFile& file : files)
        message.I64(file.start).I64(file.end).U32(file.records);
    return message.bytes;
}

const Bytes kQuery = "\x01";
const Bytes kUpdateReply = "\x02";

class Input : public BinaryInputFromReadOnlyData {
public:
    explicit Input(const Bytes& bytes)
        : BinaryInputFromReadOnlyData(BinaryStringLengthUTF8Character,
                                      reinterpret_cast<const unsigned char*>(bytes.data()),
                                      static_cast<unsigned int>(bytes.size())) {}
};

inline Bytes BytesOf(const BinaryOutputBuffer& buffer) {
    const std::unique_ptr<unsigned char[]> copy(buffer.ToByteArray());
    return Bytes(reinterpret_cast<const char*>(copy.get()), buffer.GetTotalDataSize());
}

inline Bytes Request(TestTable& main) {
    BinaryOutputBuffer out(BinaryStringLengthUTF8Character);
    const bool bDue = main.MainHasDataToTransfer();
    EXPECT_EQ(main.MainGetNextStandbyRequest(kChannel, out), bDue);
    EXPECT_EQ(out.GetTotalDataSize() != 0, bDue);
    return BytesOf(out);
}

inline Bytes Apply(TestTable& standby, const Bytes& request, unsigned int* pAdded = nullptr) {
    Input in(request);
    BinaryOutputBuffer out(BinaryStringLengthUTF8Character);
    unsigned int added = 77;
    const bool bApplied = standby.StandbyProcessRequest(&standby.m_Log, kChannel, in, out, added);
    EXPECT_EQ(out.GetTotalDataSize() != 0, bApplied) << "a reply tells that the request was applied";
    EXPECT_TRUE(bApplied || added == 0);
    EXPECT_TRUE(!bApplied || in.IsEOF());
    if (pAdded)
        *pAdded = added;
    return BytesOf(out);
}

inline bool Answer(TestTable& main, const Bytes& reply) {
    Input in(reply);
    const bool bApplied = main.MainProcessStandbyReply(&main.m_Log, kChannel, in);
    EXPECT_TRUE(!bApplied || in.IsEOF());
    return bApplied;
}

// One request and its reply; returns the request.
inline Bytes Exchange(TestTable& main, TestTable& standby) {
    const Bytes request = Request(main);
    EXPECT_TRUE(Answer(main, Apply(standby, request)));
    return request;
}

// Exchanges until nothing is due; returns how many.
inline int Drain(TestTable& main, TestTable& standby) {
    int exchanges = 0;
    for (; main.MainHasDataToTransfer() && !testing::Test::HasFailure(); exchanges++) {
        Exchange(main, standby);
        EXPECT_LT(exchanges, 1000);
    }
    return exchanges;
}

using Counts = std::vector<std::pair<std::string, size_t>>;

// The files with their numbers of records, as the map has them ...
inline Counts CountsInMap(const TestTable& table) {
    Counts counts;
    for (const auto& [end, file] : table.m_Files)
        counts.emplace_back(NameOf(file.m_Start, end), file.m_NumRecords);
    std::sort(counts.begin(), counts.end());
    return counts;
}

// ... and as the folder has them.
inline Counts CountsOnDisk(const TemporaryFolder& folder) {
    Counts counts;
    for (const auto& [name, records] : RecordsOnDisk(folder))
        counts.emplace_back(name, records.size());
    return counts;
}

// One side of the replication.
using Side = FolderTable;
