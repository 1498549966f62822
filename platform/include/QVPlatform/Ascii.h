// Letters and digits of ASCII, whatever the process's locale: for names, keywords and formats, where only ASCII counts
// and the C library's functions would ask the locale. What lies outside ASCII is left alone, so text in UTF-8 may be
// given.
#pragma once

#include <algorithm>
#include <string_view>

constexpr int qv_ascii_to_upper(int character) {
    return character >= 'a' && character <= 'z' ? character - 'a' + 'A' : character;
}

constexpr int qv_ascii_to_lower(int character) {
    return character >= 'A' && character <= 'Z' ? character - 'A' + 'a' : character;
}

// The value of a hexadecimal digit in either case, 0 to 15; -1 for anything else.
constexpr int qv_hexadecimal_digit(int character) {
    if (character >= '0' && character <= '9')
        return character - '0';
    const int letter = qv_ascii_to_lower(character);
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

// Negative, 0 or positive as `a` comes before, equals or comes after `b` when capital letters count as small ones;
// everything else byte by byte.
constexpr int qv_compare_ignoring_ascii_case(std::string_view a, std::string_view b) {
    const std::size_t length = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < length; i++) {
        const int difference = qv_ascii_to_lower(static_cast<unsigned char>(a[i])) -
                               qv_ascii_to_lower(static_cast<unsigned char>(b[i]));
        if (difference != 0)
            return difference;
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}
