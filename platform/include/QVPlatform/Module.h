// CQVModule - a program module's resources: texts by number and language, and files compiled into the
// program.
//
// A module's resources are tables that the program holds as constants and hands to the module. A module
// that is itself defined `constinit` can therefore be used by the constructors of other static objects.
// Strings are the texts and printf-style formats of user-visible messages, by number and language; data
// resources are files compiled into the program.
//
// Languages: what a language does not have is taken from English.
// Threads:   a module never changes; any thread may use it at any time.
#pragma once

#include <QVPlatform/Locale.h>
#include <cstdarg>

// A run of bytes that belongs to somebody else.
struct QV_DATA {
    unsigned int length = 0;
    const unsigned char* data = nullptr;
};

class CQVModule {
public:
    struct DataResource {
        unsigned int id = 0;
        unsigned int languageId = CQVLocale::English;
        QV_DATA data;
    };

    struct StringResource {
        unsigned int id = 0;
        const char* text = nullptr;
    };
    // The strings of one language.
    struct StringTable {
        unsigned int languageId = CQVLocale::English;
        // Sorted by id, no id twice.
        const StringResource* strings = nullptr;
        unsigned int count = 0;
    };

    // The tables are borrowed for the module's life; their entries may stand in any order, except the strings
    // inside a table.
    constexpr CQVModule(const DataResource* resources, unsigned int count)
        : m_pDataResources(resources), m_NumDataResources(count) {}
    constexpr CQVModule(const StringTable* tables, unsigned int count)
        : m_pStringTables(tables), m_NumStringTables(count) {}

    // Finds a data resource in the locale's language, else in English. False, and `data` left alone, when
    // there is none. The bytes live as long as the module's table.
    bool LoadResourceDataFile(const CQVLocale& locale, unsigned int id, QV_DATA& data) const;

    // Copies the text of string `id` in the locale's language, else in English, as it is (formats are not
    // expanded). At most `size` bytes with the terminating zero; what does not fit is cut between
    // characters. False, and an empty text, when there is no such string.
    bool LoadResourceString(const CQVLocale& locale, unsigned int id, char* buffer, unsigned int size) const;

    // Expands string `id` with the arguments that its text asks for and returns the bytes written, bounded as
    // qv_vsprintf() is. A missing string gives "Resource string with id %u not found!" with the number, so
    // that a message is never lost for want of its text; the arguments are then not looked at.
    unsigned int FormatResourceStringVA(const CQVLocale& locale, unsigned int id, char* buffer,
                                        unsigned int size, va_list arguments) const;

    // The text itself, which lives as long as the module's tables; null when there is none.
    const char* FindResourceString(const CQVLocale& locale, unsigned int id) const;

private:
    const char* FindInLanguage(unsigned int languageId, unsigned int id) const;

    const DataResource* m_pDataResources = nullptr;
    unsigned int m_NumDataResources = 0;
    const StringTable* m_pStringTables = nullptr;
    unsigned int m_NumStringTables = 0;
};
