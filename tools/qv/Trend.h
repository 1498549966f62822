// Trend - the values of one tag over a time range, gathered into columns of equal duration, and its two
// pictures: text for a terminal and SVG.
#pragma once

#include <string>
#include <vector>

struct TrendColumn {
    unsigned long long m_Count = 0;
    double m_First = 0; // in the order of arrival
    double m_Last = 0;
    double m_Min = 0;
    double m_Max = 0;
};

struct TrendTitle {
    std::string m_Tag;
    std::string m_Unit; // may be empty
};

class Trend {
public:
    // `from` and `to` are the times of the first and the last value, both inclusive.
    Trend(long long from, long long to, std::size_t columns);

    void Add(long long time, double value);

    long long GetFrom() const { return m_From; }
    long long GetTo() const { return m_To; }
    // From the first to the last, or the largest number where that passes 64 bits.
    long long GetDuration() const;
    const std::vector<TrendColumn>& GetColumns() const { return m_Columns; }
    double GetMin() const { return m_Min; }
    double GetMax() const { return m_Max; }
    unsigned long long GetCount() const { return m_Count; }
    // True when a line should join two columns with values: no value in between, but not for much longer than
    // is usual in this trend.
    bool AreJoined(std::size_t left, std::size_t right) const;
    // A time as an axis of this range shows it: times that share the date need not repeat it.
    std::string GetTimeLabel(long long time) const;
    // The line above a picture: what it shows, from when to when.
    std::string GetCaption(const TrendTitle& title) const;

private:
    const long long m_From;
    const long long m_To;
    std::vector<TrendColumn> m_Columns;
    double m_Min = 0;
    double m_Max = 0;
    unsigned long long m_Count = 0;
};

// The round numbers along an axis: the first at or below the smallest value, the last at or above the
// largest.
struct AxisScale {
    AxisScale(double min, double max, unsigned int steps);

    double GetEnd() const { return m_Start + m_Step * m_Steps; }
    // The label of a tick, from 0 to m_Steps.
    std::string GetLabel(unsigned int tick) const;

    double m_Start;
    double m_Step;
    unsigned int m_Steps;
};

// Two trend columns and four rows of dots to a character (Unicode Braille patterns), or one column and row of
// '*'.
struct TextPictureSize {
    unsigned int m_Width = 80; // characters in all, axis labels included
    unsigned int m_Height = 16;
    bool m_bAscii = false;

    // The columns that a trend for a picture of this size should have.
    std::size_t GetTrendColumns() const;
};
std::string DrawAsText(const Trend& trend, const TrendTitle& title, const TextPictureSize& size);

// A complete SVG document.
constexpr std::size_t SvgTrendColumns = 860;
std::string DrawAsSvg(const Trend& trend, const TrendTitle& title);
