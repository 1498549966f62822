#include <QVLib/TextStreams/TextInput.h>
#include <QVPlatform/Unicode.h>
#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace {

// Every newline but LF, which needs no translation.
bool IsForeignNewline(int codePoint) {
    return codePoint == 13 || codePoint == 0x85 || codePoint == 0x2028 || codePoint == 0x2029;
}

constexpr std::uint64_t EachByte = 0x0101010101010101;

// Marks, by its top bit, each byte that equals `byte`, and now and then one behind a marked one.
std::uint64_t MarkEqual(std::uint64_t word, char byte) {
    const std::uint64_t difference = word ^ (EachByte * static_cast<unsigned char>(byte));
    return (difference - EachByte) & ~difference;
}

// ASCII up to a newline.
struct PlainAscii {
    // Neither a newline nor part of a longer sequence.
    bool IsMember(char byte) const { return static_cast<signed char>(byte) >= 0 && byte != 10 && byte != 13; }
    // The top bit of each byte that may be no member: the subtraction borrows into the top bit of each byte
    // below 14.
    std::uint64_t Mark(std::uint64_t word) const { return (word - EachByte * 14) | word; }
};

// ASCII up to a newline, a zero or one of two characters.
struct PlainAsciiBefore {
    bool IsMember(char byte) const {
        return PlainAscii().IsMember(byte) && byte != 0 && byte != m_Stop1 && byte != m_Stop2;
    }
    std::uint64_t Mark(std::uint64_t word) const {
        return PlainAscii().Mark(word) | MarkEqual(word, m_Stop1) | MarkEqual(word, m_Stop2);
    }

    char m_Stop1;
    char m_Stop2;
};

// The end of the members that start at `current`, eight bytes at a time: a word without a marked byte holds
// nothing to stop at. A marked byte may still be a member (a tab) and is then stepped over.
template<class Set>
inline const char* EndOfMembers(const char* current, const char* end, Set set) {
    while (end - current >= 8) {
        std::uint64_t word;
        memcpy(&word, current, 8);
        const std::uint64_t marked = set.Mark(word) & (EachByte * 0x80);
        if (marked == 0) {
            current += 8;
            continue;
        }
        current += (std::endian::native == std::endian::little ? std::countr_zero(marked)
                                                               : std::countl_zero(marked)) /
                   8;
        if (!set.IsMember(*current))
            return current;
        ++current;
    }
    while (current != end && set.IsMember(*current))
        ++current;
    return current;
}

// A decoded sequence of bytes; of length 0 when there was none.
struct Sequence {
    int m_CodePoint = 0;
    int m_Length = 0;
};

// Decodes one well-formed sequence (Unicode Standard, table 3-7). All decoders agree on well-formed text; the
// rest is for the input's own one.
inline Sequence DecodeWellFormed(const char* current, const char* end) {
    const auto byte = [current](int index) { return static_cast<unsigned char>(current[index]); };
    const auto isTrail = [byte](int index) { return (byte(index) & 0xC0) == 0x80; };
    const int lead = byte(0);
    if (lead < 0x80)
        return {lead, 1};
    if (lead < 0xE0) {
        if (lead < 0xC2 || end - current < 2 || !isTrail(1))
            return {};
        return {(lead & 0x1F) << 6 | (byte(1) & 0x3F), 2};
    }
    if (lead < 0xF0) {
        if (end - current < 3 || !isTrail(1) || !isTrail(2))
            return {};
        const int codePoint = (lead & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F);
        const bool valid = codePoint >= 0x800 && (codePoint & 0xF800) != 0xD800;
        return valid ? Sequence{codePoint, 3} : Sequence{};
    }
    if (end - current < 4 || !isTrail(1) || !isTrail(2) || !isTrail(3))
        return {};
    const int codePoint =
        (lead & 0x0F) << 18 | (byte(1) & 0x3F) << 12 | (byte(2) & 0x3F) << 6 | (byte(3) & 0x3F);
    const bool valid = codePoint >= 0x10000 && codePoint <= 0x10FFFF;
    return valid ? Sequence{codePoint, 4} : Sequence{};
}

} // namespace

inline void CTextInput::SetFastEnd() {
    m_pFastEnd = m_PushBack.IsEmpty() ? m_pWindowEnd : m_pWindow;
}

