// Compressed input against zlib itself. The first bytes say which reads and seeks are made, the rest is the stream; what
// is read must be what one call of zlib gives, and fail only where that fails; a failure spoils nothing that comes after.
#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/BinaryStreams/BinaryInputZlibInflate.h>
#include <QVPlatform/Assert.h>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <zlib.h>

namespace {

constexpr size_t Operations = 12;
constexpr size_t MaxData = 1 << 20;

// As much as zlib makes of the stream, at most MaxData bytes.
std::string InflateAll(const uint8_t* data, size_t size) {
    std::string out(MaxData, 0);
    z_stream stream{};
    QV_ASSERT(inflateInit(&stream) == Z_OK);
    stream.next_in = const_cast<Bytef*>(data);
    stream.avail_in = static_cast<uInt>(size);
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    inflate(&stream, Z_SYNC_FLUSH);
    out.resize(out.size() - stream.avail_out);
    inflateEnd(&stream);
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < Operations)
        return 0;
    const std::string all = InflateAll(data + Operations, size - Operations);
    BinaryInputZlibInflate input(
        BinaryStringLengthUTF8Character, static_cast<unsigned int>(all.size()),
        new BinaryInputFromReadOnlyData(BinaryStringLengthUTF8Character, data + Operations,
                                        static_cast<unsigned int>(size - Operations)));
    char buffer[256 * 16];
    for (size_t i = 0; i < Operations; i += 2) {
        const unsigned int number = data[i] * 16u;
        try {
            if ((data[i + 1] & 1) != 0) {
                const unsigned int position = number * (1u << (data[i + 1] >> 4));
                if (position <= MaxData && input.Seek(position))
                    QV_ASSERT(input.Tell() == position && position <= all.size());
            } else {
                const unsigned int position = input.Tell();
                if (position + number > MaxData)
                    continue;
                input.Read(buffer, number);
                QV_ASSERT(position + number <= all.size());
                QV_ASSERT(std::memcmp(buffer, all.data() + position, number) == 0);
            }
        } catch (const CBinaryInput::EOFException& end) {
            QV_ASSERT(end.GetCount() != 0);
        } catch (const std::logic_error& damage) {
            QV_ASSERT(*damage.what() != '\0');
        }
    }
    return 0;
}
