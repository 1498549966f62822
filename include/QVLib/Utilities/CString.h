// QVCString - owned, terminated UTF-8 text, for interfaces in C that take or hand out arrays of char.
//
// Holds null instead of an array when it is empty; GetCStr() is never null all the same. SecureClear() wipes the text
// before it frees it; nothing else does, so for passwords prefer CQVSecureWString.
// Threads: one thread at a time.
#pragma once

#include <QVPlatform/String.h>

class QVCString {
public:
    QVCString() = default;
    QVCString(const QVCString& other);
    QVCString(QVCString&& other) noexcept;
    QVCString& operator=(const QVCString& other);
    QVCString& operator=(QVCString&& other) noexcept;
    ~QVCString();

    // Takes a copy as well-formed UTF-8: malformed bytes become U+FFFD. Text of more than a third
    // of 4 GiB gives std::length_error.
    void FromQVString(const qvstring& text);
    // Takes over `text`, which was made with new char[] and has `length` bytes and a terminating zero behind them.
    // With length 0 it is freed at once. It may be null when the length is 0.
    void SetCString(char* text, unsigned int length);
    // Overwrites the text with zeros, for certain, and frees it.
    void SecureClear();

    // Valid until the next change.
    const char* GetCStr() const { return m_pText != nullptr ? m_pText : ""; }
    // Bytes without the terminator.
    unsigned int GetLength() const { return m_Length; }

private:
    char* m_pText = nullptr;
    unsigned int m_Length = 0;
};
