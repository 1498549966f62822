// Alarms - the conditions that engineers wrote in JSONata, judged for each sample, and what became of each alarm.
//
// Threads: one thread at a time.
#pragma once

#include "Configuration.h"
#include "Sample.h"

#include <QVLib/Json/JSONata.h>
#include <QVLib/Parsing/ErrorLog.h>
#include <deque>

struct Alarm {
    // The numbers of the library's alarm states for alarms that are enabled (Tags/StringFromAlarmState.h).
    enum State : unsigned short { Cleared = 1, Active = 3, Acknowledged = 7 };

    AlarmConfiguration m_Configuration;
    State m_State = Cleared;
    long long m_Time = 0; // of the last change
    qvstring m_User;      // who acknowledged it
    JSONataExpr m_Condition;
};

class Alarms {
public:
    // Throws std::runtime_error for a condition that is no JSONata; the log says where.
    Alarms(const std::vector<AlarmConfiguration>& configurations, COutputLog& log);

    // Judges a sample; `onChange` is called for each alarm whose state changes. A condition without a value, because of
    // operands that do not fit, say, changes nothing.
    template<class OnChange>
    void Judge(const Sample& sample, OnChange onChange) {
        const ValuePointer document = MakeDocument(sample);
        for (Alarm& alarm : m_Alarms) {
            if (JudgeAlarm(alarm, *document, sample.m_Time))
                onChange(alarm);
        }
    }
    // Null when there is none of that name.
    Alarm* Find(const qvstring& name);
    const std::deque<Alarm>& GetAll() const { return m_Alarms; }

private:
    static ValuePointer MakeDocument(const Sample& sample);
    bool JudgeAlarm(Alarm& alarm, JSONValue& document, long long time);

    std::deque<Alarm> m_Alarms; // which stay where they are
    CErrorLogToNull m_Errors;
};
