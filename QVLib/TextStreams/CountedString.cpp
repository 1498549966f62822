#include <QVLib/TextStreams/CountedString.h>
#include <QVPlatform/Unicode.h>
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <span>

namespace {

template<class String>
using Units = std::span<const typename String::Unit>;

template<class String>
Units<String> UnitsOf(const String* text) {
    return text ? Units<String>(text->GetUnits(), text->m_Length) : Units<String>();
}

template<class String>
String* Alloc(unsigned int capacity) {
    const unsigned long long bytes =
        sizeof(String) + static_cast<unsigned long long>(capacity) * sizeof(typename String::Unit);
    if (bytes > PTRDIFF_MAX)
        return nullptr;
    String* text = static_cast<String*>(malloc(static_cast<std::size_t>(bytes)));
    if (text)
        text->m_Length = 0;
    return text;
}

// Every editing function is a choice of parts; this is the only place that cuts at the limit.
template<class String>
String* Join(std::initializer_list<Units<String>> parts) {
    std::size_t total = 0;
    for (const Units<String>& part : parts)
        total += part.size();
    const unsigned int capacity =
        static_cast<unsigned int>(std::min<std::size_t>(total, QVCountedStringMaxLength));
    String* text = Alloc<String>(capacity);
    if (!text)
        return nullptr;
    for (const Units<String>& part : parts) {
        const std::size_t count = std::min<std::size_t>(part.size(), capacity - text->m_Length);
        std::copy_n(part.data(), count, text->GetUnits() + text->m_Length);
        text->m_Length = static_cast<unsigned short>(text->m_Length + count);
    }
    return text;
}

// `lengthOf` counts what `convert` writes: the two halves of one of the platform's conversions.
template<class String, class Source>
String* Convert(const Source* source, unsigned int count,
                unsigned int (*lengthOf)(const Source*, unsigned int),
                unsigned int (*convert)(const Source*, unsigned int, typename String::Unit*, unsigned int)) {
    const unsigned int capacity = std::min(lengthOf(source, count), QVCountedStringMaxLength);
    String* text = Alloc<String>(capacity);
    if (text)
        text->m_Length = static_cast<unsigned short>(convert(source, count, text->GetUnits(), capacity));
    return text;
}

template<class String>
unsigned int ToWChar(const String* text, char* buffer, unsigned int size,
                     unsigned int (*convert)(const typename String::Unit*, unsigned int, char*,
                                             unsigned int)) {
    if (size == 0)
        return 0;
    const unsigned int length = text ? convert(text->GetUnits(), text->m_Length, buffer, size - 1) : 0;
    buffer[length] = '\0';
    return length;
}

template<class String>
int Compare(const String* a, const String* b) {
    const Units<String> left = UnitsOf(a);
    const Units<String> right = UnitsOf(b);
    const std::size_t common = std::min(left.size(), right.size());
    for (std::size_t i = 0; i < common; ++i)
        if (left[i] != right[i])
            return left[i] - right[i];
    return left.size() == right.size() ? 0 : left.size() < right.size() ? -1 : 1;
}

template<class String>
int Find(const String* text, const String* pattern) {
    const Units<String> where = UnitsOf(text);
    const Units<String> what = UnitsOf(pattern);
    if (what.empty())
        return 0;
    const auto found = std::search(where.begin(), where.end(), what.begin(), what.end());
    return found == where.end() ? -1 : static_cast<int>(found - where.begin());
}

struct Run {
    std::size_t m_First;
    std::size_t m_Count;
};

// What of `count` units from the 1-based `start` lies inside a text of `length` units. In 64 bits, because
// `start` + `count` need not fit into an int.
Run ClampRun(std::size_t length, int count, int start) {
    const long long end = static_cast<long long>(length);
    const long long begin = start - 1LL;
    const long long first = std::clamp(begin, 0LL, end);
    const long long last = std::clamp(begin + count, first, end);
    return {static_cast<std::size_t>(first), static_cast<std::size_t>(last - first)};
}

template<class String>
String* Copy(const String* text) {
    return text ? Join<String>({UnitsOf(text)}) : nullptr;
}

template<class String>
String* Left(const String* text, int count) {
    if (!text)
        return nullptr;
    return Join<String>({UnitsOf(text).first(ClampRun(text->m_Length, count, 1).m_Count)});
}

template<class String>
String* Right(const String* text, int count) {
    if (!text)
        return nullptr;
    return Join<String>({UnitsOf(text).last(ClampRun(text->m_Length, count, 1).m_Count)});
}

template<class String>
String* Mid(const String* text, int count, int start) {
    if (!text)
        return nullptr;
    const Run run = ClampRun(text->m_Length, count, start);
    return Join<String>({UnitsOf(text).subspan(run.m_First, run.m_Count)});
}

template<class String>
String* Concat(const String* a, const String* b) {
    return a && b ? Join<String>({UnitsOf(a), UnitsOf(b)}) : nullptr;
}

template<class String>
String* Insert(const String* text, const String* inserted, int position) {
    if (!text || !inserted)
        return nullptr;
    const std::size_t before = ClampRun(text->m_Length, 0, position).m_First;
    return Join<String>({UnitsOf(text).first(before), UnitsOf(inserted), UnitsOf(text).subspan(before)});
}

template<class String>
String* Delete(const String* text, int count, int start) {
    if (!text)
        return nullptr;
    const Run run = ClampRun(text->m_Length, count, start);
    return Join<String>({UnitsOf(text).first(run.m_First), UnitsOf(text).subspan(run.m_First + run.m_Count)});
}

template<class String>
String* GetElement(const String* text, typename String::Unit delimiter, int index) {
    if (!text)
        return nullptr;
    const Units<String> units = UnitsOf(text);
    const long long fields = 1 + std::count(units.begin(), units.end(), delimiter);
    long long remaining = index < 0 ? index + fields : index;
    if (remaining < 0 || remaining >= fields)
        return Join<String>({Units<String>(&delimiter, 1)});
    auto first = units.begin();
    for (; remaining > 0; --remaining)
        first = std::find(first, units.end(), delimiter) + 1;
    return Join<String>({Units<String>(first, std::find(first, units.end(), delimiter))});
}

} // namespace

