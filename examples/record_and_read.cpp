#include <QVLib/HistoricTables/HistoricTable.h>
#include <QVPlatform/Timestamp.h>
#include <climits>
#include <cstdio>

struct Sample {
    long long time; // every record begins with its time stamp
    double value;
};

int main() {
    CQVFilePath folder("temperatures");
    folder.MakeDirectory();
    HistoricTableErrorSummary errors;
    CHistoricTable table(QVFileSystem::GetInstance(), sizeof(Sample), &errors);
    table.InitialiseFromPath(folder);

    CQVTimestamp start;
    start.SetDateAndHHMM(2021, 3, 4, 5, 6);
    for (int second = 0; second < 60; second++) {
        const Sample sample{start.GetValue() + second * CQVTimeInterval::UnitsPerSecond, 20 + 0.1 * second};
        table.WriteNewRecord(sample.time, &sample);
    }
    COutputLogToString log;
    table.FlushRecords(&log);

    const long long from = start.GetValue() + 55 * CQVTimeInterval::UnitsPerSecond;
    CHistoricTable::ReadContext context;
    for (bool found = table.BeginRead(from, LLONG_MAX, context); found; found = table.NextRecord(context)) {
        const Sample& sample = *reinterpret_cast<const Sample*>(context.m_pRecord);
        qvstring time;
        CQVTimestamp(sample.time).ToText(time);
        std::printf("%s %.1f\n", time.c_str(), sample.value);
    }
    table.EndRead(context);
    std::fputs(log.GetString().c_str(), stderr); // what went wrong, if anything
}
