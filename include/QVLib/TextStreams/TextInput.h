// CTextInput - text as the library's parsers read it: one code point after the other, whatever it comes from.
//
// Model:    every code point has a location, the source name, line and column where it starts. A reader that
//           has gone too far pushes code points back, as many as it likes; one that may have to try again
//           saves its position first. A concrete input supplies offsets and raw code points; everything else
//           is here, once. Inputs over text in memory are in TextInputString.h.
// Newlines: LF, CR, CR LF, NEL (U+0085) and the line and paragraph separators (U+2028, U+2029) all read as a
//           single 10. No other code of a newline gets through, except one that the caller pushed back.
// Locations: belong to the next code point that the concrete input delivers. Pushing back does not move it; a
//           pushed-back code point brings its own location along. A location copied out of an input keeps the
//           source name alive after the input is gone.
// Errors:   a read answers false at the end of the text, and keeps doing so. Nothing here throws except when
//           memory runs out.
// Threads:  one thread per input; only the source name may be shared (by copied locations).
// Cost:     a plain ASCII character of an input with a window (see below) is read inline, without a virtual
//           call, an allocation or an atomic operation. ReadLine() and ReadAllInput() take whole runs.
#pragma once

#include <QVPlatform/String.h>
#include <QVPlatform/TextLocation.h>
#include <QVPlatform/UnicodeCharacter.h>
#include <string>
#include <string_view>
#include <vector>

// A code point that was pushed back, and where it starts.
struct CharacterAndLocation {
    int m_CodePoint = 0;
    CQVTextLocation m_Location;
};

// The push-back stack of a text input. Its first entries live inside the object and keep their location when
// they are popped, so pushing back the character just read neither allocates nor counts references.
class CharacterAndLocationStack {
public:
    CharacterAndLocationStack() = default;
    CharacterAndLocationStack(const CharacterAndLocationStack& other) { *this = other; }
    CharacterAndLocationStack& operator=(const CharacterAndLocationStack& other);
    ~CharacterAndLocationStack() = default;

    bool IsEmpty() const { return m_InlineCount == 0; }
    void Clear();
    void Push(int codePoint, const CQVTextLocation& location);
    // The entry pushed last; the stack must not be empty. Valid until the next Push().
    const CharacterAndLocation& Top() const;
    void Pop();

private:
    static constexpr unsigned int InlineCapacity = 2;

    CharacterAndLocation m_Inline[InlineCapacity];
    unsigned int m_InlineCount = 0;
    // Used only while the inline entries are full.
    std::vector<CharacterAndLocation> m_Rest;
};

class CTextInput {
public:
    // The saved state of an input, filled by SavePosition(). It may be kept, copied and restored any number
    // of times, but only into the input that it came from.
    class Position {
    private:
        friend class CTextInput;

        long long m_Offset = 0;
        int m_PreviousCodePoint = 0;
        CQVTextLocation m_Location;
        CharacterAndLocationStack m_PushBack;
    };

    // Without a source name.
    CTextInput() = default;
    explicit CTextInput(const qvstring& name);
    // For text that is embedded in a larger one: locations go on from `start`, under its source name.
    explicit CTextInput(const CQVTextLocation& start);

    // What a concrete input supplies. Their order is part of the interface of compiled programs.
    virtual ~CTextInput();
    // The offset of the next raw code point, in the input's own units.
    virtual long long Tell() const = 0;
    // Goes to an offset that Tell() returned; it is trusted.
    virtual void Seek(long long offset) = 0;
    // The next raw code point, newlines untranslated; false at the end, then and ever after until a Seek().
    // Readers use ReadCodePoint(), which keeps location, push-back and newlines in step.
    virtual bool ReadNextCodePoint(int& codePoint) = 0;
    // Moves the location past one delivered code point. An input that fills the window must not override it.
    virtual void IncrementPosition(int codePoint) { m_Location.IncrementByCodePoint(codePoint); }
    // Lets go of where the text comes from (a file, say) before the input itself goes.
    virtual void Close() {}

    CTextInput(const CTextInput&) = delete;
    CTextInput& operator=(const CTextInput&) = delete;

    // Gives the text a (new) source name for the locations from here on. Locations copied before keep theirs.
    void SetName(const qvstring& name);
    // The source name; empty when there is none.
    void GetName(qvstring& name) const;

