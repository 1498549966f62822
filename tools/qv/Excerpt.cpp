#include "Excerpt.h"

#include <QVPlatform/Unicode.h>
#include <QVPlatform/UnicodeCharacter.h>
#include <algorithm>
#include <vector>

namespace {

constexpr unsigned int TabWidth = 4;
constexpr unsigned int MinWidth = 20;
// Characters on each side of a range's begin that are looked at. More than any terminal shows.
constexpr unsigned int MaxReach = 2000;
constexpr std::string_view Ellipsis = "...";

// True for what would move a terminal's cursor or turn the direction of its text, and for what no terminal shows.
bool IsHarmful(int codePoint) {
    return (codePoint >= 0xD800 && codePoint < 0xE000) || (codePoint >= 0x7F && codePoint < 0xA0) ||
           codePoint == 0x2028 || codePoint == 0x2029 || (codePoint >= 0x202A && codePoint <= 0x202E) ||
           (codePoint >= 0x2066 && codePoint <= 0x2069);
}

// What stands for a character: for a control character its picture, for others that are harmful U+FFFD.
int MakeHarmless(int codePoint) {
    if (codePoint < 0x20)
        return 0x2400 + codePoint;
    return IsHarmful(codePoint) ? 0xFFFD : codePoint;
}

// What stands for a character, and the display columns that it takes.
struct Cell {
    int m_CodePoint;
    unsigned int m_Column; // from 0
    unsigned int m_Width;

    unsigned int GetEnd() const { return m_Column + m_Width; }
};

Cell MakeCell(int codePoint, unsigned int column) {
    if (codePoint == '\t')
        return {' ', column, TabWidth - column % TabWidth};
    const int shown = MakeHarmless(codePoint);
    return {shown, column, static_cast<unsigned int>(UnicodeCharacter(shown).GetDisplayWidth())};
}

// The part of a line around a place.
class Piece {
public:
    Piece(std::string_view line, unsigned int place);

    // The display column at which a character, counted from 1 in the whole line, begins.
    unsigned int GetColumn(unsigned int character) const;
    unsigned int GetWidth() const { return m_Width; }
    // Shows the display columns from `begin` to `end`, with dots where something is left out.
    void AppendColumns(std::string& out, unsigned int begin, unsigned int end) const;

private:
    std::vector<Cell> m_Cells;
    unsigned int m_First = 1; // character of the line
    unsigned int m_Width = 0;
    bool m_bMore = false; // follows in the line
};

Piece::Piece(std::string_view line, unsigned int place) {
    const char* current = line.data();
    const char* const end = current + line.size();
    for (; current != end && m_First + MaxReach < place; ++m_First)
        qv_codepoint_from_qvchar(current, end);
    while (current != end && m_Cells.size() < 2 * MaxReach) {
        m_Cells.push_back(MakeCell(qv_codepoint_from_qvchar(current, end), m_Width));
        m_Width = m_Cells.back().GetEnd();
    }
    m_bMore = current != end;
}

unsigned int Piece::GetColumn(unsigned int character) const {
    const std::size_t index = character - std::min(character, m_First);
    return index < m_Cells.size() ? m_Cells[index].m_Column : m_Width;
}

void Piece::AppendColumns(std::string& out, unsigned int begin, unsigned int end) const {
    const auto dots = static_cast<unsigned int>(Ellipsis.size());
    const bool bCutBefore = begin != 0 || m_First != 1;
    const bool bCutBehind = end < m_Width || m_bMore;
    unsigned int column = begin;
    if (bCutBefore) {
        out += Ellipsis;
        column += dots;
    }
    const unsigned int last = end - (bCutBehind ? dots : 0);
    for (const Cell& cell : m_Cells) {
        if (cell.m_Column < column || cell.GetEnd() > last)
            continue;
        out.append(cell.m_Column - column, ' '); // in place of a wide character that is cut
        if (cell.m_CodePoint == ' ')
            out.append(cell.m_Width, ' ');
        else
            qv_append_codepoint_to_qvstring(cell.m_CodePoint, out);
        column = cell.GetEnd();
    }
    if (bCutBehind)
        out.append(last - std::min(last, column), ' ').append(Ellipsis);
}

} // namespace

void AppendExcerpt(std::string& out, std::string_view line, const Place& place, unsigned int width) {
    const std::string number = std::to_string(place.m_Line);
    const auto gutter = static_cast<unsigned int>(number.size()) + 5;
    width = std::clamp(width, gutter + MinWidth, MaxReach / 2) - gutter;

    const Piece piece(line, place.m_Column);
    const unsigned int begin = piece.GetColumn(place.m_Column);
    // A range that ends in a later line is underlined up to the end of this one.
    const unsigned int end =
        place.m_EndColumn >= place.m_Column ? piece.GetColumn(place.m_EndColumn) : piece.GetWidth();

    unsigned int windowBegin = 0;
    unsigned int windowEnd = piece.GetWidth();
    if (windowEnd > width) {
        const unsigned int before = width * 2 / 3; // what precedes a fault tells more than what follows it
        windowBegin = std::min(begin - std::min(begin, before), windowEnd + 1 - width);
        windowEnd = std::min(windowBegin + width, windowEnd);
    }
    out.append("  ").append(number).append(" | ");
    piece.AppendColumns(out, windowBegin, windowEnd);
    out.erase(out.find_last_not_of(' ') + 1);
    out.append("\n").append(gutter - 2, ' ').append("| ").append(begin - windowBegin, ' ');
    out.append(std::max(std::min(end, windowEnd), begin + 1) - begin, '^').append("\n");
}

void AppendHarmless(std::string& out, std::string_view text) {
    const char* current = text.data();
    const char* const end = current + text.size();
    while (current != end)
        qv_append_codepoint_to_qvstring(MakeHarmless(qv_codepoint_from_qvchar(current, end)), out);
}
