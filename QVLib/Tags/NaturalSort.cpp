#include <QVLib/Tags/NaturalSort.h>
#include <QVPlatform/Ascii.h>
#include <QVPlatform/Unicode.h>
#include <QVPlatform/UnicodeCharacter.h>
#include <algorithm>
#include <bit>
#include <cstring>

namespace {

// Walks a name code point by code point, and looks one ahead.
class Walker {
public:
    Walker(const qvstring& text, std::size_t start)
        : m_pNext(text.data() + start), m_pEnd(text.data() + text.size()) {
        Step();
    }

    bool IsAtEnd() const { return m_CodePoint < 0; }
    bool IsDigit() const { return m_Digit >= 0; }
    // The value of the digit here; -1 for anything else.
    int GetDigit() const { return m_Digit; }
    // What decides the order here, unless both sides have a digit.
    int GetRank() const { return IsDigit() ? '0' + m_Digit : m_CodePoint; }

    void Step() {
        m_Digit = -1;
        if (m_pNext == m_pEnd) {
            m_CodePoint = -1;
            return;
        }
        const unsigned char byte = static_cast<unsigned char>(*m_pNext);
        if (byte >= 0x80) {
            StepOutsideAscii();
            return;
        }
        m_pNext++;
        m_CodePoint = qv_ascii_to_upper(byte);
        if (byte >= '0' && byte <= '9')
            m_Digit = byte - '0';
    }

    void SkipZeros() {
        while (m_Digit == 0)
            Step();
    }

private:
    void StepOutsideAscii() {
        const UnicodeCharacter character(qv_codepoint_from_qvchar(m_pNext, m_pEnd));
        m_CodePoint = character.ToUpper();
        if (character.IsDigit())
            m_Digit = character.GetNumericValue();
    }

    const char* m_pNext;
    const char* m_pEnd;
    int m_CodePoint = -1;
    int m_Digit = -1;
};

// Compares the values of two digit runs and moves behind both; the values need not fit anywhere.
int CompareNumbers(Walker& a, Walker& b) {
    a.SkipZeros();
    b.SkipZeros();
    int result = 0;
    for (; a.IsDigit() && b.IsDigit(); a.Step(), b.Step()) {
        if (result == 0 && a.GetDigit() != b.GetDigit())
            result = a.GetDigit() > b.GetDigit() ? 1 : -1;
    }
    if (a.IsDigit() || b.IsDigit())
        return a.IsDigit() ? 1 : -1; // the longer one is greater, whatever its digits
    return result;
}

std::size_t CountCommonBytes(const qvstring& a, const qvstring& b) {
    const std::size_t length = std::min(a.size(), b.size());
    std::size_t i = 0;
    for (; i + sizeof(unsigned long long) <= length; i += sizeof(unsigned long long)) {
        unsigned long long left;
        unsigned long long right;
        std::memcpy(&left, a.data() + i, sizeof left);
        std::memcpy(&right, b.data() + i, sizeof right);
        if (left != right)
            return i + static_cast<std::size_t>(std::countr_zero(left ^ right)) / 8;
    }
    while (i < length && a[i] == b[i])
        i++;
    return i;
}

// Names in a list mostly begin alike. The order need only be looked for where they begin to differ, or where a number
// begins that reaches up to there; bytes outside ASCII might be digits, or parts of a character.
std::size_t FindStart(const qvstring& a, const qvstring& b) {
    std::size_t start = CountCommonBytes(a, b);
    while (start > 0) {
        const unsigned char before = static_cast<unsigned char>(a[start - 1]);
        if (before < 0x80 && (before < '0' || before > '9'))
            break;
        start--;
    }
    return start;
}

} // namespace

int QVNatrualSort(const qvstring& a, const qvstring& b) {
    const std::size_t start = FindStart(a, b);
    Walker left(a, start);
    Walker right(b, start);
    for (;;) {
        if (right.IsAtEnd())
            return left.IsAtEnd() ? 0 : 1;
        if (left.IsAtEnd())
            return -1;
        if (left.IsDigit() && right.IsDigit()) {
            const int result = CompareNumbers(left, right);
            if (result != 0)
                return result;
            continue;
        }
        if (left.GetRank() != right.GetRank())
            return left.GetRank() - right.GetRank();
        left.Step();
        right.Step();
    }
}
