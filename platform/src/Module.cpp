#include <QVPlatform/Module.h>

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
