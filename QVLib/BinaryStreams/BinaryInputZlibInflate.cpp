#include <QVLib/BinaryStreams/BinaryInputZlibInflate.h>
#include <algorithm>
#include <stdexcept>
#include <zlib.h>

namespace {

// Only the first digit has to be that of the library that is linked.
constexpr char ZlibVersion[] = "1.2.11";

[[noreturn]] void RaiseZlibError() {
    throw std::logic_error("ZLIB error");
}

} // namespace

BinaryInputZlibInflate::BinaryInputZlibInflate(BinaryStringLength mode, unsigned int uncompressedLength,
                                               CBinaryInput* compressed)
    : CBinaryInput(mode), m_UncompressedLength(uncompressedLength), m_pCompressed(compressed),
      m_CompressedLength(compressed->GetLength()), m_pStream(std::make_unique<z_stream>()) {
    StartInflating();
}

BinaryInputZlibInflate::~BinaryInputZlibInflate() {
    EndInflating();
}

void BinaryInputZlibInflate::StartInflating() {
    *m_pStream = z_stream{};
    if (inflateInit_(m_pStream.get(), ZlibVersion, sizeof(z_stream)) != Z_OK)
        RaiseZlibError();
}

void BinaryInputZlibInflate::EndInflating() {
    inflateEnd(m_pStream.get());
}

void BinaryInputZlibInflate::Read(void* buffer, unsigned int count) {
    unsigned char* to = static_cast<unsigned char*>(buffer);
    for (;;) {
        const unsigned int taken = TakeFromBlock(to, count);
        to += taken;
        count -= taken;
        if (count == 0)
            return;
        if (!InflateBlock())
            RaiseEOFException(count);
    }
}

unsigned int BinaryInputZlibInflate::TakeFromBlock(void* buffer, unsigned int count) {
    const unsigned int taken = std::min(count, m_BlockSize - m_BlockIndex);
    CopyBytes(buffer, m_Block + m_BlockIndex, taken);
    m_BlockIndex += taken;
    m_Position += taken;
    return taken;
}

// Fills the block with what comes next; false at the end of the data. The source may be used up while zlib still has
// bytes to hand out.
bool BinaryInputZlibInflate::InflateBlock() {
    if (m_bStreamEnded)
        return false;
    if (m_pStream->avail_in == 0)
        ReadChunk();
    const bool bSourceUsedUp = m_pStream->avail_in == 0;
    m_pStream->next_out = m_Block;
    m_pStream->avail_out = BlockSize;
    const int result = inflate(m_pStream.get(), Z_NO_FLUSH);
    m_BlockStart += m_BlockSize;
    m_BlockSize = BlockSize - m_pStream->avail_out;
    m_BlockIndex = 0;
    if (result == Z_BUF_ERROR && bSourceUsedUp)
        return false;
    if (result != Z_OK && result != Z_STREAM_END) {
        m_BlockSize = 0; // what came before the fault is not trusted either, also not by a later Seek()
        RaiseZlibError();
    }
    m_bStreamEnded = result == Z_STREAM_END;
    return true;
}

void BinaryInputZlibInflate::ReadChunk() {
    const unsigned int count = std::min(m_CompressedLength - m_Consumed, BlockSize);
    m_pCompressed->Read(m_Input, count);
    m_Consumed += count;
    m_pStream->next_in = m_Input;
    m_pStream->avail_in = count;
}

bool BinaryInputZlibInflate::Seek(unsigned int position) {
    if (position == m_Position)
        return true;
    if (position >= m_BlockStart && position - m_BlockStart < m_BlockSize) {
        m_BlockIndex = position - m_BlockStart;
        m_Position = position;
        return true;
    }
    if (!m_pCompressed->Seek(0))
        return false;
    EndInflating();
    StartInflating();
    m_bStreamEnded = false;
    m_Consumed = m_BlockStart = m_BlockSize = m_BlockIndex = m_Position = 0;
    while (m_Position < position) {
        unsigned char passedOver[256];
        if (!TryRead(passedOver, std::min<unsigned int>(position - m_Position, sizeof passedOver)))
            return false;
    }
    return true;
}
