#include "SecurityTesting.h"
#include "support/OtherUser.h"
#include <QVLib/Security/UserAccessToken.h>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {

CQVUserIdentity Named(const char* name) {
    CQVUserIdentity id;
    id.SetFromUserName(name);
    return id;
}

// What a text grants, and every message with its place. Where entries are lost, one fault too many would grant
// rights, and one too few would cost them.
TEST(SecuritySettingsTest, TextsAreUnderstoodEntryByEntry) {
    const struct {
        const char* text;
        const char* entries;
        const char* messages;
    } cases[] = {
        {"", "", ""},
        {"# only\n; comments", "", ""},
        {"root: World=Full;\n*: World=Refresh;@operators:\nZoneA=Write+Acknowledge,World=Refresh\n;",
         "root: World=Full;\n*: World=Refresh;\n",
         "f(4,2-2): error 101: Found 'End of File' when expecting ';'.\n"},
        {"@operators:\n# morning\nWorld=Refresh,\n; evening\n ZoneA=Write+Acknowledge\n ;Guest: World=None;",
         "@operators: World=Refresh, ZoneA=Write+Acknowledge;\nGuest: World=None;\n", ""},
        {"bob:World=Force;bob:World=Write;", "bob: World=Force;\nbob: World=Write;\n", ""},
        {"#c\n *:World=full;@Guest:WORLD=Full;guest:World=Full;",
         "*: World=Full;\n@Guest: World=Full;\nguest: World=Full;\n", ""},
        // Rights: the last mention of a zone counts, and Full swallows what stands before it.
        {"a: World=Refresh+Write, zoneb=Configure;", "a: World=Refresh+Write, ZoneB=Configure;\n", ""},
        {"a: World=Write, World=Force;", "a: World=Force;\n", ""},
        {"a: ZONEb=None, zoneD=None+Write;", "a: World=None, ZoneD=Write;\n", ""},
        {"a: ZoneA=Full+Write,ZoneC=WRITE+full , zonea=refresh;",
         "a: World=None, ZoneA=Refresh, ZoneC=Full;\n", ""},
        {"a: World\n=\n# remark + , =\nRefresh\n;remark\n+ Force\n,\nZoneA=Write;",
         "a: World=Refresh+Force, ZoneA=Write;\n", ""},
        {"a: World=DisableAlarm+DirectWrite+WriteFile+Acknowledge;",
         "a: World=Acknowledge+DisableAlarm+DirectWrite+WriteFile;\n", ""},
        // One wrong entry costs only itself, wherever it goes wrong: in the name, ...
        {"bob World=Full;\nann: World=Write;", "ann: World=Write;\n",
         "f(1,5-10): error 101: Found 'World' when expecting ':'.\n"},
        {"bob;\nann: World=Write;", "ann: World=Write;\n",
         "f(1,4-5): error 101: Found ';' when expecting ':'.\n"},
        {"john.doe: World=Full; ann: World=Write;", "ann: World=Write;\n",
         "f(1,5-6): error 101: Found '.' when expecting ':'.\n"},
        {"@ ops: World=Full; ann: World=Write;", "ann: World=Write;\n",
         "f(1,2-3): error 101: Found ' ' when expecting 'Group ID'.\n"},
        {"ann: World=Write;\n@", "ann: World=Write;\n",
         "f(2,2-2): error 101: Found 'End of File' when expecting 'Group ID'.\n"},
        {" # indented\nbob: World=Full;\nann: World=Write;", "ann: World=Write;\n",
         "f(1,2-3): error 101: Found '#' when expecting 'User ID'.\n"},
        // ... in the zone, ...
        {"bob: World=Full, ZoneE=Force; ann: World=Write;", "ann: World=Write;\n",
         "f(1,18-23): error 960: User rights zone 'ZoneE', invalid.\n"},
        {"a:Zone A=Write;b:ZoneAB=Full;c:Worlds=Full;d:Zone1=Full;", "",
         "f(1,3-7): error 960: User rights zone 'Zone', invalid.\n"
         "f(1,18-24): error 960: User rights zone 'ZoneAB', invalid.\n"
         "f(1,32-38): error 960: User rights zone 'Worlds', invalid.\n"
         "f(1,46-51): error 960: User rights zone 'Zone1', invalid.\n"},
        {"ann: World=Write;\nbob: World=Full,", "ann: World=Write;\n",
         "f(2,17-17): error 960: User rights zone '', invalid.\n"},
        {"bob: World Full; ann: World=Write;", "ann: World=Write;\n",
         "f(1,12-16): error 101: Found 'Full' when expecting '='.\n"},
        {"ann: World=Write;\nbob: World", "ann: World=Write;\n",
         "f(2,11-11): error 101: Found 'End of File' when expecting '='.\n"},
        // ... in the rights, ...
        {"bob: World=Force,\nZoneA=Write+Writ+Force; ann: World=Write;", "ann: World=Write;\n",
         "f(2,13-17): error 101: Found 'Writ' when expecting 'User Right'.\n"},
        {"ann: World=Write;\nbob: World=", "ann: World=Write;\n",
         "f(2,12-12): error 101: Found 'End of File' when expecting 'User Right'.\n"},
        {"bob: World=Full ZoneA=Force; ann: World=Write;", "ann: World=Write;\n",
         "f(1,17-22): error 101: Found 'ZoneA' when expecting ';'.\n"},
        // ... or at its end: a ';' that begins a line is none, so the entry runs on into the next one.
        {"bob: World=Full\n;\ncat: World=Full;\nann: World=Write;", "ann: World=Write;\n",
         "f(3,1-4): error 101: Found 'cat' when expecting ';'.\n"},
        // Where the message is about a ';', the next entry is skipped.
        {"bob: World=;\ncat: World=Full;\nann: World=Write;", "ann: World=Write;\n",
         "f(1,12-13): error 101: Found ';' when expecting 'User Right'.\n"},
        // What is skipped knows no comments. A ';' in one ends the skipping, ...
        {"bob: Wrld=Full\n# a; b\n;\ncat: World=Full;\nann: World=Write;", "ann: World=Write;\n",
         "f(1,6-10): error 960: User rights zone 'Wrld', invalid.\n"
         "f(4,1-4): error 101: Found 'cat' when expecting ':'.\n"},
        // ... and one that begins a line ends it too, but is then a comment, so that a name is lost.
        {"bob World=Full\n;\ncat: World=Full;\nann: World=Write;", "ann: World=Write;\n",
         "f(1,5-10): error 101: Found 'World' when expecting ':'.\n"
         "f(3,4-5): error 101: Found ':' when expecting 'User ID'.\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        RightsText text(c.text);
        CSecuritySettings settings;
        settings.ParseText(text.m_Context);
        EXPECT_EQ(Text(settings), c.entries);
        EXPECT_EQ(text.m_Messages.GetString(), c.messages);
    }
}

TEST(SecuritySettingsTest, EntriesThatTheTextCannotHoldAreKnown) {
    const struct {
        const char* name;
        unsigned int rights;
        bool readable;
    } cases[] = {
        {"bob", 0x17F, true},   {"bob", 0, true},      {"*", 0xFFFFFFFF, true},
        {"Guest", 1, true},     {"bob", 0x181, false}, {"bob", 0x080, false},
        {"john.doe", 1, false}, {"@ops", 1, false},    {"#bob", 1, false},
        {"bob ", 1, false},     {"9bob", 1, false},    {"bob: World=Full; *", 1, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(CSecuritySettingsUser(Named(c.name), c.rights).IsTextReadable(), c.readable);
    }
    EXPECT_TRUE(CSecuritySettingsUser().IsTextReadable());
}

TEST(SecuritySettingsTest, ChangesActOnTheFirstEqualIdentity) {
    CSecuritySettings settings;
    settings.AddAuthenticatedUser(1);
    settings.AddAuthenticatedUser(2);
    EXPECT_EQ(settings.AddNewUser("*whatever", 4), nullptr);
    EXPECT_FALSE(settings.IsGuestAccountConfigured());
    ASSERT_NE(settings.AddNewUser("Guest", 4), nullptr);
    ASSERT_NE(settings.AddNewUser(CQVUserIdentity(), 4), nullptr); // the guest without a name is another
    EXPECT_TRUE(settings.IsGuestAccountConfigured());
    const CSecuritySettingsUser* bob = settings.AddNewUser("bob", 8);
    EXPECT_EQ(bob, settings.m_Users.back());
    EXPECT_TRUE(settings.UpdateUserWorldRights(Named("*"), 0x20));
    EXPECT_TRUE(settings.UpdateUserZoneRights(Named("bob"), 3, 0x40));
    EXPECT_FALSE(settings.UpdateUserZoneRights(Named("bob"), 4, 0x40));
    EXPECT_FALSE(settings.UpdateUserZoneRights(Named("Bob"), 3, 0x40));
    EXPECT_FALSE(settings.UpdateUserWorldRights(Named("Bob"), 0x40));
    COutputLogToString log;
    settings.Print(&log);
    EXPECT_EQ(log.GetString(),
              "*: World=DirectWrite\n*: World=Write\nGuest: World=Force\nGuest: World=Force\n"
              "bob: World=Acknowledge, ZoneD=WriteFile\n");
    EXPECT_TRUE(settings.RemoveUser(Named("*")));
    EXPECT_TRUE(settings.RemoveUser(Named("*")));
    EXPECT_FALSE(settings.RemoveUser(Named("*")));
    EXPECT_EQ(settings.m_Users.size(), 3U);
    EXPECT_FALSE(settings.CanCurrentUserConfigureSecurity());
}

TEST(SecuritySettingsTest, RightsOfAllMatchingEntriesAddUp) {
    CSecuritySettings settings;
    Parse(settings, "*: World=Refresh; bob: World=None, ZoneB=Write; bob: ZoneB=Force; Bob: World=Full;"
                    "@ops: World=Configure; Guest: World=Acknowledge; *: ZoneA=Write;");
    CQVUserAccessToken bob;
    bob.SetSpecifiedUser(CQVSecureWString("bob"));
    CQVUserAccessToken operatorToken;
    operatorToken.SetSpecifiedUser(CQVSecureWString("ann"));
    operatorToken.m_Groups = {"oop", "ops"};
    CQVUserAccessToken guest;
    guest.SetGuest();
    const struct {
        CQVUserAccessToken* token;
        const char* rights;
    } cases[] = {{&bob, "World=Refresh, ZoneA=Write, ZoneB=Write+Force"},
                 {&operatorToken, "World=Refresh+Configure, ZoneA=Write"},
                 {&guest, "World=Acknowledge"}};
    for (const auto& c : cases) {
        CSecuritySettingsAccessRights rights(0xFFFFFFFF);
        settings.GetAccessRightsForUser(c.token, rights);
        EXPECT_EQ(Printed([&](CTextOutput& out) { rights.PrintRights(out); }), c.rights);
    }
}

// Root runs this as others, too: one whom the system knows, and one whom it does not.
TEST(SecuritySettingsTest, DefaultsGoByTheUserOfTheProcess) {
    const struct {
        unsigned int user;
        const char* entries;
    } cases[] = {
        {0, "root: World=Full;\n*: World=Refresh;\n"},
        {65534, "nobody: World=Full;\nroot: World=Full;\n*: World=Refresh;\n"},
        {4000000001, "root: World=Full;\n*: World=Full;\n"},
    };
    for (const auto& c : cases) {
        RunAsUser(c.user, [&] {
            CSecuritySettings settings;
            settings.InitialiseForCurrentUser();
            EXPECT_EQ(Text(settings), c.entries);
        });
    }
    CSecuritySettings settings;
    settings.InitialiseForServer(true);
    EXPECT_EQ(Text(settings), "root: World=Full;\n*: World=Full;\nGuest: World=Full;\n");
}

CSecuritySettings& Sample(CSecuritySettings& settings) {
    CSecuritySettingsUser* bob = settings.AddNewUser("bob", 0x17F);
    bob->SetZoneRights(1, 0x80000000);
    settings.AddAuthenticatedUser(1);
    return settings;
}

bool LoadInto(CSecuritySettings& settings, const std::string& bytes) {
    BytesInput in(bytes);
    return settings.LoadBinary(in);
}

TEST(SecuritySettingsTest, BinaryFormIsReadBackAndEveryCutIsNoticed) {
    using namespace std::string_literals;
    CSecuritySettings settings;
    const std::string bytes = Saved([&](CBinaryOutput& out) { Sample(settings).SaveBinary(out); });
    EXPECT_EQ(bytes, "\1\0\2\0\0\0"s
                     "\2\3bob\x7F\1\0\0\4\0\0\0\0\0\0\0\0\0\0\x80\0\0\0\0\0\0\0\0"s
                     "\1\0\1\0\0\0\4\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"s);
    CSecuritySettings loaded;
    EXPECT_TRUE(LoadInto(loaded, bytes + "more"));
    EXPECT_TRUE(loaded == settings);
    EXPECT_TRUE(loaded.UpdateUserZoneRights(Named("*"), 2, 1));
    EXPECT_FALSE(loaded == settings);
    for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
        CSecuritySettings part;
        EXPECT_THROW(LoadInto(part, bytes.substr(0, cut)), CBinaryInput::EOFException) << cut;
    }
    // Nothing is redundant: one bit that is wrong never gives the same rights.
    EXPECT_TRUE(settings.UpdateUserZoneRights(Named("*"), 3, 1));
    const std::string whole = Saved([&](CBinaryOutput& out) { settings.SaveBinary(out); });
    for (std::size_t bit = 0; bit < 8 * whole.size(); ++bit) {
        std::string flipped = whole;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
        CSecuritySettings other;
        try {
            EXPECT_FALSE(LoadInto(other, flipped) && other == settings) << bit;
        } catch (const CBinaryInput::EOFException&) {
        } catch (const std::length_error&) {
        }
    }
}

TEST(SecuritySettingsTest, HostileCountsAreBoundedByTheData) {
    using namespace std::string_literals;
    const std::string head = "\1\0\2\0\0\0\2\1a\1\0\0\0"s; // two entries, the first up to its zones
    const std::string next = "\2\1b\2\0\0\0\0\0\0\0"s;
    const struct {
        std::string zones;
        const char* entries; // null: the data end
    } cases[] = {
        {"\0\0\0\0"s, "a: World=Refresh;\nb: World=Write;\n"},
        {"\xFF\xFF\xFF\xFF"s, "a: World=Refresh;\nb: World=Write;\n"},
        {"\1\0\0\0\4\0\0\0"s, "a: World=Refresh, ZoneA=Force;\nb: World=Write;\n"},
        {"\6\0\0\0"s + std::string(12, '\0') + "\4\0\0\0"s + std::string(8, '\xFF'),
         "a: World=Refresh, ZoneD=Force;\nb: World=Write;\n"},
        {"\xFF\xFF\xFF\x7F"s + std::string(100000, 'x'), nullptr},
    };
    for (const auto& c : cases) {
        CSecuritySettings settings;
        if (c.entries == nullptr) {
            EXPECT_THROW(LoadInto(settings, head + c.zones + next), CBinaryInput::EOFException);
            continue;
        }
        EXPECT_TRUE(LoadInto(settings, head + c.zones + next));
        EXPECT_EQ(Text(settings), c.entries);
    }
    CSecuritySettings settings;
    EXPECT_THROW(LoadInto(settings, "\1\0\xFF\xFF\xFF\xFF"s + head.substr(6) + "\0\0\0\0"s),
                 CBinaryInput::EOFException);
    EXPECT_THROW(LoadInto(settings, "\1\0\1\0\0\0\2\xFD\xBF\xBF\xBF\xBF\xBF"s), std::length_error);
    settings.Clear();
    EXPECT_FALSE(LoadInto(settings, "\2\0"s));
    EXPECT_FALSE(LoadInto(settings, "\1\1"s)); // 257
    EXPECT_TRUE(settings.m_Users.empty());
}

} // namespace
