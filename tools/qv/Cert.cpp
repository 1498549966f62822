#include "Cert.h"

#include "Help.h"
#include "Output.h"

#include <CLI/CLI.hpp>
#include <QVLib/Tls/CertificateAndKey.h>
#include <QVLib/Tls/CertificateSummary.h>
#include <QVPlatform/Format.h>
#include <QVPlatform/NetworkInfo.h>
#include <QVPlatform/OutputLog.h>
#include <map>
#include <memory>
#include <vector>

namespace {

using Type = CertificateAndKey::CertificateType;
using Pair = CertificateAndKeyInFilePath;

struct CertOptions {
    std::string m_Folder;
    std::string m_Name;
    Type m_Type = CertificateAndKey::CertificateSelfSigned;
    std::string m_Authority = "authority";
    std::string m_Host;
    std::vector<std::string> m_Aliases;
    std::string m_Organization;
    std::string m_Unit;
    std::string m_Uri;
    int m_Days = 730;
    int m_WarnDays = 30;
};

// Shows lines as they come, or keeps them for a message.
class CommandLog : public COutputLog {
public:
    explicit CommandLog(bool bShow) : m_bShow(bShow) {}
    void Clear() override { m_Text.clear(); }
    bool AppendMessage(LogType, int, const char* text, unsigned int length) override {
        const std::string line(text, length);
        if (m_bShow)
            WriteStandardOutput(line + "\n");
        m_Text += "\n  " + line;
        return true;
    }
    // The lines so far, each on a line of its own below a message.
    const std::string& GetText() const { return m_Text; }

private:
    const bool m_bShow;
    std::string m_Text;
};

void CheckPairName(const std::string& name) {
    if (name.empty() || name.find('/') != std::string::npos)
        throw ToolError(ExitUsage, Quoted(name) +
                                       " is no name for a key and a certificate; it names their files, "
                                       "without folder and extension");
}

CQVFilePath GetFolder(const CertOptions& options) {
    CheckPairName(options.m_Name);
    CheckPairName(options.m_Authority);
    const CQVFilePath folder(options.m_Folder);
    if (!folder.FileExists())
        throw ToolError(ExitInputOutput, Quoted(options.m_Folder) + " is not there");
    return folder;
}

QVNetworkInfo GetHost(const CertOptions& options) {
    QVNetworkInfo host;
    if (options.m_Host.empty()) {
        host = QVNetworkInfo::OfThisMachine();
    } else {
        host.SetCanonicalHostName(options.m_Host);
        host.AddHostName(options.m_Host);
    }
    for (const std::string& alias : options.m_Aliases)
        host.AddHostName(alias);
    return host;
}

// "2028-01-31T00:00:00Z"; certificates know no fractions.
std::string TextOf(CQVTimestamp time) {
    std::string text;
    time.ToText(text);
    const std::size_t point = text.find('.');
    return point == std::string::npos ? text : text.substr(0, point) + "Z";
}

std::string TextOf(const std::list<qvstring>& names) {
    std::string text;
    for (const qvstring& name : names)
        text += (text.empty() ? "" : ", ") + Quoted(name);
    return text;
}

long long DaysUntil(CQVTimestamp time) {
    CQVTimestamp now;
    now.SetUTC();
    return (time - now).GetValue() / CQVTimeInterval::UnitsPerDay;
}

void ReadAuthority(Pair& authority, const CertOptions& options, const QVNetworkInfo& host) {
    CommandLog log(false);
    if (authority.ReadExisting(CertificateAndKey::CertificateIssuer, nullptr, host, &log) !=
        CertificateAndKey::ReadValid)
        throw ToolError(ExitInputOutput, "The authority " + Quoted(options.m_Authority) +
                                             " cannot sign; --type authority makes one" + log.GetText());
}

void SetDates(Pair& pair, int days) {
    CQVTimestamp start;
    start.SetUTC();
    start.RoundDown(CQVTimeInterval::OneDay());
    CQVTimestamp end = start;
    end += CQVTimeInterval(days * CQVTimeInterval::UnitsPerDay);
    pair.SetNotValidTimes(start, end);
}

void PrintPair(const Pair& pair, const CertOptions& options, bool bKept, OutputFormat format) {
    const CertificateSummary summary = CertificateSummary::Of(pair.GetPublicCertificate().GetX509());
    if (format == OutputFormat::Human) {
        WriteStandardOutput(options.m_Name + (bKept ? ": kept" : ": made") + ", valid until " +
                            TextOf(summary.m_NotAfter) + "\n");
        return;
    }
    TableWriter writer(format, {{"name", Column::Text},
                                {"result", Column::Text},
                                {"key", Column::Text},
                                {"certificate", Column::Text},
                                {"not_after", Column::Text}});
    writer.AddText(options.m_Name);
    writer.AddText(bKept ? "kept" : "made");
    writer.AddText(pair.GetKeyFile().GetPath());
    writer.AddText(pair.GetCertificateFile().GetPath());
    writer.AddText(TextOf(summary.m_NotAfter));
    writer.EndRow();
    writer.Finish();
}

void Init(const CertOptions& options, OutputFormat format) {
    const CQVFilePath folder = GetFolder(options);
    const QVNetworkInfo host = GetHost(options);
    Pair authority(options.m_Authority.c_str(), folder);
    const bool bServer = options.m_Type == CertificateAndKey::CertificateEndEntity;
    if (bServer)
        ReadAuthority(authority, options, host);
    Pair* const issuer = bServer ? &authority : nullptr;

    CommandLog log(format == OutputFormat::Human);
    const char* const uri = options.m_Uri.empty() ? nullptr : options.m_Uri.c_str();
    // A server goes on with a pair that it could not save; who asks for files wants them read back. A certificate
    // made for a key that was there may then show that the key is too weak, and both are made once more.
    for (int attempt = 0; attempt < 3; ++attempt) {
        Pair pair(options.m_Name.c_str(), folder);
        SetDates(pair, options.m_Days);
        if (!pair.InitCertificateAndKey(options.m_Type, issuer, options.m_Organization.c_str(),
                                        options.m_Unit.c_str(), uri, host, &log))
            break;
        if (pair.GetReadResult() == CertificateAndKey::ReadValid)
            return PrintPair(pair, options, attempt == 0, format);
    }
    throw ToolError(ExitInputOutput, "There is no key and certificate " + Quoted(options.m_Name) +
                                         (format == OutputFormat::Human ? "" : log.GetText()));
}

void Show(const std::string& file, OutputFormat format) {
    CommandLog log(false);
    X509Certificate certificate;
    if (!certificate.ReadCertificate(CQVFilePath(file), &log))
        throw ToolError(ExitInputOutput, "No certificate in " + Quoted(file) + log.GetText());
    const CertificateSummary summary = CertificateSummary::Of(certificate.GetX509());
    TableWriter writer(format, {{"property", Column::Text}, {"value", Column::Text}});
    const auto add = [&](const char* property, const std::string& value) {
        writer.AddText(property);
        writer.AddText(value);
        writer.EndRow();
    };
    add("subject", summary.m_Subject);
    add("issuer", summary.m_Issuer);
    add("not_before", TextOf(summary.m_NotBefore));
    add("not_after", TextOf(summary.m_NotAfter));
    for (const qvstring& name : summary.m_Names)
        add("name", name);
    add("key", summary.m_Key);
    add("key_sha256", summary.m_KeySha256);
    add("sha256", summary.m_Sha256);
    writer.Finish();
}

// What is found wrong with a pair, or that nothing is.
class FindingList {
public:
    FindingList(const std::string& name, OutputFormat format)
        : m_Name(name), m_Format(format),
          m_Writer(format, {{"name", Column::Text}, {"finding", Column::Text}, {"text", Column::Text}}) {}