Utf8String* Utf8StringAlloc(unsigned int capacity) {
    return Alloc<Utf8String>(capacity);
}

Utf16String* Utf16StringAlloc(unsigned int capacity) {
    return Alloc<Utf16String>(capacity);
}

void Utf8StringFree(Utf8String* text) {
    free(text);
}

void Utf16StringFree(Utf16String* text) {
    free(text);
}

Utf8String* Utf8StringCopy(const Utf8String* text) {
    return Copy(text);
}

Utf8String* Utf8StringCopy(const unsigned char* bytes, unsigned int count) {
    return Join<Utf8String>({Units<Utf8String>(bytes, count)});
}

Utf16String* Utf16StringCopy(const Utf16String* text) {
    return Copy(text);
}

Utf16String* Utf16StringCopy(const unsigned short* units, unsigned int count) {
    return Join<Utf16String>({Units<Utf16String>(units, count)});
}

Utf8String* Utf8StringCopy(const unsigned short* units, unsigned int count) {
    return Convert<Utf8String>(units, count, qv_utf8len_of_utf16, qv_utf8_from_utf16);
}

Utf8String* Utf8StringCopy(const char* text, unsigned int length) {
    return Convert<Utf8String>(text, length, qv_utf8len_of_qvchar, qv_utf8_from_qvchar);
}

Utf16String* Utf16StringCopy(const unsigned char* utf8, unsigned int length) {
    return Convert<Utf16String>(utf8, length, qv_utf16len_of_utf8, qv_utf16_from_utf8);
}

Utf16String* Utf16StringCopy(const char* text, unsigned int length) {
    return Convert<Utf16String>(text, length, qv_utf16len_of_qvchar, qv_utf16_from_qvchar);
}

unsigned int WCharFromUtf8String(const Utf8String* text, char* buffer, unsigned int size) {
    return ToWChar(text, buffer, size, qv_qvchar_from_utf8);
}

unsigned int WCharFromUtf16String(const Utf16String* text, char* buffer, unsigned int size) {
    return ToWChar(text, buffer, size, qv_qvchar_from_utf16);
}

unsigned int Utf8StringLen(const Utf8String* text) {
    return text ? text->m_Length : 0;
}

unsigned int Utf16StringLen(const Utf16String* text) {
    return text ? text->m_Length : 0;
}

int Utf8StringCompare(const Utf8String* a, const Utf8String* b) {
    return Compare(a, b);
}

int Utf16StringCompare(const Utf16String* a, const Utf16String* b) {
    return Compare(a, b);
}

int Utf8StringFind(const Utf8String* text, const Utf8String* pattern) {
    return Find(text, pattern);
}

int Utf16StringFind(const Utf16String* text, const Utf16String* pattern) {
    return Find(text, pattern);
}

Utf8String* Utf8StringLeft(const Utf8String* text, int count) {
    return Left(text, count);
}

Utf16String* Utf16StringLeft(const Utf16String* text, int count) {
    return Left(text, count);
}

Utf8String* Utf8StringRight(const Utf8String* text, int count) {
    return Right(text, count);
}

Utf16String* Utf16StringRight(const Utf16String* text, int count) {
    return Right(text, count);
}

Utf8String* Utf8StringMid(const Utf8String* text, int count, int start) {
    return Mid(text, count, start);
}

Utf16String* Utf16StringMid(const Utf16String* text, int count, int start) {
    return Mid(text, count, start);
}

Utf8String* Utf8StringConcat(const Utf8String* a, const Utf8String* b) {
    return Concat(a, b);
}

Utf16String* Utf16StringConcat(const Utf16String* a, const Utf16String* b) {
    return Concat(a, b);
}

Utf8String* Utf8StringInsert(const Utf8String* text, const Utf8String* inserted, int position) {
    return Insert(text, inserted, position);
}

Utf16String* Utf16StringInsert(const Utf16String* text, const Utf16String* inserted, int position) {
    return Insert(text, inserted, position);
}

Utf8String* Utf8StringDelete(const Utf8String* text, int count, int start) {
    return Delete(text, count, start);
}

Utf16String* Utf16StringDelete(const Utf16String* text, int count, int start) {
    return Delete(text, count, start);
}

Utf8String* Utf8StringGetElement(const Utf8String* text, unsigned char delimiter, int index) {
    return GetElement(text, delimiter, index);
}

Utf16String* Utf16StringGetElement(const Utf16String* text, unsigned short delimiter, int index) {
    return GetElement(text, delimiter, index);
}
