// CSecuritySettingsAccessRights - what somebody may do: a mask of rights for the world, and one for each of
// four zones.
//
// Model:    a right is one bit, named in g_UserRightsMetadata. What is granted for the world holds in every
//           zone; what is granted for a zone holds there only. Rights are only ever granted, never denied, so
//           sets from several sources are joined with Merge().
// Zones:    programs number zones A to D from 0 to 3.
// Text:     "World=Refresh+Write, ZoneB=Configure": written by PrintRights(), read by ParseRights(), and
//           described for the people who edit it in docs/user-rights.md. Only the eight named rights and
//           "Full" have a text. Any other bit is left out, and a mask of nothing else prints as "World=",
//           which cannot be read back.
// Errors:   parsing reports to the parse context and returns false; nothing is thrown.
// Threads:  a plain value; one thread at a time.
#pragma once

class CParseToken;
class CSecuritySettingsParseContext;
class CTextOutput;

// One row of the table of rights, for programs that show them.
struct UserRightMetadata {
    const char* m_pName;
    unsigned int m_Mask;
    int m_Flag; // 0 or 1; for the callers, the library does not use it
};

// The rights, in the order in which they are printed.
extern const UserRightMetadata g_UserRightsMetadata[];
extern const unsigned int g_UserRightsMetadataLength;

class CSecuritySettingsAccessRights {
public:
    // Every right there is or will be: all 32 bits.
    static constexpr unsigned int Full = 0xFFFFFFFF;
    static constexpr unsigned int ZoneCount = 4;

    // No rights at all.
    CSecuritySettingsAccessRights() = default;
    explicit CSecuritySettingsAccessRights(unsigned int worldRights) : m_WorldRights(worldRights) {}

    bool operator==(const CSecuritySettingsAccessRights& other) const = default;

    // True when at least one of `rights` is held, for the world or in zone `zoneIndex`. A zone above 3 does
    // not exist, and nothing is granted there but what the world has.
    bool HasPrivilege(unsigned char zoneIndex, unsigned int rights) const;

    // Takes all rights away.
    void Reset();
    void SetWorldRights(unsigned int rights) { m_WorldRights = rights; }
    // False, and nothing changed, when `zoneIndex` is above 3.
    bool SetZoneRights(unsigned int zoneIndex, unsigned int rights);
    // Adds the rights of `other`, zone by zone.
    void Merge(const CSecuritySettingsAccessRights& other);

    // Writes the text of the set: the world always, a zone only when it has a right.
    void PrintRights(CTextOutput& out) const;
    // The text of one mask: "Full", "None", or the names joined with '+' in `buffer`, which holds 256
    // characters. Returns the text.
    static const char* RightsMaskText(unsigned int mask, char* buffer);

    // Reads the text of a set. A mask that is named replaces the one held, also when a later one is wrong and
    // the answer is false; the others stay. What stands behind the list is read next.
    bool ParseRights(CSecuritySettingsParseContext& context);
    // Reads one "ZoneA=Write+Force". After a wrong zone or a missing '=' that token is gone; after a wrong
    // right, the right.
    bool ParseZoneAndRights(CSecuritySettingsParseContext& context);
    // 0 for the world, 1 to 4 for zones A to D, 0xFFFFFFFF for a token that names none.
    static unsigned int ZoneFromParseToken(const CParseToken& token);
    // Adds the right that the token names to `rights`; false when it names none.
    static bool RightsFromParseToken(const CParseToken& token, unsigned int& rights);

    unsigned int m_WorldRights = 0;
    unsigned int m_ZoneRights[ZoneCount] = {};
};
