#include <QVLib/Security/AccessRights.h>

#include <QVLib/Resources/Messages.h>
#include <QVLib/Security/SecuritySettingsParseContext.h>
#include <QVPlatform/Format.h>
#include <QVPlatform/TextOutput.h>
#include <algorithm>
#include <iterator>

// 0x080 is no right, and never was one.
const UserRightMetadata g_UserRightsMetadata[] = {
    {"Refresh", 0x001, 1},      {"Write", 0x002, 1},       {"Force", 0x004, 1},     {"Acknowledge", 0x008, 1},
    {"DisableAlarm", 0x010, 1}, {"DirectWrite", 0x020, 1}, {"WriteFile", 0x040, 1}, {"Configure", 0x100, 0},
};
const unsigned int g_UserRightsMetadataLength = std::size(g_UserRightsMetadata);

namespace {

constexpr unsigned int MaskTextSize = 256;
constexpr unsigned int NoZone = 0xFFFFFFFF;

} // namespace

bool CSecuritySettingsAccessRights::HasPrivilege(unsigned char zoneIndex, unsigned int rights) const {
    if ((m_WorldRights & rights) != 0)
        return true;
    return zoneIndex < ZoneCount && (m_ZoneRights[zoneIndex] & rights) != 0;
}

void CSecuritySettingsAccessRights::Reset() {
    *this = CSecuritySettingsAccessRights();
}

bool CSecuritySettingsAccessRights::SetZoneRights(unsigned int zoneIndex, unsigned int rights) {
    if (zoneIndex >= ZoneCount)
        return false;
    m_ZoneRights[zoneIndex] = rights;
    return true;
}

void CSecuritySettingsAccessRights::Merge(const CSecuritySettingsAccessRights& other) {
    m_WorldRights |= other.m_WorldRights;
    for (unsigned int zone = 0; zone < ZoneCount; ++zone)
        m_ZoneRights[zone] |= other.m_ZoneRights[zone];
}

void CSecuritySettingsAccessRights::PrintRights(CTextOutput& out) const {
    char buffer[MaskTextSize];
    out.Print("World=%s", RightsMaskText(m_WorldRights, buffer));
    for (unsigned int zone = 0; zone < ZoneCount; ++zone)
        if (m_ZoneRights[zone] != 0)
            out.Print(", Zone%c=%s", 'A' + static_cast<int>(zone),
                      RightsMaskText(m_ZoneRights[zone], buffer));
}

const char* CSecuritySettingsAccessRights::RightsMaskText(unsigned int mask, char* buffer) {
    if (mask == Full)
        return "Full";
    if (mask == 0)
        return "None";
    unsigned int length = 0;
    buffer[0] = '\0';
    for (const UserRightMetadata& right : g_UserRightsMetadata)
        if ((mask & right.m_Mask) != 0) {
            if (length != 0)
                length += qv_strcpy(buffer + length, MaskTextSize - length, "+");
            length += qv_strcpy(buffer + length, MaskTextSize - length, right.m_pName);
        }
    return buffer;
}

bool CSecuritySettingsAccessRights::ParseRights(CSecuritySettingsParseContext& context) {
    CParseToken token;
    bool bParsed;
    do {
        bParsed = ParseZoneAndRights(context);
        context.GetToken(token);
    } while (bParsed && token.Type() == ',');
    context.ReplaceToken(std::move(token));
    return bParsed;
}

bool CSecuritySettingsAccessRights::ParseZoneAndRights(CSecuritySettingsParseContext& context) {
    CParseToken token;
    context.GetToken(token);
    const unsigned int zone = ZoneFromParseToken(token);
    if (zone == NoZone) {
        context.LogTokenError(token, g_LibModule, QVMessage::RightsZoneInvalid, token.Text().c_str());
        return false;
    }
    if (context.GetToken(token) != '=') {
        context.LogUnexpectedTokenError(token, "=");
        return false;
    }
    unsigned int rights = 0;
    CParseToken right;
    bool bKnown;
    do {
        context.GetToken(right);
        bKnown = RightsFromParseToken(right, rights);
        context.GetToken(token);
    } while (bKnown && token.Type() == '+');
    context.ReplaceToken(std::move(token));
    if (!bKnown) {
        context.LogUnexpectedTokenError(right, "User Right");
        return false;
    }
    (zone == 0 ? m_WorldRights : m_ZoneRights[zone - 1]) = rights;
    return true;
}

unsigned int CSecuritySettingsAccessRights::ZoneFromParseToken(const CParseToken& token) {
    if (token.EqualIdentifier("World"))
        return 0;
    for (unsigned int zone = 0; zone < ZoneCount; ++zone) {
        const char name[] = {'Z', 'o', 'n', 'e', static_cast<char>('A' + zone), '\0'};
        if (token.EqualIdentifier(name))
            return zone + 1;
    }
    return NoZone;
}

bool CSecuritySettingsAccessRights::RightsFromParseToken(const CParseToken& token, unsigned int& rights) {
    if (token.EqualIdentifier("Full")) {
        rights = Full;
        return true;
    }
    if (token.EqualIdentifier("None"))
        return true;
    const auto right =
        std::find_if(std::begin(g_UserRightsMetadata), std::end(g_UserRightsMetadata),
                     [&](const UserRightMetadata& row) { return token.EqualIdentifier(row.m_pName); });
    if (right == std::end(g_UserRightsMetadata))
        return false;
    rights |= right->m_Mask;
    return true;
}
