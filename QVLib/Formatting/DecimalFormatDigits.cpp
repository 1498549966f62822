// The digits of a number, and how they are rounded.
#include <QVLib/Formatting/DecimalFormat.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/TextOutput.h>
#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>

namespace {

constexpr int DigitsOfDouble = 16;
constexpr uint64_t TenTo16 = 10'000'000'000'000'000U;
static_assert(std::numeric_limits<unsigned long long>::digits10 + 1 <=
              DecimalFormat::DigitList::MaximumDigits);

// A number as 16 digits and the power of ten of the first one.
struct Decimal {
    uint64_t m_Digits = 0;
    int m_Exponent = 0;
};

struct Product {
    uint64_t m_High;
    uint64_t m_Low;
};

// In halves: there are machines without a type of 128 bits.
Product Multiply(uint64_t a, uint64_t b) {
    constexpr uint64_t Half = 0xFFFFFFFFU;
    const uint64_t low = (a & Half) * (b & Half);
    const uint64_t middle1 = (a >> 32) * (b & Half) + (low >> 32);
    const uint64_t middle2 = (a & Half) * (b >> 32) + (middle1 & Half);
    return {(a >> 32) * (b >> 32) + (middle1 >> 32) + (middle2 >> 32), (middle2 << 32) | (low & Half)};
}

constexpr int MaximumPower = 26;

constexpr std::array<uint64_t, MaximumPower + 1> MakePowersOfFive() {
    std::array<uint64_t, MaximumPower + 1> powers{1};
    for (std::size_t i = 1; i < powers.size(); ++i)
        powers[i] = 5 * powers[i - 1];
    return powers;
}
constexpr std::array<uint64_t, MaximumPower + 1> PowersOfFive = MakePowersOfFive();

// The whole part of mantissa times 2^exponent times 10^power, and in `bRoundUp` whether the rest is more than a
// half, or just a half behind an odd number. All of it is exact: 53 and 61 bits make a product of 114.
uint64_t Scale(uint64_t mantissa, int exponent, int power, bool& bRoundUp) {
    const Product product = Multiply(mantissa, PowersOfFive[static_cast<std::size_t>(power)]);
    const int shift = -(exponent + power); // 2 to 63 for what FindDigits() asks
    const uint64_t whole = product.m_High << (64 - shift) | product.m_Low >> shift;
    const uint64_t half = uint64_t(1) << (shift - 1);
    const uint64_t rest = product.m_Low & (2 * half - 1);
    bRoundUp = rest > half || (rest == half && whole % 2 != 0);
    return whole;
}

// The digits of "%1.15e", for normal numbers from about 1E-11 to 1E15, which is most of what a plant measures.
// False for others.
bool FindDigits(double value, Decimal& decimal) {
    const uint64_t bits = std::bit_cast<uint64_t>(value);
    const int exponent = static_cast<int>(bits >> 52) - 1075;
    const uint64_t mantissa = (bits & 0xFFFFFFFFFFFFFU) | 0x10000000000000U;

    // The logarithm of the power of two at or below the value, rounded down: right, or one too low.
    decimal.m_Exponent = ((exponent + 52) * 78913) >> 18;
    int power = DigitsOfDouble - 1 - decimal.m_Exponent;
    if (power < 1 || power > MaximumPower)
        return false;
    bool bRoundUp;
    decimal.m_Digits = Scale(mantissa, exponent, power, bRoundUp);
    if (decimal.m_Digits >= TenTo16) {
        ++decimal.m_Exponent;
        decimal.m_Digits = Scale(mantissa, exponent, --power, bRoundUp);
    }
    if (bRoundUp && ++decimal.m_Digits == TenTo16) {
        ++decimal.m_Exponent;
        decimal.m_Digits /= 10;
    }
    return true;
}

// Writes a number below 10^8 as eight digits, all of them in one word: pairs of four, then of two, then single
// digits are split in their lanes at once. The factors are reciprocals, exact for numbers that small.
void WriteEightDigits(uint32_t number, char* digits) {
    const uint64_t fours = number / 10000 | uint64_t(number % 10000) << 32;
    const uint64_t hundreds = (fours * 10486 >> 20) & 0x0000007F0000007F;
    const uint64_t pairs = (hundreds | (fours - 100 * hundreds) << 16);
    const uint64_t tens = (pairs * 103 >> 10) & 0x000F000F000F000F;
    uint64_t text = (tens | (pairs - 10 * tens) << 8) + 0x3030303030303030;
    if constexpr (std::endian::native == std::endian::big)
        text = __builtin_bswap64(text);
    memcpy(digits, &text, sizeof text);
}

// Writes "%1.15e" without its point and returns its exponent.
int PrintDigits(double value, char* digits) {
    Decimal decimal;
    if (FindDigits(value, decimal)) {
        constexpr uint32_t TenTo8 = 100'000'000;
        WriteEightDigits(static_cast<uint32_t>(decimal.m_Digits / TenTo8), digits);
        WriteEightDigits(static_cast<uint32_t>(decimal.m_Digits % TenTo8), digits + 8);
        return decimal.m_Exponent;
    }
    char text[32];
    const std::to_chars_result end = std::to_chars(std::begin(text), std::end(text), value,
                                                   std::chars_format::scientific, DigitsOfDouble - 1);
    digits[0] = text[0];
    memcpy(digits + 1, text + 2, DigitsOfDouble - 1);
    // Behind the point and the letter; from_chars() takes no '+'.
    const char* exponent = text + DigitsOfDouble + 2;
    std::from_chars(exponent + (*exponent == '+'), end.ptr, decimal.m_Exponent);
    return decimal.m_Exponent;
}

// The sum as far as it is an int.
int AddDigits(int maximumDigits, int decimalAt) {
    const long long sum = static_cast<long long>(maximumDigits) + decimalAt;
    return static_cast<int>(
        std::clamp<long long>(sum, std::numeric_limits<int>::min(), DecimalFormat::Unlimited));
}

} // namespace

