#include <QVPlatform/FileSystem.h>

unsigned long long QVFileInterface::WriteRecords(const QVRecordRun* runs, unsigned int runCount,
                                                 unsigned int recordSize) {
    unsigned long long written = 0;
    for (const QVRecordRun* run = runs; run != runs + runCount; run++) {
        const unsigned char* record = run->data;
        for (unsigned int left = run->count; left != 0; left--) {
            if (!WriteBytes(record, recordSize))
                return written;
            record += recordSize;
            written++;
        }
    }
    return written;
}

QVFileSystemInterface* QVFileSystem::GetInstance() {
    static QVFileSystemInterface* const instance = new QVFileSystem(true);
    return instance;
}

QVFileSystemInterface* QVFileSystem::GetUnsyncedInstance() {
    static QVFileSystemInterface* const instance = new QVFileSystem(false);
    return instance;
}

QVFileInterface* QVFileSystem::CreateFileObject() {
    return new QVFileUnix(m_bSync);
}
