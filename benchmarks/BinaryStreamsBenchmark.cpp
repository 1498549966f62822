// How fast do values go into memory and out of it? A message of mixed values and a list of strings, encoded
// and decoded by the binary streams and by what a program would use instead: memcpy into a std::string that
// grows, and std::stringstream. All make the same bytes, and each run checks them. items_per_second counts
// values.

#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVPlatform/Unicode.h>
#include <benchmark/benchmark.h>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr BinaryStringLength Mode = BinaryStringLengthUTF8Character;

// One sample as a message carries it: 27 bytes in six values.
struct Sample {
    long long time;
    unsigned int tag;
    unsigned short quality;
    bool bForced;
    double value;
    unsigned int sequence;

    bool operator==(const Sample&) const = default;
};
constexpr unsigned int NumSamples = 10'000;
constexpr unsigned int NumValues = NumSamples * 6;

const std::vector<Sample>& Samples() {
    static const std::vector<Sample> samples = [] {
        std::vector<Sample> made;
        for (unsigned int i = 0; i < NumSamples; i++)
            made.push_back({i * 10'000'000LL, i % 500, 192, i % 7 == 0, i * 0.25, i});
        return made;
    }();
    return samples;
}

template<class Put>
void PutSample(const Sample& sample, Put put) {
    put(sample.time);
    put(sample.tag);
    put(sample.quality);
    put(sample.bForced);
    put(sample.value);
    put(sample.sequence);
}

template<class Get>
void GetSample(Sample& sample, Get get) {
    get(sample.time);
    get(sample.tag);
    get(sample.quality);
    get(sample.bForced);
    get(sample.value);
    get(sample.sequence);
}

std::string EncodeWithMemcpy() {
    std::string bytes;
    for (const Sample& sample : Samples())
        PutSample(sample, [&](const auto& value) {
            bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
        });
    return bytes;
}

[[gnu::noinline]] void EncodeTo(CBinaryOutput& output) {
    for (const Sample& sample : Samples()) {
        output.WriteInt64(sample.time);
        output << sample.tag << sample.quality << sample.bForced << sample.value << sample.sequence;
    }
}

std::string BytesOf(const BinaryOutputBuffer& buffer) {
    const std::unique_ptr<unsigned char[]> array(buffer.ToByteArray());
    return std::string(reinterpret_cast<const char*>(array.get()), buffer.GetTotalDataSize());
}

void Check(benchmark::State& state, bool bGood) {
    if (!bGood)
        state.SkipWithError("wrong result");
}

void ReportValues(benchmark::State& state, unsigned int values, std::size_t bytes) {
    state.SetItemsProcessed(state.iterations() * values);
    state.SetBytesProcessed(state.iterations() * static_cast<long long>(bytes));
}

void ValuesOut_BinaryOutputBuffer(benchmark::State& state) {
    BinaryOutputBuffer buffer(Mode);
    for (auto _ : state) {
        buffer.Clear();
        EncodeTo(buffer);
        benchmark::ClobberMemory();
    }
    Check(state, BytesOf(buffer) == EncodeWithMemcpy());
    ReportValues(state, NumValues, buffer.GetTotalDataSize());
}
BENCHMARK(ValuesOut_BinaryOutputBuffer);

void ValuesOut_StringAppend(benchmark::State& state) {
    std::string bytes;
    for (auto _ : state) {
        bytes = EncodeWithMemcpy();
        benchmark::DoNotOptimize(bytes.data());
    }
    ReportValues(state, NumValues, bytes.size());
}
BENCHMARK(ValuesOut_StringAppend);

void ValuesOut_StringStream(benchmark::State& state) {
    std::string bytes;
    for (auto _ : state) {
        std::stringstream stream;
        for (const Sample& sample : Samples())
            PutSample(sample, [&](const auto& value) {
                stream.write(reinterpret_cast<const char*>(&value), sizeof value);
            });
        bytes = std::move(stream).str();
    }
    Check(state, bytes == EncodeWithMemcpy());
    ReportValues(state, NumValues, bytes.size());
}
BENCHMARK(ValuesOut_StringStream);

