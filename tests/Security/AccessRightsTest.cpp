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
    const std::pair<unsigned int, const char*> cases[] = {
        {0xFFFFFFFF, "Full"},
        {0x080, ""},
        {0x8FFFFF80, "Configure"},
        {0x17F, "Refresh+Write+Force+Acknowledge+DisableAlarm+DirectWrite+WriteFile+Configure"},
        {0xFFFFFFFE, "Write+Force+Acknowledge+DisableAlarm+DirectWrite+WriteFile+Configure"},
    };
    for (const auto& [mask, text] : cases) {
        char buffer[256];
        EXPECT_STREQ(Rights::RightsMaskText(mask, buffer), text);
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

TEST(AccessRightsTest, WhatStoodBeforeAFaultHasBeenGranted) {
    RightsText text("World=Force,ZoneA=Write,ZoneA=Writ;");
    Rights rights(1);
    rights.SetZoneRights(1, 8);
    EXPECT_FALSE(rights.ParseRights(text.m_Context));
    EXPECT_EQ(Masks(rights), "4 2 8 0 0");
    EXPECT_EQ(text.Next(), ";");
}

// Tokens, each with the line that it ends in.
TEST(AccessRightsTest, CommentsAreWholeLinesThatStartWithTheirMark) {
    RightsText text("# one; two\n;\na # no comment\n #neither\n\r\n#\n# last");
    std::string tokens;
    CParseToken token;
    do {
        text.m_Context.GetNextSecuritySettingsToken(token);
        tokens += token.Type() == TokenSecuritySettingsComment ? "[" + token.Text() + "]" : token.Text();
        tokens += "@" + std::to_string(token.Location().GetEnd().GetLine()) + " ";
    } while (token.Type() != TokenEndOfFile);
    EXPECT_EQ(tokens, "[# one; two\n]@2 [;\n]@3 a@3 #@3 no@3 comment@3 #@4 neither@4 [#\n]@7 [# last]@7 @7 ");
    EXPECT_EQ(RightsText("# a\n;b\nc ; d").Next(), "c");
}

} // namespace
