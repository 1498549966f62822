// A main that records, flushes, keeps house, is looked at and replicates at once, and a standby in a thread of its own.
#include "ReplicationTools.h"

#include <atomic>
#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>
#include <optional>
#include <thread>

namespace {

// Holds one message on its way from one thread to another.
class Wire {
public:
    void Put(Bytes message) {
        const std::lock_guard lock(m_Mutex);
        m_Message = std::move(message);
        m_Changed.notify_all();
    }
    Bytes Take() {
        std::unique_lock lock(m_Mutex);
        m_Changed.wait(lock, [&] { return m_Message.has_value(); });
        return *std::exchange(m_Message, std::nullopt);
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    std::optional<Bytes> m_Message;
};

} // namespace

TEST(ReplicationThreads, TheMainWorksOnWhileTheStandbyFollows) {
    const Side main, standby;
    std::atomic<bool> bStop = false;
    std::atomic<long long> number = 0;
    std::atomic<int> updates = 0;
    Wire requests, replies;
    std::vector<std::jthread> threads;

    for (int writer = 0; writer < 2; writer++) {
        threads.emplace_back([&] {
            for (long long i = 0; !bStop; i++) {
                const Record record{10 * kPeriod + i * kMinute / 8, number++};
                main->WriteNewRecord(record.time, &record);
                if (i % 64 == 0)
                    std::this_thread::sleep_for(std::chrono::microseconds(500));
            }
        });
    }
    threads.emplace_back([&] {
        COutputLogNull log;
        while (!bStop)
            main->FlushRecords(&log);
    });
    threads.emplace_back([&] {
        COutputLogNull log;
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
    std::jthread applier([&] {
        for (Bytes request; !(request = requests.Take()).empty();)
            replies.Put(Apply(*standby, request));
    });
    threads.emplace_back([&] {
        while (!bStop) {
            BinaryOutputBuffer out(BinaryStringLengthUTF8Character);
            if (!main->MainGetNextStandbyRequest(kChannel, out))
                continue;
            requests.Put(BytesOf(out));
            if (++updates % 50 == 0) {
                replies.Take(); // lost
                main->MainResetTransferState();
            } else {
                EXPECT_TRUE(Answer(*main, replies.Take()));
            }
        }
    });

    for (int i = 0; i < 500 && (updates < 200 || number < 30'000); i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    bStop = true;
    threads.clear();
    requests.Put("");
    applier.join();

    EXPECT_GE(updates, 3);
    main->Flush();
    main->MainResetTransferState();
    Drain(*main, *standby);
    EXPECT_FALSE(main->Read().empty());
    EXPECT_EQ(Sorted(standby->Read()), Sorted(main->Read()));
    EXPECT_EQ(standby->Describe(), main->Describe());
    EXPECT_EQ(main->Errors() + standby->Errors(), "");
}
