// What keys and certificates share in files.
#pragma once

#include <QVPlatform/FilePath.h>
#include <QVPlatform/FileSystem.h>

typedef struct bio_st BIO;

// For OpenSSL's readers: an encrypted file is an error, and nobody is asked on a terminal.
int RefusePassword(char* buffer, int size, int bWrite, void* user);

// PEMFileOutput - a PEM file that is written beside its target, in memory that is wiped and then in one go, and
// takes the target's place only when it is whole. Neither a power cut nor a full disk costs the former file.
//
// Errors: false, with the reason in OpenSSL's queue.
class PEMFileOutput {
public:
    enum Readers : int {
        Secret = 0600, // from the first byte, and however open a former file was
        Public = 0666, // less the umask; or as the former file
    };

    PEMFileOutput() = default;
    // Erases what was not committed.
    ~PEMFileOutput();
    PEMFileOutput(const PEMFileOutput&) = delete;
    PEMFileOutput& operator=(const PEMFileOutput&) = delete;

    bool Open(const CQVFilePath& path, Readers readers);
    // Takes the text; not null once the file is open.
    BIO* GetBIO() const { return m_pText; }
    bool Commit();

private:
    static bool Fail(int error);

    QVFileUnix m_File;
    CQVFilePath m_Target;
    CQVFilePath m_Temporary; // empty when there is none
    Readers m_Readers = Secret;
    BIO* m_pText = nullptr;
};
