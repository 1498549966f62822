#include <QVLib/BinaryStreams/BinaryFile.h>

#include <QVPlatform/Module.h>
#include <QVPlatform/OutputLog.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

namespace {

constexpr unsigned int MaxPosition = std::numeric_limits<unsigned int>::max();

} // namespace

// CBinaryInputFile

CBinaryInputFile::CBinaryInputFile(BinaryStringLength mode) : CBinaryInput(mode) {}

CBinaryInputFile::~CBinaryInputFile() {
    CloseFile();
}

bool CBinaryInputFile::OpenBinaryFile(const CQVFilePath& path) {
    ClearLastError();
    m_BufferedCount = m_BufferIndex = m_Position = 0;
    if (!m_File.OpenFileForRead(path, false)) {
        PropagateErrorFrom(m_File);
        return false;
    }
    if (m_File.GetFileSize() > MaxPosition) {
        CloseFile();
        SetLastError(EFBIG);
        return false;
    }
    return true;
}

void CBinaryInputFile::CloseFile() {
    m_File.CloseFile();
}

unsigned int CBinaryInputFile::GetFileSize() const {
    return static_cast<unsigned int>(std::clamp<long long>(m_File.GetFileSize(), 0, MaxPosition));
}

void CBinaryInputFile::Read(void* buffer, unsigned int count) {
    unsigned char* const target = static_cast<unsigned char*>(buffer);
    const unsigned int available = m_BufferedCount - m_BufferIndex;
    if (count > MaxPosition - m_Position)
        RaiseEOFException(count);
    if (available >= count) {
        Take(target, count);
    } else {
        Take(target, available);
        if (count > BufferSize) {
            ReadDirect(target + available, count - available, count);
        } else {
            Refill(count - available, count);
            Take(target + available, count - available);
        }
    }
    m_Position += count;
}

bool CBinaryInputFile::IsEOF() const {
    return m_Position >= m_File.GetFileSize();
}

bool CBinaryInputFile::Seek(unsigned int position) {
    m_BufferedCount = m_BufferIndex = 0;
    m_Position = position;
    return m_File.SeekToOffset(position);
}

// Delivers bytes that are in the buffer.
void CBinaryInputFile::Take(unsigned char* buffer, unsigned int count) {
    CopyBytes(buffer, m_Buffer + m_BufferIndex, count);
    m_BufferIndex += count;
}

// Reads the `missing` end of a large request of `count` bytes past the buffer.
void CBinaryInputFile::ReadDirect(unsigned char* buffer, unsigned int missing, unsigned int count) {
    m_BufferedCount = m_BufferIndex = 0;
    unsigned int got = 0;
    if (!m_File.ReadBytes(buffer, missing, got))
        FailRead(count);
    if (got < missing)
        RaiseEOFException(count);
}

// Fills the buffer anew for the `missing` end of a request of `count` bytes.
void CBinaryInputFile::Refill(unsigned int missing, unsigned int count) {
    m_BufferedCount = m_BufferIndex = 0;
    unsigned int got = 0;
    if (!m_File.ReadBytes(m_Buffer, BufferSize, got))
        FailRead(count);
    m_BufferedCount = got;
    if (got < missing)
        RaiseEOFException(count);
}

void CBinaryInputFile::FailRead(unsigned int count) {
    PropagateErrorFrom(m_File);
    RaiseEOFException(count);
}

// CBinaryOutputFile

CBinaryOutputFile::CBinaryOutputFile(BinaryStringLength mode)
    : CBinaryOutputFile(QVFileSystem::GetInstance(), mode) {}

CBinaryOutputFile::CBinaryOutputFile(QVFileSystemInterface* fileSystem, BinaryStringLength mode)
    : CBinaryOutput(mode), m_pFileSystem(fileSystem), m_pFile(fileSystem->CreateFileObject()) {}

CBinaryOutputFile::~CBinaryOutputFile() {
    CloseFile();
}

bool CBinaryOutputFile::OpenDirect(const CQVFilePath& path) {
    BeginFile(path);
    return FinishOpening(m_pFile->OpenFileForWrite(m_TargetPath));
}

