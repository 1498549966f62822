#include <QVPlatform/Locale.h>

#include <algorithm>
#include <cstdlib>

namespace {

constexpr size_t LongestSubtag = 8;

bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}
char LowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
char UpperCase(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

// Regions are written in capitals, scripts with one, everything else without.
void WriteSubtag(std::string_view subtag, bool bLanguage, char* to) {
    std::transform(subtag.begin(), subtag.end(), to, LowerCase);
    if (bLanguage || (subtag.size() != 2 && subtag.size() != 4))
        return;
    const size_t capitals = subtag.size() == 2 ? 2 : 1;
    std::transform(to, to + capitals, to, UpperCase);
}

} // namespace

bool CQVLocale::SetFromLocaleName(std::string_view name) {
    name = name.substr(0, name.find_first_of(".@"));
    if (name == "C" || name == "POSIX") {
        *this = CQVLocale();
        return true;
    }
    if (name.empty() || name.size() > MaxNameLength)
        return false;
    char result[MaxNameLength + 1];
    for (size_t start = 0; start <= name.size();) {
        const size_t end = std::min(name.find_first_of("-_", start), name.size());
        const std::string_view subtag = name.substr(start, end - start);
        const bool bLanguage = start == 0;
        const auto belongs = [&](char c) { return IsLetter(c) || (IsDigit(c) && !bLanguage); };
        if (subtag.empty() || subtag.size() > LongestSubtag || (bLanguage && subtag.size() == 1) ||
            !std::all_of(subtag.begin(), subtag.end(), belongs))
            return false;
        WriteSubtag(subtag, bLanguage, result + start);
        result[end] = '-';
        start = end + 1;
    }
    const std::string_view written(result, name.size());
    m_LanguageId = written.substr(0, written.find('-')) == "de" ? German : English;
    SetName(written);
    return true;
}

void CQVLocale::SetFromCurrentUser() {
    *this = CQVLocale();
    for (const char* const variable : {"LC_ALL", "LC_TIME", "LC_MESSAGES", "LANG"}) {
        const char* const name = std::getenv(variable);
        if (name && *name) {
            SetFromLocaleName(name);
            return;
        }
    }
}
