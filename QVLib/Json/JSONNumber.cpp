#include "JSONNumber.h"
#include <algorithm>
#include <charconv>
#include <limits>

namespace {

// Digits that a double holds exactly, whatever they are.
constexpr std::size_t kExactDigits = 15;

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
    if (text.size() <= kExactDigits && text.find_first_not_of("0123456789") == std::string_view::npos) {
        long long value = 0;
        for (const char digit : text)
            value = value * 10 + (digit - '0');
        return static_cast<double>(value);
    }
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc::result_out_of_range)
        return value;
    return IsHuge(text) ? std::numeric_limits<double>::infinity() : 0;
}
