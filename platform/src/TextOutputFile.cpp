#include <QVPlatform/TextOutputFile.h>
#include <cstring>

CTextOutputFile::CTextOutputFile() : CTextOutputFile(QVFileSystem::GetInstance()) {}

CTextOutputFile::CTextOutputFile(QVFileSystemInterface* fileSystem)
    : m_pFile(fileSystem->CreateFileObject()) {
    TakeRuns<CTextOutputFile, &CTextOutputFile::WriteRun>();
}

CTextOutputFile::~CTextOutputFile() {
    Abandon();
}

bool CTextOutputFile::OpenTextFileForWrite(const CQVFilePath& path) {
    Abandon();
    m_TargetPath = path;
    m_TemporaryPath.Clear();
    return FinishOpening(m_pFile->OpenFileForWrite(m_TargetPath));
}

bool CTextOutputFile::OpenTextFileForReplace(const CQVFilePath& path, unsigned int newMode) {
    Abandon();
    m_TargetPath = m_TemporaryPath = path.FollowLinks();
    m_TemporaryPath.AppendName("Temp");
    // Anybody can guess the name: a link put there must not lead the output elsewhere. Nobody else may read what
    // will take over the permissions of its predecessor.
    const unsigned int mode = m_TargetPath.FileExists() ? newMode & 0600 : newMode;
    return FinishOpening(m_pFile->OpenFileForWriteNoFollow(m_TemporaryPath, mode));
}

bool CTextOutputFile::WriteBytes(const unsigned char* data, unsigned int count) {
    if (m_bFailed || !m_pFile->IsOpen())
        return false;
    if (count > BufferSize - m_BufferedCount) {
        if (!WriteToFile(m_Buffer, m_BufferedCount))
            return false;
        m_BufferedCount = 0;
        if (count > BufferSize)
            return WriteToFile(data, count);
    }
    std::memcpy(m_Buffer + m_BufferedCount, data, count);
    m_BufferedCount += count;
    return true;
}

bool CTextOutputFile::CloseTextFile() {
    if (!m_pFile->IsOpen())
        return !m_bFailed;
    if (!m_bFailed)
        WriteToFile(m_Buffer, m_BufferedCount);
    if (!m_pFile->CloseFile())
        Fail(*m_pFile);
    if (m_TemporaryPath.IsEmpty())
        return !m_bFailed;
    if (!m_bFailed && !m_TargetPath.ReplaceFileWith(m_TemporaryPath))
        Fail(m_TargetPath);
    if (m_bFailed)
        m_TemporaryPath.EraseFile();
    return !m_bFailed;
}

bool CTextOutputFile::FinishOpening(bool bOpened) {
    StartNewBytes();
    ClearLastError();
    m_BufferedCount = 0;
    m_bFailed = false;
    return bOpened || Fail(*m_pFile);
}

bool CTextOutputFile::WriteToFile(const unsigned char* data, unsigned int count) {
    return count == 0 || m_pFile->WriteBytes(data, count) || Fail(*m_pFile);
}

// Keeps the first failure, the one that explains the others.
bool CTextOutputFile::Fail(const CQVError& cause) {
    if (!m_bFailed)
        PropagateErrorFrom(cause);
    m_bFailed = true;
    return false;
}

// Ends what is open without a result: a replacement that its owner did not close is not known to be complete.
void CTextOutputFile::Abandon() {
    if (!m_TemporaryPath.IsEmpty())
        m_bFailed = true;
    CloseTextFile();
}
