// qvstring - the library's string: a standard byte string that holds UTF-8 text.
//
// Nothing enforces valid UTF-8: text that came from outside may be malformed. The functions of Unicode.h say
// what each of them makes of such bytes; none of them reads past the end or stops advancing.
#pragma once

#include <string>

using qvstring = std::string;
