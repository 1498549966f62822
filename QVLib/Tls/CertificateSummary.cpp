#include <QVLib/Tls/CertificateSummary.h>

#include <QVLib/Tls/OpenSSLBase.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace {

qvstring Hex(const unsigned char* bytes, unsigned int count) {
    static constexpr char Digits[] = "0123456789abcdef";
    qvstring text;
    for (unsigned int i = 0; i < count; ++i) {
        text += Digits[bytes[i] >> 4];
        text += Digits[bytes[i] & 15];
    }
    return text;
}

qvstring TextOf(const X509_NAME* name) {
    qvstring text;
    BIO* const bio = BIO_new(BIO_s_mem());
    // UTF-8 is shown as it is; control characters are escaped.
    if (bio != nullptr && X509_NAME_print_ex(bio, name, 0, XN_FLAG_ONELINE & ~ASN1_STRFLGS_ESC_MSB) >= 0) {
        char* data = nullptr;
        const long length = BIO_get_mem_data(bio, &data);
        text.assign(data, static_cast<size_t>(length));
    }
    BIO_free(bio);
    return text;
}

CQVTimestamp TimeOf(const ASN1_TIME* time) {
    std::tm fields{};
    if (ASN1_TIME_to_tm(time, &fields) != 1)
        return CQVTimestamp();
    using namespace std::chrono;
    constexpr sys_days Epoch = year(1601) / January / 1;
    const sys_days day = year(fields.tm_year + 1900) / month(static_cast<unsigned int>(fields.tm_mon) + 1) /
                         std::chrono::day(static_cast<unsigned int>(fields.tm_mday));
    const seconds since =
        day - Epoch + hours(fields.tm_hour) + minutes(fields.tm_min) + seconds(fields.tm_sec);
    return CQVTimestamp(since.count() * CQVTimeInterval::UnitsPerSecond);
}

qvstring TextOfAddress(const ASN1_OCTET_STRING& address) {
    qvstring text;
    char part[8];
    for (int i = 0; i < address.length; ++i) {
        if (address.length == 4)
            std::snprintf(part, sizeof part, i > 0 ? ".%d" : "%d", address.data[i]);
        else
            std::snprintf(part, sizeof part, i > 0 && i % 2 == 0 ? ":%02x" : "%02x", address.data[i]);
        text += part;
    }
    return text;
}

qvstring TextOf(const ASN1_IA5STRING& name) {
    qvstring text;
    OpenSSLBase::QVStringFromIA5String(name.data, static_cast<unsigned int>(name.length), text);
    return text;
}

std::list<qvstring> NamesOf(X509* certificate) {
    std::list<qvstring> names;
    auto* const found =
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr));
    for (int i = 0; i < sk_GENERAL_NAME_num(found); ++i) {
        const GENERAL_NAME& name = *sk_GENERAL_NAME_value(found, i);
        if (name.type == GEN_DNS)
            names.push_back("DNS:" + TextOf(*name.d.dNSName));
        else if (name.type == GEN_URI)
            names.push_back("URI:" + TextOf(*name.d.uniformResourceIdentifier));
        else if (name.type == GEN_IPADD)
            names.push_back("IP:" + TextOfAddress(*name.d.iPAddress));
    }
    GENERAL_NAMES_free(found);
    return names;
}

qvstring KeyOf(X509* certificate) {
    const EVP_PKEY* const key = X509_get0_pubkey(certificate);
    if (key == nullptr)
        return "unknown";
    const int type = EVP_PKEY_base_id(key);
    const char* const other = OBJ_nid2sn(type);
    const char* const name = type == EVP_PKEY_RSA  ? "RSA"
                             : type == EVP_PKEY_EC ? "EC"
                             : other == nullptr    ? "unknown"
                                                   : other;
    return name + (" " + std::to_string(EVP_PKEY_bits(key)));
}

} // namespace

bool CertificateSummary::HashPublicKey(X509* certificate, qvstring& hash) {
    unsigned char* encoded = nullptr;
    const int length = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate), &encoded);
    unsigned char bytes[EVP_MAX_MD_SIZE];
    unsigned int count = 0;
    const bool bDone = length > 0 && EVP_Digest(encoded, static_cast<size_t>(length), bytes, &count,
                                                EVP_sha256(), nullptr) == 1;
    OPENSSL_free(encoded);
    hash.assign(bytes, bytes + count);
    return bDone;
}

CertificateSummary CertificateSummary::Of(X509* certificate) {
    CertificateSummary summary;
    summary.m_Subject = TextOf(X509_get_subject_name(certificate));
    summary.m_Issuer = TextOf(X509_get_issuer_name(certificate));
    summary.m_NotBefore = TimeOf(X509_get0_notBefore(certificate));
    summary.m_NotAfter = TimeOf(X509_get0_notAfter(certificate));
    summary.m_Names = NamesOf(certificate);
    summary.m_Key = KeyOf(certificate);
    qvstring hash;
    if (HashPublicKey(certificate, hash))
        summary.m_KeySha256 =
            Hex(reinterpret_cast<const unsigned char*>(hash.data()), static_cast<unsigned int>(hash.size()));
    unsigned char bytes[EVP_MAX_MD_SIZE];
    unsigned int count = 0;
    if (X509_digest(certificate, EVP_sha256(), bytes, &count) == 1)
        summary.m_Sha256 = Hex(bytes, count);
    return summary;
}
