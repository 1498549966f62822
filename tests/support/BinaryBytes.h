// What is written to and read from binary streams, as bytes in strings.
#pragma once

#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>
#include <memory>
#include <string>

// The bytes that `save` writes to a binary output.
template<class Save>
std::string Saved(Save save) {
    BinaryOutputBuffer out(BinaryStringLengthUTF8Character);
    save(out);
    const std::unique_ptr<unsigned char[]> bytes(out.ToByteArray());
    return {bytes.get(), bytes.get() + out.GetTotalDataSize()};
}

// An input over bytes that outlive it.
class BytesInput : public BinaryInputFromReadOnlyData {
public:
    explicit BytesInput(const std::string& bytes)
        : BinaryInputFromReadOnlyData(BinaryStringLengthUTF8Character,
                                      reinterpret_cast<const unsigned char*>(bytes.data()),
                                      static_cast<unsigned int>(bytes.size())) {}
    explicit BytesInput(std::string&&) = delete;
};
