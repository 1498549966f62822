#include "SerialPortList.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;

// How far above a port its device's own folder may be.
constexpr int MaxLevels = 8;

// The first line of a file; empty when there is none.
std::string ReadLine(const fs::path& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

// Newer kernels have two drivers of their own between a port and the hardware's.
std::string FindDriver(fs::path folder) {
    for (int level = 0; level < MaxLevels && folder.has_relative_path();
         ++level, folder = folder.parent_path()) {
        std::error_code error;
        const std::string name = fs::read_symlink(folder / "driver", error).filename().string();
        if (!error && name != "port" && name != "ctrl")
            return name;
    }
    return {};
}

// Devices on USB say who they are.
std::string FindDevice(fs::path folder) {
    for (int level = 0; level < MaxLevels && folder.has_relative_path();
         ++level, folder = folder.parent_path()) {
        std::error_code error;
        if (!fs::exists(folder / "idVendor", error))
            continue;
        std::string text;
        for (const char* const file : {"manufacturer", "product", "serial"}) {
            const std::string line = ReadLine(folder / file);
            text += text.empty() || line.empty() ? line : " " + line;
        }
        return text.empty() ? ReadLine(folder / "idVendor") + ":" + ReadLine(folder / "idProduct") : text;
    }
    return {};
}

// "ttyS2" before "ttyS10": numbers at the end count as numbers.
bool ComesBefore(const SerialPortEntry& a, const SerialPortEntry& b) {
    const auto split = [](const std::string& name) { return name.find_last_not_of("0123456789") + 1; };
    const std::size_t left = split(a.m_Port);
    const std::size_t right = split(b.m_Port);
    const int order = a.m_Port.compare(0, left, b.m_Port, 0, right);
    if (order != 0)
        return order < 0;
    return a.m_Port.size() != b.m_Port.size() ? a.m_Port.size() < b.m_Port.size() : a.m_Port < b.m_Port;
}

} // namespace

std::vector<SerialPortEntry> FindSerialPorts(const std::string& sysFolder) {
    std::vector<SerialPortEntry> ports;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(sysFolder + "/class/tty", error)) {
        std::error_code noDevice;
        const fs::path device = fs::canonical(entry.path() / "device", noDevice);
        // Consoles have no device; type 0 is a socket of the board with nothing in it.
        if (noDevice || ReadLine(entry.path() / "type") == "0")
            continue;
        ports.push_back({"/dev/" + entry.path().filename().string(), FindDriver(device), FindDevice(device)});
    }
    std::sort(ports.begin(), ports.end(), ComesBefore);
    return ports;
}
