#include <QVPlatform/TextLocation.h>

void CQVTextLocation::SetSourceName(CQVTextLocationSourceName* name) {
    // Take the new reference first: the name given may be the one whose last reference is held here.
    if (name)
        name->AddRef();
    if (m_pSourceName)
        m_pSourceName->Release();
    m_pSourceName = name;
}
