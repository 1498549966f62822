#include "Sample.h"

#include <algorithm>
#include <fstream>
#include <limits>
#include <string>

namespace {

// The number behind `name` in a file of lines "name number".
double Find(const char* path, const std::string& name) {
    std::ifstream file(path);
    for (std::string word; file >> word;) {
        double value = 0;
        if (word == name && file >> value)
            return value;
        file.clear();
        file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    return 0;
}

double CountReceivedBytes() {
    std::ifstream file("/proc/net/dev");
    double sum = 0;
    for (std::string line; std::getline(file, line);) {
        const std::size_t colon = line.find(':');
        if (colon != std::string::npos)
            sum += std::strtod(line.c_str() + colon + 1, nullptr);
    }
    return sum;
}

} // namespace

void Machine::Read(double (&values)[TagCount]) {
    Counters counters;
    double processes = 0;
    std::ifstream file("/proc/stat");
    for (std::string word; file >> word;) {
        if (word == "cpu") { // user nice system idle iowait irq softirq steal
            double ticks = 0;
            for (int i = 0; i < 8 && file >> ticks; i++) {
                counters.m_Total += ticks;
                counters.m_Busy += i == 3 || i == 4 ? 0 : ticks;
            }
        } else if (word == "ctxt") {
            file >> counters.m_Switches;
        } else if (word == "procs_running") {
            file >> processes;
        }
        file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    const auto now = std::chrono::steady_clock::now();
    const double seconds = std::chrono::duration<double>(now - m_LastTime).count();
    if (seconds >= 0.1) {
        counters.m_Received = CountReceivedBytes();
        if (m_Last.m_Total > 0) {
            const double ticks = std::max(counters.m_Total - m_Last.m_Total, 1.0);
            m_Rates[0] = std::clamp(100 * (counters.m_Busy - m_Last.m_Busy) / ticks, 0.0, 100.0);
            m_Rates[1] = (counters.m_Switches - m_Last.m_Switches) / seconds;
            m_Rates[2] = (counters.m_Received - m_Last.m_Received) / seconds;
        }
        m_Last = counters;
        m_LastTime = now;
    }
    double load = 0;
    std::ifstream("/proc/loadavg") >> load;
    const double memory = Find("/proc/meminfo", "MemTotal:");
    const double free = Find("/proc/meminfo", "MemAvailable:");
    const double all[] = {m_Rates[0], load,       memory > 0 ? 100 * (1 - free / memory) : 0,
                          processes,  m_Rates[1], m_Rates[2]};
    std::copy(std::begin(all), std::end(all), values);
}
