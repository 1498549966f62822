// The system calls that can fail for reasons from outside, behind one table.
//
// The platform's sources reach files and serial lines only through qv_system(), so a test can make any call
// fail, be interrupted or take only part, and everything above sees exactly what it would see on a real
// machine. The table is the system's own from the start; a test puts its own in place and puts the old one
// back, while no other thread uses files. The headers below bring the flags that the calls take.
#pragma once

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <termios.h>

struct dirent;

struct QVSystemCalls {
    int (*open)(const char* path, int flags, unsigned int mode);
    int (*close)(int descriptor);
    ssize_t (*read)(int descriptor, void* buffer, size_t count);
    ssize_t (*write)(int descriptor, const void* data, size_t count);
    ssize_t (*writev)(int descriptor, const struct iovec* parts, int count);
    int (*ftruncate)(int descriptor, off_t length);
    off_t (*lseek)(int descriptor, off_t offset, int whence);
    int (*fstat)(int descriptor, struct stat* status);
    int (*stat)(const char* path, struct stat* status);
    int (*fdatasync)(int descriptor);
    int (*fsync)(int descriptor);
    int (*unlink)(const char* path);
    int (*rename)(const char* from, const char* to);
    int (*mkdir)(const char* path, unsigned int mode);
    void* (*opendir)(const char* path);
    dirent* (*readdir)(void* folder);
    int (*closedir)(void* folder);
    int (*flock)(int descriptor, int operation);
    ssize_t (*readlink)(const char* path, char* buffer, size_t size);
    int (*chmod)(const char* path, unsigned int mode);
    int (*chown)(const char* path, unsigned int user, unsigned int group);
    int (*ioctl)(int descriptor, unsigned long request, void* argument);
    int (*tcgetattr)(int descriptor, struct termios* attributes);
    int (*tcsetattr)(int descriptor, int when, const struct termios* attributes);
    int (*tcflush)(int descriptor, int queues);
    int (*tcsendbreak)(int descriptor, int duration);
};

// The table in use.
const QVSystemCalls& qv_system();
// The system's own calls, for tests that forward to them.
const QVSystemCalls& qv_real_system();
// Puts another table in place (null: the system's own); it must outlive its use.
void qv_replace_system(const QVSystemCalls* calls);

// Repeats a call that answers -1 with EINTR.
template<typename Call>
auto qv_retry_interrupted(Call call) {
    for (;;) {
        auto result = call();
        if (result != -1 || errno != EINTR)
            return result;
    }
}

// Forces what was written to an open file (its data and size, with `bDataOnly`) onto the disk. True also
// where the file's kind knows no such thing, a pipe for instance; else false with errno set.
bool qv_sync_descriptor(int descriptor, bool bDataOnly);
// The same for a file or folder that is not open.
bool qv_sync_path(const char* path);
