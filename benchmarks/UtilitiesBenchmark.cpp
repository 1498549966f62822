// How fast is the check value of a 64 KiB buffer, against the loop over a table that every field bus driver has?
// Both give the same value, and each run checks it. bytes_per_second counts bytes taken.

#include <QVLib/Utilities/Crc16.h>
#include <array>
#include <benchmark/benchmark.h>
#include <vector>

namespace {

const std::vector<unsigned char>& Data() {
    static const std::vector<unsigned char> data = [] {
        std::vector<unsigned char> made(65'536);
        unsigned int state = 1;
        for (unsigned char& byte : made)
            byte = static_cast<unsigned char>((state = state * 1'664'525 + 1'013'904'223) >> 24);
        return made;
    }();
    return data;
}

unsigned short ByteLoop(const std::vector<unsigned char>& data) {
    static const std::array<unsigned short, 256> table = [] {
        std::array<unsigned short, 256> made{};
        for (unsigned int byte = 0; byte < 256; byte++) {
            unsigned int value = byte;
            for (int bit = 0; bit < 8; bit++)
                value = (value & 1) != 0 ? value >> 1 ^ 0xA001 : value >> 1;
            made[byte] = static_cast<unsigned short>(value);
        }
        return made;
    }();
    unsigned int crc = 0xFFFF;
    for (const unsigned char byte : data)
        crc = crc >> 8 ^ table[(crc ^ byte) & 0xFF];
    return static_cast<unsigned short>(crc);
}

void Crc16_Library(benchmark::State& state) {
    for (auto _ : state) {
        CCrc16 crc(0xFFFF);
        crc.AddBytes(Data().data(), static_cast<unsigned int>(Data().size()));
        benchmark::DoNotOptimize(crc.GetValue());
    }
    CCrc16 crc(0xFFFF);
    crc.AddBytes(Data().data(), static_cast<unsigned int>(Data().size()));
    if (crc.GetValue() != ByteLoop(Data()))
        state.SkipWithError("the values differ");
    state.SetBytesProcessed(static_cast<long long>(state.iterations() * Data().size()));
}
BENCHMARK(Crc16_Library);

void Crc16_ByteLoop(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(ByteLoop(Data()));
    state.SetBytesProcessed(static_cast<long long>(state.iterations() * Data().size()));
}
BENCHMARK(Crc16_ByteLoop);

} // namespace
