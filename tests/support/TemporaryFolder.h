// TemporaryFolder - a fresh, empty folder for one test, removed with everything in it at the end.
//
//     TemporaryFolder folder;
//     folder.Write("a.txt", "text");
//     CQVFilePath path = folder.File("a.txt");
//
// Trouble with the disk itself throws and so fails the test.
#pragma once

#include <QVPlatform/FilePath.h>
#include <string>
#include <vector>

class TemporaryFolder {
public:
    TemporaryFolder();
    // The same in memory, where the system has a place for that: for tests that sync thousands of small files.
    static TemporaryFolder InMemory();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    // The folder itself, absolute and without a '/' at its end.
    const std::string& GetPath() const { return m_Path; }
    CQVFilePath GetFilePath() const { return CQVFilePath(m_Path); }
    // A file or folder below it; nothing is created.
    CQVFilePath File(const std::string& name) const { return CQVFilePath(m_Path + "/" + name); }

    // The names of everything directly in the folder, or in `subfolder` of it, sorted.
    std::vector<std::string> List(const std::string& subfolder = "") const;
    bool Exists(const std::string& name) const;
    // The whole content of a file.
    std::string Read(const std::string& name) const;
    // Creates a file or replaces its content.
    void Write(const std::string& name, const std::string& content) const;
    // Removes a file, or a folder with everything in it.
    void Remove(const std::string& name) const;
    // Removes everything in the folder but not the folder.
    void Empty() const;

private:
    explicit TemporaryFolder(const std::string& parent);

    std::string m_Path;
};
