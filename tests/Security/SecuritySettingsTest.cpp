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

TEST(SecuritySettingsTest, TextsGrantRightsEntryByEntry) {
    const std::pair<const char*, const char*> cases[] = {
        {"", ""},
        {"# only\n; comments", ""},
        {"root: World=Full;\n*: World=Refresh;", "root: World=Full;\n*: World=Refresh;\n"},
        {"@operators:\n# morning\nWorld=Refresh,\n; evening\n ZoneA=Write+Acknowledge\n ;Guest: World=None;",
         "@operators: World=Refresh, ZoneA=Write+Acknowledge;\nGuest: World=None;\n"},
        {"bob:World=Force;bob:World=Write;", "bob: World=Force;\nbob: World=Write;\n"},
        {"#c\n *:World=full;@Guest:WORLD=Full;guest:World=Full;",
         "*: World=Full;\n@Guest: World=Full;\nguest: World=Full;\n"},
        // The last mention of a zone counts, and Full swallows what stands before it.
        {"a: World=Refresh+Write, zoneb=Configure;", "a: World=Refresh+Write, ZoneB=Configure;\n"},
        {"a: World=Write, World=Force;", "a: World=Force;\n"},
        {"a: ZONEb=None, zoneD=None+Write;", "a: World=None, ZoneD=Write;\n"},
        {"a: ZoneA=Full+Write,ZoneC=WRITE+full , zonea=refresh;",
         "a: World=None, ZoneA=Refresh, ZoneC=Full;\n"},
        {"a: World\n=\n# remark + , =\nRefresh\n;remark\n+ Force\n,\nZoneA=Write;",
         "a: World=Refresh+Force, ZoneA=Write;\n"},
        {"a: World=DisableAlarm+DirectWrite+WriteFile+Acknowledge;",
         "a: World=Acknowledge+DisableAlarm+DirectWrite+WriteFile;\n"},
    };
    for (const auto& [text, entries] : cases) {
        RightsText input(text);
        CSecuritySettings settings;
        settings.ParseText(input.m_Context);
        EXPECT_EQ(Text(settings), entries);
        EXPECT_EQ(input.m_Messages.GetString(), "") << text;
    }
}

