// Main and standby through long random lives, and the cases in which what one of them did is not what the other
// was told: housekeeping while a reply is awaited, splits not repeated yet, a standby that cannot write.
#include "ReplicationTools.h"
#include "support/FaultFileSystem.h"
#include "support/FaultSystemCalls.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <random>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// One random life. All its choices come from the seed. Every second main keeps house at any time, the others only
// while no reply is awaited.
class Life {
public:
    explicit Life(unsigned int seed)
        : m_Random(seed), m_LatePercent(seed % 3 * 10), m_bHasty(seed % 2 == 0) {}

    void Step() {
        const unsigned int choice = Pick(100);
        if (choice < 35)
            Record();
        else if (choice < 50)
            m_Main->Flush();
        else if (choice < 53)
            Trim();
        else if (choice < 60)
            Note([&] { m_Main->SplitLargest(Pick(12) + 3); });
        else if (choice < 95)
            Exchange();
        else if (choice < 97)
            Lose();
        else if (choice < 98)
            Restart(m_Main);
        else
            Restart(m_Standby);
        EXPECT_EQ(CountsInMap(*m_Standby), CountsOnDisk(m_Standby.folder));
    }

    // Brings the standby up to date and compares, first as a running transfer would leave it, then after a query.
    void End() {
        m_Main->Flush();
        while (!m_Request.empty() || !m_Reply.empty() || m_Main->MainHasDataToTransfer())
            Exchange();
        const Records held = Sorted(m_Standby->Read());
        const Records expected = Sorted(m_Main->Read());
        EXPECT_TRUE(m_bForgotten || held == expected);
        EXPECT_TRUE(m_bSplitForgotten ||
                    std::includes(held.begin(), held.end(), expected.begin(), expected.end()));

        m_Main->MainResetTransferState();
        Drain(*m_Main, *m_Standby);
        EXPECT_EQ(Sorted(m_Standby->Read()), expected);
        EXPECT_EQ(FilesWithRecords(*m_Standby), FilesWithRecords(*m_Main));
        EXPECT_TRUE(m_Main->Validate());
        EXPECT_TRUE(m_Standby->Validate());
        EXPECT_EQ(m_Main->Errors() + m_Standby->Errors(), "");
    }

private:
    static Counts FilesWithRecords(const TestTable& table) {
        Counts counts = CountsInMap(table);
        std::erase_if(counts, [](const auto& file) { return file.second == 0; });
        return counts;
    }

    unsigned int Pick(unsigned int count) { return static_cast<unsigned int>(m_Random()) % count; }

    void Record() {
        for (unsigned int i = Pick(4) + 1; i > 0; i--) {
            m_Now += Pick(50) == 0 ? P : Pick(3) * M + Pick(1000);
            long long time = m_Now;
            // A late record. (Not one before the oldest file: it might bring a file back that the standby still has
            // from before, and with the same number of records it would pass for the same.)
            if (Pick(100) < m_LatePercent && !m_Main->m_Files.empty())
                time -= Pick(100) * (m_Now - m_Main->m_Files.begin()->second.m_Start) / 100;
            m_Main->Put({{time, m_Number++}});
        }
    }

    void Trim() {
        m_Main->Flush(); // of records before what is trimmed
        Note([&] { m_Main->Trim(Pick(60) + 5); });
    }

    // Housekeeping of the main; remembers what the reply that is awaited will make it forget.
    template<class Work>
    void Note(Work work) {
        const bool bAwaited =
            m_Main->GetTransferState() == CHistoricTable::TransferStateActiveTransferIncrement;
        if (bAwaited && !m_bHasty)
            return;
        const size_t deleted = m_Main->m_DeletedFiles.size(), splits = m_Main->m_SplitCommands.size();
        work();
        const bool bSplit = m_Main->m_SplitCommands.size() > splits;
        m_bSplitForgotten |= bAwaited && bSplit;
        m_bForgotten |= bAwaited && (bSplit || m_Main->m_DeletedFiles.size() > deleted);
    }

    // One leg of the way to the standby and back.
    void Exchange() {
        if (!m_Reply.empty()) {
            if (m_Reply[0] == kQuery[0])
                m_bForgotten = m_bSplitForgotten = false;
            EXPECT_TRUE(Answer(*m_Main, m_Reply));
            m_Reply.clear();
        } else if (!m_Request.empty()) {
            m_Reply = Apply(*m_Standby, m_Request);
            EXPECT_NE(m_Reply, "");
            m_Request.clear();
        } else {
            m_Request = Request(*m_Main);
        }
    }

