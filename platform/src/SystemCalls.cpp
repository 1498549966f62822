#include "SystemCalls.h"

#include <cstdio>
#include <dirent.h>
#include <unistd.h>

namespace {

// The C library declares these with other parameter types, or with more than one form.
int OpenFile(const char* path, int flags, unsigned int mode) {
    return ::open(path, flags, mode);
}
int StatDescriptor(int descriptor, struct stat* status) {
    return ::fstat(descriptor, status);
}
int StatPath(const char* path, struct stat* status) {
    return ::stat(path, status);
}
int MakeFolder(const char* path, unsigned int mode) {
    return ::mkdir(path, mode);
}
void* OpenFolder(const char* path) {
    return ::opendir(path);
}
dirent* ReadFolder(void* folder) {
    return ::readdir(static_cast<DIR*>(folder));
}
int CloseFolder(void* folder) {
    return ::closedir(static_cast<DIR*>(folder));
}
int ChangeMode(const char* path, unsigned int mode) {
    return ::chmod(path, mode);
}
int ControlDevice(int descriptor, unsigned long request, void* argument) {
    return ::ioctl(descriptor, request, argument);
}

constexpr QVSystemCalls RealSystem = {
    .open = OpenFile,
    .close = ::close,
    .read = ::read,
    .write = ::write,
    .writev = ::writev,
    .ftruncate = ::ftruncate,
    .lseek = ::lseek,
    .fstat = StatDescriptor,
    .stat = StatPath,
    .fdatasync = ::fdatasync,
    .fsync = ::fsync,
    .unlink = ::unlink,
    .rename = ::rename,
    .mkdir = MakeFolder,
    .opendir = OpenFolder,
    .readdir = ReadFolder,
    .closedir = CloseFolder,
    .flock = ::flock,
    .readlink = ::readlink,
    .chmod = ChangeMode,
    .chown = ::chown,
    .ioctl = ControlDevice,
    .tcgetattr = ::tcgetattr,
    .tcsetattr = ::tcsetattr,
    .tcflush = ::tcflush,
    .tcsendbreak = ::tcsendbreak,
};

constinit const QVSystemCalls* g_pSystem = &RealSystem;

} // namespace

const QVSystemCalls& qv_system() {
    return *g_pSystem;
}

const QVSystemCalls& qv_real_system() {
    return RealSystem;
}

void qv_replace_system(const QVSystemCalls* calls) {
    g_pSystem = calls ? calls : &RealSystem;
}

bool qv_sync_descriptor(int descriptor, bool bDataOnly) {
    const QVSystemCalls& system = qv_system();
    const int result = qv_retry_interrupted(
        [&] { return bDataOnly ? system.fdatasync(descriptor) : system.fsync(descriptor); });
    // EROFS stays a failure: that is what a file system answers which gave up writing after an error.
    return result == 0 || errno == EINVAL || errno == ENOTSUP || errno == EOPNOTSUPP;
}

bool qv_sync_path(const char* path) {
    const QVSystemCalls& system = qv_system();
    const int descriptor = qv_retry_interrupted([&] { return system.open(path, O_RDONLY | O_CLOEXEC, 0); });
    if (descriptor < 0)
        return false;
    const bool synced = qv_sync_descriptor(descriptor, false);
    const int error = errno;
    system.close(descriptor);
    errno = error;
    return synced;
}
