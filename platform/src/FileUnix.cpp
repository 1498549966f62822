#include <QVPlatform/FileSystem.h>

#include "SystemCalls.h"
#include <QVPlatform/Assert.h>
#include <algorithm>
#include <climits>
#include <utility>

namespace {

constexpr unsigned int FirstFill = 4u << 10; // a single small record must stay cheap
constexpr unsigned int BufferSize = 64u << 10;
constexpr unsigned long long GatherBytes = 1u << 20; // of one gathering write

// Turns runs of records into the parts of gathering writes: runs that touch in memory become one part, and no
// batch passes the system's number of parts or GatherBytes.
class RunGatherer {
public:
    RunGatherer(const QVRecordRun* runs, unsigned int runCount, unsigned int recordSize)
        : m_pRun(runs), m_pEnd(runs + runCount), m_RecordSize(recordSize) {}

    // Fills the next batch; 0 parts at the end.
    int NextBatch(iovec (&parts)[IOV_MAX]) {
        int count = 0;
        unsigned long long space = GatherBytes;
        while (space != 0 && m_pRun != m_pEnd) {
            const unsigned long long runBytes = 1ULL * m_pRun->count * m_RecordSize;
            const unsigned long long bytes = std::min(runBytes - m_Offset, space);
            // The list is never written through.
            auto* const data = const_cast<unsigned char*>(m_pRun->data) + m_Offset;
            if (count != 0 && End(parts[count - 1]) == data)
                parts[count - 1].iov_len += static_cast<size_t>(bytes);
            else if (bytes != 0) {
                if (count == IOV_MAX)
                    break;
                parts[count++] = {data, static_cast<size_t>(bytes)};
            }
            space -= bytes;
            m_Offset += bytes;
            if (m_Offset == runBytes) {
                m_pRun++;
                m_Offset = 0;
            }
        }
        return count;
    }

private:
    static unsigned char* End(const iovec& part) {
        return static_cast<unsigned char*>(part.iov_base) + part.iov_len;
    }

    const QVRecordRun* m_pRun;
    const QVRecordRun* const m_pEnd;
    const unsigned int m_RecordSize;
    unsigned long long m_Offset = 0; // bytes of *m_pRun that are in earlier batches
};

} // namespace

QVFileUnix::~QVFileUnix() {
    CloseFile();
}

bool QVFileUnix::OpenFileForWrite(const CQVFilePath& path) {
    return OpenOrCreate(path, O_WRONLY | O_TRUNC);
}

bool QVFileUnix::OpenFileForAppend(const CQVFilePath& path) {
    if (!OpenOrCreate(path, O_WRONLY))
        return false;
    const long long end = qv_system().lseek(m_Descriptor, 0, SEEK_END);
    if (end >= 0) {
        m_DescriptorPosition = end;
        return true;
    }
    const int error = errno;
    CloseFile();
    return Fail(error);
}

bool QVFileUnix::OpenFileForRead(const CQVFilePath& path, bool bLock) {
    if (!Open(path, O_RDONLY))
        return false;
    if (!bLock ||
        qv_retry_interrupted([&] { return qv_system().flock(m_Descriptor, LOCK_SH | LOCK_NB); }) == 0)
        return true;
    const int error = errno;
    CloseFile();
    return Fail(error);
}

bool QVFileUnix::CloseFile() {
    if (!IsOpen())
        return true;
    const bool synced = !m_bSync || !m_bWritten || qv_sync_descriptor(m_Descriptor, true);
    const int syncError = errno;
    DropBuffer();
    const int descriptor = std::exchange(m_Descriptor, -1);
    // An interrupted close has closed all the same.
    const bool closed = qv_system().close(descriptor) == 0 || errno == EINTR;
    if (!synced)
        return Fail(syncError);
    if (!closed)
        return Fail(errno);
    if (m_bSync && m_bCreated && !qv_sync_path(m_Path.GetFolder().GetPathCStr()))
        return Fail(errno);
    return true;
}

bool QVFileUnix::WriteBytes(const void* data, unsigned int count) {
    iovec part{const_cast<void*>(data), count};
    unsigned long long written = 0;
    return WriteParts(&part, 1, written);
}

