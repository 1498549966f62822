// OpenSSLBase - what the classes on top of OpenSSL share: files named by paths, texts, and OpenSSL's errors.
//
// OpenSSL keeps errors in a queue of the thread until somebody takes them; LogSSLErrors() does, so call it
// where an operation of OpenSSL failed. What an earlier failure left there would be told with it: clear the
// queue (ERR_clear_error) before an operation whose errors will be logged.
#pragma once

#include <QVPlatform/String.h>

class COutputLog;
class CQVFilePath;
typedef struct bio_st BIO;

class OpenSSLBase {
public:
    // The longest path that OpenSSL is asked to open, in bytes.
    static constexpr unsigned int MaxPathLength = 2047;

    // Opens a file, with a mode of fopen(). The caller's to free (BIO_free); null, with the reason in
    // OpenSSL's queue, when it could not be opened.
    static BIO* BIONewFileFromFilePath(const CQVFilePath& path, const char* mode);

    // Replaces `text` by what `length` bytes mean as UTF-8; malformed ones become what
    // qv_codepoint_from_qvchar() makes of them. `data` may be null for 0 bytes.
    static void QVStringFromIA5String(const unsigned char* data, unsigned int length, qvstring& text);

    // Takes every error from the thread's queue and prints "SSL " and its text.
    void LogSSLErrors(COutputLog* log) const;
};
