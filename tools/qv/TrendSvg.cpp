// A trend as an SVG picture.

#include "Trend.h"

#include <charconv>

namespace {

// The picture's measures in pixels.
constexpr double SvgWidth = 960, SvgHeight = 400;
constexpr double SvgLeft = 80, SvgTop = 40, SvgRight = SvgWidth - 20, SvgBottom = SvgHeight - 40;
constexpr unsigned int SvgValueSteps = 6, SvgTimeSteps = 5;

std::string XmlEscaped(const std::string& text) {
    std::string result;
    for (const char character : text) {
        switch (character) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        default:
            result += character;
        }
    }
    return result;
}

void AppendCoordinate(std::string& svg, double value) {
    char text[32];
    svg.append(text, std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 1).ptr);
}

void AppendPoint(std::string& svg, char command, double x, double y) {
    svg += command;
    AppendCoordinate(svg, x);
    svg += ' ';
    AppendCoordinate(svg, y);
}

void AppendLine(std::string& svg, double x1, double y1, double x2, double y2) {
    svg += "<path class=\"grid\" d=\"";
    AppendPoint(svg, 'M', x1, y1);
    AppendPoint(svg, 'L', x2, y2);
    svg += "\"/>\n";
}

void AppendText(std::string& svg, double x, double y, const char* anchor, const std::string& text) {
    svg += "<text x=\"";
    AppendCoordinate(svg, x);
    svg += "\" y=\"";
    AppendCoordinate(svg, y);
    svg += std::string("\" text-anchor=\"") + anchor + "\">" + XmlEscaped(text) + "</text>\n";
}

void AppendAxes(std::string& svg, const Trend& trend, const AxisScale& scale) {
    for (unsigned int tick = 0; tick <= scale.m_Steps; ++tick) {
        const double y = SvgBottom - (SvgBottom - SvgTop) * tick / scale.m_Steps;
        AppendLine(svg, SvgLeft, y, SvgRight, y);
        AppendText(svg, SvgLeft - 8, y + 4, "end", scale.GetLabel(tick));
    }
    const long long range = trend.GetDuration();
    const unsigned int steps = range == 0 ? 0 : SvgTimeSteps;
    for (unsigned int tick = 0; tick <= steps; ++tick) {
        const double part = steps == 0 ? 0 : static_cast<double>(tick) / steps;
        const double x = SvgLeft + (SvgRight - SvgLeft) * part;
        AppendLine(svg, x, SvgTop, x, SvgBottom + 5);
        const long long time = tick == 0 ? trend.GetFrom() : trend.GetFrom() + range / steps * tick;
        AppendText(svg, x, SvgBottom + 22,
                   tick == 0       ? "start"
                   : tick == steps ? "end"
                                   : "middle",
                   trend.GetTimeLabel(time));
    }
}

void AppendCurve(std::string& svg, const Trend& trend, const AxisScale& scale) {
    const std::vector<TrendColumn>& columns = trend.GetColumns();
    const auto yOf = [&](double value) {
        const double part = (value / 2 - scale.m_Start / 2) / (scale.GetEnd() / 2 - scale.m_Start / 2);
        return SvgBottom - (SvgBottom - SvgTop) * part;
    };
    svg += "<path class=\"curve\" d=\"";
    std::size_t left = columns.size();
    for (std::size_t index = 0; index < columns.size(); ++index) {
        const TrendColumn& column = columns[index];
        if (column.m_Count == 0)
            continue;
        const double x = SvgLeft + (SvgRight - SvgLeft) * (static_cast<double>(index) + 0.5) /
                                       static_cast<double>(columns.size());
        const bool bJoined = left != columns.size() && trend.AreJoined(left, index);
        AppendPoint(svg, bJoined ? 'L' : 'M', x, yOf(column.m_First));
        if (column.m_Min != column.m_Max) {
            AppendPoint(svg, 'L', x, yOf(column.m_Min));
            AppendPoint(svg, 'L', x, yOf(column.m_Max));
        }
        // Also the end of a value that stands alone: a round cap makes a dot of it.
        AppendPoint(svg, 'L', x, yOf(column.m_Last));
        left = index;
    }
    svg += "\"/>\n";
}

} // namespace

std::string DrawAsSvg(const Trend& trend, const TrendTitle& title) {
    const AxisScale scale(trend.GetMin(), trend.GetMax(), SvgValueSteps);
    std::string svg =
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 960 400\" width=\"960\" height=\"400\">\n"
        "<style>\n"
        "text { font: 12px sans-serif; fill: #333; }\n"
        ".grid { stroke: #ddd; }\n"
        ".curve { stroke: #0a6ebd; stroke-width: 1.5; fill: none; stroke-linejoin: round; "
        "stroke-linecap: round; }\n"
        "</style>\n"
        "<rect width=\"960\" height=\"400\" fill=\"#fff\"/>\n";
    AppendText(svg, SvgLeft, SvgTop - 16, "start", trend.GetCaption(title));
    AppendAxes(svg, trend, scale);
    AppendCurve(svg, trend, scale);
    return svg + "</svg>\n";
}
