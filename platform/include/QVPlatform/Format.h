// Bounded printf-style formatting.
//
// All functions write at most `size` bytes including the terminating zero, always terminate (unless `size` is
// 0, then they write nothing) and return the number of bytes *written* without the terminator - not the
// number that would have been needed, so the result can be added to a pointer without a check. Output that
// does not fit is cut; the cut never leaves part of a UTF-8 character behind.
//
// Numbers look the same whatever the process's locale is: formatting happens in the "C" locale, with UTF-8 as
// the character set of "%lc" and "%ls". A format that the C library refuses (a wide character that does not
// exist) gives an empty text.
#pragma once

#include <cstdarg>

unsigned int qv_sprintf(char* buffer, unsigned int size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

unsigned int qv_vsprintf(char* buffer, unsigned int size, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));

// Like qv_sprintf(), but a text that does not fit ends with "..." (as much of it as `size` allows).
unsigned int qv_sprintf_with_elipsis(char* buffer, unsigned int size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// Copies a terminated text.
unsigned int qv_strcpy(char* buffer, unsigned int size, const char* text);
