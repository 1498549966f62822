// PamStack - users, groups and a PAM stack of the test's own, for code that logs users on. Needs no root and touches
// nothing of the system: the test runs once more in a process whose PAM and name service are wrapped.
//
//     PamStack stack;
//     stack.AddUser("alice", "secret", {"operators"});
//     stack.RunInside([] {
//         ... log alice on, with expectations ...
//     });
//
// The stack is real: the system's libpam with the module pam_matrix, which knows passwords from a file. A program
// is run the same way with GetEnvironment() in front of its command.
#pragma once

#include "support/TemporaryFolder.h"
#include <functional>
#include <string>
#include <vector>

class PamStack {
public:
    // With root as the only user and a service "qvlib" that checks password and account.
    PamStack();

    // `service` is the one that the account may be used with.
    void AddUser(const std::string& name, const std::string& password,
                 const std::vector<std::string>& groups = {}, const std::string& service = "qvlib");
    // A service of these lines; "MODULES" in them stands for the folder of the wrapper's modules, "PASSWORDS" for
    // pam_matrix with its file.
    void AddService(const std::string& name, const std::string& lines);

    // Runs the rest of the running test inside. Skips the test where the wrappers are not installed.
    void RunInside(const std::function<void()>& test) const;

    // "env NAME=value ... "; empty where the wrappers are not installed.
    std::string GetEnvironment() const;

private:
    const TemporaryFolder m_Folder;
    std::string m_Modules; // empty where the wrappers are not installed
    std::string m_Users;
    std::string m_Passwords;
    std::vector<std::string> m_GroupNames;
    std::vector<std::string> m_GroupMembers;
    int m_NextUser = 20000;

    void Write() const;
};
