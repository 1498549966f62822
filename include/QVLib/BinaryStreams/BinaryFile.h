// Binary streams on files and on data resources.
//
// CBinaryInputFile           reads a file
// CBinaryOutputFile          writes a file, in place or as a transaction that replaces it when it is complete
// CBinaryInputFromResource   reads data that is compiled into a program module, in place
//
//     CBinaryOutputFile output(BinaryStringLengthUTF8Character);
//     if (!output.OpenTransacted(path))
//         return false; // GetLastError() says why
//     output << version << users;
//     return output.CloseAndCommitTransactedFile(log);
//
// Errors:    openings, writes and closes return false and leave the system's errno in the object (CQVError).
//            A read that gets too few bytes, for whatever reason, throws CBinaryInput::EOFException; when the
//            system failed, its errno is in the object too.
// Cost:      both files pass small reads and writes through a buffer of 1,024 bytes inside the object; larger
//            ones go straight to the file. Nothing is allocated per call.
// Threads:   one thread at a time. Two writers of one target are the caller's business: transactions of the
//            same target share the temporary file's name.
#pragma once

#include <QVLib/BinaryStreams/BinaryInput.h>
#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/BinaryStreams/BinaryOutput.h>
#include <QVPlatform/Error.h>
#include <QVPlatform/FilePath.h>
#include <QVPlatform/FileSystem.h>
#include <memory>

class COutputLog;
class CQVModule;

class CBinaryInputFile : public CBinaryInput, public CQVError {
public:
    explicit CBinaryInputFile(BinaryStringLength mode);
    ~CBinaryInputFile() override; // closes the file

    // Opens a file for reading, positioned at its start; a file that is open is closed first. A file of 4 GiB
    // or more fails with EFBIG, because its positions could not be told.
    bool OpenBinaryFile(const CQVFilePath& path);
    void CloseFile();

    // The file's size, as the system knows it at this moment. 0 when no file is open; 0xFFFFFFFF when the
    // open file has grown past that.
    unsigned int GetFileSize() const;

    unsigned int GetLength() const override { return GetFileSize(); }
    // A failed read leaves the position where it was, but it may have filled part of `buffer` and used up
    // what was read ahead: Seek() before going on.
    void Read(void* buffer, unsigned int count) override;
    bool IsEOF() const override;
    unsigned int Tell() const override { return m_Position; }
    // A position past the end can be reached; reads there throw. False when no file is open.
    bool Seek(unsigned int position) override;

private:
    static constexpr unsigned int BufferSize = 1024;

    void Take(unsigned char* buffer, unsigned int count);
    void ReadDirect(unsigned char* buffer, unsigned int missing, unsigned int count);
    void Refill(unsigned int missing, unsigned int count);
    [[noreturn]] void FailRead(unsigned int count);

    QVFileUnix m_File;
    unsigned char m_Buffer[BufferSize];
    unsigned int m_BufferedCount = 0; // bytes in m_Buffer
    unsigned int m_BufferIndex = 0;   // of these, how many have been delivered
    unsigned int m_Position = 0;      // of the next byte to deliver, in the file
};

class CBinaryOutputFile : public CBinaryOutput, public CQVError {
public:
    // On the system's files.
    explicit CBinaryOutputFile(BinaryStringLength mode);
    // On `fileSystem`, which must outlive the object.
    CBinaryOutputFile(QVFileSystemInterface* fileSystem, BinaryStringLength mode);
    // Closes the file; call CloseFile() before where the result matters. A transaction that was not committed
    // leaves its temporary file behind.
    ~CBinaryOutputFile() override;

    // Opening. A file that is open is closed first, with its error lost.

    // Writes `path` itself, which is emptied or created.
    bool OpenDirect(const CQVFilePath& path);
    // Writes a file beside `path`, named like it with "Temp" appended. A symbolic link of that name is not
    // followed: opening fails. `path` stays untouched until CloseAndCommitTransactedFile(). Where `path` is a
    // symbolic link, the target is the file to which it leads. The permissions of a former file are kept, and its
    // owner as far as the process may give files away; a file that is new gets `newMode`, less the umask.
    bool OpenTransacted(const CQVFilePath& path, unsigned int newMode = 0666);

    // Appends. False leaves the bytes out, and the file can then no longer be committed. After a failed write
    // of more than 1,024 bytes, of which the file may hold a part, every flush fails until a file is opened.
    bool Write(const void* data, unsigned int count) override;
    // Hands the bytes held back to the system. False keeps them for another attempt.
    bool FlushCache();

    // Closing.

    // Flushes and closes; true when no file is open. After a failed flush the file stays open, after a failed
    // close it does not.
    bool CloseFile();
    // Closes the temporary file and puts it in the place of the target, in one step that also survives a
    // power cut. Every step goes to `log` (not null), a failure with its errno and text. False, also when any
    // byte could not be written before, leaves the target as it was and the temporary file where it is. One
    // failure comes too late for that: when the folder cannot be synced at the very end, the target is new.
    bool CloseAndCommitTransactedFile(COutputLog* log);

private:
    static constexpr unsigned int CacheSize = 1024;

    void BeginFile(const CQVFilePath& target);
    bool FinishOpening(bool bOpened);
    bool WriteToFile(const void* data, unsigned int count);
    bool WriteUncached(const void* data, unsigned int count);
    bool LogLastError(COutputLog* log) const;

    QVFileSystemInterface* m_pFileSystem;
    CQVFilePath m_TargetPath;
    CQVFilePath m_TemporaryPath; // empty when the target is written directly
    std::unique_ptr<QVFileInterface> m_pFile;
    unsigned char m_Cache[CacheSize];
    unsigned int m_CachedCount = 0;
    bool m_bIncomplete = false;        // opening, closing or a write failed: must not be committed
    bool m_bDirectWriteFailed = false; // the file may hold part of a large write: nothing may follow it
};

// Starts empty. The bytes stay the module's: unload it only after the last read.
class CBinaryInputFromResource : public BinaryInputFromReadOnlyData {
public:
    explicit CBinaryInputFromResource(BinaryStringLength mode);

    // Reads data resource `resourceId` from now on, from its start, in the default language. False, and
    // nothing changed, when the module has none.
    bool OpenResourceDataFile(const CQVModule& module, unsigned int resourceId);
};
