// X509Certificate - one X.509 certificate: read, checked against a key and a host, or made, signed and saved.
//
// CertificateAndKey.h has the everyday way to a server's certificate; this is what it is made of.
//
//     X509Certificate certificate;
//     if (certificate.ReadCertificate(path, log) &&
//         certificate.ValidateCertificate(2048, &network, issuer.GetPublicKey(), log) == X509Certificate::Valid)
//
// Making one takes the steps in this order: BeginNewCertificate(), one Setup...Certificate(),
// AddSubjectAlternativeName(), SignNewCertificate(), SaveCertificate(). A step that fails says why and returns
// false; stop there, what was made is no certificate.
//
// Ownership: the certificate is the object's. Keys and other certificates are borrowed for the call.
// Errors:    by result, and into the log: a line that says what failed, then OpenSSL's own errors ("SSL ...").
// Trust:     a file is hostile until ValidateCertificate() has said otherwise. A file that is encrypted is
//            refused; nobody is asked for a password.
// Threads:   one thread at a time per object.
#pragma once

#include <QVLib/Tls/OpenSSLBase.h>

class CQVTimestamp;
class QVNetworkInfo;
typedef struct evp_pkey_st EVP_PKEY;
typedef struct X509_name_st X509_NAME;
typedef struct x509_st X509;

class X509Certificate : public OpenSSLBase {
public:
    enum ValidationStatus : int {
        NotValidated = 0,
        Valid = 1,
        InvalidKeyPair = 2, // the signature was not made with the key
        WeakKey = 3,
        Expired = 4,
        OtherHost = 5,
    };

    X509Certificate() = default;
    ~X509Certificate();
    X509Certificate(const X509Certificate&) = delete;
    X509Certificate& operator=(const X509Certificate&) = delete;

    // Null when there is none.
    X509* GetX509() const { return m_pCertificate; }
    // Frees the certificate that was there and takes `certificate` over; null is none.
    void SetX509(X509* certificate);
    // What ValidateCertificate() found last; reading another certificate sets it back.
    int GetValidationStatus() const { return m_ValidationStatus; }
    // The key that the certificate vouches for, borrowed from it; null when there is none or OpenSSL does not
    // know its kind.
    EVP_PKEY* GetPublicKey() const;
    // True when `key` is the private half of that key.
    bool IsForPrivateKey(EVP_PKEY* key) const;

    // A PEM file. On a failure there is no certificate.
    bool ReadCertificate(const CQVFilePath& path, COutputLog* log);
    // Writes a new file that takes the place of a former one when it is whole; readable to all, or as the former
    // one was.
    bool SaveCertificate(const CQVFilePath& path, COutputLog* log) const;

    // Checks, in this order: the signature, with `key`; the end of validity; the size of the RSA key, in bits (a
    // key of another kind is too weak); and, unless `network` is null, the names. The first check that fails is
    // logged and ends it, and the certificate is freed: nobody can use what was found bad.
    int ValidateCertificate(int minimumBits, const QVNetworkInfo* network, EVP_PKEY* key, COutputLog* log);
    // The names that the certificate is for: its common name (at most 256 bytes of it) becomes the canonical host
    // name, its DNS names are added to the host names.
    void GetNetworkInfo(QVNetworkInfo& network) const;

    // Starts a certificate (version 3, a random serial number) for `key`, in place of the one that was there.
    bool BeginNewCertificate(const CQVTimestamp& notBefore, const CQVTimestamp& notAfter, EVP_PKEY* key,
                             COutputLog* log);
    // Names and extensions. The texts are left out where they are null or empty; `organization` and
    // `organizationalUnit` are in ASCII, `commonName` in UTF-8, and none is longer than 64 characters.
    bool SetupSelfSignedCertificate(const char* organization, const char* organizationalUnit,
                                    const char* commonName, COutputLog* log);
    bool SetupIssuerCertificate(const char* organization, const char* organizationalUnit,
                                const char* commonName, COutputLog* log);
    // `issuerCertificate` is the root whose key will sign. Null is a failure.
    bool SetupEndEntityCertificate(X509* issuerCertificate, const char* organization,
                                   const char* organizationalUnit, const char* commonName, COutputLog* log);
    // One extension with `uri` (may be null) and every host name. Without either there is nothing to add.
    bool AddSubjectAlternativeName(const char* uri, const QVNetworkInfo& network, COutputLog* log);
    // Signs with `key` and SHA-256. On a failure the certificate is freed.
    bool SignNewCertificate(EVP_PKEY* key, COutputLog* log);

    // Appends an extension, given as in OpenSSL's configuration files ("CA:TRUE"); what it says of an issuer
    // comes from `issuer`, in the first form from the certificate itself.
    bool AddExtension(int nid, const char* value, COutputLog* log);
    bool AddExtension(X509* issuer, int nid, const char* value, COutputLog* log);

    // Writes "YYYYMMDDhhmmssZ", at most 32 bytes with the terminator.
    static void TimestampToASN1TimeString(const CQVTimestamp& time, char* text);

private:
    bool GenerateSerialNumber();
    bool AddSubjectEntry(const char* field, int encoding, const char* text, COutputLog* log);
    bool SetSubject(const char* organization, const char* organizationalUnit, const char* commonName,
                    COutputLog* log);
    bool SetIssuerName(const X509_NAME* name, COutputLog* log);
    int CheckCertificate(int minimumBits, const QVNetworkInfo* network, EVP_PKEY* key) const;
    bool HasExpired() const;
    bool IsStrong(int minimumBits) const;

    X509* m_pCertificate = nullptr;
    int m_ValidationStatus = NotValidated;
};
