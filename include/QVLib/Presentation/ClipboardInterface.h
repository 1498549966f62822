// ClipboardInterface - moves text and typed data to and from a clipboard that the client owns.
//
// Storing: ClipboardStoreBegin(); any of the store operations, one for each format; ClipboardStoreComplete().
// Reading: ClipboardReadBegin(); the read operations; ClipboardReadComplete().
// Formats are MIME types, such as "text/plain" and "application/rtf"; bytes go over as they are, text as UTF-8 without a
// terminator.
// Ownership: an interface is never deleted through this class.
// Threads: as the client says.
#pragma once

#include <QVLib/BinaryStreams/BinaryStringLength.h>
#include <QVPlatform/String.h>

class BinaryOutputBuffer;
class CBinaryInput;

class ClipboardInterface {
public:
    // Whether one store may hold the same thing in several formats; else only the last one is kept.
    virtual bool SupportsMultipleDataFormats();
    // Whether the clipboard holds data of a format now.
    virtual bool ClipboardHasData(const char* format) = 0;

    // False when the clipboard cannot be read; the reason is then in `buffer`, at most `size` bytes with its terminator.
    virtual bool ClipboardReadBegin(char* buffer, unsigned int size);
    // False when there is no text.
    virtual bool ClipboardReadText(qvstring& text) = 0;
    // An input over the data, which the caller deletes; null when there are none of this format.
    virtual CBinaryInput* ClipboardReadData(const char* format, BinaryStringLength mode);
    virtual void ClipboardReadComplete();

    // As ClipboardReadBegin().
    virtual bool ClipboardStoreBegin(char* buffer, unsigned int size);
    // Stores the bytes of a text as "text/plain". The flag is the client's own; nothing here looks at it.
    virtual void ClipboardStoreText(const qvstring& text, bool flag);
    // Stores all of an input; the one operation to which the other store operations come down.
    virtual void ClipboardStoreInput(const char* format, CBinaryInput& data) = 0;
    virtual void ClipboardStoreComplete();

    // Stores what a buffer holds.
    void ClipboardStoreData(const char* format, const BinaryOutputBuffer& data);

protected:
    ~ClipboardInterface() = default;
};
