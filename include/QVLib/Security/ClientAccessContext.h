// CClientAccessContext - what a server knows of a connected client: its rights, its user, where it is, and how it
// wants to see times.
//
//     CClientAccessContext client(address);
//     settings.GetAccessRightsForUser(&token, client); // the context is a set of rights
//     if (client.HasPrivilege(zone, rightWrite)) ...
//
// Binary form, in the string lengths of the stream:
//     4 bytes     rights for the world
//     1 byte      number of zones, written as 4, then 4 bytes of rights for each
//     string      address of the client
//     string      name of the user
//     the data format settings as far as the other side's version knows them (DataFormatSettings.h)
//
// Errors:    loading throws what CBinaryInput and CDataFormatSettings throw; the context is then as it was.
// Threads:   a plain value; one thread at a time.
#pragma once

#include <QVLib/Formatting/DataFormatSettings.h>
#include <QVLib/Security/AccessRights.h>
#include <QVPlatform/String.h>

class CBinaryInput;
class CBinaryOutput;

class CClientAccessContext : public CSecuritySettingsAccessRights {
public:
    // A client that may do nothing yet, or a user on this machine. Times are shown in the machine's zone; the
    // formats are those of CDataFormatSettings().
    explicit CClientAccessContext(const qvstring& clientAddress);
    CClientAccessContext(const char* userName, unsigned int worldRights);

    void SetClientAddress(const qvstring& clientAddress) { m_ClientAddress = clientAddress; }
    // The first `length` bytes of `name`.
    void SetUserName(const char* name, unsigned int length) { m_UserName.assign(name, length); }
    void SetDataFormatSettings(const CDataFormatSettings& settings) { m_DataFormatSettings = settings; }

    // True when what happens to a tag that is tracked (`tracking` not 0) is to be logged for this client.
    bool LogTagTrackingEvent(unsigned short tracking) const { return m_bLogTagTracking && tracking != 0; }

    // `version` is the one that both sides speak.
    void SaveAccessContext(unsigned short version, CBinaryOutput& out) const;
    // Zones beyond the fourth are read and forgotten, those that are not there get no rights. The settings that
    // the version does not carry stay, and so does a time zone or locale whose name is not known here.
    void LoadAccessContext(unsigned short version, CBinaryInput& in);

    qvstring m_UserName;
    qvstring m_ClientAddress;
    bool m_bLogTagTracking = true; // of this process: neither saved nor loaded
    CDataFormatSettings m_DataFormatSettings;
};
