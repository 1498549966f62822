#include <QVPlatform/FileLock.h>

#include "SystemCalls.h"

#include <fcntl.h>
#include <sys/file.h>

CQVFileLock::~CQVFileLock() {
    Unlock();
}

bool CQVFileLock::TryLock(const CQVFilePath& path) {
    Unlock();
    const int descriptor = qv_retry_interrupted([&] {
        return qv_system().open(path.GetPathCStr(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
    });
    if (descriptor < 0) {
        SetLastError(errno);
        return false;
    }
    if (qv_retry_interrupted([&] { return qv_system().flock(descriptor, LOCK_EX | LOCK_NB); }) != 0) {
        SetLastError(errno);
        qv_system().close(descriptor);
        return false;
    }
    m_Descriptor = descriptor;
    return true;
}

bool CQVFileLock::IsHeldElsewhere() const {
    return !IsLocked() && GetLastError() == EWOULDBLOCK;
}

void CQVFileLock::Unlock() {
    if (m_Descriptor >= 0)
        qv_system().close(m_Descriptor);
    m_Descriptor = -1;
}
