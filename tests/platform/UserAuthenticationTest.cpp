#include "support/PamStack.h"
#include <QVPlatform/SecureMemory.h>
#include <QVPlatform/UserAuthentication.h>
#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using Result = QVUserAuthentication::Result;

CQVSecureWString Secret(const std::string& text) {
    CQVSecureWString secret;
    for (const char byte : text)
        secret.Append(byte);
    return secret;
}

Result Ask(const QVUserAuthentication& authentication, const std::string& user, const std::string& password) {
    Result result;
    const bool authenticated = authentication.Authenticate(Secret(user), Secret(password), result);
    EXPECT_EQ(authenticated, result.m_ErrorCode == 0) << result.m_ErrorText;
    EXPECT_EQ(authenticated, result.m_ErrorText.empty());
    return result;
}

} // namespace

TEST(UserAuthentication, TakesTheRightPasswordOnly) {
    PamStack stack;
    const std::string longest(511, 'p'), right = "s\xC3\xA9 secret word";
    stack.AddUser("alice", right);
    stack.AddUser("bob", longest);
    stack.AddUser("empty", "");
    stack.AddUser("carol", "elsewhere", {}, "other-service");
    stack.RunInside([&] {
        const QVUserAuthentication authentication;
        EXPECT_EQ(authentication.GetService(), "qvlib");
        EXPECT_EQ(Ask(authentication, "alice", right).m_SystemUser, "alice");
        EXPECT_EQ(Ask(authentication, "bob", longest).m_SystemUser, "bob");
        const std::string failed = "Authentication failure";
        const std::string unknown = "User not known to the underlying authentication module";
        const struct {
            std::string m_User, m_Password, m_Text;
        } refused[] = {
            {"alice", "secret word", failed},
            {"alice", "", failed},
            {"alice", right + '\0', failed},
            {"bob", longest + "p", failed},
            {"Alice", right, ""}, // the words are the name service's
            {"nobody", "x", ""},
            {"empty", "", failed}, // right, but no password
            {"alice\nroot", "x", unknown},
            {"alice\x7F", "x", unknown},
            {"", "x", unknown},
            {std::string("alice\0", 6), right, unknown},
            {std::string(512, 'a'), "x", unknown},
            {"carol", "elsewhere", "Permission denied"}, // right, but not for this service
        };
        for (const auto& c : refused) {
            const Result result = Ask(authentication, c.m_User, c.m_Password);
            EXPECT_NE(result.m_ErrorCode, 0) << c.m_User;
            EXPECT_EQ(result.m_SystemUser, "");
            EXPECT_TRUE(c.m_Text.empty() || result.m_ErrorText == c.m_Text) << c.m_User << result.m_ErrorText;
        }
    });
}

TEST(UserAuthentication, GathersWhatModulesSay) {
    PamStack stack;
    stack.AddUser("alice", "secret", {}, "talking");
    stack.AddService("talking", "auth required PASSWORDS verbose\naccount required PASSWORDS\n");
    stack.AddService("asking", "auth required PASSWORDS echo\naccount required pam_permit.so\n");
    stack.AddService("chatty", "auth required MODULES/pam_chatty.so num_lines=2000 info\n"
                               "auth required PASSWORDS\naccount required pam_permit.so\n");
    stack.RunInside([] {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const QVUserAuthentication talking("talking");
        EXPECT_NE(Ask(talking, "alice", "secret").m_Messages, "");
        const Result wrong = Ask(talking, "alice", "wrong");
        EXPECT_NE(wrong.m_Messages, "");
        EXPECT_EQ(wrong.m_ErrorText, "Authentication failure: " + wrong.m_Messages);
        // A question with echo is one for the user, never answered with the password.
        EXPECT_NE(Ask(QVUserAuthentication("asking"), "alice", "secret").m_ErrorCode, 0);
        const Result flooded = Ask(QVUserAuthentication("chatty"), "alice", "secret");
        EXPECT_EQ(flooded.m_ErrorCode, 0);
        EXPECT_GT(flooded.m_Messages.size(), 100u);
        EXPECT_LE(flooded.m_Messages.size(), 8192u);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    });
}

