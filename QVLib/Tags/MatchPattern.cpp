#include <QVLib/Tags/MatchPattern.h>
#include <QVPlatform/Ascii.h>
#include <QVPlatform/Unicode.h>
#include <QVPlatform/UnicodeCharacter.h>
#include <array>
#include <cstring>
#include <string_view>

namespace {

using ByteTable = std::array<unsigned char, 256>;

constexpr ByteTable MakeConversion(bool caseSensitive) {
    ByteTable table{};
    for (int byte = 0; byte < 256; byte++)
        table[static_cast<unsigned int>(byte)] =
            static_cast<unsigned char>(caseSensitive ? byte : qv_ascii_to_upper(byte));
    return table;
}

// What a byte of ASCII is compared as.
template<bool CaseSensitive>
constexpr ByteTable Conversion = MakeConversion(CaseSensitive);

// The bytes of a pattern that stand for themselves.
constexpr ByteTable PlainBytes = [] {
    ByteTable table{};
    for (unsigned int byte = 0; byte < 0x80; byte++)
        table[byte] = byte != '*' && byte != '?' && byte != '#' && byte != '[';
    return table;
}();

// A place in text or pattern, copied to come back to it.
template<bool CaseSensitive>
class Reader {
public:
    explicit Reader(std::string_view text) : m_pNext(text.data()), m_pEnd(text.data() + text.size()) {}

    bool IsAtEnd() const { return m_pNext == m_pEnd; }
    std::size_t GetBytesLeft() const { return static_cast<std::size_t>(m_pEnd - m_pNext); }
    // The next byte; not at the end.
    unsigned char Peek() const { return static_cast<unsigned char>(*m_pNext); }
    void SkipByte() { m_pNext++; }

    // The next code point, in upper case unless the match is case-sensitive. Not at the end.
    int Read() {
        const unsigned char byte = Peek();
        if (byte < 0x80) {
            m_pNext++;
            return Conversion<CaseSensitive>[byte];
        }
        const int codePoint = qv_codepoint_from_qvchar(m_pNext, m_pEnd);
        return CaseSensitive ? codePoint : UnicodeCharTable::ToUpper(codePoint);
    }

    // Skips what is plain ASCII in the pattern and the same in the text.
    static void SkipEqual(Reader& text, Reader& pattern) {
        const char* a = text.m_pNext;
        const char* b = pattern.m_pNext;
        for (; a != text.m_pEnd && b != pattern.m_pEnd; a++, b++) {
            const unsigned char element = static_cast<unsigned char>(*b);
            const unsigned char byte = static_cast<unsigned char>(*a);
            if (PlainBytes[element] == 0 ||
                Conversion<CaseSensitive>[element] != Conversion<CaseSensitive>[byte])
                break;
        }
        text.m_pNext = a;
        pattern.m_pNext = b;
    }

    // True, and read, when the next code point is this one of ASCII.
    bool Take(char character) {
        if (IsAtEnd() || *m_pNext != character)
            return false;
        m_pNext++;
        return true;
    }

    // Goes to the last `count` code points if that can be told from the bytes: true when they are all ASCII, because
    // ASCII never is a part of another character.
    bool GoToLast(std::size_t count) {
        const char* const start = m_pEnd - count;
        for (const char* byte = start; byte != m_pEnd; byte++) {
            if (static_cast<unsigned char>(*byte) >= 0x80)
                return false;
        }
        m_pNext = start;
        return true;
    }

    // Goes to the next place where this byte of ASCII is; false when there is none. For case-sensitive matches.
    bool Find(unsigned char byte) {
        const void* const found = std::memchr(m_pNext, byte, GetBytesLeft());
        m_pNext = found != nullptr ? static_cast<const char*>(found) : m_pEnd;
        return found != nullptr;
    }

private:
    const char* m_pNext;
    const char* m_pEnd;
};

template<bool CaseSensitive>
class Matcher {
public:
    using Place = Reader<CaseSensitive>;

    static OPCMatchResult Match(Place text, Place pattern) {
        const OPCMatchResult result = MatchElements(text, pattern);
        if (result != OPCMatchYes)
            return result;
        if (pattern.Take('*'))
            return MatchBehindStar(text, pattern);
        return pattern.IsAtEnd() && text.IsAtEnd() ? OPCMatchYes : OPCMatchNo;
    }

private:
    // Matches up to the next '*', or to where the text or the pattern ends.
    static OPCMatchResult MatchElements(Place& text, Place& pattern) {
        for (;;) {
            Place::SkipEqual(text, pattern);
            if (pattern.IsAtEnd() || text.IsAtEnd() || pattern.Peek() == '*')
                return OPCMatchYes;
            const OPCMatchResult result = MatchElement(text, pattern);
            if (result != OPCMatchYes)
                return result;
        }
    }

