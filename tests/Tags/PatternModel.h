// Wildcard matching by plain recursion, as one would write it down: exponential, so for short texts only. ASCII.
#pragma once

#include <string>

class PatternModel {
public:
    PatternModel(const std::string& text, const std::string& pattern, bool caseSensitive)
        : m_Text(Convert(text, caseSensitive)), m_Pattern(Convert(pattern, caseSensitive)) {}

    // 2 match, 1 none, 0 malformed
    int Match() const { return Match(0, 0); }

private:
    static std::string Convert(std::string text, bool caseSensitive) {
        for (char& character : text) {
            if (!caseSensitive && character >= 'a' && character <= 'z')
                character = static_cast<char>(character - 'a' + 'A');
        }
        return text;
    }

    int Match(size_t text, size_t pattern) const {
        if (pattern == m_Pattern.size())
            return text == m_Text.size() ? 2 : 1;
        const char element = m_Pattern[pattern++];
        if (element == '*') {
            for (; text < m_Text.size(); text++) {
                if (Match(text, pattern) == 2)
                    return 2;
            }
            return Match(text, pattern);
        }
        if (text == m_Text.size())
            return 1;
        const char character = m_Text[text++];
        bool bMatch = element == character;
        if (element == '?')
            bMatch = true;
        else if (element == '#')
            bMatch = character >= '0' && character <= '9';
        else if (element == '[' && !MatchClass(character, pattern, bMatch))
            return 0;
        return bMatch ? Match(text, pattern) : 1;
    }

    // False when the class is malformed.
    bool MatchClass(char character, size_t& pattern, bool& bMatch) const {
        const bool bNegated = pattern < m_Pattern.size() && m_Pattern[pattern] == '!';
        pattern += bNegated ? 1 : 0;
        bool bFound = false;
        char from = '-';
        for (; pattern < m_Pattern.size(); pattern++) {
            if (m_Pattern[pattern] == ']') {
                pattern++;
                bMatch = bFound != bNegated;
                return true;
            }
            if (m_Pattern[pattern] != '-')
                from = m_Pattern[pattern];
            else if (++pattern == m_Pattern.size())
                return false;
            bFound = bFound || (from <= character && character <= m_Pattern[pattern]);
            from = m_Pattern[pattern];
        }
        return false;
    }

    std::string m_Text;
    std::string m_Pattern;
};