    void Add(const char* finding, const std::string& text) {
        m_bAny = true;
        Print(finding, text);
    }
    ExitCode Finish(const std::string& good) {
        if (!m_bAny)
            Print("none", good);
        if (m_Format != OutputFormat::Human)
            m_Writer.Finish();
        return m_bAny ? ExitFindings : ExitDone;
    }

private:
    void Print(const char* finding, const std::string& text) {
        if (m_Format == OutputFormat::Human) {
            WriteStandardOutput(m_Name + ": " + text + "\n");
            return;
        }
        m_Writer.AddText(m_Name);
        m_Writer.AddText(finding);
        m_Writer.AddText(text);
        m_Writer.EndRow();
    }

    const std::string m_Name;
    const OutputFormat m_Format;
    TableWriter m_Writer;
    bool m_bAny = false;
};

void CompareNames(const QVNetworkInfo& certificate, const QVNetworkInfo& host, FindingList& findings) {
    const qvstring& name = certificate.GetCanonicalHostName();
    if (!QVNetworkInfo::IsSameName(name, host.GetCanonicalHostName()))
        findings.Add("name", "made for the host " + Quoted(name) + ", and this one is " +
                                 Quoted(host.GetCanonicalHostName()));
    for (const qvstring& own : certificate.GetHostNames()) {
        if (!host.HasHostName(own))
            findings.Add("name", "holds the name " + Quoted(own) + ", which this host has not");
    }
    for (const qvstring& wanted : host.GetHostNames()) {
        if (!certificate.HasHostName(wanted))
            findings.Add("name", "lacks the name " + Quoted(wanted) + " of this host");
    }
}

void CheckDates(const char* what, const CertificateSummary& summary, int warnDays, FindingList& findings) {
    const long long days = DaysUntil(summary.m_NotAfter);
    CQVTimestamp now;
    now.SetUTC();
    if (summary.m_NotAfter < now)
        findings.Add("expired", std::string(what) + "has expired on " + TextOf(summary.m_NotAfter));
    else if (days < warnDays)
        findings.Add("soon", std::string(what) + "expires on " + TextOf(summary.m_NotAfter) + ", in " +
                                 CountText(static_cast<unsigned long long>(days), "day"));
    if (summary.m_NotBefore > now)
        findings.Add("early", std::string(what) + "is not valid before " + TextOf(summary.m_NotBefore));
}

// Reads both files of a pair; what cannot be read cannot be checked.
void ReadPair(Pair& pair, const std::string& name) {
    CommandLog log(false);
    if (!pair.ReadPrivateKey(&log) || !pair.ReadCertificate(&log))
        throw ToolError(ExitInputOutput, Quoted(name) + " cannot be read" + log.GetText());
}

class PairCheck {
public:
    PairCheck(const CertOptions& options, OutputFormat format)
        : m_Options(options), m_Folder(GetFolder(options)), m_Pair(options.m_Name.c_str(), m_Folder),
          m_Authority(options.m_Authority.c_str(), m_Folder), m_Findings(options.m_Name, format) {}

