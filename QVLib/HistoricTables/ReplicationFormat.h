// The messages between a main and its standby: what their bytes mean. docs/replication.md has them as tables.
#pragma once

#include <QVPlatform/OutputLog.h>
#include <climits>

// The first byte of every request and reply. On the wire: never renumber.
enum TransferType : unsigned char {
    TransferTypeQueryState = 1,
    TransferTypeUpdate = 2,
};

// Stands in place of a block's start behind the last block of an update.
inline constexpr long long kEndOfBlocks = LLONG_MIN;

// Bytes of record data in one update, at most.
inline constexpr unsigned int kUpdateBytes = 131'072;

// Bytes on the wire of one deletion, and of one split command.
inline constexpr unsigned int kDeletionBytes = 8;
inline constexpr unsigned int kSplitCommandBytes = 24;

// Passes collected messages on to the log that the caller gave.
void SayMessages(const COutputLogToRawList& messages, COutputLog* log);
