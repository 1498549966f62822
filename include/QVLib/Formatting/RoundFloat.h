// QVRoundFloat - rounds floating-point values before they are shown or stored.
//
// For values that stay numbers. Text rounds for itself, on decimal digits: see DecimalFormat.
//
// Results are binary: 3.14 is the double nearest to it, with the usual small error of a division.
// Errors: none. Where 10 to the power `digits`, or the value times it, leaves the range of the type, the result
// is infinite or not a number: ask for no more digits than the type holds.
// Threads: any.
#pragma once

class QVRoundFloat {
public:
    // `value` rounded to `digits` decimal places (`decimalPlaces`) or to `digits` significant digits; halves
    // away from zero. -2 decimal places round to hundreds; 0 or fewer significant digits leave 0 or a power of
    // ten. Zero, subnormal, infinite and not a number come back unchanged. RoundFloat() computes in single
    // precision throughout.
    static float RoundFloat(float value, int digits, bool decimalPlaces);
    static double RoundDouble(double value, int digits, bool decimalPlaces);

    // The nearest whole number, ties to the even one.
    static float RoundToEvenFloat(float value);
    static double RoundToEvenDouble(double value);
};
