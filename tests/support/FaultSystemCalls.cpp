#include "support/FaultSystemCalls.h"

#include <QVPlatform/Assert.h>
#include <algorithm>
#include <cerrno>
#include <climits>

namespace {

FaultSystemCalls* g_pActive = nullptr;

std::string NameOf(const char* path) {
    const std::string text(path);
    const size_t last = text.find_last_not_of('/');
    const size_t end = last == std::string::npos ? 0 : last + 1;
    return text.substr(0, end).substr(text.substr(0, end).find_last_of('/') + 1);
}

} // namespace

// The functions of the table; each asks the active object and then does the real call or fails.
struct FaultTable {
    static const QVSystemCalls& Real() { return qv_real_system(); }
    using Decision = FaultSystemCalls::Decision;

    template<typename Result, typename Call>
    static Result Do(const Decision& decision, Result failed, Call call) {
        if (decision.error == 0)
            return call(decision.atMost);
        errno = decision.error;
        return failed;
    }

    static Decision OnPath(unsigned int call, const char* name, const char* path) {
        return g_pActive->Begin(call, name, NameOf(path));
    }
    static Decision OnDescriptor(unsigned int call, const char* name, int descriptor) {
        return g_pActive->BeginOn(call, name, descriptor);
    }

    static int Open(const char* path, int flags, unsigned int mode) {
        const bool changes = (flags & (O_WRONLY | O_RDWR | O_CREAT | O_TRUNC)) != 0;
        const unsigned int call = SystemCall::Open | (changes ? SystemCall::OpenToChange : 0);
        return Do(OnPath(call, "open", path), -1, [&](size_t) {
            const int descriptor = Real().open(path, flags, mode);
            if (descriptor >= 0)
                g_pActive->Remember(descriptor, path);
            return descriptor;
        });
    }
    static int Close(int descriptor) {
        const Decision decision = OnDescriptor(SystemCall::Close, "close", descriptor);
        const int result = Real().close(descriptor);
        return Do(decision, -1, [&](size_t) { return result; });
    }
    static ssize_t Read(int descriptor, void* buffer, size_t count) {
        return Do(OnDescriptor(SystemCall::Read, "read", descriptor), ssize_t{-1},
                  [&](size_t most) { return Real().read(descriptor, buffer, std::min(count, most)); });
    }
    static ssize_t Write(int descriptor, const void* data, size_t count) {
        return Do(OnDescriptor(SystemCall::Write, "write", descriptor), ssize_t{-1},
                  [&](size_t most) { return Real().write(descriptor, data, std::min(count, most)); });
    }
    static ssize_t Writev(int descriptor, const iovec* parts, int count) {
        return Do(OnDescriptor(SystemCall::Writev, "writev", descriptor), ssize_t{-1}, [&](size_t most) {
            std::vector<iovec> taken(parts, parts + count);
            for (iovec& part : taken) {
                part.iov_len = std::min(part.iov_len, most);
                most -= part.iov_len;
            }
            return Real().writev(descriptor, taken.data(), count);
        });
    }
    static int Truncate(int descriptor, off_t length) {
        return Do(OnDescriptor(SystemCall::Truncate, "truncate", descriptor), -1,
                  [&](size_t) { return Real().ftruncate(descriptor, length); });
    }
    static off_t Seek(int descriptor, off_t offset, int whence) {
        return Do(OnDescriptor(SystemCall::Seek, "seek", descriptor), off_t{-1},
                  [&](size_t) { return Real().lseek(descriptor, offset, whence); });
    }
    static int StatDescriptor(int descriptor, struct stat* status) {
        return Do(OnDescriptor(SystemCall::StatDescriptor, "fstat", descriptor), -1,
                  [&](size_t) { return Real().fstat(descriptor, status); });
    }
    static int Stat(const char* path, struct stat* status) {
        return Do(OnPath(SystemCall::Stat, "stat", path), -1,
                  [&](size_t) { return Real().stat(path, status); });
    }
    static int SyncData(int descriptor) {
        return Do(OnDescriptor(SystemCall::SyncData, "fdatasync", descriptor), -1,
                  [&](size_t) { return Real().fdatasync(descriptor); });
    }
    static int Sync(int descriptor) {
        return Do(OnDescriptor(SystemCall::Sync, "fsync", descriptor), -1,
                  [&](size_t) { return Real().fsync(descriptor); });
    }
    static int Erase(const char* path) {
        return Do(OnPath(SystemCall::Erase, "unlink", path), -1, [&](size_t) { return Real().unlink(path); });
    }
    static int Rename(const char* from, const char* to) {
        const std::string subject = NameOf(from) + " " + NameOf(to);
        return Do(g_pActive->Begin(SystemCall::Rename, "rename", subject), -1,
                  [&](size_t) { return Real().rename(from, to); });
    }
    static int MakeFolder(const char* path, unsigned int mode) {
        return Do(OnPath(SystemCall::MakeFolder, "mkdir", path), -1,
                  [&](size_t) { return Real().mkdir(path, mode); });
    }
    static void* OpenFolder(const char* path) {
        return Do(OnPath(SystemCall::OpenFolder, "opendir", path), static_cast<void*>(nullptr),
                  [&](size_t) { return Real().opendir(path); });
    }
    static dirent* ReadFolder(void* folder) {
        return Do(g_pActive->Begin(SystemCall::ReadFolder, "readdir", ""), static_cast<dirent*>(nullptr),
                  [&](size_t) { return Real().readdir(folder); });
    }
    static int CloseFolder(void* folder) {
        const Decision decision = g_pActive->Begin(SystemCall::CloseFolder, "closedir", "");
        const int result = Real().closedir(folder);
        return Do(decision, -1, [&](size_t) { return result; });
    }
    static int Lock(int descriptor, int operation) {
        return Do(OnDescriptor(SystemCall::Lock, "flock", descriptor), -1,
                  [&](size_t) { return Real().flock(descriptor, operation); });
    }
    static ssize_t ReadLink(const char* path, char* buffer, size_t size) {
        return Do(OnPath(SystemCall::ReadLink, "readlink", path), ssize_t{-1},
                  [&](size_t) { return Real().readlink(path, buffer, size); });
    }
    static int ChangeMode(const char* path, unsigned int mode) {
        return Do(OnPath(SystemCall::ChangeMode, "chmod", path), -1,
                  [&](size_t) { return Real().chmod(path, mode); });
    }
    static int ChangeOwner(const char* path, unsigned int user, unsigned int group) {
        return Do(OnPath(SystemCall::ChangeOwner, "chown", path), -1,
                  [&](size_t) { return Real().chown(path, user, group); });
    }
    static int ControlDevice(int descriptor, unsigned long request, void* argument) {
        return Do(OnDescriptor(SystemCall::Control, "ioctl", descriptor), -1,
                  [&](size_t) { return Real().ioctl(descriptor, request, argument); });
    }
    static int GetAttributes(int descriptor, termios* attributes) {
        return Do(OnDescriptor(SystemCall::GetAttributes, "tcgetattr", descriptor), -1,
                  [&](size_t) { return Real().tcgetattr(descriptor, attributes); });
    }
    static int SetAttributes(int descriptor, int when, const termios* attributes) {
        return Do(OnDescriptor(SystemCall::SetAttributes, "tcsetattr", descriptor), -1,
                  [&](size_t) { return Real().tcsetattr(descriptor, when, attributes); });
    }
    static int Discard(int descriptor, int queues) {
        return Do(OnDescriptor(SystemCall::Discard, "tcflush", descriptor), -1,
                  [&](size_t) { return Real().tcflush(descriptor, queues); });
    }
    static int SendBreak(int descriptor, int duration) {
        return Do(OnDescriptor(SystemCall::SendBreak, "tcsendbreak", descriptor), -1,
                  [&](size_t) { return Real().tcsendbreak(descriptor, duration); });
    }

