// The small commands: tag, colour, dump, crc16, guid, url, annotate.
#include "QvProgram.h"

#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

class QvSmall : public QvProgram {
protected:
    struct Row {
        const char* arguments;
        int exitCode;
        const char* out;
        const char* error = "";
        const char* before = "";
    };

    void Check(const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            const Result result = Run(row.arguments, row.before);
            EXPECT_EQ(result.m_ExitCode, row.exitCode) << row.arguments;
            EXPECT_EQ(result.m_Out, row.out) << row.arguments;
            if (*row.error == 0)
                EXPECT_EQ(result.m_Error, "") << row.arguments;
            else
                EXPECT_THAT(result.m_Error, HasSubstr(row.error)) << row.arguments;
        }
    }
};

} // namespace

TEST_F(QvSmall, TagsAreMatchedSortedAndRewritten) {
    Check({
        {"tag match 'Pump#' Pump1 pump12 PUMP2", 0, "Pump1\nPUMP2\n"},
        {"tag match --case 'Pump#' Pump1 PUMP2", 0, "Pump1\n"},
        {"tag match 'P*' --json", 0, "{\"name\":\"Pump \\\"1\\\"\"}\n", "",
         "printf 'Pump \"1\"\\r\\n\\nTank\\n' |"},
        {"tag match 'X*' Pump1", 1, ""},
        {"tag match 'Pump[1-' Pump1 P", 2, "", "PATTERN: 'Pump[1-' has a '[' that no ']' closes"},
        {"tag sort Pump10 pump2 Pump1", 0, "Pump1\npump2\nPump10\n"},
        {"tag sort --reverse", 0, "b\na\n", "", "printf 'a\\nb\\n' |"},
        {"tag relative A.B.C A.B.D Z.Y .D", 0, ".D\n...Z.Y\n.D\n"},
        {"tag absolute A.B.C .D ..X.Y --csv", 0, "name,result\n.D,A.B.D\n..X.Y,A.X.Y\n"},
        {"tag rename Plant.Pump1 Plant.P1 plant.pump1.Speed Plant.Pump10", 0,
         "Plant.P1.Speed\nPlant.Pump10\n"},
        {"tag rename A.X A.Y .X.Z --base A.B", 0, ".Y.Z\n"},
        {"tag rename A C .X --base A.B --new-base C.B", 0, ".X\n"},
        {"tag rename A C .X --new-base C.B", 2, "", "--base"},
        {"tag", 2, "", "subcommand"},
        {"tag mach x", 2, "", "there is no command 'mach'"},
        {"tags", 2, "", "there is no command 'tags'"},
    });
}

TEST_F(QvSmall, ColoursAreShown) {
    Check({
        {"colour --json tomato '#f80'", 0,
         "{\"colour\":\"Tomato\",\"value\":\"#ff6347\",\"red\":255,\"green\":99,\"blue\":71,\"luminance\":"
         "129,"
         "\"contrast\":\"Black\",\"group\":\"Orange\"}\n"
         "{\"colour\":\"#f80\",\"value\":\"#ff8800\",\"red\":255,\"green\":136,\"blue\":0,\"luminance\":151,"
         "\"contrast\":\"Black\",\"group\":\"\"}\n"},
        {"colour --csv 'rgb(0, 0, 50%)'", 0,
         "colour,value,red,green,blue,luminance,contrast,group\n#00007f,#00007f,0,0,127,9,White,\n"},
        {"colour --csv LightGray", 1, "colour,value,red,green,blue,luminance,contrast,group\n",
         "colour(1,1-10): error 951: Named colour 'LightGray', not found."},
        {"colour --csv 'red blue'", 1, "colour,value,red,green,blue,luminance,contrast,group\n",
         "colour(1,5-9): error"},
    });
    const std::string all = Do("colour --csv");
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 143);
}

