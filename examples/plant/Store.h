// Store - the historic table of a server, and what those who use it must agree on beyond the table's own locks.
//
// Threads: a recorder writes and keeps house; the event loop reads, and replicates. The locks of the table guard every
// single step. A read that sends a long range goes on over many steps, and an exchange with the standby begins with one
// step and ends with another one; what may happen in between is decided here.
#pragma once

#include "Sample.h"

#include <QVLib/HistoricTables/HistoricTable.h>
#include <QVPlatform/FileLock.h>
#include <atomic>
#include <mutex>
#include <vector>

class Store {
public:
    // Opens the table in `folder`, which is made where it is missing; throws std::runtime_error when that fails, or when
    // another process has it.
    explicit Store(const CQVFilePath& folder);

    CHistoricTable& GetTable() { return m_Table; }
    // What has gone wrong so far; each new trouble changes it.
    qvstring GetErrorText() const;
    // The newest sample on the disk; false when there is none. Throws std::runtime_error when it cannot be read.
    bool ReadLast(Sample& sample);

    // Files come and go while one of these is there: they are trimmed, split, or deleted on a standby.
    class Change {
    public:
        explicit Change(Store& store) : m_Store(store) { m_Store.m_Changes++; }
        ~Change() { m_Store.m_Changes++; }
        Change(const Change&) = delete;
        Change& operator=(const Change&) = delete;

    private:
        Store& m_Store;
    };

    // A range of time, read in pieces. Times in the table never go back, so a piece can also begin anew behind the last
    // sample of the one before; that is what happens after a change.
    class Reader {
    public:
        Reader(Store& store, long long from, long long to) : m_Store(store), m_From(from), m_To(to) {}
        ~Reader() { m_Store.m_Table.EndRead(m_Context); }
        Reader(const Reader&) = delete;
        Reader& operator=(const Reader&) = delete;

        // Appends at most `maxSamples` samples; false when the range is at its end.
        bool Read(std::size_t maxSamples, std::vector<Sample>& samples);

    private:
        Store& m_Store;
        CHistoricTable::ReadContext m_Context;
        unsigned int m_Changes = 0; // when the context was begun
        bool m_bBegun = false;
        long long m_From;
        const long long m_To;
    };

    // Housekeeping and exchanges with the standby take turns: what is trimmed or split while a reply is awaited would
    // not reach the standby. Neither waits for the other. Once housekeeping has tried in vain, no exchange begins
    // before it has had its turn.
    bool TryBeginExchange();
    void EndExchange();
    bool TryBeginHouseKeeping();
    void EndHouseKeeping();

private:
    HistoricTableErrorSummary m_Errors;
    CHistoricTable m_Table;
    CQVFileLock m_Lock;
    std::atomic<unsigned int> m_Changes{0}; // odd while one is going on
    std::mutex m_TurnMutex;                 // guards the next two
    bool m_bExchange = false;
    bool m_bHouseKeeping = false; // wanted or going on
};
