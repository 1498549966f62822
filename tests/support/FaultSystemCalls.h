// FaultSystemCalls - makes the system calls beneath the platform's files and serial lines fail where a test
// wants them to.
//
// While an object lives, every call of the platform's table goes through it to the real system. Rules say
// what happens instead; each counts the calls of its set from the moment it was made, starting at 1:
//
//     FaultSystemCalls system;
//     system.FailFrom(SystemCall::Write | SystemCall::Writev, 3, ENOSPC); // a disk that fills up
//     system.FailFrom(SystemCall::Changes, 1, EROFS);                     // a file system turned read-only
//     system.FailFrom(SystemCall::Paths, 1, ENOENT);                      // a folder that vanished
//     system.PartAt(SystemCall::Write, 1, 5);                             // takes 5 bytes of the first write
//     system.FailAt(SystemCall::Rename, 1, EIO);
//
// Rules made later come first; the first that fits decides. One object at a time. Threads: any number.
#pragma once

#include "SystemCalls.h"
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

// A set of system calls, combined with '|'.
struct SystemCall {
    static constexpr unsigned int Open = 1u << 0;
    static constexpr unsigned int Close = 1u << 1; // the descriptor is closed even when the call fails
    static constexpr unsigned int Read = 1u << 2;
    static constexpr unsigned int Write = 1u << 3;
    static constexpr unsigned int Writev = 1u << 4;
    static constexpr unsigned int Truncate = 1u << 5;
    static constexpr unsigned int Seek = 1u << 6;
    static constexpr unsigned int StatDescriptor = 1u << 7;
    static constexpr unsigned int Stat = 1u << 8;
    static constexpr unsigned int SyncData = 1u << 9;
    static constexpr unsigned int Sync = 1u << 10;
    static constexpr unsigned int Erase = 1u << 11;
    static constexpr unsigned int Rename = 1u << 12;
    static constexpr unsigned int MakeFolder = 1u << 13;
    static constexpr unsigned int OpenFolder = 1u << 14;
    static constexpr unsigned int ReadFolder = 1u << 15;
    static constexpr unsigned int CloseFolder = 1u << 16;
    static constexpr unsigned int Lock = 1u << 17;
    static constexpr unsigned int ReadLink = 1u << 24;
    static constexpr unsigned int ChangeMode = 1u << 25;
    static constexpr unsigned int ChangeOwner = 1u << 26;
    static constexpr unsigned int Control = 1u << 19; // ioctl
    static constexpr unsigned int GetAttributes = 1u << 20;
    static constexpr unsigned int SetAttributes = 1u << 21;
    static constexpr unsigned int Discard = 1u << 22; // tcflush
    static constexpr unsigned int SendBreak = 1u << 23;
    static constexpr unsigned int Terminals = Control | GetAttributes | SetAttributes | Discard | SendBreak;
    static constexpr unsigned int All = ((1u << 18) - 1) | ReadLink | ChangeMode | ChangeOwner | Terminals;

    // Calls that change what is on the disk. Open is counted and refused only when it would write or create.
    static constexpr unsigned int OpenToChange = 1u << 18;
    static constexpr unsigned int Changes =
        OpenToChange | Write | Writev | Truncate | Erase | Rename | MakeFolder | ChangeMode | SyncData | Sync;
    // Calls that look for a path.
    static constexpr unsigned int Paths =
        Open | Stat | Erase | Rename | MakeFolder | OpenFolder | ReadLink | ChangeMode | ChangeOwner;
};

class FaultSystemCalls {
public:
    FaultSystemCalls();
    ~FaultSystemCalls();
    FaultSystemCalls(const FaultSystemCalls&) = delete;
    FaultSystemCalls& operator=(const FaultSystemCalls&) = delete;

    // The n-th call of the set fails with `error` and does nothing, once ...
    void FailAt(unsigned int calls, unsigned int n, int error);
    // ... or that one and all later ones, until Heal().
    void FailFrom(unsigned int calls, unsigned int n, int error);
    // Every second call of the set, beginning with the first, fails with EINTR.
    void InterruptEverySecond(unsigned int calls);
    // The n-th read or write of the set moves at most `bytes` bytes (once), or every one from then on.
    void PartAt(unsigned int calls, unsigned int n, size_t bytes);
    void PartFrom(unsigned int calls, unsigned int n, size_t bytes);
    // Ends all rules; counting and recording go on.
    void Heal();

    // Calls of the set since construction, failed ones included.
    unsigned int GetCount(unsigned int calls) const;
    // Calls that a rule has failed or shortened since construction.
    unsigned int GetFaults() const;

    // What was called since construction or ClearRecord(), one line a call: its name and the last components
    // of the paths it works on, "open a.txt", "fsync folder", "rename a b". Failed calls end with " !".
    std::vector<std::string> GetRecord() const;
    void ClearRecord();

private:
    friend struct FaultTable; // the functions that stand in the platform's table

    struct Decision {
        int error = 0; // 0: forward the call, moving at most `atMost` bytes
        size_t atMost = SIZE_MAX;
    };
    struct Rule {
        unsigned int calls;
        unsigned int first;
        unsigned int last;
        unsigned int step;
        int error; // 0: shorten
        size_t bytes;
        unsigned int count;
    };

    void Add(unsigned int calls, unsigned int first, unsigned int last, unsigned int step, int error,
             size_t bytes);
    Decision Begin(unsigned int call, const char* name, const std::string& subject);
    Decision BeginOn(unsigned int call, const char* name, int descriptor);
    void Remember(int descriptor, const char* path);

    mutable std::mutex m_Mutex;
    std::vector<Rule> m_Rules;
    std::map<unsigned int, unsigned int> m_Counts;
    std::map<int, std::string> m_Names; // of the open descriptors
    std::vector<std::string> m_Record;
    unsigned int m_Faults = 0;
};
