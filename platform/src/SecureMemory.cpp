#include <QVPlatform/Assert.h>
#include <QVPlatform/SecureMemory.h>
#include <algorithm>
#include <climits>
#include <cstring>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/rand.h>
#include <utility>

namespace {

constexpr unsigned int FirstCapacity = 32;

bool FillWithRandomBytes(unsigned char* buffer, unsigned int count) {
    while (count > 0) {
        const unsigned int part = std::min(count, static_cast<unsigned int>(INT_MAX));
        if (RAND_bytes(buffer, static_cast<int>(part)) != 1)
            return false;
        buffer += part;
        count -= part;
    }
    return true;
}

void WipeAndFree(char* text, unsigned int capacity) {
    QVRandomGenerator::ClearMemory(text, capacity);
    delete[] text;
}

} // namespace

bool QVRandomGenerator::GetRandomBytes(void* buffer, unsigned int count) {
    // A failure is reported by the result; left in the queue it would turn up in the log of the next TLS
    // error.
    ERR_set_mark();
    const bool filled = FillWithRandomBytes(static_cast<unsigned char*>(buffer), count);
    ERR_pop_to_mark();
    if (!filled)
        ClearMemory(buffer, count);
    return filled;
}

void QVRandomGenerator::ClearMemory(void* buffer, unsigned int count) {
    OPENSSL_cleanse(buffer, count);
}

CQVSecureWString::CQVSecureWString(const char* text) {
    if (!text)
        return;
    const size_t length = strlen(text);
    QV_ASSERT(length < UINT_MAX);
    Append(text, static_cast<unsigned int>(length));
}

CQVSecureWString::CQVSecureWString(const CQVSecureWString& other) {
    Append(other.Get(), other.m_Length);
}

CQVSecureWString::CQVSecureWString(CQVSecureWString&& other) noexcept
    : m_pText(std::exchange(other.m_pText, nullptr)), m_Length(std::exchange(other.m_Length, 0)),
      m_Capacity(std::exchange(other.m_Capacity, 0)) {}

CQVSecureWString& CQVSecureWString::operator=(const CQVSecureWString& other) {
    return *this = CQVSecureWString(other);
}

// The old text goes to the temporary and is wiped by its destructor.
CQVSecureWString& CQVSecureWString::operator=(CQVSecureWString&& other) noexcept {
    CQVSecureWString taken(std::move(other));
    std::swap(m_pText, taken.m_pText);
    std::swap(m_Length, taken.m_Length);
    std::swap(m_Capacity, taken.m_Capacity);
    return *this;
}

CQVSecureWString& CQVSecureWString::operator=(const char* text) {
    return *this = CQVSecureWString(text);
}

CQVSecureWString::~CQVSecureWString() {
    Clear();
}

void CQVSecureWString::Append(char byte) {
    Append(&byte, 1);
}

void CQVSecureWString::Clear() {
    if (!m_pText)
        return;
    WipeAndFree(m_pText, m_Capacity);
    m_pText = nullptr;
    m_Length = 0;
    m_Capacity = 0;
}

void CQVSecureWString::Append(const char* text, unsigned int length) {
    if (length == 0)
        return;
    QV_ASSERT(length < UINT_MAX - m_Length);
    const unsigned int needed = m_Length + length + 1;
    if (needed > m_Capacity)
        Grow(needed);
    memcpy(m_pText + m_Length, text, length);
    m_Length += length;
    m_pText[m_Length] = '\0';
}

void CQVSecureWString::Grow(unsigned int needed) {
    const unsigned int doubled = m_Capacity > UINT_MAX / 2 ? UINT_MAX : 2 * m_Capacity;
    const unsigned int capacity = std::max({needed, doubled, FirstCapacity});
    char* text = new char[capacity];
    if (m_pText) {
        memcpy(text, m_pText, m_Length);
        WipeAndFree(m_pText, m_Capacity);
    }
    m_pText = text;
    m_Capacity = capacity;
}
