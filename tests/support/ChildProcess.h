// ChildProcess - runs a piece of a test in a process of its own that the test can kill at any moment.
//
//     ChildProcess child([](const ChildProcess::Report& report) {
//         for (long long i = 0;; i++)
//             report(i);
//     });
//     long long number;
//     while (child.ReadReport(number) && number < 10) {
//     }
//     EXPECT_TRUE(child.Kill());
//
// The child is a copy of the test's process: make it while the test has no other threads. It ends when its work
// returns or throws; nothing of the test runs in it afterwards.
//
// ChildProgram - runs a program beside the test; it too can be killed at any moment.
#pragma once

#include <functional>
#include <string>
#include <vector>

class ChildProcess {
public:
    // Sends a number to the parent; never blocks for long, as long as the parent reads.
    using Report = std::function<void(long long number)>;

    explicit ChildProcess(const std::function<void(const Report&)>& work);
    // Kills the child if it still runs.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Waits for the next number. False when the child is dead and all its reports have been read.
    bool ReadReport(long long& number);
    // Kills the child with SIGKILL. True when that is what ended it, false when it had ended by itself. What it
    // reported before can still be read.
    bool Kill();

private:
    int m_Process;
    int m_Pipe = -1;
};

class ChildProgram {
public:
    // Starts the program arguments[0]. What it prints is appended to a file.
    ChildProgram(const std::vector<std::string>& arguments, const std::string& outputFile);
    // Kills the program if it still runs.
    ~ChildProgram();
    ChildProgram(const ChildProgram&) = delete;
    ChildProgram& operator=(const ChildProgram&) = delete;

    // Kills it with SIGKILL. True when that is what ended it, false when it had ended by itself.
    bool Kill();
    // Asks it to end (SIGTERM) and waits for that. Its exit code, -1 when a signal ended it.
    int Stop();

private:
    int End(int signal);

    int m_Process;
};
