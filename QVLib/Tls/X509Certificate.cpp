#include <QVLib/Tls/X509Certificate.h>

#include "PEMFile.h"
#include <QVPlatform/Assert.h>
#include <QVPlatform/FilePath.h>
#include <QVPlatform/Format.h>
#include <QVPlatform/NetworkInfo.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/Timestamp.h>

#include <algorithm>
#include <limits>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace {

constexpr long kVersion3 = 2;
constexpr int kSerialNumberBits = 64;
constexpr unsigned int kTimeTextSize = 32;
constexpr size_t kMaxCommonName = 256;

struct ExtensionText {
    int nid;
    const char* value;
};

// With "always" OpenSSL 3 names the key also where a certificate is its own issuer, as OpenSSL 1.1 did without.
constexpr ExtensionText kSelfSigned[] = {
    {NID_key_usage, "digitalSignature,nonRepudiation,keyEncipherment,dataEncipherment,keyCertSign"},
    {NID_subject_key_identifier, "hash"},
    {NID_authority_key_identifier, "keyid:always,issuer"},
    {NID_basic_constraints, "CA:FALSE"},
    {NID_ext_key_usage, "serverAuth,clientAuth"},
};
constexpr ExtensionText kIssuer[] = {
    {NID_key_usage, "keyCertSign,digitalSignature,nonRepudiation,keyEncipherment,dataEncipherment"},
    {NID_subject_key_identifier, "hash"},
    {NID_authority_key_identifier, "keyid:always"},
    {NID_basic_constraints, "CA:TRUE"},
};
constexpr ExtensionText kEndEntity[] = {
    {NID_key_usage, "digitalSignature,nonRepudiation,keyEncipherment,dataEncipherment"},
    {NID_subject_key_identifier, "hash"},
    {NID_authority_key_identifier, "keyid:always"},
    {NID_basic_constraints, "CA:FALSE"},
    {NID_ext_key_usage, "serverAuth,clientAuth"},
};

template<size_t Count>
bool AddExtensions(X509Certificate& certificate, X509* issuer, const ExtensionText (&texts)[Count],
                   COutputLog* log) {
    return std::all_of(texts, texts + Count, [&](const ExtensionText& text) {
        return certificate.AddExtension(issuer, text.nid, text.value, log);
    });
}

bool SetTime(ASN1_TIME* field, const CQVTimestamp& time) {
    char text[kTimeTextSize];
    X509Certificate::TimestampToASN1TimeString(time, text);
    // Certificates write years before 2050 with two digits; readers refuse them with four.
    return ASN1_TIME_set_string_X509(field, text) == 1;
}

// Appends a name made of a text's bytes.
bool AddGeneralName(GENERAL_NAMES* names, int kind, const qvstring& text) {
    ASN1_IA5STRING* const value = ASN1_IA5STRING_new();
    GENERAL_NAME* const name = GENERAL_NAME_new();
    if (value != nullptr && name != nullptr && text.size() <= std::numeric_limits<int>::max() &&
        ASN1_STRING_set(value, text.data(), static_cast<int>(text.size())) == 1) {
        GENERAL_NAME_set0_value(name, kind, value);
        if (sk_GENERAL_NAME_push(names, name) > 0)
            return true;
    } else {
        ASN1_IA5STRING_free(value);
    }
    GENERAL_NAME_free(name);
    return false;
}

bool AddGeneralNames(GENERAL_NAMES* names, const char* uri, const QVNetworkInfo& network) {
    if (names == nullptr || (uri != nullptr && !AddGeneralName(names, GEN_URI, uri)))
        return false;
    const std::list<qvstring>& hosts = network.GetHostNames();
    return std::all_of(hosts.begin(), hosts.end(),
                       [&](const qvstring& host) { return AddGeneralName(names, GEN_DNS, host); });
}

qvstring CommonNameOf(X509* certificate) {
    const X509_NAME* const subject = X509_get_subject_name(certificate);
    const int index = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
    qvstring name;
    if (index < 0)
        return name;
    unsigned char* text = nullptr;
    const int length =
        ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, index)));
    if (length > 0)
        OpenSSLBase::QVStringFromIA5String(
            text, static_cast<unsigned int>(std::min<size_t>(static_cast<size_t>(length), kMaxCommonName)),
            name);
    OPENSSL_free(text);
    return name;
}

const char* TextOfStatus(int status) {
    switch (status) {
    case X509Certificate::InvalidKeyPair:
        return "Not a valid key pair";
    case X509Certificate::WeakKey:
        return "Public key is too weak";
    case X509Certificate::Expired:
        return "Public key has expired";
    default:
        return "Certificate subject does not match the host";
    }
}

} // namespace

X509Certificate::~X509Certificate() {
    X509_free(m_pCertificate);
}

void X509Certificate::SetX509(X509* certificate) {
    if (certificate != m_pCertificate)
        X509_free(m_pCertificate);
    m_pCertificate = certificate;
}

EVP_PKEY* X509Certificate::GetPublicKey() const {
    return m_pCertificate == nullptr ? nullptr : X509_get0_pubkey(m_pCertificate);
}

