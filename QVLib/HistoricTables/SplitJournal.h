// The journal of a split in progress: which file is being replaced by which two.
//
// It is written, and on the disk, before the first half exists, and erased after the old file is. Whoever
// finds one at start-up therefore knows, whatever the moment of the crash, that the halves are copies while
// the old file exists, and complete once it is gone.
#pragma once

#include <QVLib/HistoricTables/HistoricTable.h>

// Errors are left in the object (CQVError).
class CQVSplitJournal : public CQVError {
public:
    // The split of [start, end) at `split`.
    struct Split {
        long long start = 0;
        long long split = 0;
        long long end = 0;

        CHistoricTable::HistoricFile GetOldFile() const { return Span(start, end); }
        CHistoricTable::HistoricFile GetFirstHalf() const { return Span(start, split); }
        CHistoricTable::HistoricFile GetSecondHalf() const { return Span(split, end); }

    private:
        // A time from another machine can be anything; the difference then wraps.
        static CHistoricTable::HistoricFile Span(long long from, long long to) {
            const auto duration = static_cast<unsigned long long>(to) - static_cast<unsigned long long>(from);
            return {from, static_cast<long long>(duration), 0, 0, 0};
        }
    };

    CQVSplitJournal(QVFileSystemInterface* fileSystem, const CQVFilePath& directory);

    const CQVFilePath& GetPath() const { return m_Path; }

    // Writes the journal and closes it, which syncs it. When it fails, a part may be left.
    bool Write(const Split& split);
    enum class State {
        None,       // no journal
        Unfinished, // left before any file was touched
        Complete,   // names a split
        Unreadable, // there, but it could not be read
    };
    // Reads the journal; `split` is set when it is complete.
    State Read(Split& split);
    // True when no journal is left.
    bool Erase();

private:
    QVFileSystemInterface* m_pFileSystem;
    CQVFilePath m_Path;
};
