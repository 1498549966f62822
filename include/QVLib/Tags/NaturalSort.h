// QVNatrualSort - the order of names that people expect: Pump2 before Pump10, and case ignored.
#pragma once

#include <QVPlatform/String.h>

// Negative, 0 or positive as `a` sorts before, equal to or behind `b`. A strict weak order, fit for std::sort with
// `QVNatrualSort(a, b) < 0`; names that differ in case or in leading zeros only are equal.
//
// Runs of digits, of any length and in any script, compare by their value; everything else by the code points of the
// upper-case letters. A digit stands where the ASCII digit of its value stands: what is no digit sorts before all
// digits or behind all of them, whatever their script. Linear, allocates nothing. Any thread.
int QVNatrualSort(const qvstring& a, const qvstring& b);
