// What qv tells about itself: its help, the examples in it, the manual page and the completion in bash, all compared
// with the commands as they are.
#include "Commands.h"
#include "QvProgram.h"

#include <CLI/CLI.hpp>
#include <QVPlatform/SerialDevice.h>
#include <cctype>
#include <gmock/gmock.h>
#include <set>
#include <sstream>

using testing::HasSubstr;

namespace {

class QvHelp : public QvProgram {
protected:
    struct Command {
        std::string m_Name; // "qv history read"
        const CLI::App* m_pApp;
    };

    void SetUp() override {
        AddCommands(m_App, m_Context);
        Collect(m_App, "qv");
        ASSERT_GT(m_Commands.size(), 40u);
    }

    void Collect(const CLI::App& app, const std::string& name) {
        m_Commands.push_back({name, &app});
        for (const CLI::App* part : PartsOf(app))
            Collect(*part, name + " " + part->get_name());
    }
    static std::vector<const CLI::App*> PartsOf(const CLI::App& app) {
        return app.get_subcommands([](const CLI::App*) { return true; });
    }
    static std::string ExampleOf(const CLI::App& app) {
        const std::string footer = app.get_footer();
        const std::string start = "Example:\n  ";
        return footer.starts_with(start)
                   ? footer.substr(start.size(), footer.find('\n', start.size()) - start.size())
                   : "";
    }

    // What the examples are about.
    void MakePlant() {
        m_Folder.Empty();
        const std::string readings = "2021-03-04T05:06:07Z,load.1m,0.5\n2021-03-04T05:07:07Z,load.1m,0.75\n";
        m_Folder.Write("readings.csv", readings);
        m_Folder.Write("config.json", R"({"limits": {"high": 90, "low": 10}})");
        m_Folder.Write("user-rights.conf", "maria: ZoneA=Write;\n");
        m_Folder.Write("before.conf", "maria: ZoneA=Write;\n");
        m_Folder.Write("build.log", "Plant/Logic(12,5-9): warning 906: text\n");
        EXPECT_EQ(Shell("chmod 640 *.conf; mkdir new"), 0);
        Do("history import plant readings.csv");
        Do("history import copy readings.csv");
    }

    // Runs an example as it is typed, with the qv under test in the path.
    int RunExample(const std::string& example) {
        const std::string program = QV_PROGRAM;
        const std::string path = "PATH='" + program.substr(0, program.rfind('/')) + "':$PATH; ";
        return Shell("exec >out.txt 2>err.txt </dev/null; " + path + example);
    }

    CLI::App m_App{"command-line tool of QVLib", "qv"};
    ToolContext m_Context;
    std::vector<Command> m_Commands;
};

} // namespace

TEST_F(QvHelp, EveryCommandAndOptionIsDescribedInOneStyle) {
    for (const Command& command : m_Commands) {
        SCOPED_TRACE(command.m_Name);
        const std::string what = command.m_pApp->get_description();
        ASSERT_FALSE(what.empty());
        EXPECT_TRUE(command.m_Name == "qv" || std::isupper(what[0])) << what;
        EXPECT_NE(what.back(), '.') << what;
        EXPECT_THAT(ExampleOf(*command.m_pApp), HasSubstr(command.m_Name));
        for (const CLI::Option* option : command.m_pApp->get_options()) {
            const std::string text = option->get_description();
            ASSERT_GT(text.size(), 1u) << option->get_name();
            // A phrase, not a sentence; names such as JSON keep their capitals.
            EXPECT_TRUE(!std::isupper(text[0]) || std::isupper(text[1])) << text;
            EXPECT_NE(text.back(), '.') << text;
            EXPECT_TRUE(text.find("default") == std::string::npos ||
                        text.find("(default") != std::string::npos)
                << text;
        }
    }
}

