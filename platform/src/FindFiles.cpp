#include <QVPlatform/FindFiles.h>

#include "SystemCalls.h"
#include <algorithm>
#include <climits>
#include <dirent.h>
#include <fnmatch.h>

CQVFindFiles::CQVFindFiles() = default;

CQVFindFiles::~CQVFindFiles() {
    Close();
}

bool CQVFindFiles::FirstFile(const qvstring& pattern) {
    Close();
    ClearLastError();
    const size_t slash = pattern.find_last_of('/');
    m_FolderPath = slash == qvstring::npos ? "./" : pattern.substr(0, slash + 1);
    m_NamePattern = slash == qvstring::npos ? pattern : pattern.substr(slash + 1);
    do
        m_pFolder = qv_system().opendir(m_FolderPath.c_str());
    while (!m_pFolder && errno == EINTR);
    if (!m_pFolder) {
        SetLastError(errno);
        return false;
    }
    return NextFile();
}

bool CQVFindFiles::NextFile() {
    while (m_pFolder) {
        errno = 0;
        const dirent* entry = qv_system().readdir(m_pFolder);
        if (!entry) {
            if (errno != 0)
                SetLastError(errno);
            break;
        }
        if (entry->d_type == DT_DIR || fnmatch(m_NamePattern.c_str(), entry->d_name, FNM_PERIOD) != 0)
            continue;
        m_Name = entry->d_name;
        struct stat status;
        if (qv_system().stat((m_FolderPath + m_Name).c_str(), &status) == 0) {
            if (!S_ISREG(status.st_mode))
                continue;
            m_Size = status.st_size;
            return true;
        }
        // Gone meanwhile, or a link to nothing. A file that is there and cannot be examined must not be
        // mistaken for one that is not.
        if (errno != ENOENT && errno != ELOOP) {
            SetLastError(errno);
            break;
        }
    }
    Close();
    return false;
}

unsigned int CQVFindFiles::GetSize() const {
    return static_cast<unsigned int>(std::min(m_Size, static_cast<long long>(UINT_MAX)));
}

void CQVFindFiles::Close() {
    if (m_pFolder)
        qv_system().closedir(m_pFolder);
    m_pFolder = nullptr;
    m_Name.clear();
    m_Size = 0;
}