void DecimalFormat::DigitList::SetDouble(double value, bool fixedPoint, int maximumDigits) {
    QV_ASSERT(std::isfinite(value) && value >= 0);
    m_nCount = 0;
    m_nDecimalAt = 0;
    if (value == 0)
        return;
    m_nDecimalAt = PrintDigits(value, m_Digits) + 1;
    m_nCount = DigitsOfDouble;

    if (fixedPoint && -static_cast<long long>(m_nDecimalAt) >= maximumDigits) {
        // All digits lie behind the last place, and the first of them next to it at best.
        if (-m_nDecimalAt == maximumDigits && ShouldRoundUp(0)) {
            m_Digits[0] = '1';
            m_nCount = 1;
            ++m_nDecimalAt;
        } else {
            m_nCount = 0;
        }
        return;
    }

    RemoveTrailingZeros();
    RoundForNotation(fixedPoint, maximumDigits);
}

void DecimalFormat::DigitList::SetUInt64(unsigned long long value, bool fixedPoint, int maximumDigits) {
    m_nCount = static_cast<int>(std::to_chars(m_Digits, m_Digits + MaximumDigits, value).ptr - m_Digits);
    m_nDecimalAt = m_nCount;
    RoundForNotation(fixedPoint, maximumDigits);
}

// In fixed-point notation the limit counts digits behind the decimal point, else all digits, and at least one stays.
void DecimalFormat::DigitList::RoundForNotation(bool fixedPoint, int maximumDigits) {
    if (maximumDigits == Unlimited)
        return;
    if (fixedPoint)
        RoundDigitList(AddDigits(maximumDigits, m_nDecimalAt));
    else if (maximumDigits >= 1)
        RoundDigitList(maximumDigits);
}

void DecimalFormat::DigitList::RoundDigitList(int maximumDigits) {
    if (maximumDigits < 0 || maximumDigits >= m_nCount)
        return;
    const bool bUp = ShouldRoundUp(maximumDigits);
    m_nCount = maximumDigits;
    if (m_nCount > 0 && m_Digits[m_nCount - 1] != '9') {
        // Without a branch: up or down is what nobody can predict.
        m_Digits[m_nCount - 1] = static_cast<char>(m_Digits[m_nCount - 1] + bUp);
    } else if (bUp) {
        CarryUp();
    }
    RemoveTrailingZeros();
}

// A digit that passes '9' would be a 0 at the end, and those are not kept.
void DecimalFormat::DigitList::CarryUp() {
    while (m_nCount > 0 && m_Digits[m_nCount - 1] == '9')
        --m_nCount;
    if (m_nCount > 0) {
        ++m_Digits[m_nCount - 1];
    } else {
        m_Digits[0] = '1';
        m_nCount = 1;
        ++m_nDecimalAt;
    }
}

bool DecimalFormat::DigitList::ShouldRoundUp(int index) {
    if (m_Digits[index] != '5')
        return m_Digits[index] > '5';
    for (int i = index + 1; i < m_nCount; ++i) {
        if (m_Digits[i] != '0')
            return true;
    }
    return index >= 1 && (m_Digits[index - 1] - '0') % 2 != 0;
}

void DecimalFormat::DigitList::RemoveTrailingZeros() {
    while (m_nCount > 1 && m_Digits[m_nCount - 1] == '0')
        --m_nCount;
}

bool DecimalFormat::DigitList::IsDigitListZero() const {
    return std::all_of(m_Digits, m_Digits + m_nCount, [](char digit) { return digit == '0'; });
}

void DecimalFormat::DigitList::PrintDigitList(CTextOutput& out) const {
    out.WriteString(m_Digits, static_cast<unsigned int>(m_nCount));
    out.Print(", DP %d", m_nDecimalAt);
}
