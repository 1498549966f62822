#include <QVLib/Utilities/FindPermutation.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/TextOutput.h>
#include <algorithm>

CFindPermutation::CFindPermutation(int count, const unsigned int* values)
    : m_Count(std::max(count, 0)), m_pValues(new unsigned int[static_cast<unsigned int>(m_Count)]) {
    std::copy_n(values, m_Count, m_pValues.get());
    std::sort(m_pValues.get(), m_pValues.get() + m_Count);
}

bool CFindPermutation::Next() {
    unsigned int* const first = m_pValues.get();
    unsigned int* const end = first + m_Count;
    if (std::is_sorted(first, end, std::greater<>()))
        return false;
    return std::next_permutation(first, end);
}

unsigned int CFindPermutation::GetValue(int index) const {
    QV_ASSERT(index >= 0 && index < m_Count);
    return m_pValues[static_cast<unsigned int>(index)];
}

void CFindPermutation::Print(CTextOutput& out) const {
    out.Print("[ ");
    for (int i = 0; i < m_Count; i++)
        out.Print(i == 0 ? "%u" : ", %u", GetValue(i));
    out.Print(" ]");
}
