#include "MachineSampler.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <locale>
#include <sstream>

namespace {

constexpr double SectorSize = 512; // of the kernel's disk counters, whatever the disk's own is
constexpr double KibPerMib = 1024;

// Calls `take` with each line of a file as a stream of words. A file that is not there has no lines.
template<typename Take>
void ForEachLine(const std::string& path, Take take) {
    std::ifstream file(path);
    std::string line;
    std::istringstream words;
    words.imbue(std::locale::classic());
    while (std::getline(file, line)) {
        words.clear();
        words.str(line);
        take(words);
    }
}

// The first word of a small file, or nothing.
std::string FirstWord(const std::string& path) {
    std::ifstream file(path);
    std::string word;
    file >> word;
    return word;
}

// A name of the kernel's as a part of a tag name.
std::string TagPart(std::string name) {
    for (char& character : name) {
        if (static_cast<unsigned char>(character) <= 0x20 || static_cast<unsigned char>(character) >= 0x7F)
            character = '_';
    }
    return name;
}

std::vector<std::filesystem::path> SortedEntries(const std::string& folder, const std::string& prefix) {
    std::vector<std::filesystem::path> entries;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        if (entry.path().filename().string().starts_with(prefix))
            entries.push_back(entry.path());
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

} // namespace

MachineSampler::MachineSampler(const std::string& procFolder, const std::string& sysFolder)
    : m_ProcFolder(procFolder), m_SysFolder(sysFolder) {
    FindThermometers();
}

void MachineSampler::FindThermometers() {
    std::unordered_map<std::string, int> uses;
    const auto add = [&](const std::string& path, const std::string& name) {
        const int number = ++uses[name];
        m_Thermometers.push_back(
            {path, "temperature." + name + (number > 1 ? "." + std::to_string(number) : "")});
    };
    for (const auto& zone : SortedEntries(m_SysFolder + "/class/thermal", "thermal_zone"))
        add(zone.string() + "/temp", TagPart(FirstWord(zone.string() + "/type")));
    for (const auto& chip : SortedEntries(m_SysFolder + "/class/hwmon", "hwmon")) {
        const std::string name = TagPart(FirstWord(chip.string() + "/name"));
        for (const auto& sensor : SortedEntries(chip.string(), "temp")) {
            std::string path = sensor.string();
            if (path.ends_with("_input"))
                add(path,
                    name + "." + sensor.filename().string().substr(0, sensor.filename().string().find('_')));
        }
    }
}

void MachineSampler::Sample(CQVTimestamp now, std::vector<Reading>& readings) {
    readings.clear();
    m_pReadings = &readings;
    m_SecondsPassed = m_LastTime ? static_cast<double>((now - *m_LastTime).GetValue()) /
                                       static_cast<double>(CQVTimeInterval::UnitsPerSecond)
                                 : 0;
    m_LastTime = now;
    SampleProcessors();
    SampleLoad();
    SampleMemory();
    SampleDisks();
    SampleNetwork();
    SampleTemperatures();
    m_pReadings = nullptr;
}

void MachineSampler::Add(const std::string& tag, const char* unit, double value) {
    const auto [entry, bNew] = m_TagIndex.try_emplace(tag, m_Tags.size());
    if (bNew)
        m_Tags.push_back({tag, unit});
    m_pReadings->push_back({entry->second, value});
}

void MachineSampler::AddRate(const std::string& tag, const char* unit, double counter) {
    const auto [entry, bNew] = m_Counters.try_emplace(tag, counter);
    const double growth = counter - entry->second;
    entry->second = counter;
    // A counter that went back was reset, with its device; a clock that went back tells nothing.
    if (!bNew && growth >= 0 && m_SecondsPassed > 0)
        Add(tag, unit, growth / m_SecondsPassed);
}

void MachineSampler::SampleProcessors() {
    ForEachLine(m_ProcFolder + "/stat", [this](std::istream& words) {
        std::string name;
        if (!(words >> name) || !name.starts_with("cpu"))
            return;
        // user nice system idle iowait irq softirq steal; guest time is part of user time.
        ProcessorTimes times;
        double ticks;
        for (int column = 0; column < 8 && words >> ticks; ++column) {
            times.m_Total += ticks;
            if (column != 3 && column != 4)
                times.m_Busy += ticks;
        }
        const auto [entry, bNew] = m_ProcessorTimes.try_emplace(name, times);
        const ProcessorTimes before = entry->second;
        entry->second = times;
        const double passed = times.m_Total - before.m_Total;
        // Between two quick samples the kernel may not have counted a single tick.
        if (bNew || passed <= 0)
            return;
        const std::string number = name.substr(3);
        Add("cpu." + (number.empty() ? "all" : number), "%",
            std::clamp(100 * (times.m_Busy - before.m_Busy) / passed, 0.0, 100.0));
    });
}

void MachineSampler::SampleLoad() {
    ForEachLine(m_ProcFolder + "/loadavg", [this](std::istream& words) {
        double load;
        for (const char* const tag : {"load.1m", "load.5m", "load.15m"}) {
            if (words >> load)
                Add(tag, "", load);
        }
    });
}

void MachineSampler::SampleMemory() {
    std::unordered_map<std::string, double> mebibytes;
    ForEachLine(m_ProcFolder + "/meminfo", [&](std::istream& words) {
        std::string name;
        double kibibytes;
        if (words >> name >> kibibytes)
            mebibytes[name] = kibibytes / KibPerMib;
    });
    const auto addDifference = [&](const char* tag, const char* total, const char* free) {
        if (mebibytes.contains(total) && mebibytes.contains(free) && mebibytes[total] > 0)
            Add(tag, "MiB", mebibytes[total] - mebibytes[free]);
    };
    addDifference("memory.used", "MemTotal:", "MemAvailable:");
    if (mebibytes.contains("MemAvailable:"))
        Add("memory.available", "MiB", mebibytes["MemAvailable:"]);
    addDifference("swap.used", "SwapTotal:", "SwapFree:");
}

void MachineSampler::SampleDisks() {
    ForEachLine(m_ProcFolder + "/diskstats", [this](std::istream& words) {
        std::string skipped, name;
        double readSectors, writtenSectors;
        // major minor name reads merged sectors ms writes merged sectors
        if (!(words >> skipped >> skipped >> name >> skipped >> skipped >> readSectors >> skipped >>
              skipped >> skipped >> writtenSectors))
            return;
        // Whole disks only: the kernel lists partitions beside them. Memory disks and loops say nothing new.
        std::error_code error;
        if (name.starts_with("loop") || name.starts_with("ram") ||
            !std::filesystem::exists(m_SysFolder + "/block/" + name, error))
            return;
        AddRate("disk." + TagPart(name) + ".read", "B/s", readSectors * SectorSize);
        AddRate("disk." + TagPart(name) + ".written", "B/s", writtenSectors * SectorSize);
    });
}

void MachineSampler::SampleNetwork() {
    ForEachLine(m_ProcFolder + "/net/dev", [this](std::istream& words) {
        // "name: bytes packets errs drop fifo frame compressed multicast bytes ..."; the blank behind the
        // colon may be missing.
        std::string name;
        if (!std::getline(words >> std::ws, name, ':') || name == "lo")
            return;
        double received, skipped, sent;
        if (!(words >> received))
            return;
        for (int column = 0; column < 7; ++column)
            words >> skipped;
        if (!(words >> sent))
            return;
        AddRate("net." + TagPart(name) + ".received", "B/s", received);
        AddRate("net." + TagPart(name) + ".sent", "B/s", sent);
    });
}

void MachineSampler::SampleTemperatures() {
    for (const Thermometer& thermometer : m_Thermometers) {
        ForEachLine(thermometer.m_Path, [&](std::istream& words) {
            double thousandths;
            if (words >> thousandths)
                Add(thermometer.m_Tag, "degC", thousandths / 1000);
        });
    }
}