[[gnu::noinline]] void DecodeFrom(CBinaryInput& input, std::vector<Sample>& samples) {
    for (Sample& sample : samples) {
        sample.time = input.ReadInt64();
        input >> sample.tag >> sample.quality >> sample.bForced >> sample.value >> sample.sequence;
    }
}

void ValuesIn_ReadOnlyData(benchmark::State& state) {
    const std::string bytes = EncodeWithMemcpy();
    std::vector<Sample> samples(NumSamples);
    for (auto _ : state) {
        BinaryInputFromReadOnlyData input(Mode, reinterpret_cast<const unsigned char*>(bytes.data()),
                                          static_cast<unsigned int>(bytes.size()));
        DecodeFrom(input, samples);
        benchmark::ClobberMemory();
    }
    Check(state, samples == Samples());
    ReportValues(state, NumValues, bytes.size());
}
BENCHMARK(ValuesIn_ReadOnlyData);

void ValuesIn_FromBinaryOutputBuffer(benchmark::State& state) {
    BinaryOutputBuffer buffer(Mode);
    EncodeTo(buffer);
    std::vector<Sample> samples(NumSamples);
    for (auto _ : state) {
        CBinaryInputFromBinaryOutputBuffer input(&buffer);
        DecodeFrom(input, samples);
        benchmark::ClobberMemory();
    }
    Check(state, samples == Samples());
    ReportValues(state, NumValues, buffer.GetTotalDataSize());
}
BENCHMARK(ValuesIn_FromBinaryOutputBuffer);

// The least that a safe reader does: a bound check and a copy.
void ValuesIn_CheckedMemcpy(benchmark::State& state) {
    const std::string bytes = EncodeWithMemcpy();
    std::vector<Sample> samples(NumSamples);
    for (auto _ : state) {
        const char* current = bytes.data();
        const char* const end = current + bytes.size();
        for (Sample& sample : samples)
            GetSample(sample, [&](auto& value) {
                if (static_cast<std::size_t>(end - current) < sizeof value)
                    state.SkipWithError("too short");
                std::memcpy(&value, current, sizeof value);
                current += sizeof value;
            });
        benchmark::ClobberMemory();
    }
    Check(state, samples == Samples());
    ReportValues(state, NumValues, bytes.size());
}
BENCHMARK(ValuesIn_CheckedMemcpy);

void ValuesIn_StringStream(benchmark::State& state) {
    std::stringstream stream(EncodeWithMemcpy());
    std::vector<Sample> samples(NumSamples);
    for (auto _ : state) {
        stream.seekg(0);
        for (Sample& sample : samples)
            GetSample(sample,
                      [&](auto& value) { stream.read(reinterpret_cast<char*>(&value), sizeof value); });
        benchmark::ClobberMemory();
    }
    Check(state, samples == Samples());
    ReportValues(state, NumValues, NumSamples * 27);
}
BENCHMARK(ValuesIn_StringStream);

// Strings: range(0) is the length in characters, range(1) whether one in four is not ASCII.

constexpr unsigned int NumStrings = 1000;

std::string Text(const benchmark::State& state) {
    std::string text;
    for (long long i = 0; i < state.range(0); i++)
        text += state.range(1) != 0 && i % 4 == 3 ? "\u00E9" : "x";
    return text;
}

void StringsOut_WriteWString(benchmark::State& state) {
    const std::string text = Text(state);
    BinaryOutputBuffer buffer(Mode);
    for (auto _ : state) {
        buffer.Clear();
        for (unsigned int i = 0; i < NumStrings; i++)
            buffer << text;
        benchmark::ClobberMemory();
    }
    ReportValues(state, NumStrings, NumStrings * text.size());
}

