#include "PEMFile.h"

#include <cerrno>
#include <openssl/bio.h>
#include <openssl/err.h>

int RefusePassword(char*, int, int, void*) {
    return -1;
}

PEMFileOutput::~PEMFileOutput() {
    BIO_free(m_pText);
    m_File.CloseFile();
    if (!m_Temporary.IsEmpty())
        m_Temporary.EraseFile();
}

bool PEMFileOutput::Fail(int error) {
    ERR_put_error(ERR_LIB_SYS, 0, error, __FILE__, __LINE__);
    return false;
}

bool PEMFileOutput::Open(const CQVFilePath& path, Readers readers) {
    if (path.GetPath().find('\0') != qvstring::npos)
        return Fail(EINVAL);
    m_pText = BIO_new(BIO_s_secmem());
    if (m_pText == nullptr)
        return false;
    m_Target = path.FollowLinks();
    m_Readers = readers;
    CQVFilePath temporary = m_Target;
    temporary.AppendName("Temp");
    if (!m_File.OpenFileForWriteNoFollow(temporary, static_cast<unsigned int>(readers)))
        return Fail(m_File.GetLastError());
    m_Temporary = temporary;
    return true;
}

bool PEMFileOutput::Commit() {
    char* text = nullptr;
    const long length = BIO_get_mem_data(m_pText, &text);
    const bool bWritten = length > 0 && m_File.WriteBytes(text, static_cast<unsigned int>(length));
    if (!m_File.CloseFile() || !bWritten)
        return Fail(m_File.GetLastError());
    if (!m_Target.ReplaceFileWith(m_Temporary, m_Readers == Secret ? Secret : -1))
        return Fail(m_Target.GetLastError());
    m_Temporary.Clear();
    return true;
}
