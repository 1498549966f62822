#include <QVLib/Tls/CertificateAndKey.h>

#include "PEMFile.h"
#include <QVPlatform/Format.h>
#include <QVPlatform/NetworkInfo.h>
#include <QVPlatform/OutputLog.h>

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

namespace {

constexpr const char* kFolderName = "Certificates";
constexpr int kYearsValid = 2;
constexpr unsigned int kHostNameSize = 512;

// Null, with the reason in OpenSSL's queue, when there is none to have.
EVP_PKEY* GenerateKey(int bits) {
    EVP_PKEY_CTX* const context = EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr);
    EVP_PKEY* key = nullptr;
    // The public exponent is 65537 unless another is asked for.
    if (context == nullptr || EVP_PKEY_keygen_init(context) <= 0 ||
        EVP_PKEY_CTX_set_rsa_keygen_bits(context, bits) <= 0 || EVP_PKEY_keygen(context, &key) <= 0)
        key = nullptr;
    EVP_PKEY_CTX_free(context);
    return key;
}

EVP_PKEY* PrivateKeyOf(const CertificateAndKey* pair) {
    return pair == nullptr ? nullptr : pair->GetPrivateKey();
}

} // namespace

CertificateAndKey::CertificateAndKey() {
    m_NotBefore.SetUTC();
    m_NotBefore.RoundDown(CQVTimeInterval::OneDay());
    m_NotAfter = m_NotBefore;
    m_NotAfter.AddYears(kYearsValid);
}

CertificateAndKey::~CertificateAndKey() {
    EVP_PKEY_free(m_pPrivateKey);
}

bool CertificateAndKey::InitCertificateAndKey(CertificateType type, CertificateAndKey* issuer,
                                              const char* organization, const char* organizationalUnit,
                                              const char* uri, const QVNetworkInfo& network,
                                              COutputLog* log) {
    const int result = ReadExisting(type, issuer, network, log);
    if (result == ReadValid || result == NoFolder)
        return result == ReadValid;
    if (CreateNewKeyIfRequired(log) &&
        m_PublicCertificate.BeginNewCertificate(m_NotBefore, m_NotAfter, m_pPrivateKey, log) &&
        CreateNewCertificate(organization, organizationalUnit, uri, network, log)) {
        SaveCertificateAndKey(log);
        return true;
    }
    m_PublicCertificate.SetX509(nullptr);
    return false;
}

int CertificateAndKey::ReadExisting(CertificateType type, CertificateAndKey* issuer,
                                    const QVNetworkInfo& network, COutputLog* log) {
    m_Type = type;
    m_pIssuer = issuer;
    m_ReadResult = ReadCertificateAndKey(issuer, network, log);
    return m_ReadResult;
}

// Fills in and signs the certificate that was begun.
bool CertificateAndKey::CreateNewCertificate(const char* organization, const char* organizationalUnit,
                                             const char* uri, const QVNetworkInfo& network, COutputLog* log) {
    char host[kHostNameSize];
    qv_strcpy(host, sizeof host, network.GetCanonicalHostName().c_str());
    EVP_PKEY* signingKey = m_pPrivateKey;
    bool bDone = false;
    switch (m_Type) {
    case CertificateSelfSigned:
        bDone = m_PublicCertificate.SetupSelfSignedCertificate(organization, organizationalUnit, host, log);
        break;
    case CertificateIssuer:
        bDone = m_PublicCertificate.SetupIssuerCertificate(organization, organizationalUnit, IssuerName, log);
        break;
    case CertificateEndEntity:
        signingKey = PrivateKeyOf(m_pIssuer);
        bDone = m_PublicCertificate.SetupEndEntityCertificate(
            m_pIssuer == nullptr ? nullptr : m_pIssuer->GetPublicCertificate().GetX509(), organization,
            organizationalUnit, host, log);
        break;
    }
    return bDone && m_PublicCertificate.AddSubjectAlternativeName(uri, network, log) &&
           m_PublicCertificate.SignNewCertificate(signingKey, log);
}

void CertificateAndKey::SetNotValidTimes(const CQVTimestamp& notBefore, const CQVTimestamp& notAfter) {
    m_NotBefore = notBefore;
    m_NotAfter = notAfter;
}

bool CertificateAndKey::ValidateCertificateAndKeyPair(CertificateAndKey* issuer, const QVNetworkInfo& network,
                                                      COutputLog* log) {
    X509Certificate& certificate = m_PublicCertificate;
    switch (m_Type) {
    case CertificateSelfSigned:
        return certificate.ValidateCertificate(m_KeyBits, &network, m_pPrivateKey, log) ==
               X509Certificate::Valid;
    case CertificateIssuer:
        return certificate.ValidateCertificate(m_KeyBits, nullptr, m_pPrivateKey, log) ==
               X509Certificate::Valid;
    case CertificateEndEntity:
        if (certificate.ValidateCertificate(m_KeyBits, &network, PrivateKeyOf(issuer), log) !=
            X509Certificate::Valid)
            return false;
        // The issuer's signature says nothing about the key that lies beside the certificate.
        if (certificate.IsForPrivateKey(m_pPrivateKey))
            return true;
        certificate.ValidateCertificate(m_KeyBits, &network, nullptr, log); // says so, and drops it
        return false;
    }
    return false;
}