// A directory may know a user under another name: the account that counts is the one that the stack ends with.
TEST(UserAuthentication, TellsWhomTheStackEndedWith) {
    PamStack stack;
    stack.AddUser("account", "secret", {}, "mapping");
    stack.AddService("mapping", "auth required MODULES/pam_set_items.so\nauth required PASSWORDS\n"
                                "account required PASSWORDS\n");
    stack.AddService("losing", "auth required MODULES/pam_set_items.so\naccount required pam_permit.so\n");
    stack.RunInside([] {
        setenv("PAM_USER", "", 1);
        EXPECT_NE(Ask(QVUserAuthentication("losing"), "alias", "secret").m_ErrorCode, 0);
        setenv("PAM_USER", "account", 1);
        EXPECT_EQ(Ask(QVUserAuthentication("losing"), "alias", "secret").m_SystemUser, "account");
        EXPECT_EQ(Ask(QVUserAuthentication("mapping"), "alias", "secret").m_SystemUser, "account");
        unsetenv("PAM_USER");
        EXPECT_NE(Ask(QVUserAuthentication("mapping"), "alias", "secret").m_ErrorCode, 0);
    });
}

// Right and wrong passwords at once: nobody gets another one's answer.
TEST(UserAuthentication, LogonsRunSideBySide) {
    PamStack stack;
    stack.AddUser("alice", "secret");
    stack.AddUser("bob", "hidden");
    stack.RunInside([] {
        std::atomic<int> wrong{0};
        std::vector<std::thread> threads;
        for (const std::string user : {"alice", "bob", "alice", "bob"})
            threads.emplace_back([&wrong, user] {
                const QVUserAuthentication authentication;
                for (int i = 0; i < 6; ++i) {
                    const bool bRight = (user == "alice") == (i % 2 == 0);
                    Result result;
                    wrong += authentication.Authenticate(
                                 Secret(user), Secret(i % 2 == 0 ? "secret" : "hidden"), result) != bRight ||
                             result.m_SystemUser != (bRight ? user : "");
                }
            });
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(wrong, 0);
    });
}

// The words of a module, without what a terminal would obey, cut between characters.
TEST(UserAuthentication, ErrorTextsFitTheirBufferAndEndWithAWholeCharacter) {
    PamStack stack;
    stack.AddService("echoing", "auth requisite pam_echo.so \x1B\xC3\xA9\xE6\xB8\xA9\xF0\x9F\x94\xA5\n"
                                "auth requisite pam_deny.so\naccount required pam_deny.so\n");
    stack.RunInside([] {
        const std::string whole = "Authentication failure:  \xC3\xA9\xE6\xB8\xA9\xF0\x9F\x94\xA5";
        const QVUserAuthentication authentication("echoing");
        ASSERT_EQ(Ask(authentication, "alice", "x").m_ErrorText, whole);
        int code = 0;
        EXPECT_FALSE(authentication.LinuxAuthenticate(Secret("alice"), Secret("x"), code, nullptr, 0));
        EXPECT_NE(code, 0);
        for (unsigned int size = 1; size <= whole.size() + 2; ++size) {
            const auto text = std::make_unique<char[]>(size); // exactly, for AddressSanitizer
            EXPECT_FALSE(
                authentication.LinuxAuthenticate(Secret("alice"), Secret("x"), code, text.get(), size));
            const std::size_t room = size - 1;
            const std::size_t end = room < 25 ? room : room < 27 ? 25 : room < 30 ? 27 : room < 34 ? 30 : 34;
            EXPECT_EQ(text.get(), whole.substr(0, end)) << size;
        }
    });
}