    static constexpr QVSystemCalls Table = {
        .open = Open,
        .close = Close,
        .read = Read,
        .write = Write,
        .writev = Writev,
        .ftruncate = Truncate,
        .lseek = Seek,
        .fstat = StatDescriptor,
        .stat = Stat,
        .fdatasync = SyncData,
        .fsync = Sync,
        .unlink = Erase,
        .rename = Rename,
        .mkdir = MakeFolder,
        .opendir = OpenFolder,
        .readdir = ReadFolder,
        .closedir = CloseFolder,
        .flock = Lock,
        .readlink = ReadLink,
        .chmod = ChangeMode,
        .chown = ChangeOwner,
        .ioctl = ControlDevice,
        .tcgetattr = GetAttributes,
        .tcsetattr = SetAttributes,
        .tcflush = Discard,
        .tcsendbreak = SendBreak,
    };
};

FaultSystemCalls::FaultSystemCalls() {
    QV_ASSERT(!g_pActive);
    g_pActive = this;
    qv_replace_system(&FaultTable::Table);
}

FaultSystemCalls::~FaultSystemCalls() {
    qv_replace_system(nullptr);
    g_pActive = nullptr;
}

void FaultSystemCalls::FailAt(unsigned int calls, unsigned int n, int error) {
    Add(calls, n, n, 1, error, SIZE_MAX);
}

