// RateCalculator - how much came in during about the last period, for displays and limits.
//
//     RateCalculator bytes(CQVTimeInterval(10 * CQVTimeInterval::UnitsPerSecond));
//     bytes.AddSample(received); // for each packet
//     Show(bytes.GetRate());     // bytes in about 10 seconds
//
// A count fades out linearly: what is in the rate is multiplied, at each new sample, by the part of the period that
// has not passed since the sample before. Nothing fades between samples, so a rate that must fall to zero needs
// samples of 0. Memory and time are constant.
// Threads: one thread at a time.
#pragma once

#include <QVPlatform/Timestamp.h>

class RateCalculator {
public:
    explicit RateCalculator(const CQVTimeInterval& period) : m_Period(period) {}

    // Adds what came in now.
    void AddSample(unsigned int count);
    // Adds what came in at `time`, for callers with a clock of their own. A time before the last sample's counts as
    // the same time, so setting a clock back does not make the rate grow.
    void AddSample(unsigned int count, const CQVTimestamp& time);

    // The count per period; 0 before the first sample.
    double GetRate() const { return m_Rate; }

private:
    const CQVTimeInterval m_Period;
    bool m_bFirstSample = true;
    double m_Rate = 0;
    CQVTimestamp m_LastTime;
};