// What the encoding says, character by character.
void StringsOut_PerCharacter(benchmark::State& state) {
    const std::string text = Text(state);
    BinaryOutputBuffer buffer(Mode), expected(Mode);
    CBinaryOutput& output = buffer;
    for (auto _ : state) {
        buffer.Clear();
        for (unsigned int i = 0; i < NumStrings; i++) {
            output.WriteStringLength(static_cast<int>(state.range(0)));
            BinaryInputFromReadOnlyData characters(Mode, reinterpret_cast<const unsigned char*>(text.data()),
                                                   static_cast<unsigned int>(text.size()));
            while (!characters.IsEOF())
                output.WriteUTFCharacter(characters.ReadUTF8Character());
        }
        benchmark::ClobberMemory();
    }
    for (unsigned int i = 0; i < NumStrings; i++)
        expected << text;
    Check(state, BytesOf(buffer) == BytesOf(expected));
    ReportValues(state, NumStrings, NumStrings * text.size());
}

void StringsIn_ReadWString(benchmark::State& state) {
    const std::string text = Text(state);
    BinaryOutputBuffer buffer(Mode);
    for (unsigned int i = 0; i < NumStrings; i++)
        buffer << text;
    const std::string bytes = BytesOf(buffer);
    std::string read;
    for (auto _ : state) {
        BinaryInputFromReadOnlyData input(Mode, reinterpret_cast<const unsigned char*>(bytes.data()),
                                          static_cast<unsigned int>(bytes.size()));
        for (unsigned int i = 0; i < NumStrings; i++)
            input >> read;
        Check(state, read == text && input.IsEOF());
    }
    ReportValues(state, NumStrings, NumStrings * text.size());
}

void StringsIn_PerCharacter(benchmark::State& state) {
    const std::string text = Text(state);
    BinaryOutputBuffer buffer(Mode);
    for (unsigned int i = 0; i < NumStrings; i++)
        buffer << text;
    const std::string bytes = BytesOf(buffer);
    std::string read;
    for (auto _ : state) {
        BinaryInputFromReadOnlyData input(Mode, reinterpret_cast<const unsigned char*>(bytes.data()),
                                          static_cast<unsigned int>(bytes.size()));
        for (unsigned int i = 0; i < NumStrings; i++) {
            read.clear();
            for (int count = input.ReadStringLength(); count > 0; count--)
                qv_append_codepoint_to_qvstring(input.ReadUTF8Character(), read);
        }
        Check(state, read == text && input.IsEOF());
    }
    ReportValues(state, NumStrings, NumStrings * text.size());
}

// A memcpy behind a 32-bit length: no characters, so neither a check nor a count of them.
void StringsIn_LengthAndMemcpy(benchmark::State& state) {
    const std::string text = Text(state);
    const unsigned int length = static_cast<unsigned int>(text.size());
    std::string bytes;
    for (unsigned int i = 0; i < NumStrings; i++)
        bytes.append(reinterpret_cast<const char*>(&length), sizeof length).append(text);
    std::string read;
    for (auto _ : state) {
        const char* current = bytes.data();
        for (unsigned int i = 0; i < NumStrings; i++) {
            unsigned int count;
            std::memcpy(&count, current, sizeof count);
            read.assign(current + sizeof count, count);
            current += sizeof count + count;
        }
        Check(state, read == text);
    }
    ReportValues(state, NumStrings, NumStrings * text.size());
}

void StringSizes(benchmark::internal::Benchmark* run) {
    run->ArgNames({"characters", "mixed"})->ArgsProduct({{8, 40, 1000}, {0, 1}});
}
BENCHMARK(StringsOut_WriteWString)->Apply(StringSizes);
BENCHMARK(StringsOut_PerCharacter)->Apply(StringSizes);
BENCHMARK(StringsIn_ReadWString)->Apply(StringSizes);
BENCHMARK(StringsIn_PerCharacter)->Apply(StringSizes);
BENCHMARK(StringsIn_LengthAndMemcpy)->Apply(StringSizes);

} // namespace
