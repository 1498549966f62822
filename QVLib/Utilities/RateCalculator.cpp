#include <QVLib/Utilities/RateCalculator.h>
#include <algorithm>

void RateCalculator::AddSample(unsigned int count) {
    CQVTimestamp now;
    now.SetUTC();
    AddSample(count, now);
}

void RateCalculator::AddSample(unsigned int count, const CQVTimestamp& time) {
    const CQVTimeInterval elapsed = std::max(time, m_LastTime) - m_LastTime;
    if (m_bFirstSample || elapsed >= m_Period) {
        m_bFirstSample = false;
        m_Rate = count;
    } else {
        const double period = static_cast<double>(m_Period.GetValue());
        m_Rate = m_Rate * ((period - static_cast<double>(elapsed.GetValue())) / period) + count;
    }
    m_LastTime = time;
}