TEST_F(QvHelp, ExamplesWork) {
    QVPseudoTerminal device;
    ASSERT_TRUE(device.Create());
    std::string standby;
    for (const Command& command : m_Commands) {
        std::string example = ExampleOf(*command.m_pApp);
        SCOPED_TRACE(example);
        if (command.m_Name == "qv rights logon")
            continue; // asks for a password that no test may know
        if (command.m_Name == "qv tls connect")
            continue; // needs its server; the tests of qv tls have one
        if (command.m_Name == "qv history standby") {
            standby = example + " & standby=$!; ";
            continue; // ends with the main that it is for
        }
        if (command.m_Name == "qv history replicate")
            example = standby + example + "; result=$?; kill -INT $standby; wait $standby && exit $result";
        if (const std::size_t port = example.find("/dev/ttyS0"); port != std::string::npos)
            example.replace(port, 10, device.GetName());
        MakePlant();
        EXPECT_EQ(RunExample(example), 0) << m_Folder.Read("out.txt") << m_Folder.Read("err.txt");
    }
}

TEST_F(QvHelp, HelpPrintsWhatTheOptionPrints) {
    EXPECT_THAT(Do("help"), HasSubstr("annotate"));
    EXPECT_EQ(Do("help history read"), Do("history read --help"));
    EXPECT_THAT(Do("--version"), testing::MatchesRegex("qv [0-9]+\\.[0-9]+\\.[0-9]+\n"));
    Fails(2, "help history write", "'qv history write'");
}

TEST_F(QvHelp, TheManualHasEveryCommandAndOption) {
    std::string manual = Do("help --man");
    m_Folder.Write("qv.1", manual);
    if (Shell("command -v man >/dev/null") == 0) {
        EXPECT_EQ(Shell("MANWIDTH=120 man --warnings -E UTF-8 -l qv.1 2>&1 >qv.txt | tee warnings.txt"), 0);
        EXPECT_EQ(m_Folder.Read("warnings.txt"), "");
        EXPECT_THAT(m_Folder.Read("qv.txt"), HasSubstr("qv history read DIR [OPTION]..."));
    }
    std::erase(manual, '\\');
    for (const Command& command : m_Commands) {
        if (!PartsOf(*command.m_pApp).empty())
            continue;
        const std::size_t start = manual.find(".SS " + command.m_Name + "\n");
        ASSERT_NE(start, std::string::npos) << command.m_Name;
        const std::string section = manual.substr(start, manual.find("\n.S", start + 1) - start);
        EXPECT_THAT(section, HasSubstr(command.m_pApp->get_description() + "."));
        EXPECT_THAT(section, HasSubstr(ExampleOf(*command.m_pApp)));
        for (const CLI::Option* option : command.m_pApp->get_options()) {
            if (option != command.m_pApp->get_help_ptr()) {
                EXPECT_THAT(section, HasSubstr(option->get_description() + "\n"));
            }
        }
    }
}

// The completion is asked as bash asks it, behind each command: for a word, and for an option.
TEST_F(QvHelp, CompletionOffersWhatThereIs) {
    std::string script =
        ". '" QV_SOURCE_DIR "/tools/qv/completion/qv.bash'\n"
        "ask() { COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); _qv; echo \"${COMPREPLY[*]}\"; }\n";
    for (const Command& command : m_Commands)
        script += "ask " + command.m_Name + " ''\nask " + command.m_Name + " -\n";
    script += "ask qv --json history read plant --z\n";
    m_Folder.Write("complete.bash", script);
    ASSERT_EQ(Shell("bash complete.bash >words"), 0);

    std::istringstream words(m_Folder.Read("words"));
    const auto nextWords = [&] {
        std::string line;
        EXPECT_TRUE(std::getline(words, line));
        std::istringstream offered(line);
        return std::set<std::string>{std::istream_iterator<std::string>(offered), {}};
    };
    for (const Command& command : m_Commands) {
        std::set<std::string> parts;
        for (const CLI::App* part : PartsOf(*command.m_pApp))
            parts.insert(part->get_name());
        std::set<std::string> options = {"--json", "--csv", "--help"};
        for (const CLI::Option* option : command.m_pApp->get_options()) {
            if (!option->get_positional() && option != command.m_pApp->get_help_ptr())
                options.insert(option->get_name());
        }
        EXPECT_EQ(nextWords(), parts) << command.m_Name;
        EXPECT_EQ(nextWords(), options) << command.m_Name;
    }
    EXPECT_EQ(nextWords(), std::set<std::string>{"--zone"});
}
