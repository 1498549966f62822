// What the tests of certificates share: a host, pairs in a folder, and the openssl program as the judge.
#pragma once

#include <QVLib/Tls/CertificateAndKey.h>
#include <QVPlatform/NetworkInfo.h>
#include <QVPlatform/OutputLog.h>

#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>

class CertificateTesting : public testing::Test {
protected:
    CertificateTesting() { m_Network = MakeHost("srv.plant", {"srv.plant", "srv"}); }

    static QVNetworkInfo MakeHost(const char* canonical, const std::list<qvstring>& names) {
        QVNetworkInfo network;
        network.SetCanonicalHostName(canonical);
        for (const qvstring& name : names)
            network.AddHostName(name);
        return network;
    }

    bool Init(CertificateAndKey& pair, CertificateAndKey::CertificateType type,
              CertificateAndKey* issuer = nullptr) {
        m_Log.Clear();
        return pair.InitCertificateAndKey(type, issuer, "Plant", "Control", "urn:plant:srv", m_Network,
                                          &m_Log);
    }

    // The log without OpenSSL's own errors, and with the test's folder left out.
    std::string Lines() const {
        std::istringstream lines(m_Log.GetString());
        std::string result;
        for (std::string line; std::getline(lines, line);) {
            if (line.rfind("SSL error:", 0) == 0)
                continue;
            const std::size_t folder = line.find(m_Folder.GetPath());
            result +=
                (folder == std::string::npos ? line : line.erase(folder, m_Folder.GetPath().size())) + "\n";
        }
        return result;
    }

    // Runs a command in the folder of the certificates; what it printed.
    std::string Shell(const std::string& command, int expected = 0) const {
        const std::string all = "mkdir -p '" + m_Folder.GetPath() + "/Certificates' && cd '" +
                                m_Folder.GetPath() + "/Certificates' && (" + command + ") >../out.txt 2>&1";
        const int status = std::system(all.c_str());
        const std::string out = m_Folder.Read("out.txt");
        EXPECT_EQ(status / 256, expected) << command << "\n" << out;
        return out;
    }

    std::string ReadFile(const std::string& name) const { return m_Folder.Read("Certificates/" + name); }
    void WriteFile(const std::string& name, const std::string& text) const {
        m_Folder.Write("Certificates/" + name, text);
    }

    static CQVTimestamp DaysFromNow(long long days) {
        CQVTimestamp time;
        time.SetUTC();
        time += CQVTimeInterval(days * CQVTimeInterval::UnitsPerDay);
        return time;
    }

    TemporaryFolder m_Folder;
    COutputLogToString m_Log;
    QVNetworkInfo m_Network;
};
