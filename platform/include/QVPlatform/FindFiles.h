// CQVFindFiles - lists the files of a folder whose names match a pattern.
//
//     CQVFindFiles find;
//     for (bool found = find.FirstFile("/data/*.qvhis"); found; found = find.NextFile()) ...
//
// Folders are passed over; links to files are followed. No order is promised.
// Errors:   a search that ends because of an error answers false like one that found everything;
//           GetLastError() then is not 0 (ENOENT for a missing folder). A file that vanishes between listing
//           and examination is passed over.
// Threads:  one thread at a time.
#pragma once

#include <QVPlatform/Error.h>
#include <QVPlatform/String.h>

class CQVFindFiles : public CQVError {
public:
    CQVFindFiles();
    ~CQVFindFiles();
    CQVFindFiles(const CQVFindFiles&) = delete;
    CQVFindFiles& operator=(const CQVFindFiles&) = delete;

    // Starts a search. `pattern` is a folder, '/', and a file-name pattern ('*' any run of characters, '?'
    // one character; a leading dot must be matched by a dot). Without a '/' the working directory is
    // searched.
    bool FirstFile(const qvstring& pattern);
    bool NextFile();

    // Of the file found last: its name without folder.
    void GetName(qvstring& name) const { name = m_Name; }
    // Its size in bytes; sizes past 4,294,967,295 are given as that.
    unsigned int GetSize() const;
    // Its size in bytes, whatever it is.
    long long GetSize64() const { return m_Size; }

private:
    void Close();

    void* m_pFolder = nullptr;
    qvstring m_FolderPath;
    qvstring m_NamePattern;
    qvstring m_Name;
    long long m_Size = 0;
};
