// HeapUse - what this test program has asked of the heap since the object was made, freed or not.
#pragma once

#include <cstddef>

class HeapUse {
public:
    HeapUse();
    size_t GetBytes() const;
    size_t GetAllocations() const;

private:
    const size_t m_Bytes;
    const size_t m_Allocations;
};