bool CBinaryOutputFile::OpenTransacted(const CQVFilePath& path, unsigned int newMode) {
    BeginFile(path.FollowLinks());
    m_TemporaryPath = m_TargetPath;
    m_TemporaryPath.AppendName("Temp");
    // Anybody can guess the name: a link put there must not lead the output elsewhere. Nobody else may read what
    // will take over the permissions of its predecessor.
    const unsigned int mode = m_TargetPath.FileExists() ? newMode & 0600 : newMode;
    return FinishOpening(m_pFile->OpenFileForWriteNoFollow(m_TemporaryPath, mode));
}

bool CBinaryOutputFile::Write(const void* data, unsigned int count) {
    if (count <= CacheSize - m_CachedCount) {
        if (count > 0)
            std::memcpy(m_Cache + m_CachedCount, data, count);
        m_CachedCount += count;
        return true;
    }
    if (WriteUncached(data, count))
        return true;
    // operator<< ignores this result, and the next flush may succeed again: remember the gap.
    m_bIncomplete = true;
    return false;
}

bool CBinaryOutputFile::FlushCache() {
    if (m_bDirectWriteFailed)
        return false;
    if (m_CachedCount > 0 && !WriteToFile(m_Cache, m_CachedCount))
        return false;
    m_CachedCount = 0;
    return true;
}

bool CBinaryOutputFile::CloseFile() {
    if (!m_pFile->IsOpen())
        return true;
    if (!FlushCache())
        return false;
    if (!m_pFile->CloseFile()) {
        PropagateErrorFrom(*m_pFile);
        m_bIncomplete = true;
        return false;
    }
    return true;
}

bool CBinaryOutputFile::CloseAndCommitTransactedFile(COutputLog* log) {
    log->Print("Closing '%s'...", m_TemporaryPath.GetPathCStr());
    if (!CloseFile() || m_bIncomplete)
        return LogLastError(log);
    if (m_TargetPath.FileExists()) {
        log->Print("Replace %s", m_TargetPath.GetPathCStr());
        log->Print("   with %s", m_TemporaryPath.GetPathCStr());
        if (!m_TargetPath.ReplaceFileWith(m_TemporaryPath)) {
            PropagateErrorFrom(m_TargetPath);
            return LogLastError(log);
        }
    } else {
        log->Print("Rename %s", m_TemporaryPath.GetPathCStr());
        log->Print("    to %s", m_TargetPath.GetPathCStr());
        if (!m_TemporaryPath.RenameFile(m_TargetPath)) {
            PropagateErrorFrom(m_TemporaryPath);
            return LogLastError(log);
        }
    }
    return true;
}

void CBinaryOutputFile::BeginFile(const CQVFilePath& target) {
    CloseFile();
    m_CachedCount = 0;
    m_bIncomplete = m_bDirectWriteFailed = false;
    m_TargetPath = target;
    m_TemporaryPath.Clear();
}

bool CBinaryOutputFile::FinishOpening(bool bOpened) {
    if (!bOpened) {
        PropagateErrorFrom(*m_pFile);
        // A commit must not put in place what somebody else left under the temporary name.
        m_bIncomplete = true;
    }
    return bOpened;
}

bool CBinaryOutputFile::WriteToFile(const void* data, unsigned int count) {
    if (m_pFile->WriteBytes(data, count))
        return true;
    PropagateErrorFrom(*m_pFile);
    return false;
}

// Writes `count` bytes that the cache has no room for.
bool CBinaryOutputFile::WriteUncached(const void* data, unsigned int count) {
    if (!FlushCache())
        return false;
    if (count <= CacheSize) {
        std::memcpy(m_Cache, data, count);
        m_CachedCount = count;
        return true;
    }
    m_bDirectWriteFailed = !WriteToFile(data, count);
    return !m_bDirectWriteFailed;
}

bool CBinaryOutputFile::LogLastError(COutputLog* log) const {
    char text[256];
    GetLastErrorString(text, sizeof text);
    log->PrintError("...Error %d: %s", GetLastError(), text);
    return false;
}

// CBinaryInputFromResource

CBinaryInputFromResource::CBinaryInputFromResource(BinaryStringLength mode)
    : BinaryInputFromReadOnlyData(mode, nullptr, 0) {}

bool CBinaryInputFromResource::OpenResourceDataFile(const CQVModule& module, unsigned int resourceId) {
    QV_DATA data;
    if (!module.LoadResourceDataFile(CQVLocale(), resourceId, data))
        return false;
    SetData(data.data, data.length);
    return true;
}
