// Messages that a broken or hostile peer sends: whatever comes in, the table's counts are those of its files,
// nothing stays locked, and no number in a message costs memory.
#include "ReplicationTools.h"

#include <atomic>
#include <cstdlib>
#include <gmock/gmock.h>
#include <new>

using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

// What this program has asked of the heap, freed or not.
std::atomic<size_t> g_HeapBytes;
std::atomic<size_t> g_HeapAllocations;

} // namespace

// The program's own, also for the library under test. Out of line, or the compiler sees free() behind new.
[[gnu::noinline]] void* operator new(size_t size) {
    g_HeapBytes += size;
    ++g_HeapAllocations;
    if (void* const memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}

namespace {

// A standby with three files, and an update for it that has everything an update can have.
struct Victim {
    Side side{{{{0, P}, Minutes(0, 3)}, {{P, 2 * P}, Minutes(P, 4)}, {{2 * P, 3 * P}, Minutes(2 * P, 2)}}};
    const Bytes update = Update({P}, {{P, P + 2 * M, 2 * P}})
                             .Block(2 * P, 3 * P, Minutes(2 * P + 5 * M, 2))
                             .Block(3 * P, 4 * P, Minutes(3 * P, 3))
                             .End();
};

// Gives a request to a standby and checks everything that holds whatever the request is.
void CheckRequest(const Side& standby, const Bytes& request) {
    const Bytes reply = Apply(*standby, request);
    const Lines log = standby->TakeLog();
    if (reply.empty()) {
        EXPECT_THAT(log.back(),
                    AnyOf(StartsWith("! HistoricTable standby update exception: "),
                          StartsWith("! HistoricTable standby update received the invalid request type ")));
    } else {
        Input in(request);
        EXPECT_NO_THROW(standby->StandbySkipRequest(kChannel, in));
        EXPECT_TRUE(in.IsEOF());
    }
    EXPECT_EQ(CountsInMap(*standby), CountsOnDisk(standby.folder));
    EXPECT_EQ(standby->Flush({{40 * P, 1}}), 1u) << "and nothing is left locked";
}

// The bytes with one of them replaced: each of its bits, and the values most likely to matter.
template<class Check>
void ForEveryFlip(const Bytes& bytes, Check check) {
    for (size_t at = 0; at < bytes.size(); at++) {
        std::vector<char> values = {'\x00', '\xff', static_cast<char>(bytes[at] + 1)};
        for (int bit = 0; bit < 8; bit++)
            values.push_back(static_cast<char>(bytes[at] ^ (1 << bit)));
        for (const char value : values) {
            SCOPED_TRACE("byte " + std::to_string(at) + " is " + std::to_string(value));
            Bytes flipped = bytes;
            flipped[at] = value;
            check(flipped);
        }
    }
}

} // namespace

TEST(ReplicationHostile, RequestsCutAtEveryByte) {
    const Bytes update = Victim().update;
    for (size_t size = 0; size <= update.size(); size++) {
        SCOPED_TRACE(size);
        const Victim victim;
        CheckRequest(victim.side, update.substr(0, size));
        const bool bDeleted = size >= 1 + 4 + 8;
        const bool bSplit = size >= 1 + 4 + 8 + 4 + 24;
        EXPECT_EQ(victim.side->Describe(), std::string(bDeleted ? "" : "0..1P=3 ") +
                                               (bSplit ? "1P..1P+2m=2 1P+2m..2P=2" : "1P..2P=4") +
                                               (size == update.size() ? " 2P..3P=4 3P..4P=3" : " 2P..3P=2") +
                                               " 40P..41P=1");
    }
}

TEST(ReplicationHostile, RequestsWithEveryByteFlipped) {
    ForEveryFlip(Victim().update, [](const Bytes& request) {
        const Victim victim;
        CheckRequest(victim.side, request);
    });
}

TEST(ReplicationHostile, RequestsOfOddSpans) {
    const Bytes requests[] = {
        // Overlapping, nested and crossing spans, and one that takes its name from its neighbour.
        Update()
            .Block(5 * P, 9 * P, Minutes(5 * P, 3))
            .Block(6 * P, 7 * P, Minutes(6 * P, 3))
            .Block(4 * P, 8 * P, Minutes(4 * P, 3))
            .End(),
        Update().Block(5 * P, 5 * P + 1, {{5 * P, 1}}).Block(5 * P, 5 * P + 2, {{5 * P + 1, 2}}).End(),
        // A file made for a time between two of odd minutes would get the name of the first of them.
        Update({P, 2 * P, 3 * P})
            .Block(0, M + 10, {{5, 1}})
            .Block(M + 30, 5 * M, {{2 * M, 2}, {M + 20, 3}, {M + 20, 4}})
            .End(),
        // Times before the epoch, which are rounded towards it.
        Update()
            .Block(-P, 0, {{-1, 1}, {-P, 2}, {-2 * P, 3}})
            .Block(-3 * P - 5, -2 * P, {{-3 * P - 9, 4}, {-1, 5}})
            .End(),
    };
    for (const Bytes& request : requests) {
        Victim victim;
        for (int replay = 0; replay < 3; replay++) {
            CheckRequest(victim.side, request);
            victim.side.Restart();
        }
    }
}

TEST(ReplicationHostile, ReplayedAndLateMessages) {
    // Twice the same update: the records are there twice, the rest is unknown the second time.
    Victim victim;
    CheckRequest(victim.side, victim.update);
    CheckRequest(victim.side, victim.update);
    // (The split of a file that has been split is refused: its time is the border now.)
    EXPECT_EQ(victim.side->Describe(), "1P..1P+2m=2 1P+2m..2P=2 2P..3P=6 3P..4P=6 40P..41P=2");

    // Replies out of turn never count more than was sent, and a reset and its query repair what they did.
    const Side main, standby;
    main->Flush(Minutes(0, 9));
    const std::vector<Bytes> replies = {QueryReply({}), kUpdateReply, QueryReply({{0, 2 * P, 9}}),
                                        QueryReply({{P, 2 * P, 1}})};
    for (const Bytes& first : replies) {
        for (const Bytes& second : replies) {
            for (const bool bRequest : {false, true}) {
                Answer(*main, first);
                if (bRequest)
                    Request(*main);
                Answer(*main, second);
                const auto& file = main->m_Files.begin()->second;
                EXPECT_LE(file.m_NumRecordsTransferred + file.m_NumRecordsSent, file.m_NumRecords);
            }
        }
    }
    main->MainResetTransferState();
    Drain(*main, *standby);
    EXPECT_EQ(standby->Read(), main->Read());
}

TEST(ReplicationHostile, RepliesCutAndFlipped) {
    const Bytes reply = QueryReply({{0, 2 * P, 3}, {2 * P, 3 * P, 1}, {7 * P, 8 * P, 2}});
    const Side main;
    main->Flush(Minutes(0, 3));
    main->Flush(Minutes(2 * P, 5));
    const auto check = [&](const Bytes& bytes) {
        main->MainResetTransferState();
        Request(*main);
        const bool bApplied = Answer(*main, bytes);
        const Lines log = main->TakeLog();
        if (bApplied) {
            EXPECT_THAT(log, IsEmpty());
        } else {
            EXPECT_THAT(log,
                        ElementsAre(AnyOf("! MainProcessStandbyReply() - Exception EOF Exception",
                                          StartsWith("! MainProcessStandbyReply() - Invalid reply type "))));
        }
        for (const auto& [end, file] : main->m_Files)
            EXPECT_LE(file.m_NumRecordsTransferred, file.m_NumRecords);
        EXPECT_LE(main->m_DeletedFiles.size(), 3u);
        EXPECT_EQ(main->GetTransferState(), bApplied ? CHistoricTable::TransferStateActiveWaiting
                                                     : CHistoricTable::TransferStateActiveQueryState);
        EXPECT_EQ(main->Flush({{2 * P, 1}}), 1u);
    };
    for (size_t size = 0; size < reply.size(); size++)
        check(reply.substr(0, size));
    // A count or type that became smaller leaves bytes behind, which belong to the next message.
    ForEveryFlip(reply, [&](const Bytes& bytes) {
        Input in(bytes);
        try {
            main->MainSkipStandbyReply(kChannel, in);
            check(bytes.substr(0, in.Tell()));
        } catch (const CBinaryInput::EOFException&) {
            check(bytes);
        }
    });
}

TEST(ReplicationHostile, MemoryIsBoundedByTheMessage) {
    const unsigned int many = 4'000'000'000;
    const Records records = Minutes(3 * P, 20'000);
    const Bytes requests[] = {
        Message().U8(2).U32(many).I64(P).bytes,
        Message().U8(2).U32(0).U32(many).I64(1).I64(2).I64(3).bytes,
        Update({}, {}, many).End(),
        Update().I64(3 * P).I64(4 * P).U32(many).I64(3 * P).I64(1).bytes,
        Update().I64(3 * P).I64(4 * P).U32(many).bytes + BytesOf(records),
        Update().Block(3 * P, 4 * P, records).End(),
    };
    for (const Bytes& request : requests) {
        const Victim victim;
        Input in(request);
        BinaryOutputBuffer out(BinaryStringLengthUTF8Character);
        unsigned int added = 0;
        const size_t bytes = g_HeapBytes, allocations = g_HeapAllocations;
        victim.side->StandbyProcessRequest(&victim.side->m_Log, kChannel, in, out, added);
        EXPECT_LE(g_HeapBytes - bytes, 3 * request.size() + 64 * 1024);
        EXPECT_LE(g_HeapAllocations - allocations, 100u)
            << "of blocks, files and messages; none for a record";
    }
    const Side main;
    main->Flush(records);
    const Bytes reply = Message().U8(1).U32(many).I64(1).I64(2).U32(3).bytes;
    Input in(reply);
    const size_t bytes = g_HeapBytes;
    EXPECT_FALSE(main->MainProcessStandbyReply(&main->m_Log, kChannel, in));
    EXPECT_LE(g_HeapBytes - bytes, 4096u);

    // The main's side allocates for its first update, then only what the output takes.
    Answer(*main, QueryReply({}));
    for (int update = 0; update < 2; update++) {
        BinaryOutputBuffer out(BinaryStringLengthUTF8Character);
        const size_t allocations = g_HeapAllocations;
        EXPECT_TRUE(main->MainGetNextStandbyRequest(kChannel, out));
        EXPECT_LE(g_HeapAllocations - allocations,
                  out.GetTotalDataSize() / BinaryOutputBuffer::BlockSize + 20);
        Answer(*main, kUpdateReply);
    }
}
