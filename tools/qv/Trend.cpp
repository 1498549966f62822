#include "Trend.h"

#include "Output.h"

#include <QVPlatform/Assert.h>
#include <QVPlatform/Timestamp.h>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

Trend::Trend(long long from, long long to, std::size_t columns) : m_From(from), m_To(to), m_Columns(columns) {
    QV_ASSERT(from <= to && columns != 0);
}

void Trend::Add(long long time, double value) {
    if (time < m_From || time > m_To || !std::isfinite(value))
        return;
    const double range = static_cast<double>(m_To) - static_cast<double>(m_From) + 1;
    const double position = (static_cast<double>(time) - static_cast<double>(m_From)) / range;
    const auto index = static_cast<std::size_t>(position * static_cast<double>(m_Columns.size()));
    TrendColumn& column = m_Columns[std::min(index, m_Columns.size() - 1)];
    if (column.m_Count++ == 0)
        column = {1, value, value, value, value};
    column.m_Last = value;
    column.m_Min = std::min(column.m_Min, value);
    column.m_Max = std::max(column.m_Max, value);
    m_Min = m_Count == 0 ? value : std::min(m_Min, value);
    m_Max = m_Count == 0 ? value : std::max(m_Max, value);
    ++m_Count;
}

long long Trend::GetDuration() const {
    const unsigned long long duration =
        static_cast<unsigned long long>(m_To) - static_cast<unsigned long long>(m_From);
    return static_cast<long long>(
        std::min<unsigned long long>(duration, std::numeric_limits<long long>::max()));
}

bool Trend::AreJoined(std::size_t left, std::size_t right) const {
    const auto gap = static_cast<double>(right - left);
    const double usualGap = static_cast<double>(m_Columns.size()) / static_cast<double>(m_Count);
    return gap <= 1 + 10 * usualGap;
}

// Times that share the date and more need not repeat it: short ranges show the time of day, long ones the
// date.
std::string Trend::GetTimeLabel(long long time) const {
    const long long range = GetDuration();
    std::string text;
    TimeFormatter().Append(text, time, true);
    const std::size_t clock = text.find('T') + 1;
    if (range <= CQVTimeInterval::UnitsPerMinute)
        return text.substr(clock, 12); // with milliseconds
    if (range <= CQVTimeInterval::UnitsPerDay)
        return text.substr(clock, 8);
    return text.substr(0, clock - 1) + " " + text.substr(clock, 5);
}

std::string Trend::GetCaption(const TrendTitle& title) const {
    std::string text = title.m_Tag + (title.m_Unit.empty() ? "" : " [" + title.m_Unit + "]") + "  ";
    TimeFormatter formatter;
    formatter.Append(text, m_From, true);
    text += " to ";
    formatter.Append(text, m_To, true);
    return text + "  " + WithSeparators(m_Count) + (m_Count == 1 ? " value" : " values");
}

AxisScale::AxisScale(double min, double max, unsigned int steps) {
    // Beyond these a range overflows, or steps lose their digits.
    constexpr double Huge = 8e307;
    constexpr double Tiny = 1e-290;
    min = std::clamp(min, -Huge, Huge);
    max = std::clamp(max, -Huge, Huge);
    if (max - min < Tiny) {
        const double margin = std::fabs(max) > 10 * Tiny ? std::fabs(max) / 10 : 1;
        min -= margin;
        max += margin;
    }
    const double rough = (max - min) / steps;
    const double magnitude = std::pow(10, std::floor(std::log10(rough)));
    m_Step = 10 * magnitude;
    for (const double factor : {1.0, 2.0, 2.5, 5.0}) {
        if (factor * magnitude >= rough * (1 - 1e-9)) {
            m_Step = factor * magnitude;
            break;
        }
    }
    m_Start = std::floor(min / m_Step + 1e-9) * m_Step;
    m_Steps =
        std::clamp(static_cast<unsigned int>(std::ceil((max - m_Start) / m_Step - 1e-9)), 1u, 2 * steps);
}

std::string AxisScale::GetLabel(unsigned int tick) const {
    double value = m_Start + m_Step * tick;
    if (std::fabs(value) < m_Step / 1e6)
        value = 0; // what rounding left of it
    char text[32];
    // Enough digits that neighbours differ, and none more than the axis has room for.
    const double digits = std::log10(std::max(std::fabs(m_Start), std::fabs(GetEnd())) / m_Step) + 3;
    const auto result = std::to_chars(text, text + sizeof text, value, std::chars_format::general,
                                      static_cast<int>(std::clamp(digits, 3.0, 7.0)));
    return std::string(text, result.ptr);
}
