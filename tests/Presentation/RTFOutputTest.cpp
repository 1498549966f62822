#include "../support/SmallStack.h"
#include "../support/TemporaryFolder.h"
#include <QVLib/BinaryStreams/BinaryInput.h>
#include <QVLib/Presentation/ClipboardInterface.h>
#include <QVLib/Presentation/MenuLayout.h>
#include <QVLib/Presentation/RTFOutput.h>
#include <QVLib/Presentation/TextBufferUpdate.h>
#include <QVPlatform/TextOutput.h>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <memory>

namespace {

const std::string Header = "{\\rtf1\\ansi\\ansicpg1252\r\n";

std::string Document(const CRTFOutput& rtf) {
    qvstring document = "replaced";
    rtf.GenerateRTF(document);
    return document;
}

std::string Body(const std::function<void(CRTFOutput&)>& write) {
    CRTFOutput rtf;
    write(rtf);
    const std::string document = Document(rtf);
    const size_t start = document.find("\\pard\r\n") + 7;
    return document.substr(start, document.size() - start - 1);
}

TEST(RTFOutput, EscapesText) {
    const std::pair<std::string, const char*> rows[] = {
        {"a~\x7F\r", "a~\x7F\r"},
        {"{\\}\t\n", "\\{\\\\\\}\\tab \\par\r\n"},
        {"é", "\\u233?"},
        {"！", "\\u-255?"},
        {"😀", "\\u-10179?\\u-8704?"},
        {"\xFF", "\\u-3?"},
    };
    for (const auto& [text, body] : rows)
        EXPECT_EQ(
            Body([&](CRTFOutput& rtf) { rtf.Print(text.data(), static_cast<unsigned int>(text.size())); }),
            body);
    const char32_t codePoints[] = {U'{', 0x1F600, 0xD83D, 0x110000, 0xFFFFFFFF};
    EXPECT_EQ(Body([&](CRTFOutput& rtf) { rtf.Print(codePoints, 5); }),
              "\\{\\u-10179?\\u-8704?\\u-10179?\\u-3?\\u-3?");
}

TEST(RTFOutput, WritesStylesAndTables) {
    EXPECT_EQ(Document(CRTFOutput()), Header + "\\pard\r\n}");
    CRTFOutput rtf;
    const QVColourRGB red(255, 0, 0);
    for (const QVColourRGB& colour : {red, QVColourRGB(0, 0, 255), red, red})
        rtf.SetColour(colour);
    for (const char* font : {"Mono", "Mono", "Sans", "Mono"})
        rtf.SetFont(font);
    EXPECT_EQ(Document(rtf), Header + "{\\fonttbl;\\f0\\fmodern Mono;\\f1\\fmodern Sans;}\r\n"
                                      "{\\colortbl;\\red255\\green0\\blue0;\\red0\\green0\\blue255;}\r\n"
                                      "\\pard\r\n\\cf1 \\cf2 \\cf1 \\f0 \\f0 \\f1 \\f0 }");
    EXPECT_EQ(Body([](CRTFOutput& out) {
                  for (const bool on : {false, true, true, false}) {
                      out.SetUnderline(on);
                      out.SetStrikeout(on);
                  }
              }),
              "\\ul \\strike \\ul0 \\strike0 ");
    EXPECT_EQ(Body([](CRTFOutput& out) {
                  for (const float points : {12.0f, 10.25f, 10.25f, 12.0f, std::nanf(""), -3.0f, 1e30f,
                                             std::numeric_limits<float>::infinity()})
                      out.SetFontSize(points);
              }),
              "\\fs21 \\fs24 \\fs0 \\fs32767 \\fs32767 ");
}

// Collects what is stored.
class Clipboard : public ClipboardInterface {
public:
    bool ClipboardHasData(const char*) override { return false; }
    bool ClipboardReadText(qvstring&) override { return false; }
    void ClipboardStoreInput(const char* format, CBinaryInput& data) override {
        std::string bytes(data.GetLength(), 0);
        data.Read(bytes.data(), static_cast<unsigned int>(bytes.size()));
        m_Stored += std::string(format) + "=" + bytes + ";";
    }

