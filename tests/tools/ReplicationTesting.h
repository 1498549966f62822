// What the tests of replication share: a table of 24-byte records in a folder, and both of its sides in threads.
#pragma once

#include "support/TemporaryFolder.h"

#include <QVLib/HistoricTables/HistoricTable.h>
#include <ReplicationReceiver.h>
#include <ReplicationSender.h>
#include <Tool.h>

#include <cstring>
#include <limits>
#include <set>
#include <string>
#include <thread>

struct TestRecord {
    long long m_Time = 0;
    long long m_Number = 0;
    long long m_More = 0;
};

struct TestTable {
    explicit TestTable(const CQVFilePath& folder,
                       QVFileSystemInterface* files = QVFileSystem::GetUnsyncedInstance())
        : m_Table(files, sizeof(TestRecord), &m_Errors) {
        m_Table.InitialiseFromPath(folder);
    }

    void Put(long long time, long long number) {
        const TestRecord record{time, number, ~number};
        m_Table.WriteNewRecord(time, &record);
    }
    unsigned int Flush() { return m_Table.FlushRecords(&m_Log); }
    std::multiset<std::string> GetRecords() const {
        std::multiset<std::string> records;
        CHistoricTable::ReadContext context;
        m_Table.LockRead();
        for (bool bFound = m_Table.BeginRead(std::numeric_limits<long long>::min(),
                                             std::numeric_limits<long long>::max(), context);
             bFound; bFound = m_Table.NextRecord(context))
            records.emplace(reinterpret_cast<const char*>(context.m_pRecord), sizeof(TestRecord));
        m_Table.EndRead(context);
        m_Table.UnLockRead();
        return records;
    }

    HistoricTableErrorSummary m_Errors;
    COutputLogNull m_Log;
    CHistoricTable m_Table;
};

inline ReplicationSettings SettingsFor(const std::string& address, const std::string& timeout = "10s") {
    ReplicationOptions options;
    options.m_Address = address;
    options.m_Timeout = timeout;
    return ReplicationSettings(options, "ADDRESS");
}

// A standby that runs until the end of the scope.
class RunningStandby {
public:
    RunningStandby(TestTable& table, const ReplicationSettings& settings)
        : m_Settings(settings), m_Receiver(table.m_Table, table.m_Errors, m_Settings, m_Signals, m_Log),
          m_Address(m_Receiver.Listen()), m_Thread([this] { m_Receiver.Run(); }) {}
    ~RunningStandby() {
        m_Signals.Stop();
        m_Thread.join();
    }

    const std::string& GetAddress() const { return m_Address; }

private:
    const ReplicationSettings m_Settings;
    ReplicationSignals m_Signals{QVWakeEvent::SetOnly};
    LiveLine m_Log{LiveLine::NoInformation};
    ReplicationReceiver m_Receiver;
    const std::string m_Address;
    std::thread m_Thread;
};

inline ReplicationSender::Outcome ReplicateOnce(CHistoricTable& table, const ReplicationSettings& settings) {
    ReplicationSignals signals(QVWakeEvent::SetOnly);
    LiveLine log(LiveLine::NoInformation);
    return ReplicationSender(table, settings, signals, log).Run(true);
}
