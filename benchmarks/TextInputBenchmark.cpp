// How fast is text read? Code points (with and without their locations), lines and whole texts from UTF-8 in
// memory, each beside a bare U8_NEXT loop over the same bytes, which knows neither locations nor newlines. And from a
// file of 1 MiB in UTF-8 or UTF-16, beside fread with ICU's converter.
// items_per_second counts code points, so the figures compare directly.

#include <QVLib/TextStreams/TextInputEncoded.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/FilePath.h>
#include <QVPlatform/Unicode.h>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <unicode/ucnv.h>
#include <unicode/utf8.h>

namespace {

// Log lines of about 50 characters; the mixed text has a multi-byte word of every length in each of them.
qvstring MakeText(bool mixed, std::size_t size) {
    const qvstring line =
        mixed ? "2024-05-17 08:15:30 K\xC3\xBChler \xCE\xB8=21.5\xC2\xB0 \xE6\xB8\xA9\xE5\xBA\xA6 "
                "\xF0\x9F\x94\xA5 normal\n"
              : "2024-05-17 08:15:30 Cooler 17 temperature=21.5 normal\n";
    qvstring text;
    while (text.size() + line.size() <= size)
        text += line;
    return text;
}

struct Sum {
    unsigned long long m_CodePoints = 0;
    unsigned long long m_Value = 0;

    void Add(int codePoint) {
        ++m_CodePoints;
        m_Value += static_cast<unsigned int>(codePoint);
    }
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion" // inside the macro
Sum SumWithU8Next(const qvstring& text) {
    Sum sum;
    const char* bytes = text.data();
    const int length = static_cast<int>(text.size());
    for (int i = 0; i < length;) {
        int codePoint;
        U8_NEXT(bytes, i, length, codePoint);
        sum.Add(codePoint);
    }
    return sum;
}

#pragma GCC diagnostic pop

// Both arguments are fixed for the whole run: text kind (0 ASCII, 1 mixed) and size in bytes.
class TextInputBenchmark : public benchmark::Fixture {
public:
    using benchmark::Fixture::SetUp;

    void SetUp(benchmark::State& state) override {
        m_Text = MakeText(state.range(0) != 0, static_cast<std::size_t>(state.range(1)));
        m_Expected = SumWithU8Next(m_Text);
    }

    void Finish(benchmark::State& state, bool correct) {
        if (!correct)
            state.SkipWithError("the text was not read as it is");
        state.SetItemsProcessed(state.iterations() * static_cast<long long>(m_Expected.m_CodePoints));
    }

    bool IsExpected(const Sum& sum) const {
        return sum.m_CodePoints == m_Expected.m_CodePoints && sum.m_Value == m_Expected.m_Value;
    }

    qvstring m_Text;
    Sum m_Expected;
};

void Sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgNames({"mixed", "bytes"})->ArgsProduct({{0, 1}, {1 << 10, 1 << 20}});
}

} // namespace

BENCHMARK_DEFINE_F(TextInputBenchmark, PeerU8Next)(benchmark::State& state) {
    bool correct = true;
    for (auto _ : state) {
        benchmark::DoNotOptimize(m_Text.data());
        const Sum sum = SumWithU8Next(m_Text);
        correct &= IsExpected(sum);
    }
    Finish(state, correct);
}
BENCHMARK_REGISTER_F(TextInputBenchmark, PeerU8Next)->Apply(Sizes);

BENCHMARK_DEFINE_F(TextInputBenchmark, ReadCodePoint)(benchmark::State& state) {
    TextInputQVString input(m_Text, "benchmark");
    bool correct = true;
    for (auto _ : state) {
        input.ResetPosition();
        Sum sum;
        for (int codePoint; input.ReadCodePoint(codePoint);)
            sum.Add(codePoint);
        correct &= IsExpected(sum);
    }
    Finish(state, correct);
}
BENCHMARK_REGISTER_F(TextInputBenchmark, ReadCodePoint)->Apply(Sizes);

BENCHMARK_DEFINE_F(TextInputBenchmark, ReadCodePointWithLocation)(benchmark::State& state) {
    TextInputQVString input(m_Text, "benchmark");
    bool correct = true;
    for (auto _ : state) {
        input.ResetPosition();
        Sum sum;
        CQVTextLocation location;
        for (int codePoint; input.ReadCodePointWithLocation(codePoint, location);)
            sum.Add(codePoint);
        correct &= IsExpected(sum) && location.GetLine() > 1;
    }
    Finish(state, correct);
}
BENCHMARK_REGISTER_F(TextInputBenchmark, ReadCodePointWithLocation)->Apply(Sizes);

// Every tenth code point is looked at and pushed back, as a tokenizer does at the end of each token.
BENCHMARK_DEFINE_F(TextInputBenchmark, ReadWithPushBack)(benchmark::State& state) {
    TextInputQVString input(m_Text, "benchmark");
    bool correct = true;
    for (auto _ : state) {
        input.ResetPosition();
        Sum sum;
        CQVTextLocation location;
        for (int codePoint; input.ReadCodePointWithLocation(codePoint, location);) {
            if (sum.m_CodePoints % 10 == 9) {
                input.ReplaceCodePoint(codePoint, location);
                input.ReadCodePointWithLocation(codePoint, location);
            }
            sum.Add(codePoint);
        }
        correct &= IsExpected(sum);
    }
    Finish(state, correct);
}
BENCHMARK_REGISTER_F(TextInputBenchmark, ReadWithPushBack)->Apply(Sizes);