bool X509Certificate::IsForPrivateKey(EVP_PKEY* key) const {
    ERR_set_mark();
    const bool bSame =
        m_pCertificate != nullptr && key != nullptr && X509_check_private_key(m_pCertificate, key) == 1;
    ERR_pop_to_mark(); // that they differ is an answer, not an error
    return bSame;
}

bool X509Certificate::ReadCertificate(const CQVFilePath& path, COutputLog* log) {
    log->Print("Reading certificate '%s'...", path.GetPathCStr());
    ERR_clear_error();
    SetX509(nullptr);
    m_ValidationStatus = NotValidated;
    BIO* const file = BIONewFileFromFilePath(path, "r");
    if (file == nullptr) {
        log->Print("...Certificate not found");
        LogSSLErrors(log);
        return false;
    }
    SetX509(PEM_read_bio_X509(file, nullptr, RefusePassword, nullptr));
    BIO_free(file);
    if (m_pCertificate != nullptr)
        return true;
    log->Print("...Error in certificate file");
    LogSSLErrors(log);
    return false;
}

bool X509Certificate::SaveCertificate(const CQVFilePath& path, COutputLog* log) const {
    log->Print("Saving certificate '%s'...", path.GetPathCStr());
    ERR_clear_error();
    PEMFileOutput file;
    if (!file.Open(path, PEMFileOutput::Public)) {
        log->Print("...Error opening certificate file for writing");
        LogSSLErrors(log);
        return false;
    }
    if (m_pCertificate != nullptr && PEM_write_bio_X509(file.GetBIO(), m_pCertificate) == 1 && file.Commit())
        return true;
    log->Print("...Error writing certificate file");
    LogSSLErrors(log);
    return false;
}

int X509Certificate::ValidateCertificate(int minimumBits, const QVNetworkInfo* network, EVP_PKEY* key,
                                         COutputLog* log) {
    ERR_clear_error();
    m_ValidationStatus = CheckCertificate(minimumBits, network, key);
    if (m_ValidationStatus != Valid) {
        log->Print("%s", TextOfStatus(m_ValidationStatus));
        SetX509(nullptr);
        LogSSLErrors(log);
    }
    return m_ValidationStatus;
}

int X509Certificate::CheckCertificate(int minimumBits, const QVNetworkInfo* network, EVP_PKEY* key) const {
    if (m_pCertificate == nullptr || key == nullptr || X509_verify(m_pCertificate, key) <= 0)
        return InvalidKeyPair;
    if (HasExpired())
        return Expired;
    if (!IsStrong(minimumBits))
        return WeakKey;
    if (network != nullptr) {
        QVNetworkInfo own;
        GetNetworkInfo(own);
        if (!own.IsSameNetworkInfoAs(*network))
            return OtherHost;
    }
    return Valid;
}

// A time that cannot be read is over.
bool X509Certificate::HasExpired() const {
    int days = 0;
    int seconds = 0;
    return ASN1_TIME_diff(&days, &seconds, nullptr, X509_get0_notAfter(m_pCertificate)) != 1 || days < 0 ||
           seconds < 0;
}

bool X509Certificate::IsStrong(int minimumBits) const {
    EVP_PKEY* const key = GetPublicKey();
    return key != nullptr && EVP_PKEY_base_id(key) == EVP_PKEY_RSA && EVP_PKEY_size(key) * 8 >= minimumBits;
}

void X509Certificate::GetNetworkInfo(QVNetworkInfo& network) const {
    if (m_pCertificate == nullptr)
        return;
    network.SetCanonicalHostName(CommonNameOf(m_pCertificate));
    auto* const names =
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(m_pCertificate, NID_subject_alt_name, nullptr, nullptr));
    for (int i = 0; i < sk_GENERAL_NAME_num(names); ++i) {
        const GENERAL_NAME* const name = sk_GENERAL_NAME_value(names, i);
        if (name->type != GEN_DNS)
            continue;
        qvstring text;
        QVStringFromIA5String(ASN1_STRING_get0_data(name->d.dNSName),
                              static_cast<unsigned int>(ASN1_STRING_length(name->d.dNSName)), text);
        network.AddHostName(text);
    }
    GENERAL_NAMES_free(names);
}

bool X509Certificate::BeginNewCertificate(const CQVTimestamp& notBefore, const CQVTimestamp& notAfter,
                                          EVP_PKEY* key, COutputLog* log) {
    log->Print("Create new certificate...");
    ERR_clear_error();
    SetX509(X509_new());
    if (m_pCertificate != nullptr && key != nullptr && X509_set_version(m_pCertificate, kVersion3) == 1 &&
        GenerateSerialNumber() && SetTime(X509_getm_notBefore(m_pCertificate), notBefore) &&
        SetTime(X509_getm_notAfter(m_pCertificate), notAfter) && X509_set_pubkey(m_pCertificate, key) == 1)
        return true;
    log->Print("... FAILED to create certificate");
    LogSSLErrors(log);
    SetX509(nullptr);
    return false;
}

