// The line of a text that a message is about, with the message's range underlined:
//
//       2 | {"a": }
//         |       ^
#pragma once

#include <string>
#include <string_view>

// A range of a line, in characters from 1; m_EndColumn is just behind it. Line 0 is no place at all.
struct Place {
    unsigned int m_Line = 0;
    unsigned int m_Column = 0;
    unsigned int m_EndColumn = 0;
};

// Appends `line` (UTF-8) behind its number, and below it the underline. Tabs become blanks, wide characters count as two
// columns, and what would move a terminal's cursor is replaced. Of a line that does not fit into `width` columns the
// part around the range is shown. The cost does not depend on how much of the line follows the range.
void AppendExcerpt(std::string& out, std::string_view line, const Place& place, unsigned int width);

// Appends text with what is harmful to a terminal replaced in the same way.
void AppendHarmless(std::string& out, std::string_view text);
