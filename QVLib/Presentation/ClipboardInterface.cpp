#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>
#include <QVLib/Presentation/ClipboardInterface.h>

bool ClipboardInterface::SupportsMultipleDataFormats() {
    return false;
}

bool ClipboardInterface::ClipboardReadBegin(char*, unsigned int) {
    return true;
}

CBinaryInput* ClipboardInterface::ClipboardReadData(const char*, BinaryStringLength) {
    return nullptr;
}

void ClipboardInterface::ClipboardReadComplete() {}

bool ClipboardInterface::ClipboardStoreBegin(char*, unsigned int) {
    return true;
}

void ClipboardInterface::ClipboardStoreText(const qvstring& text, bool) {
    BinaryInputFromReadOnlyData input(BinaryStringLengthUTF8Character,
                                      reinterpret_cast<const unsigned char*>(text.data()),
                                      static_cast<unsigned int>(text.size()));
    ClipboardStoreInput("text/plain", input);
}

void ClipboardInterface::ClipboardStoreComplete() {}

void ClipboardInterface::ClipboardStoreData(const char* format, const BinaryOutputBuffer& data) {
    CBinaryInputFromBinaryOutputBuffer input(&data);
    ClipboardStoreInput(format, input);
}
