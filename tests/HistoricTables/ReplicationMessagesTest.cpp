// The messages of the replication to the byte, what each does to its receiver, and what is logged.
#include "ReplicationTools.h"
#include "support/FaultSystemCalls.h"

#include <array>
#include <cerrno>
#include <gmock/gmock.h>
#include <stdexcept>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr long long P = kPeriod;
constexpr long long M = kMinute;
using Table = CHistoricTable;

// What the main takes the standby to hold, file by file: "10+0/10" is transferred + sent / all.
std::string Progress(const TestTable& main) {
    std::string text;
    for (const auto& [end, file] : main.m_Files)
        text += (text.empty() ? "" : " ") + std::to_string(file.m_NumRecordsTransferred) + "+" +
                std::to_string(file.m_NumRecordsSent) + "/" + std::to_string(file.m_NumRecords);
    return text;
}

std::string DeletedLine(long long start, long long end, int records) {
    return "Standby Update deleted file '" + NameOf(start, end) + "' (" + std::to_string(records) +
           " records)";
}

} // namespace

TEST(ReplicationMessages, AFreshMainAsksThenSendsEverything) {
    const Side main, standby;
    const Records first = Minutes(5 * M, 10);
    const Records second = Minutes(2 * P, 20, 100);
    main->Flush(first);
    main->Flush(second);

    EXPECT_TRUE(main->MainHasDataToTransfer());
    EXPECT_EQ(Request(*main), kQuery);
    EXPECT_EQ(Request(*main), "") << "the reply is awaited";
    const Bytes reply = Apply(*standby, kQuery);
    EXPECT_EQ(reply, QueryReply({}));
    EXPECT_TRUE(Answer(*main, reply));

    const Bytes update = Request(*main);
    EXPECT_EQ(update, Update().Block(0, 2 * P, first).Block(2 * P, 3 * P, second).End());
    EXPECT_EQ(Progress(*main), "0+10/10 0+20/20");
    EXPECT_EQ(Request(*main), "");
    unsigned int added = 0;
    EXPECT_EQ(Apply(*standby, update, &added), kUpdateReply);
    EXPECT_EQ(added, 30u);
    EXPECT_THAT(standby->TakeLog(), ElementsAre("Standby update: Added 30 records"));
    EXPECT_TRUE(Answer(*main, kUpdateReply));

    EXPECT_EQ(Progress(*main), "10+0/10 20+0/20");
    EXPECT_FALSE(main->MainHasDataToTransfer());
    EXPECT_EQ(standby->Describe(), "0..2P=10 2P..3P=20");
    EXPECT_EQ(standby->Read(), main->Read());
    EXPECT_EQ(Apply(*standby, kQuery), QueryReply({{0, 2 * P, 10}, {2 * P, 3 * P, 20}}));
    EXPECT_THAT(main->TakeLog(), IsEmpty());
    EXPECT_THAT(standby->TakeLog(), IsEmpty()) << "nothing was added by the query";
}

TEST(ReplicationMessages, AnUpdateCarriesDeletionsThenSplitsThenNewRecords) {
    const Side main, standby;
    main->Flush(Minutes(0, 4));
    main->Flush(Minutes(2 * P, 6, 10));
    Drain(*main, *standby);

    main->Trim(5);
    EXPECT_TRUE(main->SplitLargest(3));
    main->Flush({{2 * P + M, 20}, {2 * P + 5 * M, 21}});
    const Bytes update = Request(*main);
    EXPECT_EQ(update, Update({2 * P}, {{2 * P, 2 * P + 3 * M, 3 * P}})
                          .Block(2 * P, 2 * P + 3 * M, {{2 * P + M, 20}})
                          .Block(2 * P + 3 * M, 3 * P, {{2 * P + 5 * M, 21}})
                          .End());
    standby->TakeLog();
    EXPECT_TRUE(Answer(*main, Apply(*standby, update)));
    EXPECT_THAT(standby->TakeLog(),
                ElementsAre(DeletedLine(0, 2 * P, 4),
                            "Split " + NameOf(2 * P, 3 * P) + " (6 records) -> " +
                                NameOf(2 * P, 2 * P + 3 * M) + " and " + NameOf(2 * P + 3 * M, 3 * P),
                            "Standby update: Added 2 records"));
    EXPECT_EQ(standby->Describe(), main->Describe());
    EXPECT_EQ(standby->Read(), main->Read());
    EXPECT_EQ(Request(*main), "") << "both lists are empty again";

    // A split whose records are not in time order: the standby deletes its copy and gets both halves.
    EXPECT_TRUE(main->SplitLargest(2));
    const Records all = main->Read();
    EXPECT_EQ(Request(*main), Update({2 * P + 3 * M})
                                  .Block(2 * P, 2 * P + M, {all[0]})
                                  .Block(2 * P + M, 2 * P + 3 * M, {all[1], all[2], all[3]})
                                  .End());
}