TEST_F(QvSmall, BytesGoOutAndBack) {
    std::string bytes;
    for (unsigned int i = 0; i < 100'000; i++)
        bytes += static_cast<char>(i * i >> 4);
    m_Folder.Write("data", bytes);
    for (const std::string mode : {"", " --base64"}) {
        m_Folder.Write("text", Do("dump data" + mode));
        EXPECT_EQ(Do("dump --back text" + mode), bytes) << mode;
        EXPECT_EQ(Do("dump --back" + mode, "cat text |"), bytes) << mode;
    }
    m_Folder.Write("empty", "");
    m_Folder.Write("check", "123456789");
    Check({
        {"dump check", 0, "313233343536373839\n"},
        {"dump empty", 0, ""},
        {"dump --back --base64 empty", 0, ""},
        {"dump --back", 0, "12", "", "printf '31 3\\n2' |"},
        {"dump --back", 1, "", "the last byte has only one digit", "printf '31 3' |"},
        {"dump --back", 1, "", "byte 3: 'x' is no hexadecimal digit", "printf '31x' |"},
        {"dump --back --base64", 1, "", "ends within a group", "printf 'TWF' |"},
        {"dump --back --base64", 1, "", "behind 3 bytes is no Base64", "printf 'TWFu\\nTW!u' |"},
        {"dump missing", 3, "", "missing"},
        {"crc16 check -", 0, "4B37  check\n1241  -\n", "", "printf '\\002\\007' |"},
        {"crc16 --initial 0 --json check", 0,
         "{\"file\":\"check\",\"crc\":47933,\"low_byte_first\":\"3D BB\"}\n"},
        {"crc16 --initial 65536 check", 2, "", "--initial"},
        {"crc16", 2, "", "FILE"},
    });
}

TEST_F(QvSmall, IdentifiersAreMadeCheckedAndSplit) {
    EXPECT_THAT(Do("guid --count 2"), MatchesRegex("([0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-8[048c][0-9a-f]{2}-"
                                                   "[0-9a-f]{12}\n){2}"));
    Check({
        {"guid 0F1E2D3C-4B5A-4978-8796-A5B4C3D2E1F0", 0, "0f1e2d3c-4b5a-4978-8796-a5b4c3d2e1f0\n"},
        {"guid 0f1e2d3c-4b5a-4978-8796a5b4c3d2e1f0", 1, "",
         "the fourth group of 4 digits has no '-' behind it"},
        {"guid 0f1e2d3c-4b5a-4978-8796-a5b4c3d2e1f0x", 1, "", "there is more behind it"},
        {"guid {0f1e2d3c}", 1, "", "the first group"},
        {"guid --count 0", 2, "", "--count"},
        {"url --json opc.tcp://user@host:4840/path?x", 0,
         "{\"scheme\":\"opc.tcp\",\"authority\":\"user@host:4840\",\"user\":\"user\",\"host\":\"host\","
         "\"port\":\"4840\",\"path\":\"/path?x\"}\n"},
        {"url --csv nocolon", 1, "scheme,authority,user,host,port,path\n", "'nocolon' has no ':'"},
    });
}

TEST_F(QvSmall, MessagesAreFiledUnderTheirSources) {
    m_Folder.Write(
        "log", "Plant/Logic(12,5-9): error 906: Escaped.\r\nnothing\nAbc: x\nplant/logic(1): warning 7: w\n");
    Check({
        {"annotate log", 1,
         "Abc\n  1:1  information: x\nPlant/Logic\n  12:5-12:9  error 906: Escaped.\n  1:1  warning 7: w\n"},
        {"annotate --json", 0,
         "{\"module\":\"name\",\"line\":3,\"column\":1,\"end_line\":3,\"end_column\":1,\"severity\":"
         "\"warning\","
         "\"number\":7,\"message\":\" x\"}\n",
         "", "printf 'name(3): warning 7: x\\n' |"},
        {"annotate missing", 3, "", "missing"},
    });
}
