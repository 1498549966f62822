#include <QVLib/Formatting/RoundFloat.h>
#include <cmath>

namespace {

// The standard functions have an overload for each type, so nothing here leaves the precision of `Real`.
template<class Real>
Real Round(Real value, int digits, bool decimalPlaces) {
    if (std::fpclassify(value) != FP_NORMAL)
        return value;
    Real exponent = static_cast<Real>(digits);
    if (!decimalPlaces)
        exponent -= std::ceil(std::log10(std::fabs(value)));
    const Real scale = std::pow(Real(10), exponent);
    return std::round(value * scale) / scale;
}

} // namespace

float QVRoundFloat::RoundFloat(float value, int digits, bool decimalPlaces) {
    return Round(value, digits, decimalPlaces);
}

double QVRoundFloat::RoundDouble(double value, int digits, bool decimalPlaces) {
    return Round(value, digits, decimalPlaces);
}

float QVRoundFloat::RoundToEvenFloat(float value) {
    return value - std::remainder(value, 1.0F);
}

double QVRoundFloat::RoundToEvenDouble(double value) {
    return value - std::remainder(value, 1.0);
}
