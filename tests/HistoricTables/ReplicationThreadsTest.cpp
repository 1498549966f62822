// A main that records, flushes, keeps house, is looked at and replicates at once.
#include "ReplicationTools.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

TEST(ReplicationThreads, TheMainWorksOnWhileTheStandbyFollows) {
    const Side main, standby;
    std::atomic<bool> bStop = false;
    std::atomic<long long> number = 0;
    std::atomic<int> updates = 0;
    std::vector<std::jthread> threads;

    for (int writer = 0; writer < 2; writer++) {
        threads.emplace_back([&] {
            for (long long i = 0; !bStop; i++) {
                const Record record{10 * P + i * M / 8, number++};
                main->WriteNewRecord(record.time, &record);
                if (i % 64 == 0)
                    std::this_thread::sleep_for(std::chrono::microseconds(500));
            }
        });
    }
    COutputLogNull log;
    threads.emplace_back([&] {
        while (!bStop)
            main->FlushRecords(&log);
    });
    threads.emplace_back([&] {
        while (!bStop) {
            main->HouseKeepFiles(&log, 10'000, 2'000 * 16);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
    threads.emplace_back([&] {
        std::vector<CHistoricTable::HistoricFile> files;
        while (!bStop) {
            main->GetFiles(files);
            for (const auto& file : files)
                EXPECT_LE(file.m_NumRecordsTransferred + file.m_NumRecordsSent, file.m_NumRecords);
            const auto state = main->GetTransferState();
            EXPECT_STRNE(CHistoricTable::GetTransferStateText(state), "???");
            main->MainHasDataToTransfer();
        }
    });
    threads.emplace_back([&] {
        while (!bStop) {
            BinaryOutputBuffer out(BinaryStringLengthUTF8Character);
            if (!main->MainGetNextStandbyRequest(kChannel, out))
                continue;
            const Bytes reply = Apply(*standby, BytesOf(out));
            if (++updates % 50 == 0)
                main->MainResetTransferState(); // the reply is lost
            else
                EXPECT_TRUE(Answer(*main, reply));
        }
    });

    for (int i = 0; i < 500 && (updates < 200 || number < 30'000); i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    bStop = true;
    threads.clear();

    EXPECT_GE(updates, 3);
    main->Flush();
    main->MainResetTransferState();
    Drain(*main, *standby);
    EXPECT_FALSE(main->Read().empty());
    EXPECT_EQ(Sorted(standby->Read()), Sorted(main->Read()));
    EXPECT_EQ(standby->Describe(), main->Describe());
    EXPECT_EQ(main->Errors() + standby->Errors(), "");
}