bool QVFileUnix::ReadBytes(void* buffer, unsigned int count, unsigned int& got) {
    got = 0;
    if (!IsOpen())
        return Fail(EBADF);
    auto* const bytes = static_cast<unsigned char*>(buffer);
    const long long start = Position();
    unsigned int done = TakeBuffered(bytes, count);
    while (done < count) {
        const unsigned int wanted = count - done;
        unsigned int taken = 0;
        if (wanted >= BufferSize) {
            DropBuffer();
            const auto result =
                qv_retry_interrupted([&] { return qv_system().read(m_Descriptor, bytes + done, wanted); });
            if (result < 0)
                break;
            taken = static_cast<unsigned int>(result);
            m_DescriptorPosition += taken;
        } else {
            if (!FillBuffer(wanted))
                break;
            taken = TakeBuffered(bytes + done, wanted);
        }
        if (taken == 0) {
            got = done;
            return true;
        }
        done += taken;
    }
    if (done == count) {
        got = count;
        return true;
    }
    const int error = errno;
    MoveTo(start); // what was read is not delivered, so the next read starts with it
    return Fail(error);
}

bool QVFileUnix::CutFile(long long length) {
    if (!IsOpen())
        return Fail(EBADF);
    if (qv_retry_interrupted([&] { return qv_system().ftruncate(m_Descriptor, length); }) != 0)
        return Fail(errno);
    m_bWritten = true;
    DropBuffer();
    return MoveTo(length);
}

bool QVFileUnix::SkipForward(unsigned int count) {
    if (!IsOpen())
        return Fail(EBADF);
    if (count <= BufferedBytes()) {
        SkipBuffered(count);
        return true;
    }
    const long long position = Position();
    if (position > LLONG_MAX - count)
        return Fail(EOVERFLOW);
    return MoveTo(position + count);
}

bool QVFileUnix::SeekToOffset(unsigned int offset) {
    if (!IsOpen())
        return Fail(EBADF);
    const long long distanceToEnd = m_DescriptorPosition - offset;
    if (m_pBufferedEnd && distanceToEnd >= 0 && distanceToEnd <= m_pBufferedEnd - m_pBuffer.get()) {
        m_pBuffered = m_pBufferedEnd - distanceToEnd;
        return true;
    }
    return MoveTo(offset);
}

long long QVFileUnix::GetFileSize() const {
    struct stat status;
    if (!IsOpen() || qv_system().fstat(m_Descriptor, &status) != 0)
        return -1;
    return status.st_size;
}

unsigned long long QVFileUnix::WriteRecords(const QVRecordRun* runs, unsigned int runCount,
                                            unsigned int recordSize) {
    QV_ASSERT(recordSize != 0);
    const long long start = Position();
    RunGatherer gatherer(runs, runCount, recordSize);
    iovec parts[IOV_MAX];
    unsigned long long written = 0;
    while (const int count = gatherer.NextBatch(parts)) {
        if (!WriteParts(parts, count, written)) {
            if (written % recordSize != 0)
                CutTornRecord(start + static_cast<long long>(written - written % recordSize));
            break;
        }
    }
    return written / recordSize;
}

// What is there may have been left by a program that was interrupted, with other permissions than these, or be
// another name of a file that is none of our business.
bool QVFileUnix::OpenFileForWriteNoFollow(const CQVFilePath& path, unsigned int mode) {
    const int errorBefore = GetLastError();
    constexpr int Flags = O_WRONLY | O_CREAT | O_EXCL;
    if (!Open(path, Flags, mode)) {
        char target;
        if (GetLastError() != EEXIST)
            return false;
        if (qv_system().readlink(path.GetPathCStr(), &target, 1) >= 0)
            return Fail(ELOOP);
        if (qv_system().unlink(path.GetPathCStr()) != 0)
            return Fail(errno);
        if (!Open(path, Flags, mode))
            return false;
        SetLastError(errorBefore);
    }
    m_bWritten = m_bCreated = true;
    return true;
}

bool QVFileUnix::Open(const CQVFilePath& path, int flags, unsigned int mode) {
    CloseFile();
    m_Descriptor =
        qv_retry_interrupted([&] { return qv_system().open(path.GetPathCStr(), flags | O_CLOEXEC, mode); });
    if (m_Descriptor < 0)
        return Fail(errno);
    m_Path = path;
    m_DescriptorPosition = 0;
    m_NextFill = FirstFill;
    // Emptying a file is a change that closing must make last.
    m_bWritten = (flags & O_TRUNC) != 0;
    m_bCreated = false;
    return true;
}