// Wherever an entry goes wrong, it costs only itself: one fault too many would grant rights, and one too few would cost
// them. Each text stands between an entry in line 1 and, where it does not break off, one more in a line of its own.
TEST(SecuritySettingsTest, FaultsCostTheirOwnEntry) {
    const std::pair<std::string, const char*> cases[] = {
        {"bob World=Full;", "f(2,5-10): error 101: Found 'World' when expecting ':'.\n"},
        {"bob;", "f(2,4-5): error 101: Found ';' when expecting ':'.\n"},
        {"john.doe: World=Full;", "f(2,5-6): error 101: Found '.' when expecting ':'.\n"},
        {"@ ops: World=Full;", "f(2,2-3): error 101: Found ' ' when expecting 'Group ID'.\n"},
        {"@", "f(2,2-2): error 101: Found 'End of File' when expecting 'Group ID'.\n"},
        {" # indented\nbob: World=Full;", "f(2,2-3): error 101: Found '#' when expecting 'User ID'.\n"},
        {"bob: World=Full, ZoneE=Force;", "f(2,18-23): error 960: User rights zone 'ZoneE', invalid.\n"},
        {"a: Zone A=Write;", "f(2,4-8): error 960: User rights zone 'Zone', invalid.\n"},
        {"a: ZoneAB=Full;", "f(2,4-10): error 960: User rights zone 'ZoneAB', invalid.\n"},
        {"a: Worlds=Full;", "f(2,4-10): error 960: User rights zone 'Worlds', invalid.\n"},
        {"bob: World=Full,", "f(2,17-17): error 960: User rights zone '', invalid.\n"},
        {"bob: World Full;", "f(2,12-16): error 101: Found 'Full' when expecting '='.\n"},
        {"bob: World", "f(2,11-11): error 101: Found 'End of File' when expecting '='.\n"},
        {"bob: World=Force,\nZoneA=Write+Writ+Force;",
         "f(3,13-17): error 101: Found 'Writ' when expecting 'User Right'.\n"},
        {"bob: World=", "f(2,12-12): error 101: Found 'End of File' when expecting 'User Right'.\n"},
        {"bob: World=Full ZoneA=Force;", "f(2,17-22): error 101: Found 'ZoneA' when expecting ';'.\n"},
        // A ';' that begins a line is no end of an entry, so the entry runs on into the next one.
        {"bob: World=Full\n;\ncat: World=Full;", "f(4,1-4): error 101: Found 'cat' when expecting ';'.\n"},
        {"bob: World=Full\n;", "f(3,2-2): error 101: Found 'End of File' when expecting ';'.\n"},
        // Where the message is about a ';', the next entry is skipped.
        {"bob: World=;\ncat: World=Full;", "f(2,12-13): error 101: Found ';' when expecting 'User Right'.\n"},
        // What is skipped knows no comments. A ';' in one ends the skipping, ...
        {"bob: Wrld=Full\n# a; b\n;\ncat: World=Full;",
         "f(2,6-10): error 960: User rights zone 'Wrld', invalid.\n"
         "f(5,1-4): error 101: Found 'cat' when expecting ':'.\n"},
        // ... and one that begins a line ends it too, but is then a comment, so that a name is lost.
        {"bob World=Full\n;\ncat: World=Full;", "f(2,5-10): error 101: Found 'World' when expecting ':'.\n"
                                                "f(4,4-5): error 101: Found ':' when expecting 'User ID'.\n"},
    };
    for (const auto& [text, messages] : cases) {
        SCOPED_TRACE(text);
        const bool bBreaksOff = text.back() != ';' || text.ends_with("\n;");
        RightsText input("ann: World=Write;\n" + text + (bBreaksOff ? "" : "\nzoe: World=Force;"));
        CSecuritySettings settings;
        settings.ParseText(input.m_Context);
        EXPECT_EQ(Text(settings),
                  std::string("ann: World=Write;\n") + (bBreaksOff ? "" : "zoe: World=Force;\n"));
        EXPECT_EQ(input.m_Messages.GetString(), messages);
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
    const std::pair<CQVUserAccessToken*, const char*> cases[] = {
        {&bob, "World=Refresh, ZoneA=Write, ZoneB=Write+Force"},
        {&operatorToken, "World=Refresh+Configure, ZoneA=Write"},
        {&guest, "World=Acknowledge"}};
    for (const auto& [token, expected] : cases) {
        CSecuritySettingsAccessRights rights(0xFFFFFFFF);
        settings.GetAccessRightsForUser(token, rights);
        EXPECT_EQ(Printed([&](CTextOutput& out) { rights.PrintRights(out); }), expected);
    }
}

// Root runs this as others, too: one whom the system knows, and one whom it does not.
TEST(SecuritySettingsTest, DefaultsGoByTheUserOfTheProcess) {
    const std::pair<unsigned int, const char*> cases[] = {
        {0, "root: World=Full;\n*: World=Refresh;\n"},
        {65534, "nobody: World=Full;\nroot: World=Full;\n*: World=Refresh;\n"},
        {4000000001, "root: World=Full;\n*: World=Full;\n"},
    };
    for (const auto& [user, entries] : cases) {
        RunAsUser(user, [&] {
            CSecuritySettings settings;
            settings.InitialiseForCurrentUser();
            EXPECT_EQ(Text(settings), entries);
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
        bool bRefused = false;
        try {
            bRefused = !LoadInto(other, flipped);
        } catch (const CBinaryInput::EOFException&) {
            bRefused = true;
        } catch (const std::length_error&) {
            bRefused = true;
        }
        EXPECT_TRUE(bRefused || !(other == settings)) << bit;
    }
}

TEST(SecuritySettingsTest, HostileCountsAreBoundedByTheData) {
    using namespace std::string_literals;
    const std::string head = "\1\0\2\0\0\0\2\1a\1\0\0\0"s; // two entries, the first up to its zones
    const std::string next = "\2\1b\2\0\0\0\0\0\0\0"s;
    // The zones of the first entry and what is loaded; null where the data end.
    const std::pair<std::string, const char*> cases[] = {
        {"\0\0\0\0"s, "a: World=Refresh;\nb: World=Write;\n"},
        {"\xFF\xFF\xFF\xFF"s, "a: World=Refresh;\nb: World=Write;\n"},
        {"\1\0\0\0\4\0\0\0"s, "a: World=Refresh, ZoneA=Force;\nb: World=Write;\n"},
        {"\6\0\0\0"s + std::string(12, '\0') + "\4\0\0\0"s + std::string(8, '\xFF'),
         "a: World=Refresh, ZoneD=Force;\nb: World=Write;\n"},
        {"\xFF\xFF\xFF\x7F"s + std::string(100000, 'x'), nullptr},
    };
    for (const auto& [zones, entries] : cases) {
        CSecuritySettings settings;
        if (entries == nullptr) {
            EXPECT_THROW(LoadInto(settings, head + zones + next), CBinaryInput::EOFException);
            continue;
        }
        EXPECT_TRUE(LoadInto(settings, head + zones + next));
        EXPECT_EQ(Text(settings), entries);
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
