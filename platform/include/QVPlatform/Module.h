// CQVModule - a program module's resources, and CQVLocale - the language they are asked for in.
//
// A module's resources are tables that the program holds as constants and hands to the module, so a module
// can be used by the constructors of other static objects. Data resources are files compiled into the
// program.
#pragma once

// A run of bytes that belongs to somebody else.
struct QV_DATA {
    unsigned int length = 0;
    const unsigned char* data = nullptr;
};

// A user's language. Default: English.
class CQVLocale {
public:
    static constexpr unsigned int English = 1033;
    static constexpr unsigned int German = 1031;

    constexpr CQVLocale() = default;
    explicit constexpr CQVLocale(unsigned int languageId) : m_LanguageId(languageId) {}

    constexpr unsigned int GetLanguageId() const { return m_LanguageId; }

private:
    unsigned int m_LanguageId = English;
};

class CQVModule {
public:
    struct DataResource {
        unsigned int id = 0;
        unsigned int languageId = CQVLocale::English;
        QV_DATA data;
    };

    // `resources` is borrowed for the module's life: `count` entries, in any order.
    constexpr CQVModule(const DataResource* resources, unsigned int count)
        : m_pDataResources(resources), m_NumDataResources(count) {}

    // Finds a data resource in the locale's language, else in English. False, and `data` left alone, when
    // there is none. The bytes live as long as the module's table.
    bool LoadResourceDataFile(const CQVLocale& locale, unsigned int id, QV_DATA& data) const;

private:
    const DataResource* m_pDataResources;
    unsigned int m_NumDataResources;
};
