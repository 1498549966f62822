#include <QVPlatform/Locks.h>

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

void RunThreads(int count, const std::function<void(int)>& work) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; i++)
        threads.emplace_back(work, i);
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace

TEST(CriticalSection, ExcludesThreadsThatSpinAndThreadsThatSleep) {
    CQVCriticalSection section;
    long count = 0; // unguarded otherwise, so a failure shows as a wrong sum and under ThreadSanitizer
    RunThreads(4, [&](int) {
        for (int i = 0; i < 20'000; i++) {
            const CQVCriticalSectionGuard guard(section);
            count++;
            if (i % 100 == 0)
                std::this_thread::yield(); // holds it long enough for the others to go to sleep
        }
    });
    EXPECT_EQ(count, 80'000);
}

TEST(ReaderWriterLock, ReadersSeeWholeWritesAndShareTheLock) {
    CQVReaderWriterLock lock;
    long first = 0, second = 0;
    RunThreads(4, [&](int index) {
        for (int i = 0; i < 5000; i++) {
            if (index == 0) {
                lock.LockWrite();
                first++;
                second++;
                lock.UnLockWrite();
            } else {
                lock.LockRead();
                EXPECT_EQ(first, second);
                lock.UnLockRead();
            }
        }
    });
    EXPECT_EQ(first, 5000);

    // Two readers that wait for each other inside.
    std::atomic<int> met{0};
    RunThreads(2, [&](int) {
        lock.LockRead();
        for (met++; met < 2;)
            std::this_thread::yield();
        lock.UnLockRead();
    });
}

// Two readers hand the lock to each other so that one of them always holds it, up to a number of times far
// above what a preferred writer waits for. A reader that cannot hand over, because the writer is in front of
// the other one, gives up.
TEST(ReaderWriterLock, OverlappingReadersDoNotKeepAWriterOut) {
    constexpr int most = 1'000'000;
    CQVReaderWriterLock lock;
    std::atomic<int> entered{-1};
    std::atomic<bool> written{false};
    int enteredBeforeWriter = most;
    RunThreads(3, [&](int index) {
        if (index == 2) {
            while (entered < 10)
                std::this_thread::yield();
            lock.LockWrite();
            enteredBeforeWriter = entered;
            written = true;
            lock.UnLockWrite();
            return;
        }
        for (int turn = index; turn < most && !written; turn += 2) {
            while (entered < turn - 1 && !written)
                std::this_thread::yield();
            lock.LockRead();
            entered = turn;
            for (int patience = 0; patience < 200'000 && entered <= turn && !written; patience++)
                std::this_thread::yield();
            lock.UnLockRead();
        }
    });
    EXPECT_LT(enteredBeforeWriter, most / 2);
}

TEST(RefCount, TheLastHolderSeesWhatTheOthersWrote) {
    constexpr int holders = 4;
    for (int round = 0; round < 200; round++) {
        CQVRefCount count;
        EXPECT_EQ(count.Get(), 0);
        for (int i = 1; i <= holders; i++)
            EXPECT_EQ(count.Increment(), i);
        int written[holders] = {};
        std::atomic<int> last{0};
        RunThreads(holders, [&](int index) {
            written[index] = 1;
            if (count.Decrement() == 0) {
                last++;
                for (const int value : written)
                    EXPECT_EQ(value, 1);
            }
        });
        EXPECT_EQ(last, 1);
    }
}
