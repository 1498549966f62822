// FormattedText - a formatted text of any length, for the length of one call.
//
// Texts of usual length stay on the stack; a longer one is formatted again into the heap. Numbers are
// formatted as Format.h says. A format that the C library refuses (a wide character that does not exist, more
// than 2 GiB) gives the format itself, so that a log line never disappears.
#pragma once

#include <QVPlatform/String.h>
#include <cstdarg>
#include <cstddef>

class FormattedText {
public:
    // The text starts with `prefixLength` bytes of `prefix`.
    FormattedText(const char* prefix, unsigned int prefixLength, const char* format, va_list arguments)
        __attribute__((format(printf, 4, 0)));
    FormattedText(const char* format, va_list arguments) __attribute__((format(printf, 2, 0)))
    : FormattedText("", 0, format, arguments) {}
    FormattedText(const FormattedText&) = delete;
    FormattedText& operator=(const FormattedText&) = delete;

    const char* Text() const { return m_Heap.empty() ? m_Stack : m_Heap.data(); }
    unsigned int Length() const { return m_Length; }

private:
    char m_Stack[1024];
    qvstring m_Heap;
    unsigned int m_Length = 0;
};

// vsnprintf() that does not depend on the process's locale.
int qv_vsnprintf_c(char* buffer, size_t size, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));