    ExitCode Run() {
        ReadPair(m_Pair, m_Options.m_Name);
        X509Certificate& certificate = m_Pair.GetPublicCertificate();
        const CertificateSummary summary = CertificateSummary::Of(certificate.GetX509());
        QVNetworkInfo names;
        certificate.GetNetworkInfo(names);
        if (!certificate.IsForPrivateKey(m_Pair.GetPrivateKey()))
            m_Findings.Add("key", "the certificate is for another key than the one beside it");
        CheckKeyFile(m_Pair.GetKeyFile());
        CheckDates("", summary, m_Options.m_WarnDays, m_Findings);
        const bool bOwnIssuer = summary.m_Issuer == summary.m_Subject;
        // An authority stands for no host.
        if (!bOwnIssuer || names.GetCanonicalHostName() != CertificateAndKey::IssuerName)
            CompareNames(names, GetHost(m_Options), m_Findings);
        CheckSignatureAndKey(certificate, bOwnIssuer);
        return m_Findings.Finish("valid until " + TextOf(summary.m_NotAfter) + ", " + summary.m_Key +
                                 ", for " + TextOf(summary.m_Names));
    }

private:
    // A key that others know is nobody's any more.
    void CheckKeyFile(CQVFilePath file) {
        const int mode = file.GetPermissions();
        if (mode < 0 || (mode & 077) == 0)
            return;
        char text[16];
        qv_sprintf(text, sizeof text, "%04o", static_cast<unsigned int>(mode));
        m_Findings.Add("exposed", "its key's file is open to others than its owner, " + std::string(text) +
                                      "; 0600 is right");
    }

    // The key that has to have signed: the certificate's own, or that of the authority, of which a server need not
    // have the private half.
    EVP_PKEY* FindSigner(const X509Certificate& certificate, bool bOwnIssuer) {
        if (bOwnIssuer)
            return certificate.GetPublicKey();
        CommandLog log(false);
        if (!m_Authority.ReadCertificate(&log))
            throw ToolError(ExitInputOutput, "The authority " + Quoted(m_Options.m_Authority) +
                                                 " cannot be read; --authority names another" +
                                                 log.GetText());
        CheckDates("its authority ", CertificateSummary::Of(m_Authority.GetPublicCertificate().GetX509()),
                   m_Options.m_WarnDays, m_Findings);
        return m_Authority.GetPublicCertificate().GetPublicKey();
    }

