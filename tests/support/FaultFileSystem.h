// FaultFileSystem - a file system that fails where a test wants it to.
//
// It wraps another file system (real files, unsynced, unless told otherwise). Its file objects count their
// operations together, in the order in which they happen, starting at 1; a test chooses the operation that
// fails. The usual loop tries every n until the work succeeds:
//
//     for (unsigned int n = 1;; n++) {
//         FaultFileSystem files;
//         files.TearAt(n, ENOSPC);
//         ... do the work with &files, check what is left ...
//         if (!files.HasFailed()) break; // fewer than n operations: every one of them has been tried
//     }
//
// Its file objects write records one by one with WriteBytes(), as every foreign file object does, and keep no
// read buffer, so each read is an operation. A failing close closes the file all the same.
// Threads: any number.
#pragma once

#include <QVPlatform/FileSystem.h>
#include <climits>
#include <mutex>

class FaultFileSystem : public QVFileSystemInterface {
public:
    // Kinds of operations; combined with '|' to choose which of them count.
    enum Operations : unsigned int {
        Open = 1,
        Close = 2, // of a file that is open
        Write = 4,
        Read = 8,
        Cut = 16,
        Move = 32, // SkipForward() and SeekToOffset()
        Size = 64,
        All = 127
    };

    explicit FaultFileSystem(QVFileSystemInterface* base = QVFileSystem::GetUnsyncedInstance());

    QVFileInterface* CreateFileObject() override;

    // The n-th operation of the chosen kinds from now on fails with errno `error`, once ...
    void FailAt(unsigned int n, int error, unsigned int operations = All);
    // ... or that one and all later ones, until Heal().
    void FailFrom(unsigned int n, int error, unsigned int operations = All);
    // Like FailAt() and FailFrom(), but a write leaves its first `keep` bytes in the file before it fails
    // (at most all but one; by default the half). Later writes of TearFrom() leave nothing.
    void TearAt(unsigned int n, int error, unsigned int operations = All, unsigned int keep = Half);
    void TearFrom(unsigned int n, int error, unsigned int operations = All, unsigned int keep = Half);
    // Ends the faults and the count.
    void Heal();

    // Operations of the chosen kinds since the last of the calls above (of all kinds before the first).
    unsigned int GetCount() const;
    // Failures delivered since then.
    unsigned int GetFailures() const;
    bool HasFailed() const { return GetFailures() != 0; }
    // File objects that exist at present.
    int GetLiveObjects() const;

    static constexpr unsigned int Half = UINT_MAX;

private:
    class File;
    struct Verdict {
        int error = 0; // 0: the operation goes through
        bool torn = false;
        unsigned int keep = 0;
    };

    void Arm(unsigned int n, int error, unsigned int operations, bool once, bool torn, unsigned int keep);
    Verdict Count(Operations operation);

    QVFileSystemInterface* const m_pBase;
    mutable std::mutex m_Mutex;
    unsigned int m_At = 0; // 0: no fault
    unsigned int m_Operations = All;
    int m_Error = 0;
    bool m_bOnce = true;
    bool m_bTorn = false;
    unsigned int m_Keep = Half;
    unsigned int m_Count = 0;
    unsigned int m_Failures = 0;
    int m_LiveObjects = 0;
};
