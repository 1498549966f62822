// CertificateAndKey - a server's certificate together with its private key: read, checked, and made anew where
// anything is missing or unacceptable.
//
//     const QVNetworkInfo network = QVNetworkInfo::OfThisMachine();
//     CertificateAndKeyInFilePath authority("authority", folder);
//     CertificateAndKeyInFilePath server("server", folder);
//     if (!authority.InitCertificateAndKey(CertificateAndKey::CertificateIssuer, nullptr, "Plant", "", nullptr,
//                                          network, log) ||
//         !server.InitCertificateAndKey(CertificateAndKey::CertificateEndEntity, &authority, "Plant", "",
//                                       nullptr, network, log))
//         ...
//
// CertificateAndKey            the pair and its life, wherever it is stored
// CertificateAndKeyInFilePath  the pair in two PEM files, NAME.key and NAME.cer in the folder "Certificates"
//
// A key that is good is kept, so that those who trust it need not be told: only a key that cannot be read or is too
// weak, and an expired certificate, lead to a new one. Another host name, or a file that holds no certificate, lead
// to a new certificate for the same key.
//
// Ownership: key and certificate are the object's; the issuer is borrowed, is initialised before, and outlives the
//            object.
// Errors:    by result and log. What failed to be saved is in use all the same, and made again at the next start.
// Secrets:   the key file is not encrypted; from its first byte on only its owner can read it.
// Threads:   one thread at a time per object, and per pair of files one process.
#pragma once

#include <QVLib/Tls/X509Certificate.h>
#include <QVPlatform/FilePath.h>
#include <QVPlatform/Timestamp.h>

class CertificateAndKey : public OpenSSLBase {
public:
    enum CertificateType : int {
        CertificateSelfSigned = 0, // of a server, standing for itself
        CertificateIssuer = 1,     // root of a private authority, named IssuerName
        CertificateEndEntity = 2,  // of a server, signed by the authority
    };
    enum ReadResult : int {
        ReadValid = 1,
        NoFolder = 2, // and it could not be made
        NoPrivateKey = 3,
        NoCertificate = 4,
        NotValid = 5, // the certificate's GetValidationStatus() says why
    };
    // The common name of every authority.
    static constexpr const char* IssuerName = "SCADA Server Root CA";
    // Size of new RSA keys in bits, and the least that is accepted of others.
    static constexpr int DefaultKeyBits = 2048;

    // Valid from the start of this day (UTC), for two years.
    CertificateAndKey();
    virtual ~CertificateAndKey();
    CertificateAndKey(const CertificateAndKey&) = delete;
    CertificateAndKey& operator=(const CertificateAndKey&) = delete;

    // Read what is stored, and check it. Returns a ReadResult.
    virtual int ReadCertificateAndKey(CertificateAndKey* issuer, const QVNetworkInfo& network,
                                      COutputLog* log) = 0;
    virtual bool SaveCertificateAndKey(COutputLog* log) = 0;

    // Call once: afterwards a valid pair is in memory, read or made and saved, or the call has failed and there
    // is no certificate. `issuer` is for end entities; `organization` and `organizationalUnit` (ASCII) and `uri`
    // may be null. The host's canonical name, of at most 64 characters, becomes the common name.
    bool InitCertificateAndKey(CertificateType type, CertificateAndKey* issuer, const char* organization,
                               const char* organizationalUnit, const char* uri, const QVNetworkInfo& network,
                               COutputLog* log);
    // Only reads and checks: the result of ReadCertificateAndKey() for a pair of this type.
    int ReadExisting(CertificateType type, CertificateAndKey* issuer, const QVNetworkInfo& network,
                     COutputLog* log);

    // Dates of the certificates to be made.
    void SetNotValidTimes(const CQVTimestamp& notBefore, const CQVTimestamp& notAfter);

    const X509Certificate& GetPublicCertificate() const { return m_PublicCertificate; }
    X509Certificate& GetPublicCertificate() { return m_PublicCertificate; }
    // Null when there is none.
    EVP_PKEY* GetPrivateKey() const { return m_pPrivateKey; }
    int GetReadResult() const { return m_ReadResult; }

    // Checks the pair in memory: the certificate against the key that has to have signed it, and, unless it is an
    // authority's, against the host; and that a certificate signed by another is for the own key.
    bool ValidateCertificateAndKeyPair(CertificateAndKey* issuer, const QVNetworkInfo& network,
                                       COutputLog* log);
    // Replaces the key by a new one when there is none, or when the certificate was found too weak or expired.
    // After a failure there is none.
    bool CreateNewKeyIfRequired(COutputLog* log);

protected:
    // Takes `key` over; null is none.
    void SetPrivateKey(EVP_PKEY* key);

private:
    bool CreateNewCertificate(const char* organization, const char* organizationalUnit, const char* uri,
                              const QVNetworkInfo& network, COutputLog* log);

    CertificateType m_Type = CertificateSelfSigned;
    CertificateAndKey* m_pIssuer = nullptr;
    int m_ReadResult = 0;
    X509Certificate m_PublicCertificate;
    EVP_PKEY* m_pPrivateKey = nullptr;
    int m_KeyBits = DefaultKeyBits;
    CQVTimestamp m_NotBefore;
    CQVTimestamp m_NotAfter;
};

class CertificateAndKeyInFilePath : public CertificateAndKey {
public:
    // The files are NAME.key and NAME.cer, dots in the name included, in the subfolder "Certificates" of `folder`,
    // which exists; the subfolder is made.
    CertificateAndKeyInFilePath(const char* name, const CQVFilePath& folder);

    int ReadCertificateAndKey(CertificateAndKey* issuer, const QVNetworkInfo& network,
                              COutputLog* log) override;
    bool SaveCertificateAndKey(COutputLog* log) override;

    // The single steps.
    bool ReadPrivateKey(COutputLog* log);
    bool SavePrivateKey(COutputLog* log);
    bool ReadCertificate(COutputLog* log);
    bool SaveCertificate(COutputLog* log);

    CQVFilePath GetKeyFile() const;
    CQVFilePath GetCertificateFile() const;

private:
    qvstring m_Name;
    CQVFilePath m_Folder;
};
