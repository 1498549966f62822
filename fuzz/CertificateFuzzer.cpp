// Files of any bytes as certificate and as key: PEM as it is, anything else as the DER within. What is read is
// written so that it reads back the same, and what is not valid is gone.
#include <QVLib/Tls/CertificateAndKey.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/NetworkInfo.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/TextOutput.h>
#include <algorithm>
#include <cstdint>

#include "support/TemporaryFolder.h"

namespace {

constexpr size_t kLineBytes = 48;

std::string ToPem(const std::string& data, const std::string& kind) {
    if (data.starts_with("-----"))
        return data;
    CTextOutputString out;
    out.PrintLine("-----BEGIN %s-----", kind.c_str());
    for (size_t start = 0; start < data.size(); start += kLineBytes) {
        out.PrintBase64(data.data() + start,
                        static_cast<unsigned int>(std::min(kLineBytes, data.size() - start)));
        out.PrintLine();
    }
    out.PrintLine("-----END %s-----", kind.c_str());
    return out.GetString();
}

void CheckCertificate(const TemporaryFolder& folder, X509Certificate& certificate) {
    COutputLogToString log;
    QVNetworkInfo names;
    certificate.GetNetworkInfo(names);
    const CQVFilePath copy = folder.File("copy.cer");
    QV_ASSERT(certificate.SaveCertificate(copy, &log));
    X509Certificate again;
    QV_ASSERT(again.ReadCertificate(copy, &log));
    QVNetworkInfo same;
    again.GetNetworkInfo(same);
    QV_ASSERT(same.IsSameNetworkInfoAs(names));

    const int status = again.ValidateCertificate(1024, &names, certificate.GetPublicKey(), &log);
    QV_ASSERT(status == again.GetValidationStatus() && status != X509Certificate::NotValidated);
    QV_ASSERT(status != X509Certificate::OtherHost); // these are its own names
    QV_ASSERT((status == X509Certificate::Valid) == (again.GetX509() != nullptr));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const TemporaryFolder folder = TemporaryFolder::InMemory();
    CQVFilePath(folder.GetPath() + "/Certificates").MakeDirectory();
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    folder.Write("Certificates/n.cer", ToPem(bytes, "CERTIFICATE"));
    folder.Write("Certificates/n.key", ToPem(bytes, "PRIVATE KEY"));

    COutputLogToString log;
    CertificateAndKeyInFilePath pair("n", folder.GetFilePath());
    const bool bKey = pair.ReadPrivateKey(&log);
    QV_ASSERT(bKey == (pair.GetPrivateKey() != nullptr));
    const bool bCertificate = pair.ReadCertificate(&log);
    QV_ASSERT(bCertificate == (pair.GetPublicCertificate().GetX509() != nullptr));
    if (bCertificate)
        CheckCertificate(folder, pair.GetPublicCertificate());
    pair.GetPublicCertificate().IsForPrivateKey(pair.GetPrivateKey());
    const bool bValid = pair.ValidateCertificateAndKeyPair(nullptr, QVNetworkInfo(), &log);
    QV_ASSERT(!bValid || (bKey && bCertificate));
    return 0;
}
