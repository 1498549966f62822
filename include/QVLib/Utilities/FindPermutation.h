// CFindPermutation - all orders of some numbers, one after the other.
//
//     CFindPermutation order(3, values);
//     do
//         Try(order);
//     while (order.Next());
//
// Starts with the ascending order and steps lexicographically to the descending one: n! orders of n distinct
// values. Equal values are not told apart, so there are fewer orders with them.
// Cost:    O(n log n) to construct, amortised constant for a step.
// Threads: one thread at a time.
#pragma once

#include <memory>

class CTextOutput;

class CFindPermutation {
public:
    // Copies and sorts `count` values; none for a count of 0 or less.
    CFindPermutation(int count, const unsigned int* values);

    // Steps to the next order; false, with nothing changed, behind the last one.
    bool Next();

    int GetCount() const { return m_Count; }
    // The value at `index`, 0 to count - 1.
    unsigned int GetValue(int index) const;
    // "[ 1, 3, 2 ]"
    void Print(CTextOutput& out) const;

private:
    const int m_Count;
    const std::unique_ptr<unsigned int[]> m_pValues;
};
