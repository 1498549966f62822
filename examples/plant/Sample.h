// What the plant records: one record a sample of this machine, 64 bytes.
#pragma once

#include <QVPlatform/Timestamp.h>
#include <array>
#include <chrono>

constexpr unsigned int TagCount = 6;

struct Tag {
    const char* m_pName; // as conditions of alarms call it
    const char* m_pUnit;
};
constexpr std::array<Tag, TagCount> Tags{{
    {"cpu", "%"},
    {"load", ""},
    {"memory", "%"},
    {"processes", ""},
    {"switches", "1/s"},
    {"received", "B/s"},
}};

struct Sample {
    long long m_Time = 0;          // as a historic table wants it
    unsigned long long m_Sequence; // counts from 1 over all starts of the server: a gap is a lost record
    double m_Values[TagCount];
};
static_assert(sizeof(Sample) == 64);

// Reads this machine. What it does not tell is 0. Rates are those of the last tenth of a second or more, so they are 0
// at first.
class Machine {
public:
    void Read(double (&values)[TagCount]);

private:
    struct Counters {
        double m_Busy = 0; // of all processors, in ticks
        double m_Total = 0;
        double m_Switches = 0;
        double m_Received = 0;
    };

    Counters m_Last;
    std::chrono::steady_clock::time_point m_LastTime;
    double m_Rates[3] = {};
};
