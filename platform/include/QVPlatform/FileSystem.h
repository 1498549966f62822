// Files: the interface through which the library opens and uses them, and the system's own implementation.
//
// QVFileSystemInterface   makes file objects. Code that stores data takes one as a parameter, so that a test,
//                         or a server with special storage, can put its own in place.
// QVFileInterface         one file object: opened, used and closed any number of times.
// QVFileSystem            the process-wide QVFileSystemInterface over the system's files.
// QVFileUnix              the system's file object itself.
//
// Errors:   an operation that fails returns false and leaves its errno in the object (CQVError). A write that
//           the system takes only in part and cannot complete is a failure, never a silent part.
// Sizes:    files may pass 4 GiB; positions and lengths are signed 64-bit except where an argument is 32-bit.
// Threads:  a file object belongs to one thread at a time; a file system may be used by all.
#pragma once

#include <QVPlatform/Error.h>
#include <QVPlatform/FilePath.h>
#include <cstring>
#include <memory>

struct iovec;

// Records that lie back to back in memory.
struct QVRecordRun {
    const unsigned char* data = nullptr;
    unsigned int count = 0; // records, not bytes
};

class QVFileInterface : public CQVError {
public:
    QVFileInterface() = default;
    QVFileInterface(const QVFileInterface&) = delete;
    QVFileInterface& operator=(const QVFileInterface&) = delete;
    virtual ~QVFileInterface() = default;

    // Opening. An object that has a file open closes it first (an error of that close is lost; close it
    // yourself where it matters).
    // For writing: created, or emptied when it exists.
    virtual bool OpenFileForWrite(const CQVFilePath& path) = 0;
    // For appending: created when it does not exist, positioned at its end.
    virtual bool OpenFileForAppend(const CQVFilePath& path) = 0;
    // For reading, positioned at its start. `bLock` asks for a shared advisory lock on the file and fails
    // when another process holds an exclusive one.
    virtual bool OpenFileForRead(const CQVFilePath& path, bool bLock) = 0;
    // Closes the file; true when it was closed already. False when the system could not take what was
    // written; the file is closed all the same.
    virtual bool CloseFile() = 0;

    // Writes all `count` bytes at the position, or fails; a failure may leave part of them behind.
    virtual bool WriteBytes(const void* data, unsigned int count) = 0;
    // Reads up to `count` bytes; `got` is fewer only at the end of the file. False on an error or when no
    // file is open, then `got` is 0.
    virtual bool ReadBytes(void* buffer, unsigned int count, unsigned int& got) = 0;
    // Cuts the file to `length` bytes; the position is then its end.
    virtual bool CutFile(long long length) = 0;
    // Moves the position forward; past the end is allowed, reads there deliver nothing.
    virtual bool SkipForward(unsigned int count) = 0;
    virtual bool SeekToOffset(unsigned int offset) = 0;
    // The size of the open file as the system knows it; -1 on an error or when no file is open.
    virtual long long GetFileSize() const = 0;
    virtual bool IsOpen() const = 0;

    // Writes records of `recordSize` bytes at the position, run after run, and returns how many went whole.
    // A short answer means that the next record failed, with its error in the object; part of it may have
    // been left behind. This implementation writes each record with one WriteBytes() call; an object that can
    // do better overrides it.
    virtual unsigned long long WriteRecords(const QVRecordRun* runs, unsigned int runCount,
                                            unsigned int recordSize);
    // For writing a new file under a name that others can guess, such as a temporary beside its target. One that
    // is there already is erased, not written to; but opening fails (ELOOP) when it is a symbolic link. The new
    // file has the permissions `mode` (0640, say) as far as the process's umask allows. This implementation calls
    // OpenFileForWrite(), for objects that know neither links nor permissions.
    virtual bool OpenFileForWriteNoFollow(const CQVFilePath& path, unsigned int mode) {
        (void)mode;
        return OpenFileForWrite(path);
    }

