// CQVFilePath - the path of a file or folder, and what can be done to it as a whole.
//
// A path is UTF-8 text, absolute or relative to the working directory; components are separated by '/'.
// Errors:   an operation that fails returns false and leaves the system's errno in the path (CQVError).
// Threads:  one thread at a time; different paths to one file may be used at once.
#pragma once

#include <QVPlatform/Error.h>
#include <QVPlatform/String.h>

class CQVFilePath : public CQVError {
public:
    CQVFilePath() = default;
    explicit CQVFilePath(const qvstring& path) : m_Path(path) {}

    const qvstring& GetPath() const { return m_Path; }
    const char* GetPathCStr() const { return m_Path.c_str(); }

    void Clear() { m_Path.clear(); }
    bool IsEmpty() const { return m_Path.empty(); }

    // Appends a file or folder below the path, with one '/' between the two (none when the path is empty).
    void AppendFileName(const qvstring& name);
    void AppendFolder(const qvstring& name);
    // Appends to the last component itself: "a/b.txt" and "Temp" give "a/b.txtTemp".
    void AppendName(const qvstring& text) { m_Path += text; }
    // Replaces the extension of the last component, or adds one: "a/b.txt" and "bin" give "a/b.bin". An empty
    // `extension` removes it with its dot. A dot that starts the component starts no extension.
    void ChangeExtension(const qvstring& extension);
    // The last component.
    qvstring GetFileName() const;
    // The path without its last component; "." when there is only one, "/" for a file in the root.
    CQVFilePath GetFolder() const;

    // Where the path leads when its last component is a symbolic link, or several in a row; otherwise the path
    // itself. Nothing need be there.
    CQVFilePath FollowLinks() const;

    // True when something exists under the path that could be examined.
    bool FileExists() const;
    // The permissions of what the path leads to, as chmod takes them (0640); -1, with the error, where the system does
    // not tell.
    int GetPermissions();
    // Removes a file (not a folder).
    bool EraseFile();
    // Makes a folder; true when it is there afterwards, made now or before. Its parent must exist
    // (and be synced, SyncFolder(), if the new folder is to survive a power cut).
    bool MakeDirectory();

    // Gives this file another name in the same file system; an existing `target` is replaced. The error of a
    // failure is left in this path. The file is synced before and the folder after, so a power cut costs the
    // renaming at most, never the contents of either file. When the folder cannot be synced the answer is
    // false, but the new name is in force.
    bool RenameFile(const CQVFilePath& target);
    // Puts `replacement` in the place of this file, in one step; its own name is then gone. Where this file
    // exists, the replacement first takes over its permissions, and its owner and group as far as this process
    // may give files away; a group that is another than before may do no more than everybody. A `mode` that is not
    // negative (0600 for a secret) stands for the permissions of the former file. A path that is a symbolic link
    // is itself replaced; see FollowLinks(). The error of a failure is left in this path. Durable as RenameFile().
    bool ReplaceFileWith(const CQVFilePath& replacement, int mode = -1);

    // Makes the creation, renaming and removal of files in this folder survive a power cut.
    bool SyncFolder();

private:
    qvstring m_Path;
};
