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

// "@ops" is a user, who would come back from a text as a group.
TEST(UserIdentityTest, NamesMeanKinds) {
    for (const char* const name : {"bob", "guest", "Jörg9", "", "@ops", "bob: World=Full;\nx", "%s"}) {
        CQVUserIdentity id;
        EXPECT_TRUE(id.SetFromUserName(name));
        EXPECT_EQ(Describe(id), qvstring("2:") + name);
        EXPECT_EQ(Text(id), name);
    }
    for (const auto& [name, described, text] :
         {std::tuple("*", "1:", "*"), {"*bob", "1:", "*"}, {"Guest", "0:Guest", "Guest"}}) {
        CQVUserIdentity id;
        EXPECT_TRUE(id.SetFromUserName(name));
        EXPECT_EQ(Describe(id), described);
        EXPECT_EQ(Text(id), text);
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
