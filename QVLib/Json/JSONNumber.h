// From digits to a double.
#pragma once

#include <string_view>

// The value of digits with an optional fraction and exponent, as strtod() gives it in the "C" locale: the longest
// part that makes a number counts, too large is infinity, too small is 0.
double qv_number_from_text(std::string_view text);
