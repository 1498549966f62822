// What a character may be part of: the one classification behind every way of reading tokens.
#pragma once

#include <QVPlatform/UnicodeCharacter.h>
#include <array>
#include <string_view>

// Bits, so that a token says by a sum which characters go on with it.
enum CharacterClass : unsigned char {
    CharacterBlank = 1, // white space but the line feed
    CharacterDigit = 2, // ASCII only
    CharacterOtherDigit = 4,
    CharacterLetter = 8,
};

// The classes of the bytes of a text in memory. Bytes above 127 are parts of characters, and a carriage
// return is (half of) a newline there; both have none, so that a run stops at them.
constexpr std::array<unsigned char, 256> g_ByteClasses = [] {
    std::array<unsigned char, 256> classes{};
    for (const unsigned char blank : {'\t', '\v', '\f', ' '})
        classes[blank] = CharacterBlank;
    for (unsigned char digit = '0'; digit <= '9'; ++digit)
        classes[digit] = CharacterDigit;
    for (unsigned char letter = 'a'; letter <= 'z'; ++letter)
        classes[letter] = classes[letter - 'a' + 'A'] = CharacterLetter;
    return classes;
}();

inline unsigned int ClassOfByte(char byte) {
    return g_ByteClasses[static_cast<unsigned char>(byte)];
}

// The class of a character that was read; a carriage return gets here only when somebody pushed one back.
inline unsigned int ClassOfCodePoint(int codePoint) {
    if (codePoint >= 0 && codePoint < 0x80 && codePoint != '\r')
        return g_ByteClasses[static_cast<unsigned char>(codePoint)];
    const UnicodeCharacter character(codePoint);
    if (character.IsLetter())
        return CharacterLetter;
    if (character.IsDigit())
        return CharacterOtherDigit;
    return character.IsWhitespace() ? CharacterBlank : 0;
}

// How many bytes at the start of `text` are members of the given classes.
inline unsigned int LengthOfRun(std::string_view text, unsigned int members) {
    const char* current = text.data();
    const char* const end = current + text.size();
    while (current != end && (ClassOfByte(*current) & members) != 0)
        ++current;
    return static_cast<unsigned int>(current - text.data());
}
