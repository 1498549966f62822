// The zones of a set of rights in binary form, behind their count.
#pragma once

#include <QVLib/BinaryStreams/BinaryInput.h>
#include <QVLib/BinaryStreams/BinaryOutput.h>
#include <QVLib/Security/AccessRights.h>

// Reads `count` masks. Those of zones that do not exist are passed over one by one, so that a count of
// billions ends with the data; zones beyond the count get no rights.
inline void LoadZoneMasks(CBinaryInput& in, unsigned int count, CSecuritySettingsAccessRights& rights) {
    for (unsigned int& mask : rights.m_ZoneRights)
        mask = 0;
    for (unsigned int zone = 0; zone < count; ++zone) {
        unsigned int mask;
        in >> mask;
        rights.SetZoneRights(zone, mask);
    }
}

inline void SaveZoneMasks(CBinaryOutput& out, const CSecuritySettingsAccessRights& rights) {
    for (const unsigned int mask : rights.m_ZoneRights)
        out << mask;
}
