#include "FormattedText.h"
#include <QVPlatform/Format.h>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <locale.h>

namespace {

// "C" for everything but the character set, which is UTF-8 where the C library has it ("%lc", "%ls").
locale_t MakeFormatLocale() {
    const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", plain);
    return utf8 ? utf8 : plain;
}

unsigned int SequenceLength(unsigned char lead) {
    if (lead < 0xC0)
        return 1;
    return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

// The length of a text that was cut behind `length` bytes, without the part of a character at its end.
unsigned int WithoutCutCharacter(const char* text, unsigned int length) {
    for (unsigned int back = 1; back <= 3 && back <= length; ++back) {
        const unsigned char byte = static_cast<unsigned char>(text[length - back]);
        if ((byte & 0xC0) != 0x80)
            return SequenceLength(byte) > back ? length - back : length;
    }
    return length;
}

unsigned int Cut(char* buffer, unsigned int size) {
    const unsigned int length = WithoutCutCharacter(buffer, size - 1);
    buffer[length] = '\0';
    return length;
}

} // namespace

int qv_vsnprintf_c(char* buffer, size_t size, const char* format, va_list arguments) {
    static const locale_t formatLocale = MakeFormatLocale();
    const locale_t previous = uselocale(formatLocale);
    const int needed = vsnprintf(buffer, size, format, arguments);
    uselocale(previous);
    return needed;
}

FormattedText::FormattedText(const char* prefix, unsigned int prefixLength, const char* format,
                             va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const size_t stackRoom = prefixLength < sizeof m_Stack ? sizeof m_Stack - prefixLength : 0;
    const int needed =
        qv_vsnprintf_c(stackRoom > 0 ? m_Stack + prefixLength : nullptr, stackRoom, format, arguments);
    const size_t bodyLength = needed < 0 ? strlen(format) : static_cast<size_t>(needed);
    if (needed >= 0 && bodyLength < stackRoom) {
        memcpy(m_Stack, prefix, prefixLength);
    } else {
        m_Heap.assign(prefix, prefixLength);
        if (needed < 0) {
            m_Heap.append(format);
        } else {
            m_Heap.resize(prefixLength + bodyLength);
            qv_vsnprintf_c(m_Heap.data() + prefixLength, bodyLength + 1, format, again);
        }
    }
    va_end(again);
    m_Length = static_cast<unsigned int>(prefixLength + bodyLength);
}

unsigned int qv_sprintf(char* buffer, unsigned int size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const unsigned int length = qv_vsprintf(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

unsigned int qv_vsprintf(char* buffer, unsigned int size, const char* format, va_list arguments) {
    if (size == 0)
        return 0;
    const int needed = qv_vsnprintf_c(buffer, size, format, arguments);
    if (needed < 0) {
        buffer[0] = '\0';
        return 0;
    }
    return static_cast<unsigned int>(needed) < size ? static_cast<unsigned int>(needed) : Cut(buffer, size);
}

unsigned int qv_sprintf_with_elipsis(char* buffer, unsigned int size, const char* format, ...) {
    if (size == 0)
        return 0;
    va_list arguments;
    va_start(arguments, format);
    const int needed = qv_vsnprintf_c(buffer, size, format, arguments);
    va_end(arguments);
    if (needed < 0) {
        buffer[0] = '\0';
        return 0;
    }
    if (static_cast<unsigned int>(needed) < size)
        return static_cast<unsigned int>(needed);
    constexpr unsigned int dots = 3;
    const unsigned int kept = WithoutCutCharacter(buffer, size - 1 > dots ? size - 1 - dots : 0);
    return kept + qv_strcpy(buffer + kept, std::min(size - kept, dots + 1), "...");
}

unsigned int qv_strcpy(char* buffer, unsigned int size, const char* text) {
    if (size == 0)
        return 0;
    const size_t length = strnlen(text, size);
    memcpy(buffer, text, length < size ? length + 1 : size - 1);
    return length < size ? static_cast<unsigned int>(length) : Cut(buffer, size);
}
