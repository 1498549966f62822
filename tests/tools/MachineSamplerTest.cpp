#include "MachineSampler.h"

#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

namespace {

// A machine made of files.
class FakeMachine {
public:
    FakeMachine() {
        for (const char* const folder : {"net", "block", "block/sda", "class", "class/thermal",
                                         "class/thermal/thermal_zone0", "class/hwmon", "class/hwmon/hwmon0"})
            EXPECT_TRUE(m_Folder.File(folder).MakeDirectory());
    }

    std::map<std::string, double> Sample(MachineSampler& sampler, double seconds) {
        std::vector<MachineSampler::Reading> readings;
        sampler.Sample(CQVTimestamp(static_cast<long long>(seconds * 1e7)), readings);
        std::map<std::string, double> values;
        for (const MachineSampler::Reading& reading : readings)
            values[sampler.GetTags()[reading.m_Tag].m_Name] = reading.m_Value;
        return values;
    }

    TemporaryFolder m_Folder;
};

} // namespace

TEST(QvMachineSampler, ComputesRatesFromCounters) {
    FakeMachine machine;
    const TemporaryFolder& folder = machine.m_Folder;
    folder.Write("class/thermal/thermal_zone0/type", "x86 pkg\n");
    folder.Write("class/thermal/thermal_zone0/temp", "41500\n");
    folder.Write("class/hwmon/hwmon0/name", "nvme\n");
    folder.Write("class/hwmon/hwmon0/temp1_input", "-3000\n");
    folder.Write("stat", "cpu  100 0 100 800 0 0 0 0 0 0\ncpu0 10 0 10 80 0\nintr 1 2\n");
    folder.Write("loadavg", "0.50 1.25 2.00 1/200 4711\n");
    folder.Write(
        "meminfo",
        "MemTotal: 4096 kB\nMemFree: 1 kB\nMemAvailable: 1024 kB\nSwapTotal: 0 kB\nSwapFree: 0 kB\n");
    folder.Write("diskstats", "8 0 sda 1 0 100 0 1 0 1000 0 0 0 0\n8 1 sda1 1 0 100 0 1 0 1000 0 0 0 0\n");
    folder.Write("net/dev",
                 "Inter-| Receive\n face |bytes\n    lo: 9 0 0 0 0 0 0 0 9\n  eth0:1000 0 0 0 0 0 0 0 5 0\n");

    MachineSampler sampler(folder.GetPath(), folder.GetPath());
    const std::map<std::string, double> first = {{"load.1m", 0.5},
                                                 {"load.5m", 1.25},
                                                 {"load.15m", 2},
                                                 {"memory.used", 3},
                                                 {"memory.available", 1},
                                                 {"temperature.x86", 41.5},
                                                 {"temperature.nvme.temp1", -3}};
    EXPECT_EQ(machine.Sample(sampler, 100), first);

    folder.Write("stat", "cpu  150 0 120 810 20 0 0 0 0 0\ncpu0 10 0 10 80 0\n");
    folder.Write("diskstats", "8 0 sda 1 0 104 0 1 0 999 0 0 0 0\n");
    folder.Write("net/dev", "eth0: 6000 0 0 0 0 0 0 0 5 0\nwlan0: 5 0 0 0 0 0 0 0 5 0\n");
    folder.Write("loadavg", "garbage\n");
    folder.Remove("meminfo");
    const std::map<std::string, double> second = {
        {"cpu.all", 70},      {"disk.sda.read", 1024},   {"net.eth0.received", 2500},
        {"net.eth0.sent", 0}, {"temperature.x86", 41.5}, {"temperature.nvme.temp1", -3}};
    EXPECT_EQ(machine.Sample(sampler, 102),
              second); // cpu0 stood still, sda's writes were reset, wlan0 is new
}