bool CertificateAndKey::CreateNewKeyIfRequired(COutputLog* log) {
    const int status = m_PublicCertificate.GetValidationStatus();
    if (m_pPrivateKey != nullptr && status != X509Certificate::WeakKey && status != X509Certificate::Expired)
        return true;
    log->Print("Create new private key...");
    ERR_clear_error();
    SetPrivateKey(nullptr);
    m_pPrivateKey = GenerateKey(m_KeyBits);
    if (m_pPrivateKey != nullptr)
        return true;
    log->Print("... FAILED to generate private key");
    LogSSLErrors(log);
    return false;
}

void CertificateAndKey::SetPrivateKey(EVP_PKEY* key) {
    if (key != m_pPrivateKey)
        EVP_PKEY_free(m_pPrivateKey);
    m_pPrivateKey = key;
}

CertificateAndKeyInFilePath::CertificateAndKeyInFilePath(const char* name, const CQVFilePath& folder)
    : m_Name(name), m_Folder(folder) {
    m_Folder.AppendFolder(kFolderName);
}

int CertificateAndKeyInFilePath::ReadCertificateAndKey(CertificateAndKey* issuer,
                                                       const QVNetworkInfo& network, COutputLog* log) {
    log->Print("Read '%s' certificates...", m_Name.c_str());
    if (!m_Folder.MakeDirectory()) {
        char text[256];
        m_Folder.GetLastErrorString(text, sizeof text);
        log->Print("Could not create certificates folder '%s'", m_Folder.GetPathCStr());
        log->Print("Error %s", text);
        return NoFolder;
    }
    if (!ReadPrivateKey(log))
        return NoPrivateKey;
    if (!ReadCertificate(log))
        return NoCertificate;
    return ValidateCertificateAndKeyPair(issuer, network, log) ? ReadValid : NotValid;
}

// Both, whatever becomes of the first: where the key was kept, the certificate goes with the key that is stored.
bool CertificateAndKeyInFilePath::SaveCertificateAndKey(COutputLog* log) {
    const bool bKeySaved = SavePrivateKey(log);
    return SaveCertificate(log) && bKeySaved;
}

bool CertificateAndKeyInFilePath::ReadPrivateKey(COutputLog* log) {
    const CQVFilePath path = GetKeyFile();
    log->Print("Reading private key '%s'...", path.GetPathCStr());
    ERR_clear_error();
    SetPrivateKey(nullptr);
    BIO* const file = BIONewFileFromFilePath(path, "r");
    if (file == nullptr) {
        log->Print("...Private key not found");
        LogSSLErrors(log);
        return false;
    }
    SetPrivateKey(PEM_read_bio_PrivateKey(file, nullptr, RefusePassword, nullptr));
    BIO_free(file);
    if (GetPrivateKey() != nullptr)
        return true;
    log->Print("...Error in private key file");
    LogSSLErrors(log);
    return false;
}

bool CertificateAndKeyInFilePath::SavePrivateKey(COutputLog* log) {
    const CQVFilePath path = GetKeyFile();
    log->Print("Saving private key '%s'...", path.GetPathCStr());
    ERR_clear_error();
    PEMFileOutput file;
    if (!file.Open(path, PEMFileOutput::Secret)) {
        log->Print("...Error writing private key");
        LogSSLErrors(log);
        return false;
    }
    if (GetPrivateKey() != nullptr &&
        PEM_write_bio_PrivateKey(file.GetBIO(), GetPrivateKey(), nullptr, nullptr, 0, nullptr, nullptr) ==
            1 &&
        file.Commit())
        return true;
    log->Print("...Error writing private key file");
    LogSSLErrors(log);
    return false;
}

bool CertificateAndKeyInFilePath::ReadCertificate(COutputLog* log) {
    return GetPublicCertificate().ReadCertificate(GetCertificateFile(), log);
}

bool CertificateAndKeyInFilePath::SaveCertificate(COutputLog* log) {
    return GetPublicCertificate().SaveCertificate(GetCertificateFile(), log);
}

// Appended, not changed: "srv.a" and "srv.b" must not share a key.
CQVFilePath CertificateAndKeyInFilePath::GetKeyFile() const {
    CQVFilePath path = m_Folder;
    path.AppendFileName(m_Name + ".key");
    return path;
}

CQVFilePath CertificateAndKeyInFilePath::GetCertificateFile() const {
    CQVFilePath path = m_Folder;
    path.AppendFileName(m_Name + ".cer");
    return path;
}
