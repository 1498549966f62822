#include <QVPlatform/Format.h>
#include <QVPlatform/Module.h>
#include <algorithm>

bool CQVModule::LoadResourceDataFile(const CQVLocale& locale, unsigned int id, QV_DATA& data) const {
    const DataResource* found = nullptr;
    for (unsigned int i = 0; i < m_NumDataResources; ++i) {
        const DataResource& resource = m_pDataResources[i];
        if (resource.id != id)
            continue;
        if (resource.languageId == locale.GetLanguageId()) {
            found = &resource;
            break;
        }
        if (resource.languageId == CQVLocale::English)
            found = &resource;
    }
    if (!found)
        return false;
    data = found->data;
    return true;
}

const char* CQVModule::FindInLanguage(unsigned int languageId, unsigned int id) const {
    for (unsigned int i = 0; i < m_NumStringTables; ++i) {
        const StringTable& table = m_pStringTables[i];
        if (table.languageId != languageId)
            continue;
        const StringResource* const end = table.strings + table.count;
        const auto isBelow = [](const StringResource& entry, unsigned int wanted) {
            return entry.id < wanted;
        };
        const StringResource* const found = std::lower_bound(table.strings, end, id, isBelow);
        if (found != end && found->id == id)
            return found->text;
    }
    return nullptr;
}

const char* CQVModule::FindResourceString(const CQVLocale& locale, unsigned int id) const {
    const char* const text = FindInLanguage(locale.GetLanguageId(), id);
    return text ? text : FindInLanguage(CQVLocale::English, id);
}

bool CQVModule::LoadResourceString(const CQVLocale& locale, unsigned int id, char* buffer,
                                   unsigned int size) const {
    const char* const text = FindResourceString(locale, id);
    qv_strcpy(buffer, size, text ? text : "");
    return text != nullptr;
}

unsigned int CQVModule::FormatResourceStringVA(const CQVLocale& locale, unsigned int id, char* buffer,
                                               unsigned int size, va_list arguments) const {
    const char* const text = FindResourceString(locale, id);
    if (!text)
        return qv_sprintf(buffer, size, "Resource string with id %u not found!", id);
    return qv_vsprintf(buffer, size, text, arguments);
}
