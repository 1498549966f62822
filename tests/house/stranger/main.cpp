// Uses both libraries: records into a table in the folder that it is given and counts what it reads back.
#include <QVLib/HistoricTables/HistoricTable.h>
#include <QVPlatform/FilePath.h>
#include <QVPlatform/FileSystem.h>
#include <QVPlatform/OutputLog.h>
#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    CQVFilePath folder{argv[1]};
    folder.AppendFolder("table");
    folder.MakeDirectory();

    HistoricTableErrorSummary errors;
    CHistoricTable table(QVFileSystem::GetInstance(), sizeof(long long), &errors);
    table.InitialiseFromPath(folder);
    table.DeleteAll();
    for (long long time = 1; time <= 3; time++) {
        table.WriteNewRecord(time, &time);
    }
    COutputLogNull log;
    table.FlushRecords(&log);

    CHistoricTable::ReadContext context;
    int count = 0;
    for (bool found = table.BeginRead(0, 10, context); found; found = table.NextRecord(context)) {
        count++;
    }
    table.EndRead(context);
    std::printf("%d records\n", count);
    return 0;
}
