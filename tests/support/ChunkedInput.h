// An input whose text is in memory only in part, or not at all, for tests of whatever reads text.
#pragma once

#include <QVLib/TextStreams/TextInput.h>
#include <QVPlatform/Unicode.h>
#include <algorithm>

// UTF-8 with a window of `readSize` bytes at a time, as a file has it; 0 is an input without a window.
class ChunkedInput : public CTextInput {
public:
    ChunkedInput(const qvstring& text, unsigned int readSize)
        : CTextInput("n"), m_Text(text), m_pStart(m_Text.data()), m_pEnd(m_pStart + m_Text.size()),
          m_pNext(m_pStart), m_ReadSize(readSize) {
        GoTo(m_pStart);
    }

    long long Tell() const override { return Position() - m_pStart; }
    void Seek(long long offset) override { GoTo(m_pStart + offset); }
    bool ReadNextCodePoint(int& codePoint) override {
        const char* current = Position();
        if (current == m_pEnd)
            return false;
        codePoint = qv_codepoint_from_qvchar(current, m_pEnd);
        GoTo(current);
        return true;
    }

private:
    const char* Position() const { return m_ReadSize > 0 ? GetWindow() : m_pNext; }
    void GoTo(const char* position) {
        m_pNext = position;
        if (m_ReadSize > 0)
            SetWindow(position, position + std::min<long long>(m_ReadSize, m_pEnd - position));
    }

    const qvstring m_Text;
    const char* m_pStart;
    const char* m_pEnd;
    const char* m_pNext;
    unsigned int m_ReadSize;
};

constexpr unsigned int ReadSizes[] = {0, 1, 2, 3, 7, 4096};
