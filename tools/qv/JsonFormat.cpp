#include "JsonFormat.h"

#include <QVLib/Json/JSONValue.h>
#include <QVPlatform/Assert.h>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <string_view>

namespace {

constexpr unsigned int BlanksPerLevel = 2;
// Integers below are written by their digits, which a double holds.
constexpr double ExactLimit = 1e15;

// Lays out significant digits and the power of ten of the first one as JavaScript does.
void AppendDigits(std::string& out, std::string_view digits, int exponent) {
    const int count = static_cast<int>(digits.size());
    if (exponent >= 21 || exponent < -6) {
        out += digits.front();
        if (count > 1)
            out.append(".").append(digits.substr(1));
        out.append(exponent < 0 ? "e-" : "e+").append(std::to_string(std::abs(exponent)));
    } else if (exponent < 0) {
        out.append("0.").append(static_cast<unsigned int>(-exponent - 1), '0').append(digits);
    } else if (exponent + 1 >= count) {
        out.append(digits).append(static_cast<std::size_t>(exponent + 1 - count), '0');
    } else {
        const auto point = static_cast<std::size_t>(exponent + 1);
        out.append(digits.substr(0, point)).append(".").append(digits.substr(point));
    }
}

void AppendShortest(std::string& out, double number) {
    if (std::isnan(number)) {
        out += "null";
        return;
    }
    if (std::signbit(number))
        out += '-';
    number = std::fabs(number);
    if (std::isinf(number)) {
        out += "1e999";
        return;
    }
    char text[40];
    if (number < ExactLimit && number == std::floor(number)) {
        out.append(text, std::to_chars(text, text + sizeof text, static_cast<long long>(number)).ptr);
        return;
    }
    // "d.ddde-xx" with the shortest digits.
    const char* const end =
        std::to_chars(text, text + sizeof text, number, std::chars_format::scientific).ptr;
    const std::string_view scientific(text, static_cast<std::size_t>(end - text));
    const std::size_t exponentAt = scientific.find('e');
    int exponent = 0;
    const char* const exponentText = text + exponentAt + (text[exponentAt + 1] == '+' ? 2 : 1);
    std::from_chars(exponentText, end, exponent);
    if (exponentAt > 1)
        text[1] = text[0]; // over the point
    AppendDigits(out, scientific.substr(exponentAt > 1 ? 1 : 0, exponentAt > 1 ? exponentAt - 1 : 1),
                 exponent);
}

// True at three bytes that stand for half of a surrogate pair.
bool IsSurrogate(std::string_view text) {
    return text.size() >= 3 && text[0] == '\xED' && static_cast<unsigned char>(text[1]) >= 0xA0;
}

void AppendUnicodeEscape(std::string& out, unsigned int unit) {
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\u%04X", unit);
    out += escape;
}

// Appends the surrogate that the text begins with.
void AppendSurrogate(std::string& out, std::string_view text) {
    AppendUnicodeEscape(out, 0xD000u | (text[1] & 0x3Fu) << 6 | (text[2] & 0x3Fu));
}

// What stands for a byte in a JSON string: itself (0), a letter behind a backslash, 'u' for a \u escape, or 's' for a
// byte that may begin a surrogate.
constexpr std::array<char, 256> MakeEscapes() {
    std::array<char, 256> escapes{};
    for (unsigned int byte = 0; byte < 32; ++byte)
        escapes[byte] = 'u';
    escapes['\\'] = '\\';
    escapes['"'] = '"';
    escapes['\n'] = 'n';
    escapes['\r'] = 'r';
    escapes['\f'] = 'f';
    escapes['\t'] = 't';
    escapes['\b'] = 'b';
    escapes[0xED] = 's';
    return escapes;
}
constexpr std::array<char, 256> Escapes = MakeEscapes();

// A value's text is UTF-8, surrogates aside: that is what the library's inputs deliver.
void AppendString(std::string& out, std::string_view text) {
    out += '"';
    std::size_t run = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const auto byte = static_cast<unsigned char>(text[at]);
        const char escape = Escapes[byte];
        if (escape == 0 || (escape == 's' && !IsSurrogate(text.substr(at))))
            continue;
        out += text.substr(run, at - run);
        if (escape == 's') {
            AppendSurrogate(out, text.substr(at));
            at += 2;
        } else if (escape == 'u') {
            AppendUnicodeEscape(out, byte);
        } else {
            out.append(1, '\\').append(1, escape);
        }
        run = at + 1;
    }
    out.append(text.substr(run)).append(1, '"');
}

// Values nest at most JSONMaxDepth levels, and so does this.
class Formatter {
public:
    Formatter(std::string& out, bool bPretty) : m_Out(out), m_bPretty(bPretty) {}

    void Append(const JSONValue& value) {
        double number = 0;
        if (value.GetNumericValue(number))
            AppendShortest(m_Out, number);
        else if (const auto* const text = dynamic_cast<const JSONValueString*>(&value))
            AppendString(m_Out, text->GetValue());
        else if (const auto* const object = dynamic_cast<const JSONValueObject*>(&value))
            AppendObject(*object);
        else if (const auto* const array = dynamic_cast<const JSONValueArray*>(&value))
            AppendArray(*array);
        else if (const auto* const boolean = dynamic_cast<const JSONValueBoolean*>(&value))
            m_Out += boolean->GetValue() ? "true" : "false";
        else
            AppendNull(value);
    }

private:
    void AppendNull(const JSONValue& value) {
        QV_ASSERT(value.IsNull());
        m_Out += "null";
    }

    void AppendObject(const JSONValueObject& object) {
        Open('{');
        for (const JSONValueObject::Member& member : object.GetMembers()) {
            BeginElement(&member == object.GetMembers().data());
            AppendString(m_Out, member.first);
            m_Out += ':';
            Append(*member.second);
        }
        Close('}', object.GetMembers().empty());
    }

    void AppendArray(const JSONValueArray& array) {
        Open('[');
        for (JSONValue* const& value : array.GetValues()) {
            BeginElement(&value == array.GetValues().data());
            Append(*value);
        }
        Close(']', array.GetValues().empty());
    }

    void Open(char bracket) {
        m_Out += bracket;
        ++m_Level;
    }

    void BeginElement(bool bFirst) {
        if (!bFirst)
            m_Out += ',';
        NewLine();
    }

    // The bracket stands behind the last element; only an empty container has it on a line of its own.
    void Close(char bracket, bool bEmpty) {
        --m_Level;
        if (bEmpty)
            NewLine();
        m_Out += bracket;
    }

    void NewLine() {
        if (m_bPretty)
            m_Out.append("\n").append(BlanksPerLevel * m_Level, ' ');
    }

    std::string& m_Out;
    const bool m_bPretty;
    unsigned int m_Level = 0;
};

} // namespace

void AppendJson(std::string& out, const JSONValue& value, bool bPretty) {
    Formatter(out, bPretty).Append(value);
}

std::string EscapeSurrogates(std::string_view text) {
    std::string out;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (IsSurrogate(text.substr(at))) {
            AppendSurrogate(out, text.substr(at));
            at += 2;
        } else {
            out += text[at];
        }
    }
    return out;
}
