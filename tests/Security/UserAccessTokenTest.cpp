#include "SecurityTesting.h"
#include "support/PamStack.h"
#include <QVLib/Security/ClientAccessContext.h>
#include <QVLib/Security/UserAccessToken.h>
#include <QVPlatform/UserAuthentication.h>
#include <gtest/gtest.h>

namespace {

CQVUserIdentity Parsed(const char* text) {
    RightsText input(text);
    CQVUserIdentity id;
    EXPECT_TRUE(id.ParseUserIdentity(input.m_Context));
    return id;
}

TEST(UserAccessTokenTest, MatchesByKindNameAndGroup) {
    CQVUserAccessToken fresh; // the guest, under no name
    CQVUserAccessToken guest;
    guest.SetGuest();
    CQVUserAccessToken bob;
    bob.SetSpecifiedUser(CQVSecureWString("bob"));
    CQVUserAccessToken member = bob;
    member.m_Groups = {"Guest", "ops"};
    CQVUserAccessToken star; // logged on under a name that is no identity's
    star.SetSpecifiedUser(CQVSecureWString("*bob"));
    const std::string bytes = "\7\3bob";
    BytesInput strange(bytes);
    CQVUserIdentity strangeId; // of a kind from another world, which is kept and has no text
    strangeId.LoadUserIdentity(strange);
    EXPECT_EQ(strangeId.GetType(), 7);
    EXPECT_EQ(Printed([&](CTextOutput& out) { strangeId.PrintUserIdentity(out); }), "");
    // Who matches, of fresh, guest, bob, member and star.
    const std::pair<CQVUserIdentity, const char*> cases[] = {
        {CQVUserIdentity(), "11000"}, {Parsed("Guest"), "11000"}, {Parsed("*"), "00111"},
        {Parsed("bob"), "00110"},     {Parsed("Bob"), "00000"},   {Parsed("guest"), "00000"},
        {Parsed("@ops"), "00010"},    {Parsed("@op"), "00000"},   {Parsed("@bob"), "00000"},
        {Parsed("@Guest"), "00010"},  {strangeId, "00000"},
    };
    for (const auto& [id, expected] : cases) {
        std::string matches;
        for (const CQVUserAccessToken* token : {&fresh, &guest, &bob, &member, &star})
            matches += token->MatchesUserIdentity(id) ? '1' : '0';
        EXPECT_EQ(matches, expected) << id.GetType() << ":" << id.GetName();
    }
    EXPECT_STREQ(guest.m_UserName.Get(), "Guest");
    EXPECT_FALSE(member.SetFromCurrentProcess());
    member.SetGuest();
    EXPECT_EQ(member.m_Groups.size(), 2U);
}

TEST(UserAccessTokenTest, LogsRealUsersOnWithAllTheirGroups) {
    PamStack stack;
    std::vector<std::string> groups{std::string(900, 'g')}; // an entry longer than any buffer to begin with
    while (groups.size() < 300)
        groups.push_back("group" + std::to_string(groups.size()));
    stack.AddUser("alice", "secret", groups);
    stack.AddUser("bob", "hidden", {"nightshift", "group7"});
    stack.RunInside([&] {
        const QVUserAuthentication authentication;
        CQVUserAccessToken token;
        EXPECT_FALSE(token.Logon(authentication, CQVSecureWString("alice"), CQVSecureWString("hidden")));
        EXPECT_NE(token.m_LogonErrorCode, 0);
        EXPECT_STREQ(token.m_szLogonError, "Authentication failure");
        EXPECT_TRUE(token.m_UserIdentity.IsGuestIdentity());
        EXPECT_STREQ(token.m_UserName.Get(), "");
        EXPECT_TRUE(token.m_Groups.empty());

        ASSERT_TRUE(token.Logon(authentication, CQVSecureWString("alice"), CQVSecureWString("secret")));
        EXPECT_STREQ(token.m_UserName.Get(), "alice");
        EXPECT_STREQ(token.m_szLogonError, "Authentication failure"); // of the last one that failed
        EXPECT_EQ(token.m_Groups, std::set<qvstring>(groups.begin(), groups.end()));
        CSecuritySettings settings;
        Parse(settings, "@group299: ZoneC=Write; *: World=Refresh; Guest: World=Full; alice: ZoneA=Force;"
                        "@nightshift: World=Configure;");
        CClientAccessContext client("192.0.2.7");
        settings.GetAccessRightsForUser(&token, client);
        EXPECT_EQ(Printed([&](CTextOutput& out) { client.PrintRights(out); }),
                  "World=Refresh, ZoneA=Force, ZoneC=Write");

        // The groups of the next user come on top.
        ASSERT_TRUE(token.Logon(authentication, CQVSecureWString("bob"), CQVSecureWString("hidden")));
        EXPECT_EQ(token.m_Groups.size(), 301U);
        EXPECT_TRUE(token.MatchesUserIdentity(Parsed("@nightshift")));
        EXPECT_FALSE(token.Logon(authentication, CQVSecureWString("nobody"), CQVSecureWString("hidden")));
        EXPECT_STREQ(token.m_UserName.Get(), "bob");

        int uid = -1;
        EXPECT_FALSE(token.UnixGetUIDFromUserName("nobody", uid));
        EXPECT_EQ(uid, -1);
        EXPECT_TRUE(token.UnixGetUIDFromUserName("bob", uid));
        EXPECT_EQ(uid, 20001);
    });
}

std::string Describe(const CClientAccessContext& context) {
    return Printed([&](CTextOutput& out) {
        context.PrintRights(out);
        out.Print(" %s %s %s %s", context.m_ClientAddress.c_str(), context.m_UserName.c_str(),
                  context.m_DataFormatSettings.m_TimeZone.GetIANATimeZoneName().c_str(),
                  context.m_DataFormatSettings.m_Locale.GetLocaleName());
    });
}

TEST(ClientAccessContextTest, BinaryFormCarriesWhatTheVersionKnows) {
    using namespace std::string_literals;
    CClientAccessContext sent("192.0.2.7"s);
    sent.SetWorldRights(0x103);
    sent.SetZoneRights(3, 0x80000001);
    sent.SetUserName("bobby", 3);
    sent.m_bLogTagTracking = false;
    CDataFormatSettings settings;
    settings.m_TimeZone.UseSpecifiedTimeZone("Asia/Tokyo");
    settings.m_Locale.SetFromLocaleName("de-DE");
    sent.SetDataFormatSettings(settings);
    const std::string bare = "\3\1\0\0\4\0\0\0\0\0\0\0\0\0\0\0\0\1\0\0\x80\x09"
                             "192.0.2.7\3bob"s;
    for (const unsigned short version : std::initializer_list<unsigned short>{17, 18, 27, 28, 43, 44}) {
        SCOPED_TRACE(version);
        const std::string bytes = Saved([&](CBinaryOutput& out) { sent.SaveAccessContext(version, out); });
        std::string known = bare;
        if (version >= 18)
            known += "\nAsia/Tokyo";
        if (version >= 28)
            known += "\5de-DE";
        EXPECT_EQ(version < 44 ? bytes : bytes.substr(0, known.size()), known);
        CClientAccessContext context("ann", 0x040);
        context.m_DataFormatSettings.m_TimeZone.UseSpecifiedTimeZone("Etc/GMT-5");
        context.m_DataFormatSettings.m_Locale.SetFromLocaleName("en-US");
        context.SetZoneRights(0, 0x004);
        EXPECT_EQ(Describe(context), "World=WriteFile, ZoneA=Force  ann Etc/GMT-5 en-US");
        for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
            const std::string part = bytes.substr(0, cut);
            BytesInput in(part);
            EXPECT_THROW(context.LoadAccessContext(version, in), CBinaryInput::EOFException) << cut;
        }
        EXPECT_EQ(Describe(context), "World=WriteFile, ZoneA=Force  ann Etc/GMT-5 en-US");
        BytesInput in(bytes);
        context.LoadAccessContext(version, in);
        EXPECT_TRUE(in.IsEOF());
        EXPECT_EQ(Describe(context), qvstring("World=Refresh+Write+Configure, ZoneD=Refresh 192.0.2.7 bob ") +
                                         (version >= 18 ? "Asia/Tokyo " : "Etc/GMT-5 ") +
                                         (version >= 28 ? "de-DE" : "en-US"));
        EXPECT_TRUE(context.m_bLogTagTracking);
        context = sent;
        EXPECT_FALSE(context.LogTagTrackingEvent(3));
    }
    CClientAccessContext context("a"s);
    EXPECT_TRUE(context.LogTagTrackingEvent(3));
    EXPECT_FALSE(context.LogTagTrackingEvent(0));
    CQVTimeZone here;
    here.UseCurrentTimeZone();
    EXPECT_EQ(context.m_DataFormatSettings.m_TimeZone.GetIANATimeZoneName(), here.GetIANATimeZoneName());

    // Zones that do not exist are passed over.
    const std::string bytes = "\1\0\0\0\6"s + std::string(12, '\0') + "\2\0\0\0xxxxyyyy\0\0"s;
    context.SetZoneRights(1, 0x040);
    BytesInput in(bytes);
    context.LoadAccessContext(17, in);
    EXPECT_TRUE(in.IsEOF());
    EXPECT_EQ(Printed([&](CTextOutput& out) { context.PrintRights(out); }), "World=Refresh, ZoneD=Write");
}

} // namespace
