// A trend as text.

#include "Trend.h"

#include <QVPlatform/Unicode.h>
#include <algorithm>
#include <cmath>

namespace {

constexpr unsigned int LabelWidth = 10; // of the value axis, with its line

// A grid of dots, y from the bottom.
class DotGrid {
public:
    DotGrid(std::size_t width, std::size_t height)
        : m_Width(width), m_Height(height), m_Dots(width * height) {}

    std::size_t GetHeight() const { return m_Height; }
    bool Get(std::size_t x, std::size_t y) const {
        return x < m_Width && y < m_Height && m_Dots[y * m_Width + x] != 0;
    }
    void FillColumn(std::size_t x, std::size_t y1, std::size_t y2) {
        for (std::size_t y = std::min(y1, y2); y <= std::max(y1, y2) && y < m_Height; ++y)
            m_Dots[y * m_Width + x] = 1;
    }
    // A line without gaps between two points, the left one first.
    void DrawLine(std::size_t x1, std::size_t y1, std::size_t x2, std::size_t y2) {
        const auto yAt = [&](double x) {
            const double part = (x - static_cast<double>(x1)) / static_cast<double>(x2 - x1);
            const double y =
                static_cast<double>(y1) + part * (static_cast<double>(y2) - static_cast<double>(y1));
            return static_cast<std::size_t>(std::lround(y));
        };
        for (std::size_t x = x1; x <= x2; ++x)
            FillColumn(x, yAt(std::max(static_cast<double>(x) - 0.5, static_cast<double>(x1))),
                       yAt(std::min(static_cast<double>(x) + 0.5, static_cast<double>(x2))));
    }

private:
    const std::size_t m_Width;
    const std::size_t m_Height;
    std::vector<unsigned char> m_Dots;
};

DotGrid PlaceDots(const Trend& trend, const AxisScale& scale, std::size_t height) {
    const std::vector<TrendColumn>& columns = trend.GetColumns();
    DotGrid grid(columns.size(), height);
    const auto row = [&](double value) {
        // Halves first: the range itself may be beyond what a double holds.
        const double part = (value / 2 - scale.m_Start / 2) / (scale.GetEnd() / 2 - scale.m_Start / 2);
        return static_cast<std::size_t>(
            std::lround(std::clamp(part, 0.0, 1.0) * static_cast<double>(height - 1)));
    };
    std::size_t left = columns.size();
    for (std::size_t x = 0; x < columns.size(); ++x) {
        if (columns[x].m_Count == 0)
            continue;
        grid.FillColumn(x, row(columns[x].m_Min), row(columns[x].m_Max));
        if (left != columns.size() && trend.AreJoined(left, x))
            grid.DrawLine(left, row(columns[left].m_Last), x, row(columns[x].m_First));
        left = x;
    }
    return grid;
}

// The character at a position of the picture, rows counted from the top.
void AppendCell(std::string& text, const DotGrid& grid, std::size_t column, std::size_t row, bool bAscii) {
    if (bAscii) {
        text += grid.Get(column, grid.GetHeight() - 1 - row) ? '*' : ' ';
        return;
    }
    // Bits of a Braille pattern, top to bottom, left and right.
    constexpr int Bits[4][2] = {{0x01, 0x08}, {0x02, 0x10}, {0x04, 0x20}, {0x40, 0x80}};
    int pattern = 0;
    for (std::size_t y = 0; y < 4; ++y) {
        for (std::size_t x = 0; x < 2; ++x)
            pattern |= grid.Get(2 * column + x, grid.GetHeight() - 1 - (4 * row + y)) ? Bits[y][x] : 0;
    }
    if (pattern == 0)
        text += ' ';
    else
        qv_append_codepoint_to_qvstring(0x2800 + pattern, text);
}

void TrimLineEnd(std::string& text) {
    while (text.ends_with(' '))
        text.pop_back();
    text += '\n';
}

// The labels below the time axis: the ends, and the middle where there is room.
void AppendTimeLabels(std::string& text, const Trend& trend, std::size_t width) {
    const long long range = trend.GetDuration();
    std::string line(width, ' ');
    const std::string first = trend.GetTimeLabel(trend.GetFrom());
    const std::string middle = trend.GetTimeLabel(trend.GetFrom() + range / 2);
    const std::string last = trend.GetTimeLabel(trend.GetTo());
    line.replace(0, std::min(first.size(), width), first, 0, width);
    if (width >= first.size() + last.size() + 2 && range != 0) {
        line.replace(width - last.size(), last.size(), last);
        if (width >= first.size() + middle.size() + last.size() + 6)
            line.replace((width - middle.size()) / 2, middle.size(), middle);
    }
    text += std::string(LabelWidth, ' ') + line;
    TrimLineEnd(text);
}

} // namespace

std::size_t TextPictureSize::GetTrendColumns() const {
    const std::size_t cells = m_Width > LabelWidth + 1 ? m_Width - LabelWidth : 1;
    return m_bAscii ? cells : 2 * cells;
}

std::string DrawAsText(const Trend& trend, const TrendTitle& title, const TextPictureSize& size) {
    const std::size_t cells = size.GetTrendColumns() / (size.m_bAscii ? 1 : 2);
    const AxisScale scale(trend.GetMin(), trend.GetMax(), std::max(1u, size.m_Height / 4));
    const DotGrid grid = PlaceDots(trend, scale, std::size_t{size.m_Height} * (size.m_bAscii ? 1 : 4));
    const char* const axis = size.m_bAscii ? "|" : "\u2502";
    const char* const tickedAxis = size.m_bAscii ? "+" : "\u2524";

    std::vector<std::string> labels(size.m_Height);
    for (unsigned int tick = 0; tick <= scale.m_Steps; ++tick) {
        const double position = 1 - static_cast<double>(tick) / scale.m_Steps;
        labels[static_cast<std::size_t>(std::lround(position * (size.m_Height - 1)))] = scale.GetLabel(tick);
    }
    std::string text = trend.GetCaption(title) + "\n";
    for (std::size_t row = 0; row < size.m_Height; ++row) {
        const std::string label = labels[row].substr(0, LabelWidth - 2);
        text.append(LabelWidth - 2 - label.size(), ' ');
        text += label + ' ' + (label.empty() ? axis : tickedAxis);
        for (std::size_t column = 0; column < cells; ++column)
            AppendCell(text, grid, column, row, size.m_bAscii);
        TrimLineEnd(text);
    }
    AppendTimeLabels(text, trend, cells);
    return text;
}
