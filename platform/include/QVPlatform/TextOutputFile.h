// CTextOutputFile - writes a text file, in place or so that it replaces its predecessor when it is complete.
//
//     CTextOutputFile out;
//     if (!out.OpenTextFileForReplace(path))
//         return false; // GetLastError() says why
//     settings.SaveAsText(out);
//     return out.CloseTextFile();
//
// Errors:    the helpers that print return nothing, so the file remembers its first failure: it takes nothing
//            more, CloseTextFile() is false, and the system's errno is in the object (CQVError). UTF-8 without
//            a mark and LF line ends, unless set otherwise before the first character.
// Cost:      text passes through a buffer of 4 KiB inside the object.
// Threads:   one thread at a time. Two writers of one target are the caller's business: they share the
//            temporary file's name.
#pragma once

#include <QVPlatform/Error.h>
#include <QVPlatform/FilePath.h>
#include <QVPlatform/FileSystem.h>
#include <QVPlatform/TextOutput.h>
#include <memory>

class CTextOutputFile : public CTextOutputWithEncoding, public CQVError {
public:
    // On the system's files.
    CTextOutputFile();
    // On `fileSystem`, which must outlive the object.
    explicit CTextOutputFile(QVFileSystemInterface* fileSystem);
    // Closes a file that is written in place; call CloseTextFile() before where the result matters. Gives up
    // a replacement that was not closed.
    ~CTextOutputFile() override;

    // Opening. A file that is open is treated as by the destructor first.

    // Writes `path` itself, which is emptied or created.
    bool OpenTextFileForWrite(const CQVFilePath& path);
    // Writes a file beside `path`, named like it with "Temp" appended; a symbolic link of that name is not
    // followed, opening fails. `path` stays untouched until CloseTextFile() puts the complete file in its
    // place, in one step that also survives a power cut. Where `path` is a symbolic link, that is the place of
    // the file to which it leads. The permissions of the former file are kept, and its owner as far as the
    // process may give files away; a file that is new gets `newMode`, less the process's umask.
    bool OpenTextFileForReplace(const CQVFilePath& path, unsigned int newMode = 0666);

    // False when no file is open, and from the first failure on.
    bool WriteBytes(const unsigned char* data, unsigned int count) override;

    // Closes the file. True when everything since it was opened is in it and, for a replacement, it is in
    // place; asked again it answers the same. False otherwise, then the target of a replacement is what it
    // was, or complete already where only making that durable failed, and the temporary file is erased.
    // False too when no file was opened.
    bool CloseTextFile();

private:
    static constexpr unsigned int BufferSize = 4096;

    bool FinishOpening(bool bOpened);
    bool WriteToFile(const unsigned char* data, unsigned int count);
    bool Fail(const CQVError& cause);
    void Abandon();

    std::unique_ptr<QVFileInterface> m_pFile;
    CQVFilePath m_TargetPath;
    CQVFilePath m_TemporaryPath; // empty when the target is written in place
    unsigned char m_Buffer[BufferSize];
    unsigned int m_BufferedCount = 0;
    bool m_bFailed = true; // no file was opened, or something is missing in it
};
