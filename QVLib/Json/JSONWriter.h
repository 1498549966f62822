// JSONWriter - gathers the small pieces of formatted JSON before a text output takes them.
#pragma once

#include "JSONNumber.h"
#include <QVPlatform/TextOutput.h>
#include <cstring>
#include <string_view>

class JSONWriter {
public:
    JSONWriter(CTextOutput& out, bool pretty) : m_Out(out), m_bPretty(pretty) {}
    ~JSONWriter() { Flush(); }
    JSONWriter(const JSONWriter&) = delete;
    JSONWriter& operator=(const JSONWriter&) = delete;

    bool IsPretty() const { return m_bPretty; }

    void Put(char character) {
        if (m_Used == sizeof m_Buffer)
            Flush();
        m_Buffer[m_Used++] = character;
    }
    // A piece is never torn, so a character of several bytes reaches the output whole.
    void Put(std::string_view text) {
        if (text.size() > sizeof m_Buffer - m_Used) {
            Flush();
            if (text.size() > sizeof m_Buffer) {
                m_Out.WriteString(text.data(), static_cast<unsigned int>(text.size()));
                return;
            }
        }
        std::memcpy(m_Buffer + m_Used, text.data(), text.size());
        m_Used += text.size();
    }
    void Put(double number) {
        if (sizeof m_Buffer - m_Used < QVNumberTextSize)
            Flush();
        m_Used += qv_number_to_text(number, m_Buffer + m_Used);
    }
    void EndLine() {
        Flush();
        m_Out.PrintLine();
    }
    void AdjustIndent(int levels) {
        Flush();
        m_Out.AdjustIndent(levels);
    }

private:
    void Flush() {
        if (m_Used != 0)
            m_Out.WriteString(m_Buffer, static_cast<unsigned int>(m_Used));
        m_Used = 0;
    }

    CTextOutput& m_Out;
    const bool m_bPretty;
    size_t m_Used = 0;
    char m_Buffer[2048];
};