inline void CTextInput::Settle() {
    m_PreviousCodePoint = GetPreviousCodePoint();
    m_Location.SetLineAndColumn(m_Location.GetLine(), GetColumn());
    m_pSettled = m_pWindow;
}

// A sequence of several bytes is one column, so all its bytes but one are taken out of the distance.
inline void CTextInput::TakeSequence(int length) {
    m_pSettled += length - 1;
    m_pWindow += length;
}

// Takes everything from the window up to what needs the full grammar: an ASCII byte outside the set (other than
// a line feed, if those are welcome), a newline or a malformed byte. Takes nothing while code points are pushed
// back.
template<class Set>
inline std::string_view CTextInput::TakeRun(bool withLineFeeds, Set set) {
    if (!m_PushBack.IsEmpty())
        return {};
    const char* const start = m_pWindow;
    for (;;) {
        m_pWindow = EndOfMembers(m_pWindow, m_pWindowEnd, set);
        if (m_pWindow == m_pWindowEnd)
            break;
        if (static_cast<signed char>(*m_pWindow) >= 0) {
            if (withLineFeeds && TakePlainLineFeed())
                continue;
            break;
        }
        const Sequence sequence = DecodeWellFormed(m_pWindow, m_pWindowEnd);
        if (sequence.m_Length == 0 || IsForeignNewline(sequence.m_CodePoint))
            break;
        TakeSequence(sequence.m_Length);
    }
    return std::string_view(start, static_cast<std::size_t>(m_pWindow - start));
}

inline std::string_view CTextInput::TakePlainRun(bool withLineFeeds) {
    return TakeRun(withLineFeeds, PlainAscii());
}

std::string_view CTextInput::TakeTextBefore(char stop1, char stop2) {
    return TakeRun(true, PlainAsciiBefore{stop1, stop2});
}

inline bool CTextInput::ReadRaw(int& codePoint) {
    if (m_pWindow != m_pWindowEnd) {
        const Sequence sequence = DecodeWellFormed(m_pWindow, m_pWindowEnd);
        m_pSettled = m_pWindow += sequence.m_Length;
        codePoint = sequence.m_CodePoint;
        if (sequence.m_Length > 0)
            return true;
    }
    return ReadNextCodePoint(codePoint);
}

// Takes a sequence of several bytes or a line feed, in few steps and without a call.
inline long long CTextInput::ReadFromWindow() {
    const Sequence sequence = DecodeWellFormed(m_pWindow, m_pWindowEnd);
    if (sequence.m_CodePoint > 13 && !IsForeignNewline(sequence.m_CodePoint)) {
        TakeSequence(sequence.m_Length);
        return sequence.m_CodePoint;
    }
    return TakePlainLineFeed() ? 10 : ReadByGrammar();
}

CharacterAndLocationStack& CharacterAndLocationStack::operator=(const CharacterAndLocationStack& other) {
    m_Rest = other.m_Rest;
    std::copy_n(other.m_Inline, other.m_InlineCount, m_Inline);
    m_InlineCount = other.m_InlineCount;
    return *this;
}

void CharacterAndLocationStack::Clear() {
    m_Rest.clear();
    m_InlineCount = 0;
}

CTextInput::CTextInput(const qvstring& name) {
    SetName(name);
}

CTextInput::CTextInput(const CQVTextLocation& start)
    : m_pSourceName(start.GetSourceNameRef()), m_Location(start) {
    if (m_pSourceName)
        m_pSourceName->AddRef();
}

CTextInput::~CTextInput() {
    if (m_pSourceName)
        m_pSourceName->Release();
}

void CTextInput::SetName(const qvstring& name) {
    CQVTextLocationSourceName* sourceName = new CQVTextLocationSourceName(name);
    sourceName->AddRef();
    m_Location.SetSourceName(sourceName);
    if (m_pSourceName)
        m_pSourceName->Release();
    m_pSourceName = sourceName;
}

void CTextInput::GetName(qvstring& name) const {
    if (m_pSourceName)
        name = m_pSourceName->GetName();
    else
        name.clear();
}

bool CTextInput::ReadLine(qvstring& line, bool& endedByNewline) {
    line.clear();
    endedByNewline = false;
    bool anyRead = false;
    for (;;) {
        const std::string_view run = TakePlainRun(false);
        line.append(run);
        anyRead |= !run.empty();
        int codePoint = 10;
        if (!TakePlainLineFeed() && !ReadCodePoint(codePoint))
            return anyRead;
        anyRead = true;
        endedByNewline = codePoint == 10;
        if (endedByNewline)
            return true;
        qv_append_codepoint_to_qvstring(codePoint, line);
    }
}

