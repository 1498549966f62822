// CQVLocale - whose language and customs texts follow.
//
// A locale has a name ("de-AT") that is kept, stored and sent as it is, and the language that it means for
// the texts of modules: German for every name whose language is "de", English for all others. Default:
// "en-US".
//
// Names:    a language of 2 to 8 letters, then any number of subtags of 1 to 8 letters and digits behind "-"
//           or "_", 35 characters at most ("de", "de-DE", "zh-Hans-CN": BCP 47), also as the system writes
//           them, with a code set and a modifier that are dropped ("de_DE.UTF-8", "ca_ES@valencia"). "C" and
//           "POSIX" are the default. Upper and lower case are the same; GetLocaleName() has them as
//           is customary.
// Threads:  a value; one thread at a time.
#pragma once

#include <string_view>

class CQVLocale {
public:
    static constexpr unsigned int English = 1033;
    static constexpr unsigned int German = 1031;

    // English.
    constexpr CQVLocale() { SetName("en-US"); }
    // By the number of a language. The name of one that is neither English nor German is "und", undetermined.
    explicit constexpr CQVLocale(unsigned int languageId) : m_LanguageId(languageId) {
        SetName(languageId == English ? "en-US" : languageId == German ? "de-DE" : "und");
    }

    // The language that texts are looked up in.
    constexpr unsigned int GetLanguageId() const { return m_LanguageId; }
    // "en-US", "de", "zh-Hans-CN". Valid until the locale changes.
    constexpr const char* GetLocaleName() const { return m_Name; }

    // False, and nothing changed, unless the name is formed as said above. Whether anybody lives there is not
    // asked: a client's locale survives being stored by a server that has no texts for it.
    bool SetFromLocaleName(std::string_view name);
    // The locale that the user of this process has chosen for dates and messages: the first of the
    // environment's LC_ALL, LC_TIME, LC_MESSAGES and LANG that is not empty. Without one, or when it is no
    // name, the default.
    void SetFromCurrentUser();

private:
    static constexpr unsigned int MaxNameLength = 35;

    constexpr void SetName(std::string_view name) { m_Name[name.copy(m_Name, MaxNameLength)] = '\0'; }

    unsigned int m_LanguageId = English;
    char m_Name[MaxNameLength + 1] = {};
};
