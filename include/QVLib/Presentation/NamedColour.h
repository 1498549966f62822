// The named colours: 142 names with the values that CSS Color Module Level 4 gives them, in groups for a menu.
//
// Names are found in any case of ASCII letters and printed as they stand in the table. "Grey" and "LightGrey" are the
// only names with an "e"; "LightGray" is none.
// Threads: constant data, any thread.
#pragma once

#include <QVPlatform/String.h>

enum ColourGroup : int {
    ColourGroupGreyBlack = 0,
    ColourGroupReds = 1,
    ColourGroupOrange = 2,
    ColourGroupYellows = 3,
    ColourGroupBrowns = 4,
    ColourGroupGreens = 5,
    ColourGroupCyans = 6,
    ColourGroupBlues = 7,
    ColourGroupPurples = 8,
    ColourGroupPinks = 9,
    ColourGroupWhites = 10,
};

struct NamedColour {
    const char* m_pName;
    ColourGroup m_Group;
    int m_Red;
    int m_Green;
    int m_Blue;
};

// The table, in ascending order of the names without regard to case. CColourValue has the operations on it.
extern const NamedColour g_NamedColours[];
extern const unsigned int g_NamedColoursLength;
