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

    EXPECT_EQ(Request(*main), kQuery);
    EXPECT_EQ(Request(*main), "") << "the reply is awaited";
    EXPECT_EQ(Apply(*standby, kQuery), QueryReply({}));
    EXPECT_TRUE(Answer(*main, QueryReply({})));

    const Bytes update = Request(*main);
    EXPECT_EQ(update, Update().Block(0, 2 * P, first).Block(2 * P, 3 * P, second).End());
    EXPECT_EQ(Progress(*main), "0+10/10 0+20/20");
    EXPECT_EQ(Request(*main), "");
    unsigned int added = 0;
    EXPECT_EQ(Apply(*standby, update, &added), kUpdateReply);
    EXPECT_EQ(added, 30u);
    EXPECT_TRUE(Answer(*main, kUpdateReply));

    EXPECT_EQ(Progress(*main), "10+0/10 20+0/20");
    EXPECT_FALSE(main->MainHasDataToTransfer());
    EXPECT_EQ(standby->Read(), main->Read());
    EXPECT_EQ(Apply(*standby, kQuery), QueryReply({{0, 2 * P, 10}, {2 * P, 3 * P, 20}}));
    EXPECT_THAT(main->TakeLog(), IsEmpty());
    EXPECT_THAT(standby->TakeLog(), ElementsAre("Standby update: Added 30 records"));
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
                ElementsAre(DeletedLine(0, 2 * P, 4), SplitLine(2 * P, 2 * P + 3 * M, 3 * P, 6),
                            "Standby update: Added 2 records"));
    EXPECT_EQ(standby->Describe(), main->Describe());
    EXPECT_EQ(standby->Read(), main->Read());
    EXPECT_EQ(Request(*main), "") << "both lists are empty again";

    // Two records of one time are in order. A split of records that are not has the standby delete its copy.
    EXPECT_TRUE(main->Split(1, 1));
    EXPECT_TRUE(main->Split(0, 2));
    const Records all = main->Read();
    EXPECT_EQ(Request(*main), Update({2 * P + 3 * M}, {{2 * P + 3 * M, 2 * P + 4 * M, 3 * P}})
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
        const Side main({}, QVFileSystem::GetUnsyncedInstance(), row.recordSize);
        const Side standby({}, QVFileSystem::GetUnsyncedInstance(), row.recordSize);
        std::vector<Records> pending;
        for (const unsigned int count : row.files) {
            pending.push_back(Minutes(static_cast<long long>(pending.size()) * 2 * P, count));
            main->Flush(pending.back());
        }
        Exchange(*main, *standby);
        for (const std::vector<unsigned int>& blocks : row.updates) {
            Message expected = Update({}, {}, row.recordSize);
            size_t file = 0;
            for (const unsigned int count : blocks) {
                while (pending[file].empty())
                    file++;
                const auto entry = main->File(static_cast<int>(file));
                Records& records = pending[file++];
                expected.Block(entry->second.m_Start, entry->first,
                               {records.begin(), records.begin() + count}, row.recordSize);
                records.erase(records.begin(), records.begin() + count);
            }
            EXPECT_TRUE(Exchange(*main, *standby) == expected.End()); // too long to print
        }
        EXPECT_EQ(Request(*main), "");
        EXPECT_EQ(standby->Read(), main->Read());
    }
}

TEST(ReplicationMessages, ADamagedFileYieldsWhatItHas) {
    const Side main, standby;
    for (const long long start : {0 * P, 2 * P, 3 * P, 4 * P})
        main->Flush(Minutes(start, 5));
    Exchange(*main, *standby);
    main.folder.Write(NameOf(0, 2 * P), BytesOf(Minutes(0, 3)) + "half a record");
    main.folder.Write(NameOf(2 * P, 3 * P), "");
    main.folder.Remove(NameOf(3 * P, 4 * P));
    EXPECT_EQ(Exchange(*main, *standby),
              Update().Block(0, 2 * P, Minutes(0, 3)).Block(4 * P, 5 * P, Minutes(4 * P, 5)).End());
    EXPECT_EQ(Progress(*main), "3+0/5 0+0/5 0+0/5 5+0/5");
    // Asked for the rest, which never comes, the main sends updates without records.
    EXPECT_EQ(Request(*main), Update().End());
}

