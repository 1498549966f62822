#include "Alarms.h"

#include <QVLib/TextStreams/TextInputString.h>
#include <stdexcept>

Alarms::Alarms(const std::vector<AlarmConfiguration>& configurations, COutputLog& log) {
    for (const AlarmConfiguration& configuration : configurations) {
        if (Find(configuration.m_Name) != nullptr)
            throw std::runtime_error("there are two alarms '" + configuration.m_Name + "'");
        Alarm& alarm = m_Alarms.emplace_back();
        alarm.m_Configuration = configuration;
        TextInputQVString input(configuration.m_Condition, configuration.m_Name);
        JSONParseContext context(&input, &log);
        CParseToken rest;
        if (!alarm.m_Condition.ParseJSONataExpr(context) || context.GetNextJSONToken(rest) != TokenEndOfFile)
            throw std::runtime_error("the condition of '" + configuration.m_Name + "' is no JSONata");
    }
}

Alarm* Alarms::Find(const qvstring& name) {
    for (Alarm& alarm : m_Alarms) {
        if (alarm.m_Configuration.m_Name == name)
            return &alarm;
    }
    return nullptr;
}

ValuePointer Alarms::MakeDocument(const Sample& sample) {
    auto* const document = new JSONValueObject;
    document->AddRef();
    for (unsigned int i = 0; i < TagCount; i++)
        document->AddValue(Tags[i].m_pName, new JSONValueNumeric(sample.m_Values[i]));
    CQVTimestamp::TimestampStruct time;
    CQVTimestamp(sample.m_Time).GetTimestampStruct(time);
    document->AddValue("second", static_cast<int>(time.second));
    document->AddValue("sequence", new JSONValueNumeric(static_cast<double>(sample.m_Sequence)));
    return ValuePointer(document);
}

bool Alarms::JudgeAlarm(Alarm& alarm, JSONValue& document, long long time) {
    const ValuePointer value(alarm.m_Condition.Evaluate(&document, m_Errors));
    if (!value || value->CastToBoolean() == (alarm.m_State != Alarm::Cleared))
        return false;
    alarm.m_State = alarm.m_State == Alarm::Cleared ? Alarm::Active : Alarm::Cleared;
    alarm.m_Time = time;
    alarm.m_User.clear();
    return true;
}
