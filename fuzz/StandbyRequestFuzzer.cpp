// What a standby makes of the requests that come in. The input is one request behind the other.
#include "FuzzedTable.h"
#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedTable standby;
    BinaryInputFromReadOnlyData in(BinaryStringLengthUTF8Character, data, static_cast<unsigned int>(size));
    bool bApplied = true;
    while (bApplied && !in.IsEOF()) {
        const unsigned int start = in.Tell();
        BinaryOutputBuffer reply(BinaryStringLengthUTF8Character);
        unsigned int added = 0;
        bApplied = standby->StandbyProcessRequest(&standby.m_Log, 0, in, reply, added);
        const unsigned int end = in.Tell();
        QV_ASSERT(added <= (end - start) / sizeof(FuzzedRecord));
        QV_ASSERT(bApplied == (reply.GetTotalDataSize() != 0));
        QV_ASSERT(bApplied || added == 0);
        if (bApplied) {
            in.Seek(start);
            standby->StandbySkipRequest(0, in);
            QV_ASSERT(in.Tell() == end);
            CBinaryInputFromBinaryOutputBuffer replied(&reply);
            standby->MainSkipStandbyReply(0, replied);
            QV_ASSERT(replied.IsEOF());
        }
        standby.Check();
    }
    // Skipping alone gets through as well, or says that it cannot.
    in.Seek(0);
    try {
        while (!in.IsEOF())
            standby->StandbySkipRequest(0, in);
    } catch (const std::exception& error) {
        QV_ASSERT(*error.what() != '\0');
    }
    return 0;
}
