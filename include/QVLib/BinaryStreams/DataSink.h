// QVDataSink - something that takes bytes, one after the other.
//
// The narrowest way to hand over bytes: a checksum, a buffer or a text decoder takes them without knowing
// where they come from. A sink that can fail keeps its failure to itself and is asked afterwards.
// Ownership: sinks are passed for the duration of a call and never deleted through this class.
#pragma once

class QVDataSink {
public:
    virtual void AddByte(unsigned char byte) = 0;

    // AddByte() for each of `count` bytes, in order.
    void AddBytes(const unsigned char* data, unsigned int count) {
        for (unsigned int i = 0; i < count; i++)
            AddByte(data[i]);
    }

protected:
    ~QVDataSink() = default;
};