bool X509Certificate::GenerateSerialNumber() {
    BIGNUM* const number = BN_new();
    const bool bDone = number != nullptr && BN_rand(number, kSerialNumberBits, 0, 0) == 1 &&
                       BN_to_ASN1_INTEGER(number, X509_get_serialNumber(m_pCertificate)) != nullptr;
    BN_free(number);
    return bDone;
}

void X509Certificate::TimestampToASN1TimeString(const CQVTimestamp& time, char* text) {
    CQVTimestamp::TimestampStruct fields;
    time.GetTimestampStruct(fields);
    qv_sprintf(text, kTimeTextSize, "%04d%02d%02d%02d%02d%02dZ", fields.year, static_cast<int>(fields.month),
               static_cast<int>(fields.day), static_cast<int>(fields.hour), static_cast<int>(fields.minute),
               static_cast<int>(fields.second));
}

bool X509Certificate::AddSubjectEntry(const char* field, int encoding, const char* text, COutputLog* log) {
    if (text == nullptr || *text == '\0')
        return true;
    if (X509_NAME_add_entry_by_txt(X509_get_subject_name(m_pCertificate), field, encoding,
                                   reinterpret_cast<const unsigned char*>(text), -1, -1, 0) == 1)
        return true;
    log->Print("Could not set %s of the certificate to '%s'", field, text);
    LogSSLErrors(log);
    return false;
}

bool X509Certificate::SetSubject(const char* organization, const char* organizationalUnit,
                                 const char* commonName, COutputLog* log) {
    QV_ASSERT(m_pCertificate != nullptr);
    ERR_clear_error();
    return AddSubjectEntry("O", MBSTRING_ASC, organization, log) &&
           AddSubjectEntry("OU", MBSTRING_ASC, organizationalUnit, log) &&
           AddSubjectEntry("CN", MBSTRING_UTF8, commonName, log);
}

bool X509Certificate::SetupSelfSignedCertificate(const char* organization, const char* organizationalUnit,
                                                 const char* commonName, COutputLog* log) {
    return SetSubject(organization, organizationalUnit, commonName, log) &&
           SetIssuerName(X509_get_subject_name(m_pCertificate), log) &&
           AddExtensions(*this, m_pCertificate, kSelfSigned, log);
}

bool X509Certificate::SetupIssuerCertificate(const char* organization, const char* organizationalUnit,
                                             const char* commonName, COutputLog* log) {
    return SetSubject(organization, organizationalUnit, commonName, log) &&
           SetIssuerName(X509_get_subject_name(m_pCertificate), log) &&
           AddExtensions(*this, m_pCertificate, kIssuer, log);
}

bool X509Certificate::SetupEndEntityCertificate(X509* issuerCertificate, const char* organization,
                                                const char* organizationalUnit, const char* commonName,
                                                COutputLog* log) {
    if (issuerCertificate == nullptr) {
        log->Print("There is no certificate of the issuer");
        return false;
    }
    return SetSubject(organization, organizationalUnit, commonName, log) &&
           SetIssuerName(X509_get_issuer_name(issuerCertificate), log) &&
           AddExtensions(*this, issuerCertificate, kEndEntity, log);
}

bool X509Certificate::SetIssuerName(const X509_NAME* name, COutputLog* log) {
    if (X509_set_issuer_name(m_pCertificate, name) == 1)
        return true;
    log->Print("Could not set the issuer of the certificate");
    LogSSLErrors(log);
    return false;
}

bool X509Certificate::AddSubjectAlternativeName(const char* uri, const QVNetworkInfo& network,
                                                COutputLog* log) {
    QV_ASSERT(m_pCertificate != nullptr);
    if (uri == nullptr && network.GetHostNames().empty())
        return true;
    ERR_clear_error();
    GENERAL_NAMES* const names = GENERAL_NAMES_new();
    const bool bDone =
        AddGeneralNames(names, uri, network) &&
        X509_add1_ext_i2d(m_pCertificate, NID_subject_alt_name, names, 0, X509V3_ADD_APPEND) == 1;
    GENERAL_NAMES_free(names);
    if (!bDone) {
        log->Print("Could not add the host names to the certificate");
        LogSSLErrors(log);
    }
    return bDone;
}

bool X509Certificate::SignNewCertificate(EVP_PKEY* key, COutputLog* log) {
    QV_ASSERT(m_pCertificate != nullptr);
    ERR_clear_error();
    if (key != nullptr && X509_sign(m_pCertificate, key, EVP_sha256()) > 0)
        return true;
    log->Print("Could not sign the certificate");
    LogSSLErrors(log);
    SetX509(nullptr);
    return false;
}

bool X509Certificate::AddExtension(int nid, const char* value, COutputLog* log) {
    return AddExtension(m_pCertificate, nid, value, log);
}

bool X509Certificate::AddExtension(X509* issuer, int nid, const char* value, COutputLog* log) {
    QV_ASSERT(m_pCertificate != nullptr);
    ERR_clear_error();
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer, m_pCertificate, nullptr, nullptr, 0);
    X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
    const bool bDone = extension != nullptr && X509_add_ext(m_pCertificate, extension, -1) == 1;
    X509_EXTENSION_free(extension);
    if (!bDone)
        LogSSLErrors(log);
    return bDone;
}
