// What a main makes of the replies that come in while it keeps house. The input is pairs of a byte, which chooses what
// the main does first, and a reply.
#include "FuzzedTable.h"
#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>
#include <cstdint>

namespace {

void KeepHouse(FuzzedTable& main, unsigned char choice) {
    // A record, in time order or not: what is split next depends on it.
    const FuzzedRecord record{choice * (FuzzedTable::Period / 100), choice};
    main->WriteNewRecord(record.time, &record);
    main->FlushRecords(&main.m_Log);
    switch (choice % 5) {
    case 1:
        main->TrimFilesToGetTargetNumberOfRecords(&main.m_Log, choice / 16);
        break;
    case 2:
        main->SplitLargestFile(&main.m_Log, 2);
        break;
    case 3:
        main->MainResetTransferState();
        break;
    default:
        break;
    }
}

// Builds the next request, if one is due, and checks that a standby could take it.
void CheckRequest(FuzzedTable& main) {
    BinaryOutputBuffer request(BinaryStringLengthUTF8Character);
    const bool bDue = main->MainHasDataToTransfer();
    QV_ASSERT(main->MainGetNextStandbyRequest(0, request) == bDue);
    if (!bDue)
        return;
    CBinaryInputFromBinaryOutputBuffer in(&request);
    main->StandbySkipRequest(0, in);
    QV_ASSERT(in.IsEOF());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedTable main;
    BinaryInputFromReadOnlyData in(BinaryStringLengthUTF8Character, data, static_cast<unsigned int>(size));
    bool bApplied = true;
    while (bApplied && !in.IsEOF()) {
        unsigned char choice = 0;
        in >> choice;
        CheckRequest(main);
        KeepHouse(main, choice);
        CheckRequest(main);
        const unsigned int start = in.Tell();
        const CHistoricTable::TransferState before = main->GetTransferState();
        bApplied = main->MainProcessStandbyReply(&main.m_Log, 0, in);
        QV_ASSERT(main->GetTransferState() ==
                  (bApplied ? CHistoricTable::TransferStateActiveWaiting : before));
        if (bApplied) {
            const unsigned int end = in.Tell();
            in.Seek(start);
            main->MainSkipStandbyReply(0, in);
            QV_ASSERT(in.Tell() == end);
        }
        main.Check();
    }
    return 0;
}
