#include "CurrentTimeZone.h"

#include "SystemCalls.h"

#include <climits>
#include <cstdlib>
#include <string_view>
#include <unistd.h>

namespace {

constexpr const char* SystemFolder = "/usr/share/zoneinfo";
constexpr const char* SystemFolderName = "/zoneinfo/"; // wherever it was mounted or copied
constexpr unsigned int LongestChain = 8;               // of links
constexpr unsigned int LongestFirstLine = 256;

// The name of the zone whose file is at `path`, or an empty text when it is not in the database's folder.
qvstring NameOfFile(const qvstring& path) {
    const qvstring folder = qv_time_zone_folder() + '/';
    if (path.compare(0, folder.size(), folder) == 0)
        return path.substr(folder.size());
    const size_t found = path.rfind(SystemFolderName);
    return found == qvstring::npos ? qvstring()
                                   : path.substr(found + std::string_view(SystemFolderName).size());
}

// The path that a link holds, as seen from where the link is; an empty text when `path` is no link.
qvstring TargetOf(const qvstring& path) {
    char target[PATH_MAX];
    const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
    if (length <= 0)
        return {};
    const std::string_view text(target, static_cast<size_t>(length));
    return text[0] == '/' ? qvstring(text) : path.substr(0, path.rfind('/') + 1).append(text);
}

// The names on the way from a path along its links. The first is the one that the administrator chose:
// further links lead from a zone's other names to the file that they share.
void AddNamesAlongLinks(qvstring path, std::vector<qvstring>& names) {
    for (unsigned int links = 0; links <= LongestChain && !path.empty(); links++) {
        qvstring name = NameOfFile(path);
        if (!name.empty())
            names.push_back(std::move(name));
        path = TargetOf(path);
    }
}

void AddNamesOfVariable(std::string_view value, std::vector<qvstring>& names) {
    if (!value.empty() && value.front() == ':')
        value.remove_prefix(1);
    if (value.empty())
        names.emplace_back("UTC"); // as the C library has it
    else if (value.front() == '/')
        AddNamesAlongLinks(qvstring(value), names);
    else
        names.emplace_back(value);
}

} // namespace

qvstring qv_time_zone_folder() {
    const char* const folder = std::getenv("TZDIR");
    return folder && *folder ? folder : SystemFolder;
}

std::vector<qvstring> qv_current_time_zone_names(const QVCurrentTimeZonePlaces& places) {
    std::vector<qvstring> names;
    if (places.m_pVariable)
        AddNamesOfVariable(places.m_pVariable, names);
    AddNamesAlongLinks(places.m_LocalTimeLink, names);
    const qvstring line = qv_read_file_start(places.m_TimeZoneFile, LongestFirstLine);
    names.push_back(line.substr(0, line.find_first_of(" \t\r\n")));
    return names;
}

qvstring qv_read_file_start(const qvstring& path, unsigned int size) {
    qvstring bytes;
    // Not waiting, in case somebody put a pipe there.
    const int descriptor = qv_retry_interrupted(
        [&] { return qv_system().open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK, 0); });
    if (descriptor < 0)
        return bytes;
    bytes.resize(size);
    const ssize_t count =
        qv_retry_interrupted([&] { return qv_system().read(descriptor, bytes.data(), bytes.size()); });
    bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
    qv_system().close(descriptor);
    return bytes;
}
