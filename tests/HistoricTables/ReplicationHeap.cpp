#include "ReplicationHeap.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<size_t> allBytes;
std::atomic<size_t> allAllocations;

} // namespace

HeapUse::HeapUse() : m_Bytes(allBytes), m_Allocations(allAllocations) {}

size_t HeapUse::GetBytes() const {
    return allBytes - m_Bytes;
}

size_t HeapUse::GetAllocations() const {
    return allAllocations - m_Allocations;
}

// The program's own, also for the library under test.
void* operator new(size_t size) {
    allBytes += size;
    ++allAllocations;
    if (void* const memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