void FaultSystemCalls::FailFrom(unsigned int calls, unsigned int n, int error) {
    Add(calls, n, UINT_MAX, 1, error, SIZE_MAX);
}

void FaultSystemCalls::InterruptEverySecond(unsigned int calls) {
    Add(calls, 1, UINT_MAX, 2, EINTR, SIZE_MAX);
}

void FaultSystemCalls::PartAt(unsigned int calls, unsigned int n, size_t bytes) {
    Add(calls, n, n, 1, 0, bytes);
}

void FaultSystemCalls::PartFrom(unsigned int calls, unsigned int n, size_t bytes) {
    Add(calls, n, UINT_MAX, 1, 0, bytes);
}

void FaultSystemCalls::Heal() {
    const std::lock_guard guard(m_Mutex);
    m_Rules.clear();
}

unsigned int FaultSystemCalls::GetCount(unsigned int calls) const {
    const std::lock_guard guard(m_Mutex);
    unsigned int sum = 0;
    for (const auto& [call, count] : m_Counts)
        sum += (call & calls) != 0 ? count : 0;
    return sum;
}

unsigned int FaultSystemCalls::GetFaults() const {
    const std::lock_guard guard(m_Mutex);
    return m_Faults;
}

std::vector<std::string> FaultSystemCalls::GetRecord() const {
    const std::lock_guard guard(m_Mutex);
    return m_Record;
}

void FaultSystemCalls::ClearRecord() {
    const std::lock_guard guard(m_Mutex);
    m_Record.clear();
}

void FaultSystemCalls::Add(unsigned int calls, unsigned int first, unsigned int last, unsigned int step,
                           int error, size_t bytes) {
    const std::lock_guard guard(m_Mutex);
    m_Rules.insert(m_Rules.begin(), Rule{calls, first, last, step, error, bytes, 0});
}

FaultSystemCalls::Decision FaultSystemCalls::Begin(unsigned int call, const char* name,
                                                   const std::string& subject) {
    const std::lock_guard guard(m_Mutex);
    m_Counts[call]++;
    Decision decision;
    bool decided = false;
    for (Rule& rule : m_Rules) {
        if ((rule.calls & call) == 0)
            continue;
        rule.count++;
        if (!decided && rule.count >= rule.first && rule.count <= rule.last &&
            (rule.count - rule.first) % rule.step == 0) {
            decision = {rule.error, rule.bytes};
            decided = true;
        }
    }
    m_Faults += decided;
    m_Record.push_back(std::string(name) + (subject.empty() ? "" : " " + subject) +
                       (decision.error != 0 ? " !" : ""));
    return decision;
}

FaultSystemCalls::Decision FaultSystemCalls::BeginOn(unsigned int call, const char* name, int descriptor) {
    std::string subject;
    {
        const std::lock_guard guard(m_Mutex);
        const auto found = m_Names.find(descriptor);
        subject = found == m_Names.end() ? "?" : found->second;
    }
    return Begin(call, name, subject);
}

void FaultSystemCalls::Remember(int descriptor, const char* path) {
    const std::lock_guard guard(m_Mutex);
    m_Names[descriptor] = NameOf(path);
}