    // Reads one code point; false at the end, and `codePoint` then has no meaning.
    bool ReadCodePoint(int& codePoint);
    bool ReadCodePoint(UnicodeCharacter& character);
    // The same, with the location at which the code point starts (at the end: where one would start).
    bool ReadCodePointWithLocation(int& codePoint, CQVTextLocation& location);
    bool ReadCodePointWithLocation(UnicodeCharacter& character, CQVTextLocation& location);
    // Pushes a code point back, to be read again with this location before anything else. The one pushed last
    // is read first.
    void ReplaceCodePoint(int codePoint, const CQVTextLocation& location);
    void ReplaceCodePoint(const UnicodeCharacter& character, const CQVTextLocation& location);

    // For tokenizers: the bytes of UTF-8 that come next, as far as they are in memory, newlines
    // untranslated. Empty while code points are pushed back, and for inputs without a window. Valid until
    // the next operation.
    std::string_view PeekText() const {
        return std::string_view(m_pWindow, static_cast<std::size_t>(m_pFastEnd - m_pWindow));
    }
    // Takes the first `count` bytes of PeekText(). They must be ASCII, and neither 10 nor 13.
    void TakePlainAscii(unsigned int count) { m_pWindow += count; }
    // Takes a 10 that PeekText() starts with and that is a newline of its own, not the second half of a CR
    // LF.
    bool TakePlainLineFeed();
    // Takes everything that PeekText() starts with up to the first `stop1` or `stop2` (ASCII), code point
    // 0, newline other than a line feed, or malformed byte. The result is UTF-8 and valid until the next
    // operation.
    std::string_view TakeTextBefore(char stop1, char stop2);
    // The location of the next code point, as a read would deliver it.
    void GetNextLocation(CQVTextLocation& location) const;

    // Reads up to the next newline, which is consumed and not part of `line`; `endedByNewline` tells whether
    // there was one. False, with an empty line, when nothing is left to read.
    bool ReadLine(qvstring& line, bool& endedByNewline);
    bool ReadLine(std::u32string& line, bool& endedByNewline);
    // Replaces `text` by everything that is left, as UTF-8 with newlines as 10.
    void ReadAllInput(qvstring& text);
    // Counts the lines that are left; a last line needs no newline. Reads the whole rest and then only seeks
    // back to where the concrete input stood: the location stays at the end, and what was pushed back is
    // gone. Save and restore a position around it to go on reading.
    unsigned int GetLineCount();

    // Saves and restores offset, location, push-back and the state of a half-read CR LF. Without push-back
    // nothing is allocated.
    void SavePosition(Position& position) const;
    void RestorePosition(const Position& position);
    // Back to offset 0, line 1, column 1, nothing pushed back; the source name is kept.
    void ResetPosition();

private:
    CQVTextLocationSourceName* m_pSourceName = nullptr;
    CQVTextLocation m_Location;
    CharacterAndLocationStack m_PushBack;
    int m_PreviousCodePoint = 0;

    // The window, see SetWindow(). To read a plain character moves m_pWindow and nothing else: m_Location and
    // m_PreviousCodePoint tell the state at m_pSettled, and m_pWindow - m_pSettled is the number of columns
    // read since, none of them a newline.
    const char* m_pWindow = nullptr;
    // How far the fast path may read: m_pWindowEnd, but m_pWindow while code points are pushed back.
    const char* m_pFastEnd = nullptr;
    const char* m_pWindowEnd = nullptr;
    const char* m_pSettled = nullptr;

    // What the functions out of line return where there is no code point.
    static constexpr long long NothingRead = 1LL << 32;

    unsigned int GetColumn() const {
        return m_Location.GetColumn() + static_cast<unsigned int>(m_pWindow - m_pSettled);
    }
    int GetPreviousCodePoint() const;
    void GetLocation(CQVTextLocation& location) const;
    long long ReadBehindFastPath();
    long long ReadWithLocationBehindFastPath(CQVTextLocation& location);
    long long ReadByGrammar(CQVTextLocation* location = nullptr);
    long long ReadWithLocationByGrammar(CQVTextLocation& location);
    // Steps of the operations above, inlined into them and defined in their source only.
    inline long long ReadFromWindow();
    inline bool ReadRaw(int& codePoint);
    template<class Set>
    inline std::string_view TakeRun(bool withLineFeeds, Set set);
    inline std::string_view TakePlainRun(bool withLineFeeds);
    inline void TakeSequence(int length);
    inline void Settle();
    inline void SetFastEnd();

protected:
    // For an input that finds its text in pieces of another one: the location of the next raw code point from
    // here on. IncrementPosition() moves on from it.
    void SetLocation(const CQVTextLocation& location);

