#include <QVLib/Security/ClientAccessContext.h>

#include "ZoneMasks.h"

CClientAccessContext::CClientAccessContext(const qvstring& clientAddress) : m_ClientAddress(clientAddress) {
    m_DataFormatSettings.m_TimeZone.UseCurrentTimeZone();
}

CClientAccessContext::CClientAccessContext(const char* userName, unsigned int worldRights)
    : CSecuritySettingsAccessRights(worldRights), m_UserName(userName) {
    m_DataFormatSettings.m_TimeZone.UseCurrentTimeZone();
}

void CClientAccessContext::SaveAccessContext(unsigned short version, CBinaryOutput& out) const {
    out << m_WorldRights << static_cast<unsigned char>(ZoneCount);
    SaveZoneMasks(out, *this);
    out << m_ClientAddress << m_UserName;
    m_DataFormatSettings.SaveDataFormatSettings(version, out);
}

void CClientAccessContext::LoadAccessContext(unsigned short version, CBinaryInput& in) {
    CSecuritySettingsAccessRights rights;
    unsigned char zoneCount;
    in >> rights.m_WorldRights >> zoneCount;
    LoadZoneMasks(in, zoneCount, rights);
    qvstring address;
    qvstring user;
    in >> address >> user;
    m_DataFormatSettings.LoadDataFormatSettings(version, in);
    // Everything is there: from here on nothing can fail.
    static_cast<CSecuritySettingsAccessRights&>(*this) = rights;
    m_ClientAddress.swap(address);
    m_UserName.swap(user);
}
