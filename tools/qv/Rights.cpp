// qv rights: check, show, explain, init, diff and logon.

#include "Rights.h"
#include "Help.h"
#include "Output.h"
#include "RightsFile.h"

#include <CLI/CLI.hpp>
#include <QVLib/Security/UserAccessToken.h>
#include <QVPlatform/FilePath.h>
#include <QVPlatform/Process.h>
#include <QVPlatform/UserAuthentication.h>
#include <QVPlatform/UserDatabase.h>
#include <algorithm>
#include <memory>
#include <vector>

namespace {

constexpr unsigned int ZoneCount = CSecuritySettingsAccessRights::ZoneCount;

const char* KindText(UserIdentityType type) {
    switch (type) {
    case UserIdentityGuest:
        return "guest";
    case UserIdentityAuthenticated:
        return "everybody who has logged on";
    case UserIdentityUser:
        return "user";
    case UserIdentityGroup:
        return "group";
    }
    return "unknown";
}

// Rights in a table: the world and each zone, an empty cell where there are none.
std::vector<Column> WithRights(std::vector<Column> columns) {
    for (const char* const name : {"world", "zone_a", "zone_b", "zone_c", "zone_d"})
        columns.push_back({name, Column::Text});
    return columns;
}

void AddMask(TableWriter& writer, unsigned int mask) {
    if (mask == 0)
        writer.AddNothing();
    else
        writer.AddText(MaskText(mask));
}

void AddRights(TableWriter& writer, const CSecuritySettingsAccessRights& rights) {
    AddMask(writer, rights.m_WorldRights);
    for (const unsigned int mask : rights.m_ZoneRights)
        AddMask(writer, mask);
}

// What wants attention goes behind the results, and is the exit code.
void Finish(ToolContext& context, Report& report) {
    if (report.GetCount() > 0)
        context.m_ExitCode = ExitFindings;
    report.Write();
}

struct CheckOptions {
    std::string m_File;
};

void Check(const CheckOptions& options, ToolContext& context) {
    Report report(context.m_Format);
    const RightsFile file(RightsFile::FindIn(options.m_File), report);
    if (context.m_Format == OutputFormat::Human && report.GetCount() == 0) {
        const std::size_t count = file.GetSettings().m_Users.size();
        WriteStandardOutput(file.GetPath() + ": " + WithSeparators(count) +
                            (count == 1 ? " entry" : " entries") + ", nothing to complain of\n");
    }
    Finish(context, report);
}

struct ShowOptions {
    std::string m_Folder;
};

void Show(const ShowOptions& options, ToolContext& context) {
    Report report(context.m_Format);
    const RightsFile file(RightsFile::FindIn(options.m_Folder), report);
    TableWriter writer(context.m_Format, WithRights({{"entry", Column::Text}, {"kind", Column::Text}}));
    for (const CSecuritySettingsUser* const user : file.GetSettings().m_Users) {
        writer.AddText(TextOf(user->GetUserID()));
        writer.AddText(KindText(user->GetUserID().GetType()));
        AddRights(writer, *user);
        writer.EndRow();
    }
    writer.Finish();
    Finish(context, report);
}

struct ExplainOptions {
    std::string m_Folder;
    std::string m_User;
    std::string m_Zone;
};

// The user as after a logon, but with nobody having asked for a password.
void Impersonate(const std::string& name, CQVUserAccessToken& token) {
    if (name == "Guest")
        return token.SetGuest();
    token.SetSpecifiedUser(CQVSecureWString(name.c_str()));
    int userId = 0;
    if (!token.UnixGetUIDFromUserName(name.c_str(), userId)) {
        SayWarning("this machine knows no user " + Quoted(name) + ", so no groups");
        return;
    }
    QVUserDatabase database;
    std::vector<unsigned int> groups;
    if (!database.FindGroupsOfUser(name.c_str(), static_cast<unsigned int>(userId), groups))
        SayWarning("the groups of " + Quoted(name) + " cannot be told");
    for (const unsigned int group : groups) {
        if (qvstring groupName; database.FindGroupName(group, groupName))
            token.m_Groups.insert(groupName);
    }
}

// 0 to 3; the option takes nothing else.
unsigned int ZoneIndex(const std::string& zone) {
    return static_cast<unsigned int>((zone[0] | 0x20) - 'a');
}

void Explain(const ExplainOptions& options, ToolContext& context) {
    Report report(context.m_Format);
    const RightsFile file(RightsFile::FindIn(options.m_Folder), report);
    CQVUserAccessToken token;
    Impersonate(options.m_User, token);
    const bool bOneZone = !options.m_Zone.empty();
    const std::vector<Column> columns = {{"entry", Column::Text}, {"because", Column::Text}};
    std::vector<Column> withZone = columns;
    withZone.push_back({"rights", Column::Text});
    TableWriter writer(context.m_Format, bOneZone ? withZone : WithRights(columns));
    const auto addRow = [&](const std::string& entry, const std::string& because,
                            const CSecuritySettingsAccessRights& rights) {
        writer.AddText(entry);
        writer.AddText(because);
        if (bOneZone)
            AddMask(writer, rights.m_WorldRights | rights.m_ZoneRights[ZoneIndex(options.m_Zone)]);
        else
            AddRights(writer, rights);
        writer.EndRow();
    };
    for (const CSecuritySettingsUser* const user : file.GetSettings().m_Users) {
        if (token.MatchesUserIdentity(user->GetUserID()))
            addRow(TextOf(user->GetUserID()), KindText(user->GetUserID().GetType()), *user);
    }
    CSecuritySettingsAccessRights sum;
    file.GetSettings().GetAccessRightsForUser(&token, sum);
    addRow("", "all of these", sum);
    writer.Finish();
    Finish(context, report);
}

struct InitOptions {
    std::string m_Folder;
    bool m_bGuest = false;
};

// Passes on what goes wrong; the steps are no news.
class ErrorsOnly : public COutputLog {
public:
    void Clear() override {}
    bool AppendMessage(LogType type, int, const char* text, unsigned int length) override {
        if (type == Error)
            SayError(std::string_view(text, length));
        return true;
    }
};

void Init(const InitOptions& options, ToolContext& context) {
    CQVFilePath folder(options.m_Folder);
    for (const char* const name : {CSecuritySettings::FileName, "Rights.qvusr"}) {
        CQVFilePath path = folder;
        path.AppendFileName(name);
        if (path.FileExists())
            throw ToolError(ExitInputOutput, path.GetPath() + " is there already and stays as it is");
    }
    CSecuritySettings settings;
    settings.InitialiseForServer(options.m_bGuest);
    folder.AppendFileName(CSecuritySettings::FileName);
    ErrorsOnly log;
    if (!settings.SaveTextFile(folder, &log))
        throw ToolError(ExitInputOutput, folder.GetPath() + " cannot be written");
    if (context.m_Format == OutputFormat::Human)
        WriteStandardOutput(folder.GetPath() + ": full rights for root and for everybody who logs on" +
                            (options.m_bGuest ? ", and for guests" : "") +
                            ". Edit it before the plant runs.\n");
}

struct DiffOptions {
    std::string m_First;
    std::string m_Second;
};

// A guest may have a name or none, and is the same to everybody.
bool IsSame(const CQVUserIdentity& a, const CQVUserIdentity& b) {
    return a == b || (a.IsGuestIdentity() && b.IsGuestIdentity());
}

// The rights of an identity, all its entries added up; null when it has none.
std::unique_ptr<CSecuritySettingsAccessRights> RightsOf(const CSecuritySettings& settings,
                                                        const CQVUserIdentity& identity) {
    std::unique_ptr<CSecuritySettingsAccessRights> rights;
    for (const CSecuritySettingsUser* const user : settings.m_Users) {
        if (!IsSame(user->GetUserID(), identity))
            continue;
        if (!rights)
            rights = std::make_unique<CSecuritySettingsAccessRights>();
        rights->Merge(*user);
    }
    return rights;
}

std::vector<CQVUserIdentity> IdentitiesOf(const CSecuritySettings& first, const CSecuritySettings& second) {
    std::vector<CQVUserIdentity> identities;
    for (const CSecuritySettings* const settings : {&first, &second}) {
        for (const CSecuritySettingsUser* const user : settings->m_Users) {
            const auto isThis = [&](const CQVUserIdentity& other) {
                return IsSame(other, user->GetUserID());
            };
            if (std::none_of(identities.begin(), identities.end(), isThis))
                identities.push_back(user->GetUserID());
        }
    }
    return identities;
}

void Diff(const DiffOptions& options, ToolContext& context) {
    Report report(context.m_Format);
    const RightsFile first(RightsFile::FindIn(options.m_First), report);
    const RightsFile second(RightsFile::FindIn(options.m_Second), report);
    TableWriter writer(context.m_Format, {{"change", Column::Text},
                                          {"entry", Column::Text},
                                          {"first", Column::Text},
                                          {"second", Column::Text}});
    const auto addSide = [&writer](const CSecuritySettingsAccessRights* rights) {
        if (rights)
            writer.AddText(TextOf(*rights));
        else
            writer.AddNothing();
    };
    for (const CQVUserIdentity& identity : IdentitiesOf(first.GetSettings(), second.GetSettings())) {
        const auto before = RightsOf(first.GetSettings(), identity);
        const auto after = RightsOf(second.GetSettings(), identity);
        if (before && after && *before == *after)
            continue;
        writer.AddText(!before ? "added" : !after ? "removed" : "changed");
        writer.AddText(TextOf(identity));
        addSide(before.get());
        addSide(after.get());
        writer.EndRow();
    }
    if (writer.GetRows() > 0) {
        writer.Finish();
        context.m_ExitCode = ExitFindings;
    } else if (context.m_Format == OutputFormat::Human) {
        const bool bSame = first.GetSettings() == second.GetSettings();
        WriteStandardOutput(bSame ? "The same entries\n"
                                  : "The same rights, in other entries or another order\n");
    }
    Finish(context, report);
}

struct LogonOptions {
    std::string m_User;
    std::string m_Service = QVUserAuthentication::DefaultService;
};

void Logon(const LogonOptions& options, ToolContext& context) {
    CQVSecureWString password;
    if (!qv_read_password(("Password of " + Quoted(options.m_User) + ": ").c_str(), password))
        throw ToolError(ExitInputOutput, "No password was given");
    CQVUserAccessToken token;
    const QVUserAuthentication authentication(options.m_Service);
    const bool bLoggedOn = token.Logon(authentication, CQVSecureWString(options.m_User.c_str()), password);
    if (!bLoggedOn)
        context.m_ExitCode = ExitFindings;
    std::string groups;
    for (const qvstring& group : token.m_Groups)
        groups.append(groups.empty() ? "" : ",").append(group);
    if (context.m_Format == OutputFormat::Human) {
        if (!bLoggedOn)
            return SayError(Quoted(options.m_User) + " is refused: " + token.m_szLogonError);
        return WriteStandardOutput(options.m_User +
                                   " is logged on; groups: " + (groups.empty() ? "none" : groups) + "\n");
    }
    TableWriter writer(context.m_Format, {{"user", Column::Text},
                                          {"result", Column::Text},
                                          {"error", Column::Number},
                                          {"text", Column::Text},
                                          {"groups", Column::Text}});
    writer.AddText(options.m_User);
    writer.AddText(bLoggedOn ? "logged on" : "refused");
    writer.AddInteger(token.m_LogonErrorCode);
    writer.AddText(token.m_szLogonError);
    writer.AddText(groups);
    writer.EndRow();
    writer.Finish();
}

// A command with options of its own, which live as long as the command.
template<class Options, class AddOptions>
void AddCommand(CLI::App& rights, ToolContext& context, const char* name, const char* what,
                const char* example, void (*run)(const Options&, ToolContext&), AddOptions addOptions) {
    CLI::App* const command = rights.add_subcommand(name, what);
    const auto options = std::make_shared<Options>();
    addOptions(*command, *options);
    SetExample(*command, example);
    command->callback([options, run, &context] { run(*options, context); });
}

} // namespace

