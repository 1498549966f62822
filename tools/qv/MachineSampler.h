// MachineSampler - what the machine that the tool runs on is doing: processors, load, memory, disks, network
// and temperatures, read from the kernel's text files.
//
// What a machine does not have or does not tell gives no tags. Rates (processor use, bytes per second) need
// two samples, so their tags deliver from the second one on. Devices that appear later add tags at the end; a
// tag's index never changes.
#pragma once

#include <QVPlatform/Timestamp.h>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

class MachineSampler {
public:
    struct Tag {
        std::string m_Name;
        std::string m_Unit;
    };
    struct Reading {
        std::size_t m_Tag; // index into GetTags()
        double m_Value;
    };

    // `procFolder` and `sysFolder` are where the kernel shows itself.
    explicit MachineSampler(const std::string& procFolder = "/proc", const std::string& sysFolder = "/sys");
    MachineSampler(const MachineSampler&) = delete;
    MachineSampler& operator=(const MachineSampler&) = delete;

    // Reads everything once; `now` is the time that rates are computed with. Replaces `readings`.
    void Sample(CQVTimestamp now, std::vector<Reading>& readings);
    const std::vector<Tag>& GetTags() const { return m_Tags; }

private:
    struct ProcessorTimes {
        double m_Busy = 0;
        double m_Total = 0;
    };
    struct Thermometer {
        std::string m_Path;
        std::string m_Tag;
    };

    void FindThermometers();
    void SampleProcessors();
    void SampleLoad();
    void SampleMemory();
    void SampleDisks();
    void SampleNetwork();
    void SampleTemperatures();
    void Add(const std::string& tag, const char* unit, double value);
    // Adds how fast a counter grows, in units per second.
    void AddRate(const std::string& tag, const char* unit, double counter);

    const std::string m_ProcFolder;
    const std::string m_SysFolder;
    std::vector<Thermometer> m_Thermometers;
    std::vector<Tag> m_Tags;
    std::unordered_map<std::string, std::size_t> m_TagIndex;
    std::unordered_map<std::string, ProcessorTimes> m_ProcessorTimes; // at the sample before
    std::unordered_map<std::string, double> m_Counters;               // the same
    std::optional<CQVTimestamp> m_LastTime;
    double m_SecondsPassed = 0; // since the sample before; 0 at the first
    std::vector<Reading>* m_pReadings = nullptr;
};
