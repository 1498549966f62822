#include "SecurityTesting.h"
#include <QVLib/Security/AccessRights.h>
#include <gtest/gtest.h>

namespace {

using Rights = CSecuritySettingsAccessRights;

// World and zones A to D.
std::string Masks(const Rights& rights) {
    char text[80];
    std::snprintf(text, sizeof text, "%x %x %x %x %x", rights.m_WorldRights, rights.m_ZoneRights[0],
                  rights.m_ZoneRights[1], rights.m_ZoneRights[2], rights.m_ZoneRights[3]);
    return text;
}

TEST(AccessRightsTest, MasksHaveTheirTexts) {
    const struct {
        unsigned int mask;
        const char* text;
    } cases[] = {
        {0, "None"},
        {0xFFFFFFFF, "Full"},
        {0x003, "Refresh+Write"},
        {0x080, ""},
        {0x8FFFFF80, "Configure"},
        {0x17F, "Refresh+Write+Force+Acknowledge+DisableAlarm+DirectWrite+WriteFile+Configure"},
        {0xFFFFFFFE, "Write+Force+Acknowledge+DisableAlarm+DirectWrite+WriteFile+Configure"},
    };
    for (const auto& c : cases) {
        char buffer[256];
        EXPECT_STREQ(Rights::RightsMaskText(c.mask, buffer), c.text);
    }
    unsigned int all = 0;
    unsigned int flags = 0;
    for (unsigned int i = 0; i < g_UserRightsMetadataLength; ++i) {
        all |= g_UserRightsMetadata[i].m_Mask;
        flags += static_cast<unsigned int>(g_UserRightsMetadata[i].m_Flag) << i;
    }
    EXPECT_EQ(all, 0x17Fu);
    EXPECT_EQ(flags, 0x7Fu);
}

TEST(AccessRightsTest, APrivilegeIsHeldInTheWorldOrInItsZone) {
    Rights rights;
    EXPECT_TRUE(rights.SetZoneRights(2, 0x100));
    EXPECT_FALSE(rights.SetZoneRights(4, 0x100));
    EXPECT_EQ(Masks(rights), "0 0 0 100 0");
    EXPECT_TRUE(rights.HasPrivilege(2, 0x100));
    EXPECT_TRUE(rights.HasPrivilege(2, 0x103)); // any of them
    EXPECT_FALSE(rights.HasPrivilege(2, 0x0FF));
    EXPECT_FALSE(rights.HasPrivilege(1, 0x100));
    EXPECT_FALSE(rights.HasPrivilege(4, 0x100));
    EXPECT_FALSE(rights.HasPrivilege(255, 0xFFFFFFFF));
    Rights world(0x100);
    EXPECT_TRUE(world.HasPrivilege(2, 0x100));
    EXPECT_TRUE(world.HasPrivilege(255, 0x100));

    world.SetZoneRights(2, 0x001);
    world.SetZoneRights(0, 0x002);
    rights.Merge(world);
    EXPECT_EQ(Masks(rights), "100 2 0 101 0");
    rights.Reset();
    EXPECT_EQ(Masks(rights), "0 0 0 0 0");
}

// What a text grants, what is read behind it, and the message with its place.
TEST(AccessRightsTest, TextsGrantOrExplainThemselves) {
    const struct {
        const char* text;
        const char* masks; // on top of 8 8 8 8 8; null: not understood
        const char* next;
        const char* messages;
    } cases[] = {
        {"world=full", "ffffffff 8 8 8 8", "", ""},
        {"World=Refresh+Write, zoneb=Configure;", "3 8 100 8 8", ";", ""},
        {"World=Write, World=Force", "4 8 8 8 8", "", ""},
        {"ZONEb=None, zoneD=None+Write", "8 8 0 8 2", "", ""},
        {"ZoneA=Full+Write,ZoneC=WRITE+full , zonea=refresh x", "8 1 8 ffffffff 8", "x", ""},
        {" World\n=\n# remark + , =\nRefresh\n;remark\n+ Force\n,\nZoneA=Write", "5 2 8 8 8", "", ""},
        {"World=DisableAlarm+DirectWrite+WriteFile+Acknowledge", "78 8 8 8 8", "", ""},
        {"World=Write,", nullptr, "", "f(1,13-13): error 960: User rights zone '', invalid.\n"},
        {"World=Write, ZoneE=Write;", nullptr, "=",
         "f(1,14-19): error 960: User rights zone 'ZoneE', invalid.\n"},
        {"Zone A=Write", nullptr, "A", "f(1,1-5): error 960: User rights zone 'Zone', invalid.\n"},
        {"Zone1=Write", nullptr, "=", "f(1,1-6): error 960: User rights zone 'Zone1', invalid.\n"},
        {"ZoneAB=Write", nullptr, "=", "f(1,1-7): error 960: User rights zone 'ZoneAB', invalid.\n"},
        {"Worlds=Write", nullptr, "=", "f(1,1-7): error 960: User rights zone 'Worlds', invalid.\n"},
        {";World=Write", nullptr, "", "f(1,13-13): error 960: User rights zone '', invalid.\n"},
        {"World Write;", nullptr, ";", "f(1,7-12): error 101: Found 'Write' when expecting '='.\n"},
        {"World", nullptr, "", "f(1,6-6): error 101: Found 'End of File' when expecting '='.\n"},
        {"World=Force,\nZoneA=Write+Writ+Force;", nullptr, "+",
         "f(2,13-17): error 101: Found 'Writ' when expecting 'User Right'.\n"},
        {"World=", nullptr, "", "f(1,7-7): error 101: Found 'End of File' when expecting 'User Right'.\n"},
        {"World=; next", nullptr, "next", "f(1,7-8): error 101: Found ';' when expecting 'User Right'.\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        RightsText text(c.text);
        Rights rights(8);
        for (unsigned int zone = 0; zone < 4; ++zone)
            rights.SetZoneRights(zone, 8);
        EXPECT_EQ(rights.ParseRights(text.m_Context), c.masks != nullptr);
        if (c.masks != nullptr) {
            EXPECT_EQ(Masks(rights), c.masks);
        }
        EXPECT_EQ(text.Next(), c.next);
        EXPECT_EQ(text.m_Messages.GetString(), c.messages);
    }

    // What stood before the fault has been granted.
    RightsText text("World=Force,ZoneA=Write,ZoneA=Writ");
    Rights rights(1);
    EXPECT_FALSE(rights.ParseRights(text.m_Context));
    EXPECT_EQ(Masks(rights), "4 2 0 0 0");
}

TEST(AccessRightsTest, CommentsAreWholeLinesThatStartWithTheirMark) {
    RightsText text("# one; two\n;\na # no comment\n #neither\n\r\n#\n# last");
    const struct {
        int type;
        const char* text;
        unsigned int endLine;
    } tokens[] = {
        {TokenSecuritySettingsComment, "# one; two\n", 2},
        {TokenSecuritySettingsComment, ";\n", 3},
        {TokenIdentifier, "a", 3},
        {'#', "#", 3},
        {TokenIdentifier, "no", 3},
        {TokenIdentifier, "comment", 3},
        {'#', "#", 4},
        {TokenIdentifier, "neither", 4},
        {TokenSecuritySettingsComment, "#\n", 7},
        {TokenSecuritySettingsComment, "# last", 7},
        {TokenEndOfFile, "", 7},
    };
    for (const auto& expected : tokens) {
        CParseToken token;
        text.m_Context.GetNextSecuritySettingsToken(token);
        EXPECT_EQ(token.Type(), expected.type);
        EXPECT_EQ(token.Text(), expected.text);
        EXPECT_EQ(token.Location().GetEnd().GetLine(), expected.endLine) << expected.text;
    }
    EXPECT_EQ(RightsText("# a\n;b\nc ; d").Next(), "c");
}

} // namespace
