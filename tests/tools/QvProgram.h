// Runs the qv program as users do, in a folder of its own.
#pragma once

#include "support/TemporaryFolder.h"

#include <QVPlatform/Socket.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

class QvProgram : public testing::Test {
protected:
    struct Result {
        int m_ExitCode;
        std::string m_Out;
        std::string m_Error;
    };

    // The exit code of a shell command in the test's folder, -1 when a signal ended it.
    int Shell(const std::string& command) const {
        const int status = std::system(("cd '" + m_Folder.GetPath() + "' && " + command).c_str());
        return status % 256 == 0 ? status / 256 : -1;
    }

    // `arguments` go through the shell, in the test's folder; `before` stands in front of the program: a pipe into
    // it, or a limit.
    Result Run(const std::string& arguments, const std::string& before = "") {
        const int exitCode = Shell(before + " '" QV_PROGRAM "' " + arguments + " >out.txt 2>err.txt");
        return {exitCode, m_Folder.Read("out.txt"), m_Folder.Read("err.txt")};
    }

    // Runs a command that must succeed and say nothing on the error stream; returns what it printed.
    std::string Do(const std::string& arguments, const std::string& before = "") {
        const Result result = Run(arguments, before);
        EXPECT_EQ(result.m_ExitCode, 0) << arguments << "\n" << result.m_Error;
        EXPECT_EQ(result.m_Error, "") << arguments;
        return result.m_Out;
    }

    // Runs a command that must end with this exit code and say `text` on the error stream, among other things.
    Result Fails(int exitCode, const std::string& arguments, const std::string& text,
                 const std::string& before = "") {
        Result result = Run(arguments, before);
        EXPECT_EQ(result.m_ExitCode, exitCode) << arguments << "\n" << result.m_Error;
        EXPECT_NE(result.m_Error.find(text), std::string::npos) << text << " is missing in\n"
                                                                << result.m_Error;
        return result;
    }

    // Makes the table "t" from CSV text.
    void Import(const std::string& csv) {
        m_Folder.Write("in.csv", csv);
        Do("history import t in.csv");
    }

    // A loopback address that nobody uses at the moment.
    static std::string FreeAddress() {
        std::vector<QVSocketAddress> candidates;
        qvstring problem;
        QVSocketAddress::Resolve("127.0.0.1:0", true, candidates, problem);
        QVSocketListener listener;
        QVSocketAddress address;
        EXPECT_TRUE(listener.Listen(candidates.at(0)) && listener.GetSocketName(address));
        return address.ToText();
    }

    TemporaryFolder m_Folder;
};

// The number behind "name": in a line of JSON.
inline long long JsonNumber(const std::string& json, const std::string& name) {
    const std::size_t position = json.find("\"" + name + "\":");
    return position == std::string::npos ? -1 : std::atoll(json.c_str() + position + name.size() + 3);
}
