// Hold a historic table's files until the end of the scope, exceptions included.
#pragma once

#include <QVLib/HistoricTables/HistoricTable.h>

class CHistoricTable::ReadLockGuard {
public:
    explicit ReadLockGuard(const CHistoricTable& table) : m_Table(table) { m_Table.LockRead(); }
    ~ReadLockGuard() { m_Table.UnLockRead(); }
    ReadLockGuard(const ReadLockGuard&) = delete;
    ReadLockGuard& operator=(const ReadLockGuard&) = delete;

private:
    const CHistoricTable& m_Table;
};

class CHistoricTable::WriteLockGuard {
public:
    explicit WriteLockGuard(CHistoricTable& table) : m_Table(table) { m_Table.LockWrite(); }
    ~WriteLockGuard() { m_Table.UnLockWrite(); }
    WriteLockGuard(const WriteLockGuard&) = delete;
    WriteLockGuard& operator=(const WriteLockGuard&) = delete;

private:
    CHistoricTable& m_Table;
};
