// The parts of a time as text: what DateTimeFormat writes for its letters.
#pragma once

#include <QVPlatform/Locale.h>
#include <QVPlatform/String.h>
#include <QVPlatform/TextOutput.h>
#include <QVPlatform/Timestamp.h>
#include <QVPlatform/Unicode.h>
#include <algorithm>
#include <cstring>

namespace DateTimeFields {

using Fields = CQVTimestamp::TimestampStruct;

// Characters. Repeat counts may come from a client, who sends a few bytes for thousands of them.
constexpr int MostPerItem = 4096;
constexpr int MostPerPattern = 4 * MostPerItem; // of what is loaded

struct TwoDigitTable {
    constexpr TwoDigitTable() {
        for (unsigned int i = 0; i < 100; i++) {
            m_Digits[2 * i] = static_cast<char>('0' + i / 10);
            m_Digits[2 * i + 1] = static_cast<char>('0' + i % 10);
        }
    }
    char m_Digits[200] = {};
};
inline constexpr TwoDigitTable TwoDigits;

// Text on its way to an output, which gets it in as few pieces as can be. Whoever writes flushes at the end.
class BufferedText {
public:
    explicit BufferedText(CTextOutput& out) : m_Out(out) {}

    void Flush() {
        if (m_bLineFeeds)
            m_Out.WriteString(m_Text, m_Used);
        else
            m_Out.WritePlainText(m_Text, m_Used);
        m_Used = 0;
    }

    void WriteChar(char c) {
        Reserve(1);
        m_Text[m_Used++] = c;
    }

    void WriteText(const char* text, unsigned int length) {
        Reserve(length);
        std::memcpy(m_Text + m_Used, text, length);
        m_Used += length;
    }

    void WriteText(const qvstring& text) { WriteText(text.data(), static_cast<unsigned int>(text.size())); }

    // Room for text that the caller fills in; good until the next write.
    char* Append(unsigned int length) {
        Reserve(length);
        m_Used += length;
        return m_Text + m_Used - length;
    }

    void WriteCodePoints(int count, int codePoint) {
        count = std::min(count, MostPerItem);
        m_bLineFeeds |= codePoint == '\n';
        char bytes[4];
        const unsigned int length = qv_qvchar_from_codepoint(codePoint, bytes);
        for (int i = 0; i < count; i++)
            WriteText(bytes, length);
    }

    void WriteTwoDigits(unsigned int number) {
        if (number > 99) {
            WriteNumber(number, 2);
            return;
        }
        Reserve(2);
        std::memcpy(m_Text + m_Used, TwoDigits.m_Digits + 2 * number, 2);
        m_Used += 2;
    }

    // With zeros in front up to `width` characters.
    void WriteNumber(unsigned int number, int width) {
        if (width == 2 && number < 100) {
            WriteTwoDigits(number);
            return;
        }
        char digits[10];
        char* const end = digits + sizeof digits;
        char* start = end;
        do {
            *--start = static_cast<char>('0' + number % 10);
            number /= 10;
        } while (number != 0);
        const auto length = static_cast<int>(end - start);
        for (int i = std::min(width, MostPerItem); i > length; i--)
            WriteChar('0');
        WriteText(start, static_cast<unsigned int>(length));
    }

private:
    // For pieces that are never longer than the buffer.
    void Reserve(unsigned int length) {
        if (length > sizeof m_Text - m_Used)
            Flush();
    }

    CTextOutput& m_Out;
    unsigned int m_Used = 0;
    bool m_bLineFeeds = false;
    char m_Text[256];
};

// Whether a letter stands for a part of a time.
bool IsField(int letter);
// Writes that part; any other character `repeat` times. Every value of every argument is good.
void WriteField(const CQVLocale& locale, const Fields& fields, int offsetMinutes, int letter, int repeat,
                BufferedText& text);
// Writes the message ids[index], "?" when there is no such index.
void WriteMessageOf(const CQVLocale& locale, int index, const unsigned int* ids, int count,
                    BufferedText& text);
// Writes a message, at most 63 bytes of it.
void WriteMessage(const CQVLocale& locale, unsigned int id, BufferedText& text);

} // namespace DateTimeFields