BENCHMARK_DEFINE_F(TextInputBenchmark, ReadLine)(benchmark::State& state) {
    TextInputQVString input(m_Text, "benchmark");
    bool correct = true;
    qvstring line;
    for (auto _ : state) {
        input.ResetPosition();
        std::size_t bytes = 0;
        for (bool endedByNewline; input.ReadLine(line, endedByNewline);)
            bytes += line.size() + (endedByNewline ? 1 : 0);
        correct &= bytes == m_Text.size();
    }
    Finish(state, correct);
}
BENCHMARK_REGISTER_F(TextInputBenchmark, ReadLine)->Apply(Sizes);

BENCHMARK_DEFINE_F(TextInputBenchmark, ReadAllInput)(benchmark::State& state) {
    TextInputQVString input(m_Text, "benchmark");
    bool correct = true;
    qvstring text;
    for (auto _ : state) {
        input.ResetPosition();
        input.ReadAllInput(text);
        correct &= text.size() == m_Text.size();
    }
    Finish(state, correct && text == m_Text);
}
BENCHMARK_REGISTER_F(TextInputBenchmark, ReadAllInput)->Apply(Sizes);

BENCHMARK_DEFINE_F(TextInputBenchmark, GetLineCount)(benchmark::State& state) {
    TextInputQVString input(m_Text, "benchmark");
    const auto expected = std::count(m_Text.begin(), m_Text.end(), '\n');
    bool correct = true;
    for (auto _ : state) {
        input.ResetPosition();
        correct &= input.GetLineCount() == expected;
    }
    Finish(state, correct);
}
BENCHMARK_REGISTER_F(TextInputBenchmark, GetLineCount)->Apply(Sizes);

// Arguments: text kind (0 ASCII, 1 mixed) and encoding (0 UTF-8, 2 UTF-16). The file is read whole each time, from
// opening to closing.
class TextFileBenchmark : public benchmark::Fixture {
public:
    using benchmark::Fixture::SetUp;
    using benchmark::Fixture::TearDown;

    void SetUp(benchmark::State& state) override {
        const qvstring text = MakeText(state.range(0) != 0, 1 << 20);
        m_Expected = SumWithU8Next(text);
        m_Path = (std::filesystem::temp_directory_path() / "qv-text-input-benchmark").string();
        std::ofstream file(m_Path, std::ios::binary);
        if (state.range(1) == 0) {
            file << text;
            return;
        }
        file << "\xFF\xFE";
        for (const char *p = text.data(), *end = p + text.size(); p != end;) {
            unsigned short units[2];
            const unsigned int count = qv_encode_utf16(qv_codepoint_from_qvchar(p, end), units);
            file.write(reinterpret_cast<const char*>(units), 2 * count);
        }
    }
    void TearDown(benchmark::State&) override { std::filesystem::remove(m_Path); }

    template<class ReadFile>
    void Run(benchmark::State& state, ReadFile readFile) {
        for (auto _ : state) {
            const Sum sum = readFile();
            if (sum.m_CodePoints != m_Expected.m_CodePoints || sum.m_Value != m_Expected.m_Value)
                state.SkipWithError("the text was not read as it is");
        }
        state.SetItemsProcessed(state.iterations() * static_cast<long long>(m_Expected.m_CodePoints));
    }

    std::string m_Path;

private:
    Sum m_Expected;
};

namespace {

void KindsAndEncodings(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgNames({"mixed", "encoding"})->ArgsProduct({{0, 1}, {0, 2}});
}

// Like u_fgetcx(): blocks of 1,024 bytes, converted to UTF-16 and put together to code points.
Sum SumWithConverter(const std::string& path, const char* encoding) {
    Sum sum;
    UErrorCode error = U_ZERO_ERROR;
    UConverter* const converter = ucnv_open(encoding, &error);
    FILE* const file = fopen(path.c_str(), "rb");
    char16_t lead = 0;
    char bytes[1024];
    char16_t units[1024];
    bool marked = encoding[3] == '-' && encoding[4] == '1';
    for (size_t count; (count = fread(bytes, 1, sizeof bytes, file)) > 0;) {
        const char* source = bytes + (marked ? 2 : 0);
        char16_t* target = units;
        ucnv_toUnicode(converter, &target, units + 1024, &source, bytes + count, nullptr, false, &error);
        marked = false;
        for (const char16_t* unit = units; unit != target; ++unit) {
            if ((*unit & 0xFC00) == 0xD800)
                lead = *unit;
            else
                sum.Add((*unit & 0xFC00) == 0xDC00 ? 0x10000 + (lead & 0x3FF) * 0x400 + (*unit & 0x3FF)
                                                   : *unit);
        }
    }
    fclose(file);
    ucnv_close(converter);
    return sum;
}

} // namespace

BENCHMARK_DEFINE_F(TextFileBenchmark, PeerFreadAndConverter)(benchmark::State& state) {
    Run(state, [&] { return SumWithConverter(m_Path, state.range(1) == 0 ? "UTF-8" : "UTF-16LE"); });
}
BENCHMARK_REGISTER_F(TextFileBenchmark, PeerFreadAndConverter)->Apply(KindsAndEncodings);

BENCHMARK_DEFINE_F(TextFileBenchmark, ReadCodePoint)(benchmark::State& state) {
    Run(state, [&] {
        TextInputFile input;
        Sum sum;
        if (input.OpenFile(CQVFilePath(m_Path)))
            for (int codePoint; input.ReadCodePoint(codePoint);)
                sum.Add(codePoint);
        return sum;
    });
}
BENCHMARK_REGISTER_F(TextFileBenchmark, ReadCodePoint)->Apply(KindsAndEncodings);

BENCHMARK_MAIN();
