#include <QVLib/Tls/OpenSSLBase.h>

#include <QVPlatform/FilePath.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/Unicode.h>

#include <cerrno>
#include <openssl/bio.h>
#include <openssl/err.h>

BIO* OpenSSLBase::BIONewFileFromFilePath(const CQVFilePath& path, const char* mode) {
    const qvstring& text = path.GetPath();
    // Cut to fit, it would name another file.
    if (text.size() > MaxPathLength || text.find('\0') != qvstring::npos) {
        ERR_put_error(ERR_LIB_SYS, 0, ENAMETOOLONG, __FILE__, __LINE__);
        return nullptr;
    }
    return BIO_new_file(text.c_str(), mode);
}

void OpenSSLBase::QVStringFromIA5String(const unsigned char* data, unsigned int length, qvstring& text) {
    text.clear();
    if (length == 0)
        return;
    const char* current = reinterpret_cast<const char*>(data);
    const char* const end = current + length;
    while (current < end)
        qv_append_codepoint_to_qvstring(qv_codepoint_from_qvchar(current, end), text);
}

void OpenSSLBase::LogSSLErrors(COutputLog* log) const {
    while (const unsigned long error = ERR_get_error()) {
        char text[256];
        ERR_error_string_n(error, text, sizeof text);
        log->Print("SSL %s", text);
    }
}