    // The window: the bytes of UTF-8 text that come next, for an input that has them in memory. Reading takes
    // ASCII and well-formed sequences straight from it; all else, and what follows behind its end, is asked
    // from ReadNextCodePoint(). An input with a window uses GetWindow() as its current position in Tell(),
    // Seek() and ReadNextCodePoint(), and moves it with SetWindow(), which leaves location and newlines
    // alone.
    const char* GetWindow() const { return m_pWindow; }
    const char* GetWindowEnd() const { return m_pWindowEnd; }
    void SetWindow(const char* current, const char* end);
};

// The readers answer the usual case, an ASCII character that is no control character, and leave the rest to
// functions out of line. Those return by value so that a caller's variables may stay in registers.
inline bool CTextInput::ReadCodePoint(int& codePoint) {
    const char* const window = m_pWindow;
    if (window != m_pFastEnd) [[likely]] {
        const signed char byte = static_cast<signed char>(*window);
        if (byte >= 0x20) [[likely]] {
            m_pWindow = window + 1;
            codePoint = byte;
            return true;
        }
    }
    const long long result = ReadBehindFastPath();
    codePoint = static_cast<int>(result);
    return result != NothingRead;
}

inline bool CTextInput::ReadCodePoint(UnicodeCharacter& character) {
    int codePoint;
    if (!ReadCodePoint(codePoint))
        return false;
    character.SetCodePoint(codePoint);
    return true;
}

inline bool CTextInput::ReadCodePointWithLocation(int& codePoint, CQVTextLocation& location) {
    const char* const window = m_pWindow;
    if (window != m_pFastEnd) [[likely]] {
        const signed char byte = static_cast<signed char>(*window);
        if (byte >= 0x20 && location.GetSourceNameRef() == m_Location.GetSourceNameRef()) [[likely]] {
            location.SetLineAndColumn(m_Location.GetLine(), GetColumn());
            m_pWindow = window + 1;
            codePoint = byte;
            return true;
        }
    }
    const long long result = ReadWithLocationBehindFastPath(location);
    codePoint = static_cast<int>(result);
    return result != NothingRead;
}

inline bool CTextInput::ReadCodePointWithLocation(UnicodeCharacter& character, CQVTextLocation& location) {
    int codePoint;
    if (!ReadCodePointWithLocation(codePoint, location))
        return false;
    character.SetCodePoint(codePoint);
    return true;
}

// Exact enough between m_pSettled and m_pWindow: only a carriage return is ever asked for, and none is there.
inline int CTextInput::GetPreviousCodePoint() const {
    return m_pWindow == m_pSettled ? m_PreviousCodePoint : m_pWindow[-1];
}

inline void CTextInput::GetLocation(CQVTextLocation& location) const {
    location = m_Location;
    location.SetLineAndColumn(m_Location.GetLine(), GetColumn());
}

inline bool CTextInput::TakePlainLineFeed() {
    if (m_pWindow == m_pFastEnd || *m_pWindow != 10 || GetPreviousCodePoint() == 13)
        return false;
    m_Location.IncrementByCodePoint(10);
    m_PreviousCodePoint = 10;
    m_pSettled = ++m_pWindow;
    return true;
}

inline void CTextInput::GetNextLocation(CQVTextLocation& location) const {
    if (m_PushBack.IsEmpty())
        GetLocation(location);
    else
        location = m_PushBack.Top().m_Location;
}

inline void CTextInput::ReplaceCodePoint(int codePoint, const CQVTextLocation& location) {
    m_PushBack.Push(codePoint, location);
    m_pFastEnd = m_pWindow;
}

inline void CTextInput::ReplaceCodePoint(const UnicodeCharacter& character, const CQVTextLocation& location) {
    ReplaceCodePoint(character.GetCodePoint(), location);
}

inline void CharacterAndLocationStack::Push(int codePoint, const CQVTextLocation& location) {
    if (m_InlineCount == InlineCapacity) {
        m_Rest.push_back({codePoint, location});
        return;
    }
    m_Inline[m_InlineCount].m_CodePoint = codePoint;
    m_Inline[m_InlineCount].m_Location = location;
    ++m_InlineCount;
}

inline const CharacterAndLocation& CharacterAndLocationStack::Top() const {
    return m_Rest.empty() ? m_Inline[m_InlineCount - 1] : m_Rest.back();
}

inline void CharacterAndLocationStack::Pop() {
    if (m_Rest.empty())
        --m_InlineCount;
    else
        m_Rest.pop_back();
}
