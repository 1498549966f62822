#include <QVLib/BinaryStreams/BinaryInput.h>
#include <QVLib/BinaryStreams/BinaryOutput.h>
#include <QVLib/Utilities/BuildIdentity.h>
#include <QVPlatform/OutputLog.h>
#include <algorithm>

namespace {

constexpr unsigned short Magic = 18754;
constexpr unsigned short FormatVersion = 3;

} // namespace

void CBuildIdentity::Set(unsigned int version) {
    m_ProjectName.clear();
    m_MajorVersion = static_cast<unsigned short>(version / 100);
    m_MinorVersion = static_cast<unsigned short>(version % 100);
    m_BuildTime.SetUTC();
}

void CBuildIdentity::Save(CBinaryOutput& out) const {
    out << Magic;
    SaveContent(out);
}

bool CBuildIdentity::Load(CBinaryInput& in) {
    unsigned short magic;
    in >> magic;
    return magic == Magic && LoadContent(in);
}

void CBuildIdentity::SaveContent(CBinaryOutput& out) const {
    out << FormatVersion << m_ProjectName << m_BuildTime << m_MajorVersion << m_MinorVersion;
}

bool CBuildIdentity::LoadContent(CBinaryInput& in) {
    unsigned short format;
    in >> format;
    if (format < 1 || format > FormatVersion)
        return false;

    CBuildIdentity loaded;
    in >> loaded.m_ProjectName;
    if (format < 3) {
        qvstring passedOver;
        in >> passedOver >> passedOver;
    }
    in >> loaded.m_BuildTime;
    if (format == 1)
        loaded.m_MajorVersion = 1;
    else
        in >> loaded.m_MajorVersion >> loaded.m_MinorVersion;
    *this = loaded;
    return true;
}

void CBuildIdentity::Dump(COutputLog& log) const {
    if (m_ProjectName.empty()) {
        log.Print(" Project : None");
        log.Print("    Date : -");
        log.Print(" Version : -");
        return;
    }
    qvstring date;
    m_BuildTime.ToText(date);
    std::replace(date.begin(), date.end(), 'T', ' ');
    log.Print(" Project : %s", m_ProjectName.c_str());
    log.Print("    Date : %s", date.c_str());
    log.Print(" Version : %hu.%hu", m_MajorVersion, m_MinorVersion);
}