TEST(ReplicationMessages, StatesFollowTheRequestsAndReplies) {
    using enum Table::TransferState;
    const std::array states = {TransferStateInactive, TransferStateActiveQueryState,
                               TransferStateActiveWaiting, TransferStateActiveTransferIncrement};
    const char* const texts[] = {"Inactive", "ActiveQueryState", "ActiveWaiting", "ActiveTransferIncrement"};
    for (const Table::TransferState state : states)
        EXPECT_STREQ(Table::GetTransferStateText(state), texts[state]);
    EXPECT_STREQ(Table::GetTransferStateText(static_cast<Table::TransferState>(4)), "???");

    const auto all = [](Table::TransferState state) { return std::array{state, state, state, state}; };
    const std::array requested = {TransferStateActiveQueryState, TransferStateActiveQueryState,
                                  TransferStateActiveWaiting, TransferStateActiveTransferIncrement};
    auto requestedWithNews = requested;
    requestedWithNews[TransferStateActiveWaiting] = TransferStateActiveTransferIncrement;
    const std::string wrong = "! MainProcessStandbyReply() - ";
    struct Row {
        std::string event;                        // a reply, if it is nothing else
        std::array<Table::TransferState, 4> next; // by present state
        Lines log = {};
    };
    const Row rows[] = {
        {"reset", all(TransferStateInactive)},
        {"request", requested},
        {"request with news", requestedWithNews},
        {QueryReply({}), all(TransferStateActiveWaiting)},
        {kUpdateReply, all(TransferStateActiveWaiting)},
        {"\x07", states, {wrong + "Invalid reply type 7"}},
        {"\x01 too short", states, {wrong + "Exception EOF Exception"}},
        {"", states, {wrong + "Exception EOF Exception"}},
    };
    for (const Row& row : rows) {
        for (const Table::TransferState state : states) {
            SCOPED_TRACE(testing::PrintToString(row.event) + " in state " + std::to_string(state));
            const Side main({{{0, 2 * P}, Minutes(0, 3)}});
            main->File(0)->second.m_NumRecordsTransferred = row.event == "request with news" ? 2 : 3;
            main->m_TransferState = state;
            EXPECT_EQ(main->IsStandbyTransferActive(), state >= TransferStateActiveWaiting);
            if (row.event == "reset") {
                main->m_DeletedFiles = {1};
                main->m_SplitCommands.push_back({});
                main->File(0)->second.m_NumRecordsSent = 1;
                main->MainResetTransferState();
                EXPECT_EQ(main->m_DeletedFiles.size() + main->m_SplitCommands.size(), 0u);
                EXPECT_EQ(Progress(*main), "0+0/3");
            } else if (row.event.starts_with("request")) {
                EXPECT_EQ(!Request(*main).empty(), row.next[state] != state);
            } else {
                EXPECT_EQ(Answer(*main, row.event), row.next != states);
            }
            EXPECT_EQ(main->TakeLog(), row.log);
            EXPECT_EQ(main->GetTransferState(), row.next[state]);
        }
    }
}

