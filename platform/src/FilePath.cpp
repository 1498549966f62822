#include <QVPlatform/FilePath.h>

#include "SystemCalls.h"
#include <climits>

namespace {

// Where the last component lies in a path; slashes behind it belong to neither.
struct Component {
    size_t begin;
    size_t end;
};

Component LastComponent(const qvstring& path) {
    const size_t last = path.find_last_not_of('/');
    const size_t end = last == qvstring::npos ? 0 : last + 1;
    const size_t slash = end == 0 ? qvstring::npos : path.find_last_of('/', end - 1);
    return {slash == qvstring::npos ? 0 : slash + 1, end};
}

void AppendComponent(qvstring& path, const qvstring& name) {
    if (path.empty()) {
        path = name;
        return;
    }
    if (path.back() != '/')
        path += '/';
    const size_t start = name.find_first_not_of('/');
    if (start != qvstring::npos)
        path.append(name, start);
}

// Gives `file` the owner of `model`, where that exists, if the system lets us, and its permissions, or
// `fixedMode` when that is not negative. Returns an errno, 0 for success.
int TakeOverAccess(const CQVFilePath& file, const CQVFilePath& model, int fixedMode) {
    struct stat wanted, present;
    if (qv_system().stat(model.GetPathCStr(), &wanted) != 0)
        return errno == ENOENT ? 0 : errno;
    if (qv_system().stat(file.GetPathCStr(), &present) != 0)
        return errno;
    unsigned int mode = wanted.st_mode & 0777;
    // A member of the group may pass on that alone. Who may do neither becomes the owner, and the group that
    // comes with that was promised no more than everybody.
    if ((wanted.st_uid != present.st_uid || wanted.st_gid != present.st_gid) &&
        qv_system().chown(file.GetPathCStr(), wanted.st_uid, wanted.st_gid) != 0 &&
        qv_system().chown(file.GetPathCStr(), UINT_MAX, wanted.st_gid) != 0 &&
        wanted.st_gid != present.st_gid)
        mode &= ~070U | (mode & 07) << 3;
    if (fixedMode >= 0)
        mode = static_cast<unsigned int>(fixedMode);
    if (mode != (present.st_mode & 0777) && qv_system().chmod(file.GetPathCStr(), mode) != 0)
        return errno;
    return 0;
}

// Returns the errno of the step that failed, 0 when the new name will survive a power cut.
int RenameDurably(const CQVFilePath& from, const CQVFilePath& to) {
    // The content must be on the disk before the name points to it.
    if (!qv_sync_path(from.GetPathCStr()) || qv_system().rename(from.GetPathCStr(), to.GetPathCStr()) != 0)
        return errno;
    const CQVFilePath targetFolder = to.GetFolder();
    const CQVFilePath sourceFolder = from.GetFolder();
    if (!qv_sync_path(targetFolder.GetPathCStr()))
        return errno;
    if (sourceFolder.GetPath() != targetFolder.GetPath() && !qv_sync_path(sourceFolder.GetPathCStr()))
        return errno;
    return 0;
}

} // namespace

void CQVFilePath::AppendFileName(const qvstring& name) {
    AppendComponent(m_Path, name);
}

void CQVFilePath::AppendFolder(const qvstring& name) {
    AppendComponent(m_Path, name);
}

void CQVFilePath::ChangeExtension(const qvstring& extension) {
    const Component last = LastComponent(m_Path);
    m_Path.resize(last.end);
    const size_t nameStart = m_Path.find_first_not_of('.', last.begin);
    const size_t dot = m_Path.rfind('.');
    if (nameStart != qvstring::npos && dot != qvstring::npos && dot > nameStart)
        m_Path.resize(dot);
    if (!extension.empty())
        m_Path.append(1, '.').append(extension);
}

qvstring CQVFilePath::GetFileName() const {
    const Component last = LastComponent(m_Path);
    return m_Path.substr(last.begin, last.end - last.begin);
}

CQVFilePath CQVFilePath::GetFolder() const {
    const size_t begin = LastComponent(m_Path).begin;
    const size_t last = begin == 0 ? qvstring::npos : m_Path.find_last_not_of('/', begin - 1);
    if (last != qvstring::npos)
        return CQVFilePath(m_Path.substr(0, last + 1));
    return CQVFilePath(m_Path.starts_with('/') ? "/" : ".");
}

CQVFilePath CQVFilePath::FollowLinks() const {
    constexpr int MaxLinks = 40; // as many as the system follows; more are a circle
    CQVFilePath path(m_Path);
    for (int i = 0; i < MaxLinks; ++i) {
        char target[PATH_MAX];
        const ssize_t length = qv_system().readlink(path.GetPathCStr(), target, sizeof target);
        if (length <= 0 || static_cast<size_t>(length) == sizeof target)
            return path;
        const qvstring text(target, static_cast<size_t>(length));
        if (text.front() == '/') {
            path.m_Path = text;
        } else {
            path = path.GetFolder();
            path.AppendFileName(text);
        }
    }
    return path;
}

bool CQVFilePath::FileExists() const {
    struct stat status;
    return qv_system().stat(m_Path.c_str(), &status) == 0;
}

int CQVFilePath::GetPermissions() {
    struct stat status;
    if (qv_system().stat(m_Path.c_str(), &status) == 0)
        return static_cast<int>(status.st_mode & 07777);
    SetLastError(errno);
    return -1;
}

bool CQVFilePath::EraseFile() {
    if (qv_system().unlink(m_Path.c_str()) == 0)
        return true;
    SetLastError(errno);
    return false;
}

bool CQVFilePath::MakeDirectory() {
    if (qv_system().mkdir(m_Path.c_str(), 0777) == 0)
        return true;
    const int error = errno;
    struct stat status;
    if (error == EEXIST && qv_system().stat(m_Path.c_str(), &status) == 0 && S_ISDIR(status.st_mode))
        return true;
    SetLastError(error);
    return false;
}

bool CQVFilePath::RenameFile(const CQVFilePath& target) {
    const int error = RenameDurably(*this, target);
    if (error != 0)
        SetLastError(error);
    return error == 0;
}

bool CQVFilePath::ReplaceFileWith(const CQVFilePath& replacement, int mode) {
    int error = TakeOverAccess(replacement, *this, mode);
    if (error == 0)
        error = RenameDurably(replacement, *this);
    if (error != 0)
        SetLastError(error);
    return error == 0;
}

bool CQVFilePath::SyncFolder() {
    if (qv_sync_path(m_Path.c_str()))
        return true;
    SetLastError(errno);
    return false;
}