    std::string m_Stored;
};

TEST(Clipboard, TakesTextAndDocuments) {
    Clipboard clipboard;
    char reason[8] = "kept";
    EXPECT_FALSE(clipboard.SupportsMultipleDataFormats());
    EXPECT_TRUE(clipboard.ClipboardReadBegin(reason, sizeof reason));
    EXPECT_EQ(clipboard.ClipboardReadData("text/plain", BinaryStringLengthUTF8Character), nullptr);
    clipboard.ClipboardReadComplete();
    EXPECT_TRUE(clipboard.ClipboardStoreBegin(reason, sizeof reason));
    EXPECT_STREQ(reason, "kept");
    clipboard.ClipboardStoreText("Grün", true);
    clipboard.ClipboardStoreText("", false);
    CRTFOutput().TransferToClipboardInterface(&clipboard);
    clipboard.ClipboardStoreComplete();
    EXPECT_EQ(clipboard.m_Stored, "text/plain=Grün;text/plain=;application/rtf=" + Header + "\\pard\r\n};");
}

// The one reader of RTF that is a Debian package and prints what it read.
TEST(RTFOutput, IsReadByAnOfficeProgram) {
    const char* const office = "/usr/bin/soffice";
    if (!CQVFilePath(office).FileExists())
        GTEST_SKIP() << "libreoffice-writer-nogui is not installed";
    CRTFOutput rtf;
    rtf.SetFont("Courier New");
    rtf.SetColour(QVColourRGB(255, 0, 0));
    rtf.SetFontSize(20);
    rtf.SetUnderline(true);
    const std::string text = "Pegel {zu} hoch \\ ü€😀\tEnde\nZeile 2";
    rtf.Print(text.data(), static_cast<unsigned int>(text.size()));
    const TemporaryFolder folder;
    folder.Write("a.rtf", Document(rtf));
    const std::string path = folder.GetPath();
    const std::string command = std::string(office) + " -env:UserInstallation=file://" + path +
                                "/profile --headless --convert-to 'txt:Text (encoded):UTF8' --outdir " +
                                path + " " + path + "/a.rtf >" + path + "/log 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0) << folder.Read("log");
    EXPECT_EQ(folder.Read("a.txt"), "\xEF\xBB\xBF" + text + "\n");
}

// Notes the calls of a builder.
class Builder : public MenuLayoutBuilderInterface {
public:
    void AddMenuItem(const qvstring& text, unsigned int command, MenuLayoutStringEntryType state) override {
        m_Calls += text + "/" + std::to_string(command) + "/" + std::to_string(state) + " ";
    }
    void AddSeparator() override { m_Calls += "- "; }
    void BeginSubMenu(const qvstring& text) override { m_Calls += text + "{ "; }
    void EndSubMenu(const qvstring& text) override { m_Calls += "}" + text + " "; }

    std::string m_Calls;
};

TEST(MenuLayout, IsBuiltAndPrinted) {
    MenuLayout menu;
    EXPECT_TRUE(menu.IsEmptyLayout());
    menu.AddSeparator();
    EXPECT_TRUE(menu.IsEmptyLayout());
    menu.AddMenuEntry(qvstring("Open"), 5, MenuLayoutEntryChecked);
    menu.AddSeparator();
    menu.AddSeparator();
    MenuLayout* const more = new MenuLayout;
    more->AddMenuEntry("Help", 9);
    more->AddMenuEntry("Hidden", 3, 7, MenuLayoutEntryDisabled);
    more->AddSubMenu("Empty", new MenuLayout);
    menu.AddSubMenu("More", more);
    menu.AddSeparator(); // one at the end stays

    Builder builder;
    menu.BuildMenu(builder);
    EXPECT_EQ(builder.m_Calls, "Open/5/1 - More{ Help/9/0 Hid/7/2 Empty{ }Empty }More - ");
    CTextOutputString out;
    menu.PrintMenuLayout(out);
    EXPECT_EQ(out.GetString(), "Open (5) checked\nSeparator\nMore submenu:\n  Help (9)\n  Hid (7) disabled\n"
                               "  Empty submenu:\nSeparator\n");
    menu.ClearMenuLayout();
    EXPECT_TRUE(menu.IsEmptyLayout());
}

TEST(MenuLayout, MayBeDeep) {
    constexpr int depth = 100'000;
    RunOnSmallStack([] {
        auto menu = std::make_unique<MenuLayout>();
        for (int i = 0; i < depth; i++) {
            auto outer = std::make_unique<MenuLayout>();
            outer->AddMenuEntry("i", 1);
            outer->AddSubMenu("m", menu.release());
            outer->AddSeparator();
            menu = std::move(outer);
        }
        Builder builder;
        menu->BuildMenu(builder);
        EXPECT_EQ(builder.m_Calls.size(), depth * std::string("i/1/0 m{ }m - ").size());
        EXPECT_NE(builder.m_Calls.find("i/1/0 m{ }m - }m - "), std::string::npos);
    });
}

TEST(TextBufferUpdate, KeepsLines) {
    CTextBufferUpdate update;
    update.Append();
    update.Back().m_Text = "first";
    update.Append();
    update.Back().m_Colour = QVColourRGB::White;
    CTextBufferUpdate copy;
    copy = update;
    update.Clear();
    EXPECT_EQ(update.Begin(), update.End());
    EXPECT_EQ(copy.Begin()->m_Text, "first");
    EXPECT_EQ(std::next(copy.Begin())->m_Colour, QVColourRGB::White);
}

} // namespace
