// CBuildIdentity - which build of a project wrote a file.
//
//     CBuildIdentity identity;
//     identity.Set(312);           // version 3.12, built now
//     identity.SetProjectName("Waterworks");
//     identity.Save(out);
//
// Format:  unsigned short 18754 (the bytes "BI"), then the content: unsigned short format version (3), project name
//          (string), build time (8 bytes), major and minor version (unsigned short each), in the encoding of
//          BinaryOutput.h. Format 2 has two more strings behind the name, which are passed over; format 1 has these
//          too, and no version numbers: it reads as 1.0.
// Errors:  loading says false when the data are no build identity, throws CBinaryInput::EOFException when they end
//          early, and leaves the object as it was in both cases.
// Threads: one thread at a time.
#pragma once

#include <QVPlatform/String.h>
#include <QVPlatform/Timestamp.h>

class CBinaryInput;
class CBinaryOutput;
class COutputLog;

class CBuildIdentity {
public:
    // No name, time 0, version 0.0.
    CBuildIdentity() = default;

    // Empties the project name, and sets the version (major times 100 plus minor) and the time of now.
    void Set(unsigned int version);
    void SetProjectName(const qvstring& name) { m_ProjectName = name; }
    void Clear() { *this = CBuildIdentity(); }

    const qvstring& GetProjectName() const { return m_ProjectName; }
    const CQVTimestamp& GetBuildTime() const { return m_BuildTime; }
    unsigned short GetMajorVersion() const { return m_MajorVersion; }
    unsigned short GetMinorVersion() const { return m_MinorVersion; }

    void Save(CBinaryOutput& out) const;
    bool Load(CBinaryInput& in);
    // Without the leading 18754, for files that have a mark of their own.
    void SaveContent(CBinaryOutput& out) const;
    bool LoadContent(CBinaryInput& in);

    // Three lines of information: project, date and version; "-" for the last two when there is no project name.
    void Dump(COutputLog& log) const;

private:
    qvstring m_ProjectName;
    CQVTimestamp m_BuildTime;
    unsigned short m_MajorVersion = 0;
    unsigned short m_MinorVersion = 0;
};
