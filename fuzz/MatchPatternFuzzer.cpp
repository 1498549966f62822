// Wildcards against the plain recursive algorithm. Behind a first byte of options, one byte says how long the text is;
// the rest is the pattern. Both are mapped to characters that matter and kept short, because the model takes
// exponential time.
#include "../tests/Tags/PatternModel.h"
#include <QVLib/Tags/MatchPattern.h>
#include <QVPlatform/Assert.h>
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    static constexpr char alphabet[] = "*?#[]!-aAbBz019";
    std::string characters;
    for (size_t i = 2; i < size; i++)
        characters += alphabet[data[i] % (sizeof alphabet - 1)];
    const bool bCaseSensitive = (data[0] & 1) != 0;
    const std::string text = characters.substr(0, data[1] % 10u);
    const std::string pattern = characters.substr(text.size(), 12);
    QV_ASSERT(OPCMatchPattern(text, pattern, bCaseSensitive) ==
              PatternModel(text, pattern, bCaseSensitive).Match());

    // All of the bytes, as they are: any answer, but an answer.
    const std::string bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
    const size_t half = std::min<size_t>(data[1], bytes.size());
    OPCMatchPattern(bytes.substr(half), bytes.substr(0, half), bCaseSensitive);
    return 0;
}
