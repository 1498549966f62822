// qvstring - the type of all text in the library and its platform: UTF-8 in a std::string.
//
// Nothing enforces valid UTF-8: text that came from outside may be malformed. The functions of Unicode.h say
// what each of them makes of such bytes; none of them reads past the end or stops advancing.
#pragma once

#include <string>

using qvstring = std::string;