    // The connection breaks, with whatever was under way.
    void Lose() {
        m_Request.clear();
        m_Reply.clear();
        m_Main->MainResetTransferState();
    }

    void Restart(Side& side) {
        Lose();
        side->Flush();
        side.Restart();
    }

    std::mt19937 m_Random;
    const unsigned int m_LatePercent;
    const bool m_bHasty;
    Side m_Main, m_Standby;
    Bytes m_Request, m_Reply; // under way, one at a time
    bool m_bForgotten = false;
    bool m_bSplitForgotten = false;
    long long m_Now = 10 * P;
    long long m_Number = 0;
};

// A main whose standby holds everything: six records, one a minute, in one file (0, 2P).
struct Plant {
    Plant() {
        main->Flush(Minutes(0, 6));
        Drain(*main, *standby);
    }
    // The next update, of one new record.
    Bytes Await() {
        main->Flush({{6 * M, 6}});
        return Request(*main);
    }
    void Deliver(const Bytes& update) { EXPECT_TRUE(Answer(*main, Apply(*standby, update))); }
    void ExpectEqual(bool bQuery = false) {
        if (bQuery)
            main->MainResetTransferState();
        Drain(*main, *standby);
        EXPECT_EQ(Sorted(standby->Read()), Sorted(main->Read()));
        EXPECT_EQ(standby->Describe(), main->Describe());
    }

    Side main, standby;
};

} // namespace

TEST(ReplicationModel, AfterAnyLifeTheStandbyHoldsWhatTheMainHolds) {
    for (unsigned int seed = 1; seed <= 40 && !testing::Test::HasFailure(); seed++) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Life life(seed);
        for (int step = 0; step < 400 && !testing::Test::HasFailure(); step++)
            life.Step();
        life.End();
    }
}

TEST(ReplicationModel, TheFirstPieceOfAPendingSplitIsTrimmed) {
    Plant plant;
    EXPECT_TRUE(plant.main->Split(0, 2));
    plant.main->Trim(3);
    EXPECT_THAT(plant.main->m_DeletedFiles, ElementsAre(2 * P));
    EXPECT_THAT(plant.main->m_SplitCommands, IsEmpty());
    plant.ExpectEqual();
}

TEST(ReplicationModel, APieceIsSplitOutOfOrderBesideOneThatWasSplitToo) {
    Plant plant;
    EXPECT_TRUE(plant.main->Split(0, 4) && plant.main->Split(0, 2));
    plant.main->Flush({{4 * M + 1, 20}, {4 * M, 21}});
    EXPECT_TRUE(plant.main->Split(2, 3));
    EXPECT_THAT(plant.main->m_DeletedFiles, ElementsAre(2 * P));
    EXPECT_THAT(plant.main->m_SplitCommands, IsEmpty());
    plant.ExpectEqual();
}

TEST(ReplicationModel, ADeletionLeavesTheSplitsOfOtherFilesPending) {
    Plant plant;
    plant.main.folder.Empty();
    plant.main.folder.Write(NameOf(-P, -M), BytesOf(Minutes(-P, 1, 50)));
    plant.main.folder.Write(NameOf(-2 * P, 2 * P), BytesOf(Minutes(0, 6))); // around it: made by hand
    plant.main.Restart();
    plant.main->Flush(Minutes(2 * P, 6, 30));
    plant.ExpectEqual();
    EXPECT_TRUE(plant.main->Split(1, 4) && plant.main->Split(3, 3));
    plant.main->Trim(11);
    EXPECT_THAT(plant.main->m_DeletedFiles, ElementsAre(-M));
    EXPECT_EQ(plant.main->m_SplitCommands.size(), 2u);
    plant.ExpectEqual();
}

// Housekeeping while a reply is awaited is forgotten until the next query.

TEST(ReplicationModel, TheStandbyKeepsAFileThatIsTrimmedWhileAReplyIsAwaited) {
    Plant plant;
    plant.main->Flush(Minutes(2 * P, 9, 30));
    const Bytes update = plant.Await();
    plant.main->Trim(1);
    plant.Deliver(update);
    Drain(*plant.main, *plant.standby);
    EXPECT_EQ(plant.standby->Describe(), "0..2P=7 2P..3P=9");
    plant.ExpectEqual(true);
}

