// Counts records that did not reach a file as lost, however the scope is left.
#pragma once

#include <QVLib/HistoricTables/HistoricTableErrorSummary.h>
#include <cstddef>

class LossCounter {
public:
    // `written` is looked at when the scope ends; both references must live until then.
    LossCounter(HistoricTableErrorSummary& summary, std::size_t held, const std::size_t& written)
        : m_Summary(summary), m_Held(held), m_Written(written) {}
    ~LossCounter() {
        if (m_Written < m_Held)
            m_Summary.AddRecordLostCount(static_cast<unsigned int>(m_Held - m_Written));
    }
    LossCounter(const LossCounter&) = delete;
    LossCounter& operator=(const LossCounter&) = delete;

private:
    HistoricTableErrorSummary& m_Summary;
    const std::size_t m_Held;
    const std::size_t& m_Written;
};
