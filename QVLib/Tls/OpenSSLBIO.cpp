#include <QVLib/Tls/OpenSSLBIO.h>

#include <QVLib/BinaryStreams/BinaryInput.h>
#include <QVLib/BinaryStreams/BinaryOutput.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <openssl/bio.h>

namespace {

constexpr int kMethodType = 140;
constexpr int kStreamIndex = 0; // of the BIO's extra data

// Without an answer to controls OpenSSL would leave an error in its queue for each.
long Control(BIO*, int command, long, void*) {
    return command == BIO_CTRL_FLUSH ? 1 : 0;
}

BIO_METHOD* NewMethod(const char* name) {
    BIO_METHOD* const method = BIO_meth_new(kMethodType, name);
    if (method != nullptr)
        BIO_meth_set_ctrl(method, Control);
    return method;
}

BIO* NewBIO(BIO_METHOD* method, void* stream, void* adapter) {
    BIO* const bio = method == nullptr ? nullptr : BIO_new(method);
    if (bio != nullptr) {
        BIO_set_ex_data(bio, kStreamIndex, stream);
        BIO_set_data(bio, adapter);
        BIO_set_init(bio, 1);
    }
    return bio;
}

// Calls a stream for OpenSSL, whose frames no exception may cross: one counts as nothing done.
template<typename Call>
int CallStream(Call call) {
    try {
        return call();
    } catch (...) {
        return 0;
    }
}

int WriteBytes(BIO* bio, const char* data, int length) {
    auto* const output = static_cast<CBinaryOutput*>(BIO_get_ex_data(bio, kStreamIndex));
    return CallStream(
        [&] { return length > 0 && output->Write(data, static_cast<unsigned int>(length)) ? length : 0; });
}

int WriteText(BIO* bio, const char* text) {
    const size_t length = std::strlen(text);
    return length > std::numeric_limits<int>::max() ? 0 : WriteBytes(bio, text, static_cast<int>(length));
}

} // namespace

OpenSSLBIOFromBinaryInput::OpenSSLBIOFromBinaryInput(CBinaryInput* input)
    : m_pMethod(NewMethod("QVBinaryInput")) {
    if (m_pMethod != nullptr) {
        BIO_meth_set_read(m_pMethod, Read);
        BIO_meth_set_gets(m_pMethod, Gets);
    }
    m_pBIO = NewBIO(m_pMethod, input, this);
}

OpenSSLBIOFromBinaryInput::~OpenSSLBIOFromBinaryInput() {
    BIO_free(m_pBIO);
    BIO_meth_free(m_pMethod);
}

unsigned int OpenSSLBIOFromBinaryInput::GetRemaining(const CBinaryInput& input) {
    if (!m_bLengthKnown) {
        m_Length = input.GetLength();
        m_bLengthKnown = true;
    }
    const unsigned int position = input.Tell();
    return position < m_Length ? m_Length - position : 0;
}

int OpenSSLBIOFromBinaryInput::Read(BIO* bio, char* buffer, int size) {
    auto* const input = static_cast<CBinaryInput*>(BIO_get_ex_data(bio, kStreamIndex));
    auto* const adapter = static_cast<OpenSSLBIOFromBinaryInput*>(BIO_get_data(bio));
    return CallStream([&] {
        if (size <= 0 || input->IsEOF())
            return 0;
        const unsigned int count = std::min(static_cast<unsigned int>(size), adapter->GetRemaining(*input));
        return count > 0 && input->TryRead(buffer, count) ? static_cast<int>(count) : 0;
    });
}

int OpenSSLBIOFromBinaryInput::Gets(BIO* bio, char* buffer, int size) {
    auto* const input = static_cast<CBinaryInput*>(BIO_get_ex_data(bio, kStreamIndex));
    if (size <= 0)
        return 0;
    int stored = 0;
    CallStream([&] {
        while (stored < size - 1 && !input->IsEOF() && input->TryRead(buffer + stored, 1)) {
            if (buffer[stored++] == '\n')
                break;
        }
        return stored;
    });
    buffer[stored] = '\0';
    return stored;
}

OpenSSLBIOToBinaryOutput::OpenSSLBIOToBinaryOutput(CBinaryOutput* output)
    : m_pMethod(NewMethod("QVBinaryOutput")) {
    if (m_pMethod != nullptr) {
        BIO_meth_set_write(m_pMethod, WriteBytes);
        BIO_meth_set_puts(m_pMethod, WriteText);
    }
    m_pBIO = NewBIO(m_pMethod, output, nullptr);
}

OpenSSLBIOToBinaryOutput::~OpenSSLBIOToBinaryOutput() {
    BIO_free(m_pBIO);
    BIO_meth_free(m_pMethod);
}
