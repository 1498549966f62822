// OpenSSLBIOFromBinaryInput, OpenSSLBIOToBinaryOutput - let OpenSSL read from and write to the library's
// streams.
//
//     OpenSSLBIOFromBinaryInput from(&input);
//     X509* certificate = PEM_read_bio_X509(from.GetBIO(), nullptr, nullptr, nullptr);
//
// Ownership: the stream is borrowed and outlives the adapter; the BIO is the adapter's and ends with it.
// Errors:    a stream that fails, also by an exception, looks to OpenSSL like its end (input), or like a
//            medium that takes nothing (output). No exception passes through OpenSSL.
// Length:    how long an input is, is asked once, when OpenSSL first reads: what it grows by later is not
//            seen.
// Threads:   one thread at a time, as the stream.
#pragma once

class CBinaryInput;
class CBinaryOutput;
typedef struct bio_st BIO;
typedef struct bio_method_st BIO_METHOD;

class OpenSSLBIOFromBinaryInput {
public:
    explicit OpenSSLBIOFromBinaryInput(CBinaryInput* input);
    ~OpenSSLBIOFromBinaryInput();
    OpenSSLBIOFromBinaryInput(const OpenSSLBIOFromBinaryInput&) = delete;
    OpenSSLBIOFromBinaryInput& operator=(const OpenSSLBIOFromBinaryInput&) = delete;

    // Null when OpenSSL had no memory for it.
    BIO* GetBIO() const { return m_pBIO; }

private:
    static int Read(BIO* bio, char* buffer, int size);
    static int Gets(BIO* bio, char* buffer, int size);
    unsigned int GetRemaining(const CBinaryInput& input);

    BIO_METHOD* m_pMethod;
    BIO* m_pBIO;
    bool m_bLengthKnown = false;
    unsigned int m_Length = 0; // of the input
};

class OpenSSLBIOToBinaryOutput {
public:
    explicit OpenSSLBIOToBinaryOutput(CBinaryOutput* output);
    ~OpenSSLBIOToBinaryOutput();
    OpenSSLBIOToBinaryOutput(const OpenSSLBIOToBinaryOutput&) = delete;
    OpenSSLBIOToBinaryOutput& operator=(const OpenSSLBIOToBinaryOutput&) = delete;

    // Null when OpenSSL had no memory for it.
    BIO* GetBIO() const { return m_pBIO; }

private:
    BIO_METHOD* m_pMethod;
    BIO* m_pBIO;
};
