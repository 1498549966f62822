// From digits to a double, and back.
#pragma once

#include <cstddef>
#include <string_view>

// The value of digits with an optional fraction and exponent, as strtod() gives it in the "C" locale: the
// longest part that makes a number counts, too large is infinity, too small is 0.
double qv_number_from_text(std::string_view text);

// Room for any number as text.
constexpr std::size_t QVNumberTextSize = 32;
// Writes what "%g" gives in the "C" locale, without a terminator, into a buffer of QVNumberTextSize bytes;
// returns the length.
std::size_t qv_number_to_text(double value, char* buffer);
