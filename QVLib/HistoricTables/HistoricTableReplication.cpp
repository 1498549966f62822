// What a table notes down for its standby while a transfer is active.
#include <QVLib/HistoricTables/HistoricTable.h>
#include <algorithm>

bool CHistoricTable::IsStandbyTransferActive() const {
    const TransferState state = m_TransferState;
    return state == TransferStateActiveWaiting || state == TransferStateActiveTransferIncrement;
}

void CHistoricTable::NoteSplitForStandby(const HistoricFile& oldFile, long long split, bool bInTimeOrder) {
    HistoricFile& first = m_Files.at(split);
    HistoricFile& second = m_Files.at(oldFile.GetEnd());
    if (!bInTimeOrder) {
        // Which of the records the standby holds cannot be told from a count: it gets both halves anew.
        NoteDeletionForStandby(oldFile.GetEnd());
        first.m_NumRecordsSent = first.m_NumRecordsTransferred = 0;
        second.m_NumRecordsSent = second.m_NumRecordsTransferred = 0;
        return;
    }
    m_SplitCommands.push_back({oldFile.m_Start, oldFile.GetEnd(), split});
    // Records in flight are taken as held; the reply to their update adds nothing more.
    const unsigned int held = oldFile.m_NumRecordsSent + oldFile.m_NumRecordsTransferred;
    first.m_NumRecordsTransferred = std::min(held, first.m_NumRecords);
    second.m_NumRecordsTransferred = held - first.m_NumRecordsTransferred;
    first.m_NumRecordsSent = second.m_NumRecordsSent = 0;
}

// Notes that the standby must delete the file that ends at `end`.
//
// The standby deletes before it splits. Where the file came out of splits that the standby has still to repeat, it
// does not know it yet and would bring it back, or delete the whole original with it. It is then told to delete
// the original instead, and gets all that is left of it anew.
void CHistoricTable::NoteDeletionForStandby(long long end) {
    const auto original = std::find_if(
        m_SplitCommands.begin(), m_SplitCommands.end(),
        [end](const SplitCommand& command) { return command.m_Start < end && end <= command.m_End; });
    if (original == m_SplitCommands.end()) {
        m_DeletedFiles.push_back(end);
        return;
    }

    // Repeat the splits of the original on its span, dropping them.
    const long long originalEnd = original->m_End;
    std::map<long long, long long> pieces{{original->m_End, original->m_Start}}; // start by end
    for (auto command = original; command != m_SplitCommands.end();) {
        const auto piece = pieces.find(command->m_End);
        if (piece == pieces.end() || piece->second != command->m_Start) {
            ++command;
            continue;
        }
        pieces.emplace(command->m_SplitTimestamp, piece->second);
        piece->second = command->m_SplitTimestamp;
        command = m_SplitCommands.erase(command);
    }
    m_DeletedFiles.push_back(originalEnd);
    for (const auto& [pieceEnd, pieceStart] : pieces) {
        const auto file = m_Files.find(pieceEnd);
        if (file != m_Files.end() && file->second.m_Start == pieceStart)
            file->second.m_NumRecordsSent = file->second.m_NumRecordsTransferred = 0;
    }
}
