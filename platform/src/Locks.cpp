#include <QVPlatform/Locks.h>

#include <QVPlatform/Assert.h>
#include <ctime>
#include <new>
#include <pthread.h>
#include <sched.h>

namespace {

// The section guards a few instructions, so its holder is likely to leave within this many looks. Where it does
// not, it has lost its processor: give ours away, and after some rounds of that sleep, so that a waiting thread of
// higher priority cannot keep the holder from running.
constexpr int kLooks = 200;
constexpr int kYields = 20;
constexpr timespec kNap{0, 50'000};

pthread_rwlock_t* SystemLock(std::byte* storage) {
    return std::launder(reinterpret_cast<pthread_rwlock_t*>(storage));
}

} // namespace

void CQVCriticalSection::EnterContended() {
    const auto taken = [this] {
        return !m_bTaken.load(std::memory_order_relaxed) &&
               !m_bTaken.exchange(true, std::memory_order_acquire);
    };
    for (int i = 0; i < kLooks; ++i) {
        if (taken())
            return;
    }
    for (int i = 0; i < kYields; ++i) {
        sched_yield();
        if (taken())
            return;
    }
    while (!taken())
        nanosleep(&kNap, nullptr);
}

CQVReaderWriterLock::CQVReaderWriterLock() {
    static_assert(sizeof(pthread_rwlock_t) <= sizeof m_Storage);
    static_assert(alignof(pthread_rwlock_t) <= alignof(CQVReaderWriterLock));
    pthread_rwlockattr_t attributes;
    QV_ASSERT(pthread_rwlockattr_init(&attributes) == 0);
    QV_ASSERT(pthread_rwlockattr_setkind_np(&attributes, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP) == 0);
    QV_ASSERT(pthread_rwlock_init(new (m_Storage) pthread_rwlock_t, &attributes) == 0);
    pthread_rwlockattr_destroy(&attributes);
}

CQVReaderWriterLock::~CQVReaderWriterLock() {
    QV_ASSERT(pthread_rwlock_destroy(SystemLock(m_Storage)) == 0);
}

void CQVReaderWriterLock::LockRead() {
    QV_ASSERT(pthread_rwlock_rdlock(SystemLock(m_Storage)) == 0);
}

void CQVReaderWriterLock::UnLockRead() {
    QV_ASSERT(pthread_rwlock_unlock(SystemLock(m_Storage)) == 0);
}

void CQVReaderWriterLock::LockWrite() {
    QV_ASSERT(pthread_rwlock_wrlock(SystemLock(m_Storage)) == 0);
}

void CQVReaderWriterLock::UnLockWrite() {
    QV_ASSERT(pthread_rwlock_unlock(SystemLock(m_Storage)) == 0);
}
