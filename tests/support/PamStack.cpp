#include "support/PamStack.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace {

constexpr char InsideVariable[] = "QV_TEST_INSIDE_PAM_STACK";

// The wrapper's modules, below the folder of the machine's kind.
std::string FindModules() {
    for (const auto& folder : std::filesystem::directory_iterator("/usr/lib")) {
        const std::filesystem::path modules = folder.path() / "pam_wrapper";
        std::error_code error;
        if (std::filesystem::exists(modules / "pam_matrix.so", error))
            return modules.string();
    }
    return "";
}

// A sanitizer must be loaded before everything that wraps calls, so it is named first where this process has one.
std::string FindSanitizers() {
    std::ifstream maps("/proc/self/maps");
    std::string libraries;
    for (std::string line; std::getline(maps, line);) {
        const std::size_t path = line.find('/');
        if (path == std::string::npos || libraries.find(line.substr(path)) != std::string::npos)
            continue;
        if (line.find("/libasan.") != std::string::npos || line.find("/libtsan.") != std::string::npos)
            libraries += line.substr(path) + " ";
    }
    return libraries;
}

void Replace(std::string& text, const std::string& what, const std::string& with) {
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size())
        text.replace(at, what.size(), with);
}

} // namespace

PamStack::PamStack() : m_Modules(FindModules()), m_Users("root:x:0:0:root:/root:/bin/sh\n") {
    std::filesystem::create_directory(m_Folder.File("services").GetPath());
    AddService("qvlib", "auth required PASSWORDS\naccount required PASSWORDS\n");
    AddService("other", "auth required pam_deny.so\naccount required pam_deny.so\n");
    // The wrapper's modules forget the answers that they are given, and are unloaded when leaks are counted.
    m_Folder.Write("suppressions", "leak:Converse\n");
    Write();
}

void PamStack::AddUser(const std::string& name, const std::string& password,
                       const std::vector<std::string>& groups, const std::string& service) {
    const std::string id = std::to_string(m_NextUser++);
    m_Users += name + ":x:" + id + ":" + id + "::/:/bin/sh\n";
    m_Passwords += name + ":" + password + ":" + service + "\n";
    for (const std::string& group : groups) {
        const auto found = std::find(m_GroupNames.begin(), m_GroupNames.end(), group);
        if (found == m_GroupNames.end()) {
            m_GroupNames.push_back(group);
            m_GroupMembers.push_back(name);
        } else {
            m_GroupMembers[static_cast<std::size_t>(found - m_GroupNames.begin())] += "," + name;
        }
    }
    Write();
}

void PamStack::AddService(const std::string& name, const std::string& lines) {
    std::string text = lines;
    Replace(text, "PASSWORDS", "MODULES/pam_matrix.so passdb=" + m_Folder.GetPath() + "/passwords");
    Replace(text, "MODULES", m_Modules);
    m_Folder.Write("services/" + name, text);
}

void PamStack::RunInside(const std::function<void()>& test) const {
    if (std::getenv(InsideVariable))
        return test();
    if (m_Modules.empty())
        GTEST_SKIP() << "libpam-wrapper is not installed";
    const testing::TestInfo* const self = testing::UnitTest::GetInstance()->current_test_info();
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
    const std::string command = GetEnvironment() + InsideVariable + "=1 '" + program +
                                "' --gtest_filter=" + self->test_suite_name() + "." + self->name() + " >'" +
                                m_Folder.GetPath() + "/inside' 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0) << m_Folder.Read("inside");
}

std::string PamStack::GetEnvironment() const {
    if (m_Modules.empty())
        return "";
    const std::string folder = m_Folder.GetPath();
    // Loaders of plug-ins that bind them to their own symbols are not for sanitizers.
    return "env LD_PRELOAD='" + FindSanitizers() +
           "libpam_wrapper.so libnss_wrapper.so' PAM_WRAPPER=1 PAM_WRAPPER_USE_SYSLOG=1 " +
           "PAM_WRAPPER_SERVICE_DIR='" + folder + "/services' NSS_WRAPPER_PASSWD='" + folder +
           "/users' NSS_WRAPPER_GROUP='" + folder + "/groups' LSAN_OPTIONS='suppressions=" + folder +
           "/suppressions' UID_WRAPPER_DISABLE_DEEPBIND=1 NSS_WRAPPER_DISABLE_DEEPBIND=1 ";
}

void PamStack::Write() const {
    m_Folder.Write("users", m_Users);
    m_Folder.Write("passwords", m_Passwords);
    std::string groups = "root:x:0:\n";
    for (std::size_t i = 0; i < m_GroupNames.size(); ++i)
        groups += m_GroupNames[i] + ":x:" + std::to_string(30000 + i) + ":" + m_GroupMembers[i] + "\n";
    m_Folder.Write("groups", groups);
}
