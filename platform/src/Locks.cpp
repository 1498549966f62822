#include <QVPlatform/Locks.h>

#include <QVPlatform/Assert.h>
#include <new>
#include <pthread.h>

namespace {

// The section guards a few instructions, so its holder is likely to leave within this many looks.
constexpr int SpinCount = 100;

pthread_rwlock_t* SystemLock(std::byte* storage) {
    return std::launder(reinterpret_cast<pthread_rwlock_t*>(storage));
}

} // namespace

// A thread that has slept takes the section as TakenWithWaiters, since it cannot know whether others still
// sleep; the cost is one needless wake-up at the end of a queue.
void CQVCriticalSection::EnterContended() {
    for (int i = 0; i < SpinCount; i++) {
        int expected = Free;
        if (m_State.load(std::memory_order_relaxed) == Free &&
            m_State.compare_exchange_weak(expected, Taken, std::memory_order_acquire,
                                          std::memory_order_relaxed))
            return;
    }
    while (m_State.exchange(TakenWithWaiters, std::memory_order_acquire) != Free)
        m_State.wait(TakenWithWaiters, std::memory_order_relaxed);
}

void CQVCriticalSection::WakeOneWaiter() {
    m_State.notify_one();
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