    // Reads like ReadBytes(), without a virtual call while the object's read buffer holds `count` bytes.
    bool ReadBuffered(void* buffer, unsigned int count, unsigned int& got) {
        if (count - 1 < BufferedBytes()) { // 0 wraps, so it never touches an absent buffer
            std::memcpy(buffer, m_pBuffered, count);
            m_pBuffered += count;
            got = count;
            return true;
        }
        return ReadBytes(buffer, count, got);
    }
    // The bytes that the next reads will deliver, as far as they are buffered; valid until the next call on
    // the object. Consume them with SkipBuffered().
    const unsigned char* PeekBuffered() const { return m_pBuffered; }
    unsigned int BufferedBytes() const { return static_cast<unsigned int>(m_pBufferedEnd - m_pBuffered); }
    // Moves past `count` buffered bytes; `count` must not exceed BufferedBytes().
    void SkipBuffered(unsigned int count) { m_pBuffered += count; }

protected:
    // The unread part of a read buffer that a derived object may keep; empty in objects that keep none. The
    // object's position is that of m_pBuffered.
    const unsigned char* m_pBuffered = nullptr;
    const unsigned char* m_pBufferedEnd = nullptr;
};

class QVFileSystemInterface {
public:
    // Makes a closed file object; the caller deletes it.
    virtual QVFileInterface* CreateFileObject() = 0;
    virtual ~QVFileSystemInterface() = default;
};

// The system's files.
class QVFileSystem : public QVFileSystemInterface {
public:
    // The process-wide file system. Never deleted.
    static QVFileSystemInterface* GetInstance();

    // A file system whose files are not synced when they are closed: data survive the process, but not a
    // power cut. For tests, benchmarks and stores that can be made again.
    static QVFileSystemInterface* GetUnsyncedInstance();

    QVFileInterface* CreateFileObject() override;

private:
    explicit QVFileSystem(bool bSync) : m_bSync(bSync) {}

    const bool m_bSync;
};

// One file of the system.
//
// A read fetches more than it was asked for (4 KiB at first, 64 KiB once reading goes on), so that small
// reads in a row, and short moves between them, seldom reach the system; what another process changes in
// that stretch meanwhile may not be seen. Every write reaches the system at once. Interrupted and short calls
// are completed. CloseFile() syncs what was written, and the folder of a file that was created, unless the
// object was made without.
class QVFileUnix final : public QVFileInterface {
public:
    explicit QVFileUnix(bool bSync = true) : m_bSync(bSync) {}
    ~QVFileUnix() override;

    bool OpenFileForWrite(const CQVFilePath& path) override;
    bool OpenFileForAppend(const CQVFilePath& path) override;
    bool OpenFileForRead(const CQVFilePath& path, bool bLock) override;
    bool CloseFile() override;
    bool WriteBytes(const void* data, unsigned int count) override;
    bool ReadBytes(void* buffer, unsigned int count, unsigned int& got) override;
    bool CutFile(long long length) override;
    bool SkipForward(unsigned int count) override;
    bool SeekToOffset(unsigned int offset) override;
    long long GetFileSize() const override;
    bool IsOpen() const override { return m_Descriptor >= 0; }
    // Gathers the runs into as few system calls as the system allows. After a failure the file has been cut
    // back to whole records where the system let it.
    unsigned long long WriteRecords(const QVRecordRun* runs, unsigned int runCount,
                                    unsigned int recordSize) override;
    bool OpenFileForWriteNoFollow(const CQVFilePath& path, unsigned int mode) override;

private:
    bool Open(const CQVFilePath& path, int flags, unsigned int mode = 0666);
    bool OpenOrCreate(const CQVFilePath& path, int flags);
    bool Fail(int error);
    void DropBuffer();
    bool MoveTo(long long position);
    long long Position() const;
    bool FillBuffer(unsigned int wanted);
    unsigned int TakeBuffered(unsigned char* buffer, unsigned int count);
    bool WriteParts(iovec* parts, int count, unsigned long long& written);
    void CutTornRecord(long long wholeRecordsEnd);

    const bool m_bSync;
    bool m_bWritten = false;
    bool m_bCreated = false;
    int m_Descriptor = -1;
    CQVFilePath m_Path;
    long long m_DescriptorPosition = 0;         // of the descriptor: the end of what the buffer holds
    std::unique_ptr<unsigned char[]> m_pBuffer; // allocated by the first read
    unsigned int m_NextFill = 0;                // bytes that the next fill of the buffer asks for
};
