#include "SecurityTesting.h"
#include <QVLib/Security/UserIdentity.h>
#include <gtest/gtest.h>

namespace {

// Kind and name.
std::string Describe(const CQVUserIdentity& id) {
    return std::to_string(id.GetType()) + ":" + id.GetName();
}

std::string Text(const CQVUserIdentity& id) {
    return Printed([&](CTextOutput& out) { id.PrintUserIdentity(out); });
}

TEST(UserIdentityTest, NamesMeanKinds) {
    const struct {
        const char* name;
        const char* id;
        const char* text;
    } cases[] = {
        {"bob", "2:bob", "bob"},
        {"*", "1:", "*"},
        {"*bob", "1:", "*"},
        {"Guest", "0:Guest", "Guest"},
        {"guest", "2:guest", "guest"},
        {"Jörg9", "2:Jörg9", "Jörg9"},
        {"", "2:", ""},
        {"@ops", "2:@ops", "@ops"}, // a user, who would come back as a group
        {"bob: World=Full;\nx", "2:bob: World=Full;\nx", "bob: World=Full;\nx"},
        {"%s", "2:%s", "%s"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        CQVUserIdentity id;
        EXPECT_TRUE(id.SetFromUserName(c.name));
        EXPECT_EQ(Describe(id), c.id);
        EXPECT_EQ(Text(id), c.text);
    }
}

TEST(UserIdentityTest, GuestsWithAndWithoutANameDiffer) {
    CQVUserIdentity unnamed;
    CQVUserIdentity named;
    named.SetFromUserName("Guest");
    EXPECT_TRUE(unnamed != named);
    EXPECT_EQ(Text(unnamed), "Guest");
    named.SetGuestUser();
    EXPECT_TRUE(unnamed == named);
    named.SetAuthenticatedUser();
    EXPECT_FALSE(named.IsGuestIdentity());
    named.ClearUserIdentity();
    EXPECT_TRUE(unnamed == named);
}

TEST(UserIdentityTest, AFaultyTextLeavesItAlone) {
    for (const char* const faulty : {"@*x", "9x", " #x", ":x"}) {
        RightsText text(faulty);
        CQVUserIdentity id;
        id.SetFromUserName("before");
        EXPECT_FALSE(id.ParseUserIdentity(text.m_Context));
        EXPECT_EQ(Describe(id), "2:before");
        EXPECT_EQ(text.Next(), "x");
    }
}

} // namespace
