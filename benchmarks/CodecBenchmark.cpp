// How fast does compressed and encoded data come in? Inflation beside a bare loop over zlib with buffers of the same
// size; Base64 beside OpenSSL's decoder. Each run checks what comes out. bytes_per_second counts decoded bytes.

#include <QVLib/BinaryStreams/Base64.h>
#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/BinaryStreams/BinaryInputZlibInflate.h>
#include <QVPlatform/TextOutput.h>
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <string>
#include <zlib.h>

namespace {

// Samples as text: digits that differ between words that do not.
const std::string& Data() {
    static const std::string data = [] {
        std::string made;
        for (unsigned int i = 0; made.size() < 1'000'000; i++)
            made += "Plant.Area" + std::to_string(i % 7) +
                    ".Pump = " + std::to_string(i * 7'919u % 100'003u) + "\n";
        return made;
    }();
    return data;
}

const std::string& Compressed() {
    static const std::string compressed = [] {
        uLongf size = compressBound(Data().size());
        std::string made(size, 0);
        compress(reinterpret_cast<Bytef*>(made.data()), &size, reinterpret_cast<const Bytef*>(Data().data()),
                 Data().size());
        made.resize(size);
        return made;
    }();
    return compressed;
}

void Finish(benchmark::State& state, const std::string& out) {
    if (out.compare(0, Data().size(), Data()) != 0)
        state.SkipWithError("other bytes came out");
    state.SetBytesProcessed(static_cast<long long>(state.iterations() * Data().size()));
}

void Inflate_Library(benchmark::State& state) {
    std::string out(Data().size(), 0);
    for (auto _ : state) {
        BinaryInputZlibInflate input(
            BinaryStringLengthUTF8Character, static_cast<unsigned int>(out.size()),
            new BinaryInputFromReadOnlyData(BinaryStringLengthUTF8Character,
                                            reinterpret_cast<const unsigned char*>(Compressed().data()),
                                            static_cast<unsigned int>(Compressed().size())));
        input.Read(out.data(), static_cast<unsigned int>(out.size()));
    }
    Finish(state, out);
}
BENCHMARK(Inflate_Library);

void Inflate_BareLoop(benchmark::State& state) {
    std::string out;
    for (auto _ : state) {
        out.clear();
        out.reserve(Data().size());
        unsigned char in[1024];
        unsigned char block[1024];
        std::size_t consumed = 0;
        z_stream stream{};
        inflateInit(&stream);
        int result = Z_OK;
        while (result == Z_OK) {
            if (stream.avail_in == 0) {
                const std::size_t count = Compressed().copy(reinterpret_cast<char*>(in), sizeof in, consumed);
                consumed += count;
                stream.next_in = in;
                stream.avail_in = static_cast<uInt>(count);
            }
            stream.next_out = block;
            stream.avail_out = sizeof block;
            result = inflate(&stream, Z_NO_FLUSH);
            out.append(reinterpret_cast<char*>(block), sizeof block - stream.avail_out);
        }
        inflateEnd(&stream);
    }
    Finish(state, out);
}
BENCHMARK(Inflate_BareLoop);

const std::string& Encoded() {
    static const std::string encoded = [] {
        CTextOutputString text;
        text.PrintBase64(Data().data(), static_cast<unsigned int>(Data().size()));
        return text.GetString();
    }();
    return encoded;
}

void Base64_Library(benchmark::State& state) {
    std::string out(Data().size() + 3, 0);
    for (auto _ : state) {
        unsigned int written = 0;
        CBase64::DecodeBase64(Encoded(), reinterpret_cast<unsigned char*>(out.data()),
                              static_cast<unsigned int>(out.size()), written);
        benchmark::DoNotOptimize(written);
    }
    Finish(state, out);
}
BENCHMARK(Base64_Library);

void Base64_OpenSSL(benchmark::State& state) {
    std::string out(Data().size() + 3, 0);
    for (auto _ : state)
        benchmark::DoNotOptimize(EVP_DecodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                                                 reinterpret_cast<const unsigned char*>(Encoded().data()),
                                                 static_cast<int>(Encoded().size())));
    Finish(state, out);
}
BENCHMARK(Base64_OpenSSL);

} // namespace
