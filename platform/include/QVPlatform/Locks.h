// Locks and counts that are shared between threads.
//
// CQVCriticalSection    a mutual exclusion for a few instructions: taking a free one costs one atomic operation,
//                       leaving it a plain store, both inlined. A thread that finds it taken looks again, then
//                       yields, then naps for some ten microseconds at a time: hold it for a copy or a swap of
//                       lists, never across a system call.
// CQVReaderWriterLock   many readers or one writer, for work of any length. A waiting writer is preferred, so
//                       overlapping readers cannot keep it out.
// CQVRefCount           an atomic reference count.
//
// None of them is recursive: a thread that takes a lock it already holds waits for ever, also when it only
// asks to read a second time while a writer waits in between.
#pragma once

#include <atomic>
#include <cstddef>

class CQVCriticalSection {
public:
    CQVCriticalSection() = default;
    CQVCriticalSection(const CQVCriticalSection&) = delete;
    CQVCriticalSection& operator=(const CQVCriticalSection&) = delete;

    void Enter() {
        if (m_bTaken.exchange(true, std::memory_order_acquire))
            EnterContended();
    }

    void Leave() { m_bTaken.store(false, std::memory_order_release); }

private:
    void EnterContended();

    std::atomic<bool> m_bTaken{false};
};

// Holds a critical section from construction to the end of the scope.
class CQVCriticalSectionGuard {
public:
    explicit CQVCriticalSectionGuard(CQVCriticalSection& section) : m_Section(section) { m_Section.Enter(); }
    ~CQVCriticalSectionGuard() { m_Section.Leave(); }
    CQVCriticalSectionGuard(const CQVCriticalSectionGuard&) = delete;
    CQVCriticalSectionGuard& operator=(const CQVCriticalSectionGuard&) = delete;

private:
    CQVCriticalSection& m_Section;
};

class CQVReaderWriterLock {
public:
    CQVReaderWriterLock();
    ~CQVReaderWriterLock();
    CQVReaderWriterLock(const CQVReaderWriterLock&) = delete;
    CQVReaderWriterLock& operator=(const CQVReaderWriterLock&) = delete;

    void LockRead();
    void UnLockRead();
    void LockWrite();
    void UnLockWrite();

private:
    // Holds the system's lock object; opaque so that this header needs no system header.
    alignas(8) std::byte m_Storage[64];
};

class CQVRefCount {
public:
    CQVRefCount() = default;
    CQVRefCount(const CQVRefCount&) = delete;
    CQVRefCount& operator=(const CQVRefCount&) = delete;

    // Adds 1 and returns the new count.
    int Increment() { return m_Count.fetch_add(1, std::memory_order_relaxed) + 1; }

    // Subtracts 1 and returns the new count; whoever receives 0 sees everything that the other holders wrote.
    int Decrement() { return m_Count.fetch_sub(1, std::memory_order_acq_rel) - 1; }

    int Get() const { return m_Count.load(std::memory_order_acquire); }

private:
    std::atomic<int> m_Count{0};
};