    // Matches one code point of the text with one element of the pattern, which is not '*', and reads both.
    static OPCMatchResult MatchElement(Place& text, Place& pattern) {
        const int codePoint = text.Read();
        if (pattern.Take('?'))
            return OPCMatchYes;
        if (pattern.Take('['))
            return MatchClass(codePoint, pattern);
        if (pattern.Take('#'))
            return codePoint >= '0' && codePoint <= '9' ? OPCMatchYes : OPCMatchNo;
        return codePoint == pattern.Read() ? OPCMatchYes : OPCMatchNo;
    }

    // Reads the class behind "[" to its "]", also when it is clear before that the code point is in it.
    static OPCMatchResult MatchClass(int codePoint, Place& pattern) {
        const bool bNegated = pattern.Take('!');
        bool bFound = false;
        int last = '-';
        while (!pattern.Take(']')) {
            if (pattern.IsAtEnd())
                return OPCMatchMalformed;
            const bool bRange = pattern.Take('-');
            if (bRange && pattern.IsAtEnd())
                return OPCMatchMalformed;
            const int end = pattern.Read();
            const int begin = bRange ? last : end;
            bFound |= begin <= codePoint && codePoint <= end;
            last = end;
        }
        return bFound != bNegated ? OPCMatchYes : OPCMatchNo;
    }

    // Matches the rest of a pattern behind a '*' with the text, from here or any later place. When a later '*' has been
    // reached, the ones before it need no other place: whatever they could skip, the later one can skip too.
    static OPCMatchResult MatchBehindStar(Place text, Place pattern) {
        for (;;) {
            std::size_t count;
            if (CountElementsToEnd(pattern, count))
                return MatchAtEnd(text, pattern, count);
            if (!FindAndMatch(text, pattern))
                return OPCMatchNo;
            pattern.SkipByte(); // the '*'
        }
    }

    // Finds the first place of the text where the pattern matches up to its next '*', and moves both behind that.
    static bool FindAndMatch(Place& text, Place& pattern) {
        for (Place start = text;; start.Read()) {
            if (pattern.Peek() == '*') {
                text = start;
                return true;
            }
            if (CaseSensitive && PlainBytes[pattern.Peek()] != 0 && !start.Find(pattern.Peek()))
                return false;
            if (start.IsAtEnd())
                return false;
            Place behind = start;
            Place rest = pattern;
            if (MatchElements(behind, rest) == OPCMatchYes && !rest.IsAtEnd() && rest.Peek() == '*') {
                text = behind;
                pattern = rest;
                return true;
            }
        }
    }

    // The number of elements of a pattern without a '*'; false when there is one before the end. A class that is not
    // closed matches nothing here, which a count of more than any text has also says.
    static bool CountElementsToEnd(Place pattern, std::size_t& count) {
        for (count = 0; !pattern.IsAtEnd(); count++) {
            if (pattern.Peek() == '*')
                return false;
            if (!pattern.Take('[')) {
                pattern.Read();
            } else if (MatchClass(0, pattern) == OPCMatchMalformed) {
                count = static_cast<std::size_t>(-1);
                return true;
            }
        }
        return true;
    }

    // Matches `count` elements, all that are left of the pattern, with the end of the text.
    static OPCMatchResult MatchAtEnd(Place text, Place pattern, std::size_t count) {
        if (text.GetBytesLeft() < count)
            return OPCMatchNo;
        if (!text.GoToLast(count)) {
            std::size_t length = 0;
            for (Place rest = text; !rest.IsAtEnd(); rest.Read())
                length++;
            if (length < count)
                return OPCMatchNo;
            for (; length > count; length--)
                text.Read();
        }
        return MatchElements(text, pattern) == OPCMatchYes ? OPCMatchYes : OPCMatchNo;
    }
};

template<bool CaseSensitive>
OPCMatchResult Match(std::string_view text, std::string_view pattern) {
    return Matcher<CaseSensitive>::Match(Reader<CaseSensitive>(text), Reader<CaseSensitive>(pattern));
}

} // namespace

int OPCMatchPattern(const qvstring& text, const qvstring& pattern, bool caseSensitive) {
    return caseSensitive ? Match<true>(text, pattern) : Match<false>(text, pattern);
}

int OPCMatchPattern(const qvstring& text, const char* pattern, bool caseSensitive) {
    return caseSensitive ? Match<true>(text, pattern) : Match<false>(text, pattern);
}