bool CTextInput::ReadLine(std::u32string& line, bool& endedByNewline) {
    line.clear();
    endedByNewline = false;
    int codePoint;
    if (!ReadCodePoint(codePoint))
        return false;
    while (codePoint != 10) {
        line.push_back(static_cast<char32_t>(codePoint));
        if (!ReadCodePoint(codePoint))
            return true;
    }
    endedByNewline = true;
    return true;
}

void CTextInput::ReadAllInput(qvstring& text) {
    text.clear();
    text.reserve(static_cast<std::size_t>(m_pWindowEnd - m_pWindow));
    for (;;) {
        text.append(TakePlainRun(true));
        int codePoint;
        if (!ReadCodePoint(codePoint))
            return;
        qv_append_codepoint_to_qvstring(codePoint, text);
    }
}

unsigned int CTextInput::GetLineCount() {
    const long long offset = Tell();
    unsigned int lines = 0;
    bool inLine = false;
    for (;;) {
        inLine |= !TakePlainRun(false).empty();
        int codePoint = 10;
        if (!TakePlainLineFeed() && !ReadCodePoint(codePoint))
            break;
        inLine = codePoint != 10;
        if (!inLine)
            ++lines;
    }
    Seek(offset);
    return inLine ? lines + 1 : lines;
}

void CTextInput::SavePosition(Position& position) const {
    position.m_Offset = Tell();
    position.m_PreviousCodePoint = GetPreviousCodePoint();
    GetLocation(position.m_Location);
    position.m_PushBack = m_PushBack;
}

void CTextInput::RestorePosition(const Position& position) {
    Seek(position.m_Offset);
    m_PreviousCodePoint = position.m_PreviousCodePoint;
    m_Location = position.m_Location;
    m_PushBack = position.m_PushBack;
    SetFastEnd();
}

// Forgets the previous code point too: a line feed at the very start is nobody's second half.
void CTextInput::ResetPosition() {
    Seek(0);
    m_PushBack.Clear();
    SetFastEnd();
    m_Location.Reset();
    m_PreviousCodePoint = 0;
}

void CTextInput::SetLocation(const CQVTextLocation& location) {
    Settle();
    m_Location = location;
}

void CTextInput::SetWindow(const char* current, const char* end) {
    Settle();
    m_pWindow = current;
    m_pWindowEnd = end;
    m_pSettled = current;
    SetFastEnd();
}

long long CTextInput::ReadBehindFastPath() {
    return m_pWindow != m_pFastEnd ? ReadFromWindow() : ReadByGrammar();
}

long long CTextInput::ReadWithLocationBehindFastPath(CQVTextLocation& location) {
    if (m_pWindow == m_pFastEnd || location.GetSourceNameRef() != m_Location.GetSourceNameRef())
        return ReadWithLocationByGrammar(location);
    location.SetLineAndColumn(m_Location.GetLine(), GetColumn());
    return ReadFromWindow();
}

long long CTextInput::ReadWithLocationByGrammar(CQVTextLocation& location) {
    if (m_PushBack.IsEmpty())
        GetLocation(location);
    else
        location = m_PushBack.Top().m_Location;
    return ReadByGrammar(&location);
}

// The whole rule, one step after the other. `location`, where given, is where the code point starts if nothing is left out
// before it.
long long CTextInput::ReadByGrammar(CQVTextLocation* location) {
    if (!m_PushBack.IsEmpty()) {
        const int codePoint = m_PushBack.Top().m_CodePoint;
        m_PushBack.Pop();
        SetFastEnd();
        return codePoint;
    }
    Settle();
    int raw;
    if (!ReadRaw(raw))
        return NothingRead;
    // The line feed of a CR LF; its newline was delivered with the carriage return. Most inputs do not move the location
    // over it, but one whose line feed is written as an escape has moved it.
    if (raw == 10 && m_PreviousCodePoint == 13) {
        if (location)
            GetLocation(*location);
        if (!ReadRaw(raw))
            return NothingRead;
    }
    m_PreviousCodePoint = raw;
    const int codePoint = IsForeignNewline(raw) ? 10 : raw;
    if (m_pWindow)
        m_Location.IncrementByCodePoint(codePoint);
    else
        IncrementPosition(codePoint);
    return codePoint;
}
