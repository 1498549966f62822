// Any bytes as text without a window: every code point is read alone, so nothing can be looked at in memory.
// What is parsed from it must be what is parsed from the same bytes in memory.
#pragma once

#include <QVLib/TextStreams/TextInput.h>
#include <QVPlatform/Unicode.h>

class PlainInput : public CTextInput {
public:
    PlainInput(const char* start, unsigned int length)
        : CTextInput(qvstring("n")), m_pStart(start), m_pCurrent(start), m_pEnd(start + length) {}

    long long Tell() const override { return m_pCurrent - m_pStart; }
    void Seek(long long offset) override { m_pCurrent = m_pStart + offset; }
    bool ReadNextCodePoint(int& codePoint) override {
        if (m_pCurrent == m_pEnd)
            return false;
        codePoint = qv_codepoint_from_qvchar(m_pCurrent, m_pEnd);
        return true;
    }

private:
    const char* m_pStart;
    const char* m_pCurrent;
    const char* m_pEnd;
};
