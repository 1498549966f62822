// CQVFileLock - keeps other processes out of something that one process at a time may change.
//
// The lock is a file that all of them agree on, by convention beside what it guards. It is advisory: it binds
// those who ask for it and nobody else. It goes with the process, however that ends, so a crash leaves no
// stale lock behind; the empty file stays and means nothing by itself. Do not remove it: two processes could
// then each hold a lock on "the" file.
//
// Errors:   a failure leaves its errno in the object (CQVError).
// Threads:  one thread at a time. Two objects exclude each other also within one process.
#pragma once

#include <QVPlatform/Error.h>
#include <QVPlatform/FilePath.h>

class CQVFileLock : public CQVError {
public:
    CQVFileLock() = default;
    ~CQVFileLock();
    CQVFileLock(const CQVFileLock&) = delete;
    CQVFileLock& operator=(const CQVFileLock&) = delete;

    // Takes the lock without waiting, creating the file when it does not exist; its folder must. False when
    // it could not be taken: IsHeldElsewhere() tells a lock that someone else has from trouble with the file.
    // An object that holds a lock gives it back first.
    bool TryLock(const CQVFilePath& path);
    // True when the last TryLock() failed because another holder has the lock.
    bool IsHeldElsewhere() const;
    bool IsLocked() const { return m_Descriptor >= 0; }
    // Gives the lock back; nothing happens when it is not held.
    void Unlock();

private:
    int m_Descriptor = -1;
};