TEST(ReplicationMessages, AnUpdateIsBoundedByItsBudgetOfRecords) {
    struct Row {
        unsigned int recordSize;
        std::vector<unsigned int> files;                // records in each
        std::vector<std::vector<unsigned int>> updates; // records of each block
    };
    const Row rows[] = {
        {100, {3000}, {{1310}, {1310}, {380}}},
        {16, {8000, 300}, {{8000, 192}, {108}}},
        {16, {8192, 1}, {{8192}, {1}}},
        {131'072, {2, 1}, {{1}, {1}, {1}}},
        {65'537, {2}, {{1}, {1}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.recordSize);
        const Side main(QVFileSystem::GetUnsyncedInstance(), row.recordSize);
        const Side standby(QVFileSystem::GetUnsyncedInstance(), row.recordSize);
        std::vector<Records> pending;
        for (size_t i = 0; i < row.files.size(); i++) {
            for (unsigned int j = 0; j < row.files[i]; j++)
                main->Put({{static_cast<long long>(i * 2 * P) + j, j}});
            main->Flush();
            pending.push_back(main->Read(static_cast<long long>(i * 2 * P), LLONG_MAX));
        }
        Answer(*main, Apply(*standby, Request(*main)));
        for (const std::vector<unsigned int>& blocks : row.updates) {
            Message expected = Update({}, {}, row.recordSize);
            size_t file = 0;
            for (const unsigned int count : blocks) {
                while (pending[file].empty())
                    file++;
                const auto entry = main->File(static_cast<int>(file));
                const auto end = pending[file].begin() + count;
                expected.Block(entry->second.m_Start, entry->first, Records(pending[file].begin(), end),
                               row.recordSize);
                pending[file].erase(pending[file].begin(), end);
                file++;
            }
            const Bytes update = Request(*main);
            EXPECT_TRUE(update == expected.End()); // too long to print
            Answer(*main, Apply(*standby, update));
        }
        EXPECT_EQ(Request(*main), "");
        EXPECT_EQ(CountsOnDisk(main.folder), CountsOnDisk(standby.folder));
        EXPECT_EQ(standby->Read(), main->Read());
    }
}

TEST(ReplicationMessages, ADamagedFileYieldsWhatItHas) {
    const Side main, standby;
    for (const long long start : {0 * P, 2 * P, 3 * P, 4 * P})
        main->Flush(Minutes(start, 5));
    Answer(*main, Apply(*standby, Request(*main)));
    main.folder.Write(NameOf(0, 2 * P), BytesOf(Minutes(0, 3)) + "half a record");
    main.folder.Write(NameOf(2 * P, 3 * P), "");
    main.folder.Remove(NameOf(3 * P, 4 * P));
    const Bytes update = Request(*main);
    EXPECT_EQ(update, Update().Block(0, 2 * P, Minutes(0, 3)).Block(4 * P, 5 * P, Minutes(4 * P, 5)).End());
    EXPECT_TRUE(Answer(*main, Apply(*standby, update)));
    EXPECT_EQ(Progress(*main), "3+0/5 0+0/5 0+0/5 5+0/5");
    // Asked for the rest, which never comes, the main sends updates without records.
    EXPECT_EQ(Request(*main), Update().End());
}

TEST(ReplicationMessages, StatesFollowTheRequestsAndReplies) {
    using enum Table::TransferState;
    const char* const texts[] = {"Inactive", "ActiveQueryState", "ActiveWaiting", "ActiveTransferIncrement",
                                 "???"};
    for (int i = 0; i < 5; i++)
        EXPECT_STREQ(Table::GetTransferStateText(static_cast<Table::TransferState>(i)), texts[i]);
    EXPECT_STREQ(Table::GetTransferStateText(static_cast<Table::TransferState>(-1)), "???");

    struct Row {
        const char* event;
        std::array<Table::TransferState, 4> next; // by present state
    };
    const std::array unchanged = {TransferStateInactive, TransferStateActiveQueryState,
                                  TransferStateActiveWaiting, TransferStateActiveTransferIncrement};
    const auto all = [](Table::TransferState state) { return std::array{state, state, state, state}; };
    auto requested = unchanged;
    requested[TransferStateInactive] = TransferStateActiveQueryState;
    auto requestedWithNews = requested;
    requestedWithNews[TransferStateActiveWaiting] = TransferStateActiveTransferIncrement;
    const Row rows[] = {
        {"reset", all(TransferStateInactive)},
        {"request", requested},
        {"request with news", requestedWithNews},
        {"query reply", all(TransferStateActiveWaiting)},
        {"\x02", all(TransferStateActiveWaiting)},
        {"\x07", unchanged},
        {"\x01 too short", unchanged},
        {"", unchanged},
    };
    for (const Row& row : rows) {
        for (const Table::TransferState state : unchanged) {
            SCOPED_TRACE(testing::PrintToString(row.event) + " in state " + std::to_string(state));
            const std::string event = row.event;
            const Side main;
            main->Flush(Minutes(0, 3));
            main->m_Files.begin()->second.m_NumRecordsTransferred = event == "request with news" ? 2 : 3;
            main->m_TransferState = state;
            EXPECT_EQ(main->IsStandbyTransferActive(), state >= TransferStateActiveWaiting);
            if (event == "reset") {
                main->m_DeletedFiles = {1};
                main->m_SplitCommands.push_back({});
                main->m_Files.begin()->second.m_NumRecordsSent = 1;
                main->MainResetTransferState();
                EXPECT_THAT(main->m_DeletedFiles, IsEmpty());
                EXPECT_THAT(main->m_SplitCommands, IsEmpty());
                EXPECT_EQ(Progress(*main), "0+0/3");
            } else if (event.starts_with("request")) {
                EXPECT_EQ(!Request(*main).empty(), row.next[state] != state);
            } else {
                EXPECT_EQ(Answer(*main, event == "query reply" ? QueryReply({}) : event),
                          row.next != unchanged);
            }
            EXPECT_EQ(main->GetTransferState(), row.next[state]);
        }
    }
}

TEST(ReplicationMessages, RepliesThatAreNoneLeaveTheMainAsItWas) {
    const Side main;
    main->Flush(Minutes(0, 3));
    EXPECT_FALSE(Answer(*main, "\x07"));
    EXPECT_FALSE(Answer(*main, "\xff"));
    EXPECT_FALSE(Answer(*main, ""));
    EXPECT_FALSE(Answer(*main, QueryReply({{0, 2 * P, 3}, {1, 2, 3}}).substr(0, 26)));
    EXPECT_THAT(main->TakeLog(), ElementsAre("! MainProcessStandbyReply() - Invalid reply type 7",
                                             "! MainProcessStandbyReply() - Invalid reply type 255",
                                             "! MainProcessStandbyReply() - Exception EOF Exception",
                                             "! MainProcessStandbyReply() - Exception EOF Exception"));
    EXPECT_EQ(main->GetTransferState(), Table::TransferStateInactive);
    EXPECT_EQ(Progress(*main), "3+0/3") << "what came before the end of the reply stays applied";
}

TEST(ReplicationMessages, AQueryReplyIsMatchedByStartEndAndCount) {
    const Side main;
    for (const long long start : {0 * P, 2 * P, 3 * P, 4 * P})
        main->Flush(Minutes(start, 5));
    for (auto& [end, file] : main->m_Files) {
        file.m_NumRecordsSent = 2;
        file.m_NumRecordsTransferred = 1;
    }
    Request(*main);
    EXPECT_TRUE(Answer(
        *main, QueryReply({{0, 2 * P, 5}, {2 * P + M, 3 * P, 5}, {3 * P, 4 * P, 4}, {9 * P, 10 * P, 5}})));
    EXPECT_EQ(Progress(*main), "5+0/5 0+0/5 0+0/5 0+0/5");
    EXPECT_EQ(Request(*main), Update({3 * P, 4 * P, 10 * P})
                                  .Block(2 * P, 3 * P, Minutes(2 * P, 5))
                                  .Block(3 * P, 4 * P, Minutes(3 * P, 5))
                                  .Block(4 * P, 5 * P, Minutes(4 * P, 5))
                                  .End());
    // A reply that contradicts itself never makes a file count as held that is to be deleted.
    main->MainResetTransferState();
    Request(*main);
    EXPECT_TRUE(
        Answer(*main, QueryReply({{0, 2 * P, 5}, {0, 2 * P, 4}, {3 * P, 4 * P, 4}, {3 * P, 4 * P, 5}})));
    EXPECT_EQ(Progress(*main), "0+0/5 0+0/5 0+0/5 0+0/5");
    EXPECT_THAT(main->m_DeletedFiles, ElementsAre(2 * P, 4 * P));
}

TEST(ReplicationMessages, TheStandbyDoesWhatItCanOfAnUpdate) {
    struct Row {
        const char* what;
        Bytes request;
        const char* files; // afterwards
        std::vector<std::string> log;
        Bytes reply = kUpdateReply;
    };
    const std::string old = NameOf(0, 2 * P), other = NameOf(2 * P, 3 * P);
    const auto notSplit = [&](long long at, const char* why) {
        return "! File " + old + " is not split at time stamp " + std::to_string(at) + ": " + why;
    };
    const std::string inside = "the time is not inside its span";
    const std::string refused =
        "! HistoricTable standby update exception: HistoricTable invalid block received";
    const Row rows[] = {
        {"nothing to do", Update({7 * P, 0, LLONG_MIN}, {{0, M, 7 * P}}).End(), "0..2P=4 2P..3P=2", {}},
        {"deletions and splits of another record size stay done",
         Update({3 * P}, {{0, 2 * M, 2 * P}}, 24).Block(0, 2 * P, Minutes(0, 1), 24).End(),
         "0..2m=2 2m..2P=2",
         {DeletedLine(2 * P, 3 * P, 2),
          "Split " + old + " (4 records) -> " + NameOf(0, 2 * M) + " and " + NameOf(2 * M, 2 * P),
          "Record size missmatch.  Rx record size is 24, but table record size is 16.",
          "! HistoricTable standby update exception: HistoricTable wrong record size received"},
         ""},
        {"the file is deleted before it would be split",
         Update({2 * P}, {{0, 2 * M, 2 * P}}).End(),
         "2P..3P=2",
         {DeletedLine(0, 2 * P, 4)}},
        {"split times that are none",
         Update({}, {{0, 0, 2 * P},
                     {0, 2 * P, 2 * P},
                     {0, -M, 2 * P},
                     {0, 5 * P, 2 * P},
                     {0, LLONG_MIN, 2 * P},
                     {0, 1, 2 * P}})
             .End(),
         "0..2P=4 2P..3P=2",
         {notSplit(0, inside.c_str()), notSplit(2 * P, inside.c_str()), notSplit(-M, inside.c_str()),
          notSplit(5 * P, inside.c_str()), notSplit(LLONG_MIN, inside.c_str()),
          notSplit(1, "the time is not a full minute inside its span")}},
        {"a known end is appended to, whatever start the block gives",
         Update().Block(M, 2 * P, {{9 * M, 1}}).Block(2 * P, 3 * P, {{2 * P + 9 * M, 2}}).End(),
         "0..2P=5 2P..3P=3",
         {"Standby update: Added 2 records"}},
        {"records go by their own time",
         Update().Block(5 * P, 6 * P, {{M, 1}, {5 * P, 2}, {P, 3}}).End(),
         "0..2P=6 2P..3P=2 5P..6P=1",
         {"Standby update: Added 3 records"}},
        {"no entry without records",
         Update().Block(5 * P, 6 * P, {}).Block(7 * P, 8 * P, {{M, 1}}).Block(2 * P, 3 * P, {}).End(),
         "0..2P=5 2P..3P=2",
         {"Standby update: Added 1 records"}},
        {"a span that runs backwards",
         Update().Block(5 * P, 6 * P, {{5 * P, 1}}).Block(6 * P, 5 * P, {}).End(),
         "0..2P=4 2P..3P=2",
         {refused},
         ""},
        {"a span of no time", Update().Block(5 * P, 5 * P, {}).End(), "0..2P=4 2P..3P=2", {refused}, ""},
        {"a span without a name",
         Update().Block(5 * P, LLONG_MAX, {}).End(),
         "0..2P=4 2P..3P=2",
         {refused},
         ""},
        {"another file's name",
         Update().Block(2 * P + 1, 3 * P + 1, {{2 * P + 1, 1}}).End(),
         "0..2P=4 2P..3P=2",
         {refused},
         ""},
        {"a record whose time has no name",
         Update().Block(2 * P, 3 * P, {{LLONG_MAX, 1}, {2 * P, 2}}).End(),
         "0..2P=4 2P..3P=3",
         {"! Record with time stamp 9223372036854775807 is lost: no file name can hold its time",
          "Standby update: Added 2 records"}},
        {"an unknown type",
         "\x03",
         "0..2P=4 2P..3P=2",
         {"! HistoricTable standby update received the invalid request type 3"},
         ""},
        {"no type", "", "0..2P=4 2P..3P=2", {"! HistoricTable standby update exception: EOF Exception"}, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        const Side standby;
        standby->Flush(Minutes(0, 4));
        standby->Flush(Minutes(2 * P, 2));
        EXPECT_EQ(Apply(*standby, row.request), row.reply);
        EXPECT_EQ(standby->Describe(), row.files);
        EXPECT_EQ(standby->TakeLog(), row.log);
        EXPECT_EQ(CountsInMap(*standby), CountsOnDisk(standby.folder));
        EXPECT_EQ(standby->Errors(),
                  std::string(row.what).ends_with("has no name") ? ", Lost Records (1)" : "");
        EXPECT_EQ(standby->Flush({{10 * P, 9}}), 1u) << "nothing is left locked";
    }

    // A file that cannot be erased stays in the table; the line that says so follows the one that says too much.
    const Side standby;
    standby->Flush(Minutes(0, 4));
    FaultSystemCalls system;
    system.FailAt(SystemCall::Erase, 1, EACCES);
    EXPECT_EQ(Apply(*standby, Update({2 * P}).End()), kUpdateReply);
    EXPECT_THAT(standby->TakeLog(),
                ElementsAre(DeletedLine(0, 2 * P, 4),
                            "Error deleting file '" + old + "'. Error 13: Permission denied"));
    EXPECT_EQ(standby->Describe(), "0..2P=4");
}

TEST(ReplicationMessages, SkippingConsumesWhatProcessingConsumes) {
    const Bytes requests[] = {
        kQuery,
        Update().End(),
        Update({1, 2, 3}, {{0, 1, 2}, {3, 4, 5}})
            .Block(0, 2 * P, Minutes(0, 3))
            .Block(2 * P, 3 * P, {})
            .End(),
        Update({}, {}, 24)
            .Block(0, 2 * P, Minutes(0, 5), 24)
            .End(),                                          // of a record size that is not the table's
        Update({}, {}, 0).I64(0).I64(P).U32(UINT_MAX).End(), // 4 billion records of no bytes
    };
    const Side table;
    for (const Bytes& request : requests) {
        const Bytes stream = request + "\x05" + request;
        Input in(stream);
        table->StandbySkipRequest(kChannel, in);
        EXPECT_EQ(in.Tell(), request.size());
        unsigned char next = 0;
        in >> next;
        EXPECT_EQ(next, 5);
        // Every cut is noticed.
        for (size_t size = 0; size < request.size(); size++) {
            const Bytes cut = request.substr(0, size);
            Input shorter(cut);
            EXPECT_THROW(table->StandbySkipRequest(kChannel, shorter), CBinaryInput::EOFException) << size;
        }
    }
    for (const Bytes& reply :
         {QueryReply({}), QueryReply({{1, 2, 3}, {4, 5, 6}}), kUpdateReply, Bytes("\x07")}) {
        const Bytes stream = reply + reply;
        Input in(stream);
        table->MainSkipStandbyReply(kChannel, in);
        EXPECT_EQ(in.Tell(), reply.size());
        for (size_t size = 0; size < reply.size(); size++) {
            const Bytes cut = reply.substr(0, size);
            Input shorter(cut);
            EXPECT_THROW(table->MainSkipStandbyReply(kChannel, shorter), CBinaryInput::EOFException) << size;
        }
    }
    // Counts whose product or sum passes 32 and 64 bits.
    const Bytes hostile[] = {
        Message().U8(2).U32(UINT_MAX).bytes,
        Message().U8(2).U32(0x20000000).bytes, // times 8 is 0 in 32 bits
        Message().U8(2).U32(0).U32(UINT_MAX).U32(16).End(),
        Update({}, {}, UINT_MAX).I64(0).I64(1).U32(UINT_MAX).End(),
        Update({}, {}, 65'536).I64(0).I64(1).U32(65'536).End(),
    };
    for (const Bytes& request : hostile) {
        Input in(request);
        EXPECT_THROW(table->StandbySkipRequest(kChannel, in), CBinaryInput::EOFException);
    }
    const Bytes unknown = "\x03rest";
    Input in(unknown);
    try {
        table->StandbySkipRequest(kChannel, in);
        ADD_FAILURE();
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "HistoricTable invalid TransferType");
        EXPECT_EQ(in.Tell(), 1u);
    }
}
