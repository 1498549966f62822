// Inputs and printed tokens for the tests of parsers.
#pragma once

#include <QVLib/Parsing/ParseToken.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/Unicode.h>
#include <algorithm>
#include <random>
#include <string>
#include <string_view>

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

// "6:abc@1:1-1:4 ": type, text, begin, end. Line feeds are printed as '$'.
inline std::string PrintToken(const CParseToken& token) {
    std::string text = token.Text();
    std::replace(text.begin(), text.end(), '\n', '$');
    const auto print = [](const CQVTextLocation& location) {
        return std::to_string(location.GetLine()) + ":" + std::to_string(location.GetColumn());
    };
    return std::to_string(token.Type()) + ":" + text + "@" + print(token.Location().GetBegin()) + "-" +
           print(token.Location().GetEnd()) + (token.IsTerminated() ? " " : "! ");
}

// `count` pieces of text, drawn from what tokens are made of; with `hostile`, zeros and malformed bytes too.
inline qvstring MakeRandomText(unsigned int seed, unsigned int count, bool hostile) {
    using namespace std::string_view_literals;
    static constexpr std::string_view pieces[] = {"a", "Zq", "7", "42", "_", "e3", " ", "\t", "\n", "\r",
                                                  "\r\n", ".", "..", "...", "!", "=", "<", ">", "\"", "'",
                                                  "\\", "`", "{", "]", ",", "\v", "\x7F", "\x01", "é",
                                                  "\u0663", "€", "\u00A0", "\u0085", "\u2028", "😀", "'it''s'",
                                                  // the hostile ones
                                                  "\0"sv, "\xC3", "\x80", "\xF0\x9F", "\xED\xA0\x80", "\xFF"};
    std::mt19937 random(seed);
    const std::size_t choices = std::size(pieces) - (hostile ? 0 : 6);
    qvstring text;
    for (unsigned int i = 0; i < count; ++i)
        text += pieces[random() % choices];
    return text;
}
