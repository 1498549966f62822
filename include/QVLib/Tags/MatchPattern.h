// OPCMatchPattern - does a name match a wildcard pattern, as used to browse tags?
//
//     *        any text, also none
//     ?        any character
//     #        an ASCII digit
//     [a-fxy]  a character of the class: single ones and ranges, both ends included
//     [!a-f]   a character that is not of the class
//     other    itself
//
// In a class, every '-' makes a range from the character before it to the one behind it; right after "[" or "[!" the
// range begins with '-' itself. The character behind a '-' is the end of the range whatever it is, so "[a-]" is not
// closed. "[]" holds no character and "[!]" all of them. There is no escape: "[*]" stands for a star.
// Characters are code points. Unless `caseSensitive`, both sides are converted to upper case first, the ends of ranges
// too.
#pragma once

#include <QVPlatform/String.h>

enum OPCMatchResult : int {
    OPCMatchMalformed = 0, // a class met on the way is not closed
    OPCMatchNo = 1,
    OPCMatchYes = 2,
};

// An OPCMatchResult. A pattern is read only as far as the text leads, so what is malformed may not be met; and behind a
// '*', which tries the rest of the pattern at every place, a malformed class only means that the rest does not match
// there.
//
// Takes time in proportion to the length of the text times that of the pattern at worst, and allocates nothing. Any
// thread.
int OPCMatchPattern(const qvstring& text, const qvstring& pattern, bool caseSensitive);
int OPCMatchPattern(const qvstring& text, const char* pattern, bool caseSensitive);
