#include "Tool.h"

#include <QVPlatform/Error.h>
#include <QVPlatform/Process.h>
#include <QVPlatform/Unicode.h>
#include <cstdio>
#include <cstdlib>

namespace {

void PrintMessage(const char* kind, const char* colour, std::string_view text) {
    const bool bColour = MayUseColour(2);
    const std::string line = std::string("qv: ") + (bColour ? colour : "") + kind +
                             (bColour ? "\x1b[0m" : "") + std::string(text) + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

} // namespace

bool MayUseColour(int stream) {
    const char* const noColour = std::getenv("NO_COLOR");
    return qv_is_terminal(stream) && (noColour == nullptr || *noColour == '\0');
}

void SayError(std::string_view text) {
    PrintMessage("error: ", "\x1b[1;31m", text);
}

void SayWarning(std::string_view text) {
    PrintMessage("warning: ", "\x1b[1;33m", text);
}

std::string Quoted(std::string_view text) {
    constexpr std::size_t MaxLength = 60;
    std::string result = "'";
    const char* current = text.data();
    const char* const end = current + text.size();
    while (current != end && result.size() < MaxLength) {
        const int codePoint = qv_codepoint_from_qvchar(current, end);
        if (codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0)) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned int>(codePoint));
            result += escape;
        } else {
            qv_append_codepoint_to_qvstring(codePoint, result);
        }
    }
    return result + (current == end ? "'" : "...'");
}

std::string ErrorText(int error) {
    char buffer[256];
    return std::string(buffer, QVFormatMessage(error, buffer, sizeof buffer));
}

std::string WithSeparators(unsigned long long number) {
    std::string text = std::to_string(number);
    for (std::size_t position = text.size(); position > 3; position -= 3)
        text.insert(position - 3, 1, ',');
    return text;
}

std::string CountText(unsigned long long count, const char* what) {
    return WithSeparators(count) + " " + what + (count == 1 ? "" : "s");
}