// Tells a file that was there from one that it creates, whose folder must be synced at the end.
bool QVFileUnix::OpenOrCreate(const CQVFilePath& path, int flags) {
    const int errorBefore = GetLastError();
    if (Open(path, flags))
        return true;
    if (GetLastError() != ENOENT)
        return false;
    // Exclusively at first. The second attempt is for a path that is there after all: created meanwhile by
    // somebody else, or a link whose target is missing.
    if (!Open(path, flags | O_CREAT | O_EXCL) && (GetLastError() != EEXIST || !Open(path, flags | O_CREAT)))
        return false;
    SetLastError(errorBefore);
    m_bWritten = true;
    m_bCreated = true;
    return true;
}

bool QVFileUnix::Fail(int error) {
    SetLastError(error);
    return false;
}

void QVFileUnix::DropBuffer() {
    m_pBuffered = nullptr;
    m_pBufferedEnd = nullptr;
}

bool QVFileUnix::MoveTo(long long position) {
    if (position != m_DescriptorPosition) {
        if (qv_system().lseek(m_Descriptor, position, SEEK_SET) < 0)
            return Fail(errno);
        m_DescriptorPosition = position;
    }
    DropBuffer();
    m_NextFill = FirstFill;
    return true;
}

long long QVFileUnix::Position() const {
    return m_DescriptorPosition - BufferedBytes();
}

// Called with an empty buffer; leaves it empty at the end of the file.
bool QVFileUnix::FillBuffer(unsigned int wanted) {
    if (!m_pBuffer)
        m_pBuffer = std::make_unique_for_overwrite<unsigned char[]>(BufferSize);
    const unsigned int size = std::max(m_NextFill, (wanted + FirstFill - 1) / FirstFill * FirstFill);
    m_pBuffered = m_pBufferedEnd = m_pBuffer.get();
    const auto result =
        qv_retry_interrupted([&] { return qv_system().read(m_Descriptor, m_pBuffer.get(), size); });
    if (result < 0)
        return false;
    m_pBufferedEnd += result;
    m_DescriptorPosition += result;
    m_NextFill = std::min(size * 4, BufferSize);
    return true;
}

unsigned int QVFileUnix::TakeBuffered(unsigned char* buffer, unsigned int count) {
    const unsigned int taken = std::min(count, BufferedBytes());
    if (taken != 0)
        std::memcpy(buffer, m_pBuffered, taken);
    m_pBuffered += taken;
    return taken;
}

// Writes all parts, or fails; adds the bytes that went to `written` in both cases. Consumes the parts.
bool QVFileUnix::WriteParts(iovec* parts, int count, unsigned long long& written) {
    if (!IsOpen())
        return Fail(EBADF);
    if (BufferedBytes() != 0 && !MoveTo(Position()))
        return false;
    DropBuffer();
    while (count != 0) {
        const auto result = qv_retry_interrupted([&] {
            return count == 1 ? qv_system().write(m_Descriptor, parts->iov_base, parts->iov_len)
                              : qv_system().writev(m_Descriptor, parts, count);
        });
        if (result < 0)
            return Fail(errno);
        if (result == 0 && parts->iov_len != 0)
            return Fail(EIO); // a device that takes nothing and names no reason
        m_bWritten = true;
        m_DescriptorPosition += result;
        auto left = static_cast<size_t>(result);
        written += left;
        while (count != 0 && left >= parts->iov_len) {
            left -= parts->iov_len;
            parts++;
            count--;
        }
        if (count != 0)
            *parts = {static_cast<char*>(parts->iov_base) + left, parts->iov_len - left};
    }
    return true;
}

// After a failed write: takes the part of a record off the end of the file, or at least moves before it, so
// that the next write covers it. Keeps the error of the write.
void QVFileUnix::CutTornRecord(long long wholeRecordsEnd) {
    const int error = GetLastError();
    if (GetFileSize() == m_DescriptorPosition)
        qv_retry_interrupted([&] { return qv_system().ftruncate(m_Descriptor, wholeRecordsEnd); });
    MoveTo(wholeRecordsEnd);
    SetLastError(error);
}
