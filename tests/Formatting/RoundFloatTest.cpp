#include <QVLib/Formatting/RoundFloat.h>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace {

TEST(RoundFloatTest, RoundsToDecimalPlacesAndToSignificantDigits) {
    const struct {
        double value;
        int digits;
        bool decimalPlaces;
        double expected;
    } rows[] = {
        {3.14159, 2, true, 3.14},
        {-2.5, 0, true, -3},
        {2.5, 0, true, 3},
        {1234.5, -2, true, 1200},
        {0.4, 0, true, 0},
        {-0.125, 2, true, -0.13},
        {123456.0, 3, false, 123000},
        {0.00123456, 2, false, 0.0012},
        {1000.0, 2, false, 1000},
        {-987654.0, 1, false, -1e6},
        {7.0, 0, false, 10},
        {3.0, 0, false, 0},
    };
    for (const auto& row : rows) {
        EXPECT_DOUBLE_EQ(QVRoundFloat::RoundDouble(row.value, row.digits, row.decimalPlaces), row.expected)
            << row.value << " to " << row.digits;
        const float value = static_cast<float>(row.value);
        EXPECT_FLOAT_EQ(QVRoundFloat::RoundFloat(value, row.digits, row.decimalPlaces),
                        static_cast<float>(row.expected))
            << row.value << " to " << row.digits;
    }
    // Single precision throughout: the product is 0.5 in it, and a little less in double precision.
    EXPECT_EQ(QVRoundFloat::RoundFloat(0.005F, 2, true), 0.01F);
    EXPECT_EQ(QVRoundFloat::RoundDouble(static_cast<double>(0.005F), 2, true), 0);
}

template<class Real>
void ExpectUnchanged(Real (*round)(Real, int, bool)) {
    using Limits = std::numeric_limits<Real>;
    for (const bool decimalPlaces : {true, false}) {
        for (const Real value : {Limits::infinity(), -Limits::infinity(), Limits::denorm_min(), Real(0)})
            EXPECT_EQ(round(value, 2, decimalPlaces), value);
        EXPECT_TRUE(std::signbit(round(-Real(0), 2, decimalPlaces)));
        EXPECT_TRUE(std::isnan(round(Limits::quiet_NaN(), 2, decimalPlaces)));
    }
}

TEST(RoundFloatTest, ValuesThatAreNotNormalComeBackUnchanged) {
    ExpectUnchanged(&QVRoundFloat::RoundFloat);
    ExpectUnchanged(&QVRoundFloat::RoundDouble);
}

TEST(RoundFloatTest, TiesGoToTheEvenNumber) {
    for (const double value : {2.5, 3.5, -2.5, 0.5, -0.5, 1e15 + 0.5, 7.49, -7.51}) {
        EXPECT_EQ(QVRoundFloat::RoundToEvenDouble(value), std::nearbyint(value)) << value;
        const float single = static_cast<float>(value);
        EXPECT_EQ(QVRoundFloat::RoundToEvenFloat(single), std::nearbyint(single)) << value;
    }
}

} // namespace