TEST(ReplicationModel, TheStandbyKeepsAFileWholeThatIsSplitWhileAReplyIsAwaited) {
    Plant plant;
    const Bytes update = plant.Await();
    EXPECT_TRUE(plant.main->Split(0, 4));
    plant.Deliver(update);
    plant.main->Flush({{3 * M, 20}, {9 * M, 21}}); // of both halves: into it, or beside it
    Drain(*plant.main, *plant.standby);
    EXPECT_EQ(plant.standby->Describe(), "0..4m=1 0..2P=8");
    EXPECT_EQ(Sorted(plant.standby->Read()), Sorted(plant.main->Read()));
    plant.ExpectEqual(true);
}

TEST(ReplicationModel, ThePiecesCountAsHeldWhenOneIsTrimmedWhileTheirSplitIsOnItsWay) {
    Plant plant;
    EXPECT_TRUE(plant.main->Split(0, 2));
    const Bytes update = Request(*plant.main);
    plant.main->Trim(3);
    plant.Deliver(update);
    EXPECT_EQ(Drain(*plant.main, *plant.standby), 0) << "nothing is sent twice";
    EXPECT_EQ(plant.standby->Describe(), "0..2m=2 2m..2P=4");
    plant.ExpectEqual(true);
}

TEST(ReplicationModel, AStandbyWithAFullDiskIsRepairedByTheNextQuery) {
    FaultFileSystem disk;
    const Side main, standby({}, &disk);
    main->Flush(Minutes(0, 10));
    Drain(*main, *standby);
    main->Flush(Minutes(10 * M, 4000, 10));
    disk.TearFrom(1000, ENOSPC, FaultFileSystem::Write);
    Drain(*main, *standby);
    EXPECT_EQ(standby->Errors(), "Disk Full, Lost Records (3001)");
    EXPECT_EQ(standby->Describe(), "0..2P=1009");
    EXPECT_TRUE(standby->Validate()) << "the torn record is cut off";
    EXPECT_THAT(standby->TakeLog(),
                Contains("! Write file '" + NameOf(0, 2 * P) + "' returns: No space left on device"));

    disk.Heal();
    main->MainResetTransferState();
    Drain(*main, *standby);
    EXPECT_EQ(standby->Describe(), main->Describe());
    EXPECT_EQ(standby->Read(), main->Read());
}

// What a split leaves that could not be undone is gone before its names are used again, and before the file that says
// that it is a copy.
TEST(ReplicationModel, AStandbyThatCouldNotSplitIsRepairedByTheNextQuery) {
    for (const bool bRestart : {false, true}) {
        Plant plant;
        EXPECT_TRUE(plant.main->Split(0, 2));
        {
            FaultSystemCalls system;
            system.FailAt(SystemCall::Write | SystemCall::Writev, 3,
                          ENOSPC); // journal, first half, second half
            system.FailFrom(SystemCall::Erase, 1, EIO);
            Exchange(*plant.main, *plant.standby);
        }
        EXPECT_EQ(plant.standby->Describe(), "0..2P=6");
        plant.main->Flush({{M, 20}, {9 * M, 21}});
        if (bRestart)
            plant.main->MainResetTransferState();
        Drain(*plant.main, *plant.standby);
        EXPECT_EQ(Sorted(plant.standby->Read()), Sorted(plant.main->Read()));
        EXPECT_EQ(CountsInMap(*plant.standby), CountsOnDisk(plant.standby.folder));
        const std::string files = plant.standby->Describe();
        plant.standby.Restart();
        EXPECT_EQ(plant.standby->Describe(), files);
        plant.ExpectEqual(true);
    }
}

// Two records of before the epoch can make the main a file whose span is empty, which no standby takes.
TEST(ReplicationModel, AFileOfAnEmptySpanHoldsNothingUp) {
    const Side main, standby;
    main->Flush({{5 * P, 1}, {-1, 2}, {-1, 3}, {5 * P + 1, 4}});
    EXPECT_EQ(main->Describe(), "0..0=1 0..5P=1 5P..7P=2");
    Drain(*main, *standby);
    EXPECT_EQ(NumbersOf(standby->Read(0)), Numbers({1, 4}));
}
