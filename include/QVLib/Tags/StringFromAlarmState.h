// CStringFromAlarmState - the texts of an alarm state, for records and for people.
//
//     state   flags                 shown
//     0, 1    Disabled, Enabled     cleared
//     2, 3                          active
//     4, 5                          without alarm
//     6, 7                          acknowledged
//
// Even states are those of a disabled alarm. Any other number is an invalid state, which has texts too.
// Threads: a value.
#pragma once

class CQVLocale;

class CStringFromAlarmState {
public:
    explicit CStringFromAlarmState(unsigned short state) : m_AlarmState(state) {}

    // Two words of English that programs may rely on, such as "Enabled Active"; "Unknown" for an invalid state.
    const char* GetAsFlags() const;
    // Copies the text that is shown to a user into `buffer`, at most `size` bytes with the terminator; cut between
    // characters. True when there is such a text.
    bool GetDisplayText(const CQVLocale& locale, char* buffer, unsigned int size) const;

private:
    unsigned short m_AlarmState;
};
