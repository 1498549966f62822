// Makes an authority, and a server's certificate signed by it, as a server does at its first start; then starts again: what
// is there and good is kept, and another name of the machine costs a new certificate, but no new key.
#include <QVLib/Tls/CertificateAndKey.h>
#include <QVLib/Tls/CertificateSummary.h>
#include <QVPlatform/NetworkInfo.h>
#include <QVPlatform/OutputLog.h>
#include <cstdio>

// What a server does each time it starts. Returns the hash of its key, by which clients may know it.
qvstring Start(const QVNetworkInfo& network) {
    const CQVFilePath folder(".");
    COutputLogToRawList log;
    CertificateAndKeyInFilePath authority("authority", folder);
    CertificateAndKeyInFilePath server("server", folder);
    if (!authority.InitCertificateAndKey(CertificateAndKey::CertificateIssuer, nullptr, "Plant", "", nullptr,
                                         network, &log) ||
        !server.InitCertificateAndKey(CertificateAndKey::CertificateEndEntity, &authority, "Plant", "",
                                      nullptr, network, &log)) {
        for (const COutputLogToRawList::LogEntry& entry : log.GetLogEntries())
            std::printf("%s\n", entry.text.c_str());
        return "";
    }
    const CertificateSummary summary = CertificateSummary::Of(server.GetPublicCertificate().GetX509());
    std::printf("%s, signed by %s, %s\n", summary.m_Subject.c_str(), summary.m_Issuer.c_str(),
                summary.m_Key.c_str());
    for (const qvstring& name : summary.m_Names)
        std::printf("  %s\n", name.c_str());
    return summary.m_KeySha256;
}

int main() {
    // A real server takes QVNetworkInfo::OfThisMachine().
    QVNetworkInfo network;
    network.SetCanonicalHostName("control.plant.example");
    network.AddHostName("control.plant.example");
    const qvstring first = Start(network);
    const qvstring second = Start(network);
    network.AddHostName("alarms.plant.example");
    const qvstring third = Start(network);
    std::printf("the key is %s\n",
                !first.empty() && first == second && second == third ? "the same" : "another one");
}