    // Last, since it frees a certificate that is not good.
    void CheckSignatureAndKey(X509Certificate& certificate, bool bOwnIssuer) {
        EVP_PKEY* const signer = FindSigner(certificate, bOwnIssuer);
        COutputLogNull log;
        switch (certificate.ValidateCertificate(CertificateAndKey::DefaultKeyBits, nullptr, signer, &log)) {
        case X509Certificate::InvalidKeyPair:
            m_Findings.Add("signature", bOwnIssuer ? "its signature is not its own"
                                                   : "its signature is not that of the authority " +
                                                         Quoted(m_Options.m_Authority));
            break;
        case X509Certificate::WeakKey:
            m_Findings.Add("weak", "its key is too weak; RSA keys have " +
                                       std::to_string(CertificateAndKey::DefaultKeyBits) +
                                       " bits at least, and others are not taken");
            break;
        default: // an end of validity has been told
            break;
        }
    }

    const CertOptions& m_Options;
    const CQVFilePath m_Folder;
    Pair m_Pair;
    Pair m_Authority;
    FindingList m_Findings;
};

void AddPairOptions(CLI::App& command, CertOptions& options) {
    command.add_option("DIR", options.m_Folder, "the folder that holds, or gets, the folder Certificates")
        ->required();
    command.add_option("NAME", options.m_Name, "of the files, NAME.key and NAME.cer")->required();
    command.add_option("--authority", options.m_Authority, "NAME of the authority (default: authority)");
    command.add_option("--host", options.m_Host, "canonical name of the host (default: this machine's)");
    command.add_option("--alias", options.m_Aliases, "a further name of the host; may be repeated")
        ->allow_extra_args(false);
}

void AddInitCommand(CLI::App& cert, ToolContext& context) {
    const std::map<std::string, Type> types = {{"self", CertificateAndKey::CertificateSelfSigned},
                                               {"authority", CertificateAndKey::CertificateIssuer},
                                               {"server", CertificateAndKey::CertificateEndEntity}};
    CLI::App* const command =
        cert.add_subcommand("init", "Make a key and a certificate where there are none that are good");
    const auto options = std::make_shared<CertOptions>();
    AddPairOptions(*command, *options);
    command->add_option("--type", options->m_Type, "self, authority, or server (signed by the authority)")
        ->required()
        ->transform(CLI::CheckedTransformer(types));
    command->add_option("--organization", options->m_Organization, "in the subject, ASCII");
    command->add_option("--unit", options->m_Unit, "organizational unit in the subject, ASCII");
    command->add_option("--uri", options->m_Uri, "that clients know the server by, besides its names");
    command->add_option("--days", options->m_Days, "that a new certificate is valid (default: 730)")
        ->check(CLI::Range(1, 36500));
    SetExample(*command, "qv cert init . srv --type self --organization Plant --alias srv.plant");
    command->callback([options, &context] { Init(*options, context.m_Format); });
}

void AddCheckCommand(CLI::App& cert, ToolContext& context) {
    CLI::App* const command = cert.add_subcommand("check", "Check a key and its certificate");
    const auto options = std::make_shared<CertOptions>();
    AddPairOptions(*command, *options);
    command->add_option("--warn-days", options->m_WarnDays, "before the end is a finding (default: 30)")
        ->check(CLI::Range(0, 36500));
    SetExample(
        *command, "qv cert init . srv --type self && qv cert check . srv --warn-days 60",
        "Exit code 1: weak, expired, soon to expire, for another host, or not signed as it should be.");
    command->callback(
        [options, &context] { context.m_ExitCode = PairCheck(*options, context.m_Format).Run(); });
}

} // namespace

void AddCertCommands(CLI::App& app, ToolContext& context) {
    CLI::App* const cert = app.add_subcommand("cert", "Certificates and keys of servers: make, show, check");
    cert->require_subcommand(1);
    SetExample(*cert, "qv cert init . srv --type self");
    AddInitCommand(*cert, context);
    CLI::App* const show = cert->add_subcommand("show", "Show what a certificate says");
    const auto file = std::make_shared<std::string>();
    show->add_option("FILE", *file, "a PEM file")->required();
    SetExample(*show, "qv cert init . srv --type self && qv cert show Certificates/srv.cer");
    show->callback([file, &context] { Show(*file, context.m_Format); });
    AddCheckCommand(*cert, context);
}
