// A report of alarms as a Rich Text Format document, each in the colour that an engineer chose for its kind, and the menu
// that an operator gets on an alarm.
#include <QVLib/Presentation/ColourValue.h>
#include <QVLib/Presentation/MenuLayout.h>
#include <QVLib/Presentation/RTFOutput.h>
#include <QVPlatform/TextOutput.h>
#include <cstdio>
#include <string_view>

static void AddLine(CRTFOutput& report, const char* colour, std::string_view text) {
    CColourValue value;
    if (!value.ParseText(colour))
        std::printf("'%s' is no colour, so the line stays as the last one\n", colour);
    else
        report.SetColour(value.GetColour());
    report.Print(text.data(), static_cast<unsigned int>(text.size()));
}

int main() {
    CRTFOutput report;
    report.SetFont("Liberation Sans");
    report.SetUnderline(true);
    AddLine(report, "black", "Alarms\n");
    report.SetUnderline(false);
    AddLine(report, "Tomato",
            "Boiler: 96.5 \xC2\xB0"
            "C\n");
    AddLine(report, "rgb(255, 50%, 0)", "Tank: level low\n");
    AddLine(report, "#ff80", "Pump: off\n");
    qvstring document;
    report.GenerateRTF(document);
    std::printf("%s\n", document.c_str());

    MenuLayout menu;
    menu.AddMenuEntry("Acknowledge", 1);
    menu.AddSeparator();
    auto* const more = new MenuLayout;
    more->AddMenuEntry("Zone A", 10);
    more->AddMenuEntry("Zone B", 11);
    menu.AddSubMenu("Acknowledge all in", more); // which is the menu's now
    CTextOutputString text;
    menu.PrintMenuLayout(text);
    std::printf("%s", text.GetCStr());
}
