// Printed tokens and random texts for the tests of parsers.
#pragma once

#include "support/ChunkedInput.h"
#include <QVLib/Parsing/ParseToken.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <algorithm>
#include <random>
#include <string>
#include <string_view>

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
