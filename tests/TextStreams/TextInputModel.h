// A model of text inputs: the obvious reading, worked out before the first code point is asked for, and a driver that
// does the same random operations with an input and its model.
#pragma once

#include <QVLib/TextStreams/TextInput.h>
#include <QVPlatform/Unicode.h>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

// Raw code points, and the offsets behind them; the first offset is the start of the text.
struct Decoded {
    std::vector<int> m_CodePoints;
    std::vector<long long> m_Ends;
    long long m_Size; // more than the last of these where the text ends in something cut off
};

// A code point, -1 at the end, and the line and column where it starts.
using Item = std::tuple<int, unsigned int, unsigned int>;

inline Item ReadItem(CTextInput& input) {
    UnicodeCharacter character;
    CQVTextLocation location;
    const bool read = input.ReadCodePointWithLocation(character, location);
    return {read ? character.GetCodePoint() : -1, location.GetLine(), location.GetColumn()};
}

inline std::u32string ReadAll(CTextInput& input) {
    std::u32string text;
    for (int codePoint; input.ReadCodePoint(codePoint);)
        text.push_back(static_cast<char32_t>(codePoint));
    return text;
}

inline qvstring ToUtf8(const std::u32string& text) {
    qvstring bytes;
    for (const char32_t codePoint : text)
        qv_append_codepoint_to_qvstring(static_cast<int>(codePoint), bytes);
    return bytes;
}

inline unsigned int Pick(std::mt19937& random, std::size_t below) {
    return static_cast<unsigned int>(random() % below);
}

class TextInputModel {
public:
    explicit TextInputModel(const Decoded& text) : m_Text(text) {
        unsigned int line = 1, column = 1;
        for (std::size_t i = 0; i < text.m_CodePoints.size(); ++i) {
            const int c = text.m_CodePoints[i];
            if (c == 10 && i > 0 && text.m_CodePoints[i - 1] == 13)
                continue;
            const bool isNewline = c == 10 || c == 13 || c == 0x85 || c == 0x2028 || c == 0x2029;
            m_Items.push_back({{isNewline ? 10 : c, line, column}, text.m_Ends[i + 1]});
            line += isNewline;
            column = isNewline ? 1 : column + 1;
        }
        m_Items.push_back({{-1, line, column}, text.m_Size});
        Reset();
    }

    Item Read() {
        Item item;
        if (m_PushBack.empty()) {
            std::tie(item, m_Offset) = m_Items[m_Next];
            m_Next += m_Next + 1 < m_Items.size();
        } else {
            item = m_PushBack.back();
            m_PushBack.pop_back();
        }
        return item;
    }

    // Up to a newline, which is appended too, or to the end.
    std::u32string ReadLine() {
        std::u32string line;
        for (int codePoint = 0; codePoint != 10 && (codePoint = std::get<0>(Read())) != -1;)
            line.push_back(static_cast<char32_t>(codePoint));
        return line;
    }

    void Reset() {
        m_PushBack.clear();
        m_Next = 0;
        m_Offset = m_Text.m_Ends[0];
    }

    const Decoded& GetText() const { return m_Text; }

    std::vector<Item> m_PushBack;
    long long m_Offset;

private:
    Decoded m_Text;
    std::vector<std::pair<Item, long long>> m_Items; // each with the offset behind it
    std::size_t m_Next;
};

// Failures are fatal, so the caller looks at HasFatalFailure().
inline void CompareWithModel(CTextInput& input, TextInputModel model, std::mt19937& random) {
    std::vector<std::pair<CTextInput::Position, TextInputModel>> saved;
    const std::size_t count = model.GetText().m_CodePoints.size();
    for (int step = 0; step < 60; ++step) {
        qvstring line;
        std::u32string line32;
        bool endedByNewline = false;
        switch (Pick(random, 10)) {
        case 0:
        case 1:
            for (unsigned int n = Pick(random, Pick(random, 8) ? 12 : count + 1); n > 0; --n) {
                UnicodeCharacter character;
                const bool read = input.ReadCodePoint(character);
                ASSERT_EQ(read ? character.GetCodePoint() : -1, std::get<0>(model.Read()));
            }
            break;
        case 2:
            ASSERT_EQ(ReadItem(input), model.Read());
            break;
        case 3: { // a look elsewhere
            CTextInput::Position position;
            input.SavePosition(position);
            const unsigned int there = Pick(random, count + 1);
            input.Seek(model.GetText().m_Ends[there]);
            ASSERT_EQ(input.Tell(), model.GetText().m_Ends[there]);
            int raw;
            ASSERT_EQ(input.ReadNextCodePoint(raw), there < count);
            ASSERT_TRUE(there == count || raw == model.GetText().m_CodePoints[there]);
            input.RestorePosition(position);
            break;
        }
        case 4:
            for (unsigned int n = Pick(random, 5); n > 0; --n) {
                CQVTextLocation location;
                location.SetLineAndColumn(7 + n, 5);
                const UnicodeCharacter character(static_cast<int>(Pick(random, 3) ? 'A' + n : 9 + n));
                input.ReplaceCodePoint(character, location);
                model.m_PushBack.push_back({character.GetCodePoint(), 7 + n, 5});
            }
            break;
        case 5: {
            const std::u32string expected = model.ReadLine();
            ASSERT_EQ(input.ReadLine(line, endedByNewline), !expected.empty());
            ASSERT_EQ(endedByNewline ? line + '\n' : line, ToUtf8(expected));
            ASSERT_EQ(endedByNewline, expected.ends_with(U'\n'));
            break;
        }
        case 6: {
            const std::u32string expected = model.ReadLine();
            ASSERT_EQ(input.ReadLine(line32, endedByNewline), !expected.empty());
            ASSERT_EQ(endedByNewline ? line32 + U'\n' : line32, expected);
            break;
        }
        case 7:
            saved.push_back({{}, model});
            input.SavePosition(saved.back().first);
            break;
        case 8:
            if (saved.empty()) {
                input.ResetPosition();
                model.Reset();
            } else {
                const auto& position = saved[Pick(random, saved.size())];
                input.RestorePosition(position.first);
                model = position.second;
            }
            break;
        default: { // a look at the rest
            CTextInput::Position position;
            input.SavePosition(position);
            TextInputModel rest = model;
            std::u32string text;
            unsigned int lines = 0;
            for (std::u32string next = rest.ReadLine(); !next.empty(); next = rest.ReadLine(), ++lines)
                text += next;
            input.ReadAllInput(line);
            ASSERT_EQ(line, ToUtf8(text));
            ASSERT_EQ(ReadItem(input), rest.Read());
            input.RestorePosition(position);
            ASSERT_EQ(input.GetLineCount(), lines);
            input.RestorePosition(position);
        }
        }
        ASSERT_EQ(input.Tell(), model.m_Offset);
    }
}
