#include <QVLib/Utilities/CString.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/SecureMemory.h>
#include <QVPlatform/Unicode.h>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>
#include <utility>

QVCString::QVCString(const QVCString& other) {
    *this = other;
}

QVCString::QVCString(QVCString&& other) noexcept {
    *this = std::move(other);
}

QVCString& QVCString::operator=(const QVCString& other) {
    if (this == &other)
        return *this;
    char* copy = nullptr;
    if (other.m_Length > 0) {
        const std::size_t size = std::size_t{other.m_Length} + 1;
        copy = new char[size];
        std::memcpy(copy, other.m_pText, size);
    }
    SetCString(copy, other.m_Length);
    return *this;
}

QVCString& QVCString::operator=(QVCString&& other) noexcept {
    std::swap(m_pText, other.m_pText);
    std::swap(m_Length, other.m_Length);
    if (this != &other)
        other.SetCString(nullptr, 0);
    return *this;
}

QVCString::~QVCString() {
    delete[] m_pText;
}

void QVCString::FromQVString(const qvstring& text) {
    // The longest form of a byte of the source is the three bytes of U+FFFD.
    if (text.size() > std::numeric_limits<unsigned int>::max() / 3)
        throw std::length_error("string too long");
    const unsigned int sourceLength = static_cast<unsigned int>(text.size());
    const unsigned int capacity = qv_utf8len_of_qvchar(text.data(), sourceLength);
    auto copy = std::make_unique<char[]>(std::size_t{capacity} + 1);
    const unsigned int length = qv_utf8_from_qvchar(text.data(), sourceLength,
                                                    reinterpret_cast<unsigned char*>(copy.get()), capacity);
    SetCString(copy.release(), length);
}

void QVCString::SetCString(char* text, unsigned int length) {
    QV_ASSERT(length == 0 || text != nullptr);
    delete[] m_pText;
    m_pText = text;
    m_Length = length;
    if (length == 0) {
        delete[] text;
        m_pText = nullptr;
    }
}

void QVCString::SecureClear() {
    if (m_pText != nullptr)
        QVRandomGenerator::ClearMemory(m_pText, m_Length);
    SetCString(nullptr, 0);
}
