#include "JSONNumber.h"
#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace {

// Digits that a double holds exactly, whatever they are.
constexpr int kExactDigits = 15;
// All exact as well.
constexpr double kPowersOfTen[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                   1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};

// The digits that "%g" writes.
constexpr int kWrittenDigits = 6;
constexpr long long kWrittenLimit = 1'000'000;

bool IsDigit(char character) {
    return character >= '0' && character <= '9';
}

// Takes digits with an optional fraction, as many as are exact: one division then gives the nearest double.
// False, and left to the general way, for anything else.
bool TakeShortNumber(std::string_view text, double& value) {
    const char* current = text.data();
    const char* const end = current + text.size();
    if (text.size() > kExactDigits + 1)
        return false;
    long long digits = 0;
    for (; current != end && IsDigit(*current); ++current)
        digits = digits * 10 + (*current - '0');
    std::ptrdiff_t decimals = 0;
    if (current != end && *current == '.') {
        const char* const fraction = ++current;
        for (; current != end && IsDigit(*current); ++current)
            digits = digits * 10 + (*current - '0');
        decimals = current - fraction;
    }
    if (current != end || digits >= static_cast<long long>(kPowersOfTen[kExactDigits]))
        return false;
    value = static_cast<double>(digits) / kPowersOfTen[decimals];
    return true;
}

// The exponent of the first digit of a magnitude below 10^6.
int GetDecimalExponent(double magnitude) {
    int exponent = 0;
    if (magnitude >= 1) {
        while (magnitude >= kPowersOfTen[exponent + 1])
            ++exponent;
    } else {
        do
            --exponent;
        while (magnitude * kPowersOfTen[-exponent] < 1);
    }
    return exponent;
}

char* PutTwoDigits(char* out, long long number) {
    *out++ = static_cast<char>('0' + number / 10);
    *out++ = static_cast<char>('0' + number % 10);
    return out;
}

// Writes numbers without an exponent whose six digits are beyond doubt. Null, and left to the general way,
// for all others: very large, very small, not finite, and in the middle between two texts.
char* PutShortNumber(double value, char* out) {
    const double magnitude = std::fabs(value);
    if (std::signbit(value))
        *out++ = '-';
    if (magnitude == 0) {
        *out++ = '0';
        return out;
    }
    if (!(magnitude >= 0.001 && magnitude < static_cast<double>(kWrittenLimit)))
        return nullptr;
    int exponent = GetDecimalExponent(magnitude);
    // The product is rounded, but not past the middle between two texts, which is a double itself: it may
    // only get there.
    const double scaled = magnitude * kPowersOfTen[kWrittenDigits - 1 - exponent];
    auto digits = static_cast<long long>(scaled);
    const double rest = scaled - static_cast<double>(digits);
    if (rest == 0.5)
        return nullptr;
    digits += rest > 0.5;
    if (digits == kWrittenLimit) {
        digits /= 10;
        ++exponent;
    }
    if (exponent == kWrittenDigits)
        return nullptr;

    char text[kWrittenDigits];
    PutTwoDigits(PutTwoDigits(PutTwoDigits(text, digits / 10000), digits / 100 % 100), digits % 100);
    int count = kWrittenDigits;
    while (count > 1 && count > exponent + 1 && text[count - 1] == '0')
        --count;
    if (exponent < 0)
        out = std::copy_n("0.00", 1 - exponent, out);
    for (int i = 0; i < count; ++i) {
        *out++ = text[i];
        if (i == exponent && i + 1 < count)
            *out++ = '.';
    }
    return out;
}

// True when a number outside a double's range is too large rather than too small: its first digit that counts
// stands at a positive power of ten.
bool IsHuge(std::string_view text) {
    const std::size_t exponentAt = text.find_first_of("eE");
    const std::string_view mantissa = text.substr(0, exponentAt);
    const std::size_t point = std::min(mantissa.find('.'), mantissa.size());
    const std::size_t first = mantissa.find_first_of("123456789");
    const auto magnitude = static_cast<long long>(point) - static_cast<long long>(first);

    if (exponentAt == std::string_view::npos)
        return magnitude > 0;
    std::string_view exponent = text.substr(exponentAt + 1);
    const bool bNegative = exponent.starts_with('-');
    if (bNegative || exponent.starts_with('+'))
        exponent.remove_prefix(1);
    long long value = 0;
    const auto [end, error] = std::from_chars(exponent.data(), exponent.data() + exponent.size(), value);
    if (error == std::errc::result_out_of_range)
        return !bNegative;
    return bNegative ? magnitude > value : magnitude > -value; // no sum, which might not fit
}

} // namespace

double qv_number_from_text(std::string_view text) {
    double value = 0;
    if (TakeShortNumber(text, value))
        return value;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc::result_out_of_range)
        return value;
    return IsHuge(text) ? std::numeric_limits<double>::infinity() : 0;
}

std::size_t qv_number_to_text(double value, char* buffer) {
    char* end = PutShortNumber(value, buffer);
    if (!end)
        end = std::to_chars(buffer, buffer + QVNumberTextSize, value, std::chars_format::general,
                            kWrittenDigits)
                  .ptr;
    return static_cast<std::size_t>(end - buffer);
}
