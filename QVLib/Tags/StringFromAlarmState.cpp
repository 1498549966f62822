#include <QVLib/Resources/Messages.h>
#include <QVLib/Tags/StringFromAlarmState.h>
#include <iterator>

namespace {

constexpr const char* Flags[] = {
    "Disabled Cleared", "Enabled Cleared", "Disabled Active", "Enabled Active",
    "Disabled NoAlarm", "Enabled NoAlarm", "Disabled Ack",    "Enabled Ack",
};

} // namespace

const char* CStringFromAlarmState::GetAsFlags() const {
    return m_AlarmState < std::size(Flags) ? Flags[m_AlarmState] : "Unknown";
}

bool CStringFromAlarmState::GetDisplayText(const CQVLocale& locale, char* buffer, unsigned int size) const {
    const unsigned int id = m_AlarmState < std::size(Flags) ? QVMessage::FirstAlarmState + m_AlarmState
                                                            : QVMessage::InvalidAlarmState;
    return g_LibModule.LoadResourceString(locale, id, buffer, size);
}