TEST(ReplicationMessages, AQueryReplyIsMatchedByStartEndAndCount) {
    const Side main;
    for (const long long start : {0 * P, 2 * P, 3 * P, 4 * P})
        main->Flush(Minutes(start, 5));
    for (auto& [end, file] : main->m_Files)
        file.m_NumRecordsSent = file.m_NumRecordsTransferred = 2;
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
        Lines log;
        Bytes reply = kUpdateReply;
    };
    const std::string old = NameOf(0, 2 * P);
    const char* const unchanged = "0..2P=4 2P..3P=2";
    const auto notSplit = [&](long long at) {
        return "! File " + old + " is not split at time stamp " + std::to_string(at) +
               (at == 1 ? ": the time is not a full minute inside its span"
                        : ": the time is not inside its span");
    };
    const std::string exception = "! HistoricTable standby update exception: ";
    const Lines refused = {exception + "HistoricTable invalid block received"};
    const Row rows[] = {
        {"nothing to do", Update({7 * P, 0, LLONG_MIN}, {{0, M, 7 * P}}).End(), unchanged, {}},
        {"deletions and splits of another record size stay done",
         Update({3 * P}, {{0, 2 * M, 2 * P}}, 24).Block(0, 2 * P, Minutes(0, 1), 24).End(),
         "0..2m=2 2m..2P=2",
         {DeletedLine(2 * P, 3 * P, 2), SplitLine(0, 2 * M, 2 * P, 4),
          "Record size missmatch.  Rx record size is 24, but table record size is 16.",
          exception + "HistoricTable wrong record size received"},
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
         unchanged,
         {notSplit(0), notSplit(2 * P), notSplit(-M), notSplit(5 * P), notSplit(LLONG_MIN), notSplit(1)}},
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
         Update().Block(5 * P, 6 * P, {{5 * P, 1}}).Block(6 * P, 5 * P, {}).End(), unchanged, refused, ""},
        {"a span of no time", Update().Block(5 * P, 5 * P, {}).End(), unchanged, refused, ""},
        {"a span without a name", Update().Block(5 * P, LLONG_MAX, {}).End(), unchanged, refused, ""},
        {"another file's name", Update().Block(2 * P + 1, 3 * P + 1, {{2 * P + 1, 1}}).End(), unchanged,
         refused, ""},
        {"a record whose time has no name",
         Update().Block(2 * P, 3 * P, {{LLONG_MAX, 1}, {2 * P, 2}}).End(),
         "0..2P=4 2P..3P=3",
         {"! Record with time stamp 9223372036854775807 is lost: no file name can hold its time",
          "Standby update: Added 2 records"}},
        {"an unknown type",
         "\x03",
         unchanged,
         {"! HistoricTable standby update received the invalid request type 3"},
         ""},
        {"no type", "", unchanged, {exception + "EOF Exception"}, ""},
    };
    const Side::Files files = {{{0, 2 * P}, Minutes(0, 4)}, {{2 * P, 3 * P}, Minutes(2 * P, 2)}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        const Side standby(files);
        EXPECT_EQ(Apply(*standby, row.request), row.reply);
        EXPECT_EQ(standby->Describe(), row.files);
        EXPECT_EQ(standby->TakeLog(), row.log);
        EXPECT_EQ(CountsInMap(*standby), CountsOnDisk(standby.folder));
        EXPECT_EQ(standby->Errors(),
                  std::string(row.what).ends_with("has no name") ? ", Lost Records (1)" : "");
        EXPECT_EQ(standby->Flush({{10 * P, 9}}), 1u) << "nothing is left locked";
    }

    // A file that cannot be erased stays in the table; the line that says so follows the one that says too much.
    const Side standby(files);
    FaultSystemCalls system;
    system.FailAt(SystemCall::Erase, 1, EACCES);
    EXPECT_EQ(Apply(*standby, Update({2 * P}).End()), kUpdateReply);
    EXPECT_THAT(standby->TakeLog(),
                ElementsAre(DeletedLine(0, 2 * P, 4),
                            "Error deleting file '" + old + "'. Error 13: Permission denied"));
    EXPECT_EQ(standby->Describe(), unchanged);
}

TEST(ReplicationMessages, SkippingConsumesWhatProcessingConsumes) {
    const Side table;
    const auto skipRequest = [&](Input& in) { table->StandbySkipRequest(kChannel, in); };
    const auto skipReply = [&](Input& in) { table->MainSkipStandbyReply(kChannel, in); };
    // Every cut is noticed.
    const auto check = [](const Bytes& message, const auto& skip) {
        const Bytes stream = message + message;
        Input in(stream);
        skip(in);
        EXPECT_EQ(in.Tell(), message.size());
        for (size_t size = 0; size < message.size(); size++) {
            const Bytes cut = message.substr(0, size);
            Input shorter(cut);
            EXPECT_THROW(skip(shorter), CBinaryInput::EOFException) << size;
        }
    };
    check(kQuery, skipRequest);
    check(Update({1, 2, 3}, {{0, 1, 2}, {3, 4, 5}}).Block(0, 2 * P, Minutes(0, 3)).Block(2 * P, P, {}).End(),
          skipRequest);
    // Of a record size that is not the table's; 4 billion records of no bytes.
    check(Update({}, {}, 24).Block(0, 2 * P, Minutes(0, 5), 24).End(), skipRequest);
    check(Update({}, {}, 0).I64(0).I64(P).U32(UINT_MAX).End(), skipRequest);
    for (const Bytes& reply : {QueryReply({{1, 2, 3}, {4, 5, 6}}), kUpdateReply, Bytes("\x07")})
        check(reply, skipReply);

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
        EXPECT_THROW(skipRequest(in), CBinaryInput::EOFException);
    }
    const Bytes unknown = "\x03rest";
    Input in(unknown);
    EXPECT_THAT([&] { skipRequest(in); },
                testing::ThrowsMessage<std::logic_error>("HistoricTable invalid TransferType"));
}