void AddRightsCommands(CLI::App& app, ToolContext& context) {
    CLI::App* const rights = app.add_subcommand("rights", "Check and explain who may do what");
    rights->require_subcommand(1);
    SetExample(*rights, "qv rights explain . maria");
    AddCommand<CheckOptions>(
        *rights, context, "check", "Tell what is wrong with a file of user rights",
        "qv rights check user-rights.conf", Check, [](CLI::App& command, CheckOptions& options) {
            command.add_option("FILE", options.m_File, "the file, or its folder")->required();
        });
    AddCommand<ShowOptions>(
        *rights, context, "show", "Print the entries that a program would take", "qv rights show .", Show,
        [](CLI::App& command, ShowOptions& options) {
            command.add_option("DIR", options.m_Folder, "the folder, or a file")->required();
        });
    AddCommand<ExplainOptions>(
        *rights, context, "explain", "Print which entries are for a user, and what they add up to",
        "qv rights explain . maria --zone A", Explain, [](CLI::App& command, ExplainOptions& options) {
            command.add_option("DIR", options.m_Folder, "the folder, or a file")->required();
            command.add_option("USER", options.m_User, "name as typed at a logon, or Guest for one without")
                ->required();
            command.add_option("--zone", options.m_Zone, "what may be done in this zone")
                ->check(CLI::IsMember({"A", "B", "C", "D"}, CLI::ignore_case));
        });
    AddCommand<InitOptions>(*rights, context, "init", "Write the rights that a server starts with",
                            "qv rights init new", Init, [](CLI::App& command, InitOptions& options) {
                                command.add_option("DIR", options.m_Folder, "the folder")->required();
                                command.add_flag("--guest", options.m_bGuest, "full rights for guests too");
                            });
    AddCommand<DiffOptions>(
        *rights, context, "diff", "Tell whose rights differ between two files",
        "qv rights diff user-rights.conf before.conf", Diff, [](CLI::App& command, DiffOptions& options) {
            command.add_option("FILE1", options.m_First, "a file, or its folder")->required();
            command.add_option("FILE2", options.m_Second, "another")->required();
        });
    AddCommand<LogonOptions>(
        *rights, context, "logon", "Ask the system whether a password is right", "qv rights logon maria",
        Logon, [](CLI::App& command, LogonOptions& options) {
            command.add_option("USER", options.m_User, "who logs on")->required();
            command.add_option("--service", options.m_Service, "the PAM service that is asked")
                ->capture_default_str();
        });
}
