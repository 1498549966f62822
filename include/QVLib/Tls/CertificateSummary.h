// CertificateSummary - what a certificate says, as values and texts for people and logs.
//
// The texts come from whoever made the certificate and may hold anything, control characters too; escape them
// before a terminal shows them.
#pragma once

#include <QVPlatform/String.h>
#include <QVPlatform/Timestamp.h>
#include <list>

typedef struct x509_st X509;

struct CertificateSummary {
    qvstring m_Subject; // "O = Plant, CN = server", in UTF-8
    qvstring m_Issuer;
    CQVTimestamp m_NotBefore; // 0 when unreadable
    CQVTimestamp m_NotAfter;
    std::list<qvstring> m_Names; // "DNS:server", "IP:10.0.0.1", "URI:urn:server"; other kinds are left out
    qvstring m_Key;              // "RSA 2048"
    qvstring m_KeySha256;        // of the public key (SubjectPublicKeyInfo), 64 hexadecimal digits
    qvstring m_Sha256;           // of the whole certificate

    // `certificate` is not null.
    static CertificateSummary Of(X509* certificate);
    // Replaces `hash` by the 32 bytes of the SHA-256 of the public key. False when OpenSSL could not.
    static bool HashPublicKey(X509* certificate, qvstring& hash);
};
