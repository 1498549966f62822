// Secrets in memory: wiping, random bytes, and a string for passwords.
//
// QVRandomGenerator   random bytes from the system's cryptographic generator, and a wipe that the
//                     compiler does not remove.
// CQVSecureWString    UTF-8 text that is wiped from memory when it is cleared, destroyed or moved to a larger
//                     buffer. Use it for passwords from the moment they are read.
#pragma once

class QVRandomGenerator {
public:
    // Fills `buffer` with random bytes; false when the generator cannot deliver (the buffer is then wiped).
    static bool GetRandomBytes(void* buffer, unsigned int count);
    // Overwrites `count` bytes with zeros, for certain.
    static void ClearMemory(void* buffer, unsigned int count);
};

class CQVSecureWString {
public:
    CQVSecureWString() = default;
    explicit CQVSecureWString(const char* text);
    CQVSecureWString(const CQVSecureWString& other);
    CQVSecureWString(CQVSecureWString&& other) noexcept;
    CQVSecureWString& operator=(const CQVSecureWString& other);
    CQVSecureWString& operator=(CQVSecureWString&& other) noexcept;
    CQVSecureWString& operator=(const char* text);
    ~CQVSecureWString();

    // The text, terminated; never null. Valid until the string is changed.
    const char* Get() const { return m_pText ? m_pText : ""; }
    // Bytes without the terminator.
    unsigned int Length() const { return m_Length; }
    bool IsEmpty() const { return m_Length == 0; }

    void Append(char byte);
    // Wipes and releases the text.
    void Clear();

private:
    void Append(const char* text, unsigned int length);
    void Grow(unsigned int needed);

    char* m_pText = nullptr;
    unsigned int m_Length = 0;
    unsigned int m_Capacity = 0; // bytes allocated, including room for the terminator
};
