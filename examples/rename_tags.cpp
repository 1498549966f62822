// A line of the plant gets another name, and what refers to its tags follows. Then the tags are listed as people expect.
#include <QVLib/Tags/MatchPattern.h>
#include <QVLib/Tags/NaturalSort.h>
#include <QVLib/Tags/TagName.h>
#include <algorithm>
#include <cstdio>
#include <vector>

int main() {
    // References that the tag Plant.Line1.Mixer.Speed holds: two absolute ones, two relative ones.
    const qvstring base = "Plant.Line1.Mixer.Speed";
    const qvstring newBase = "Plant.LineA.Mixer.Speed";
    const CTagName line(qvstring("Plant.Line1"));
    for (const char* text : {"Plant.Line1.Pump10?Alarm", "Plant.Line10.Pump", ".Running", "...Boiler"}) {
        CTagName reference{qvstring(text)};
        reference.RefactorTagName(base, line, newBase, "Plant.LineA");
        CTagName absolute = reference;
        absolute.ToAbsolute(newBase);
        std::printf("%-24s becomes %-24s and means %s\n", text, reference.TagName().c_str(),
                    absolute.TagName().c_str());
    }

    std::vector<qvstring> tags = {"Plant.Pump10", "Plant.pump2", "Plant.Valve1", "Plant.Pump1"};
    std::sort(tags.begin(), tags.end(),
              [](const qvstring& a, const qvstring& b) { return QVNatrualSort(a, b) < 0; });
    for (const qvstring& tag : tags) {
        if (OPCMatchPattern(tag, "plant.pump#*", false) == OPCMatchYes)
            std::printf("%s\n", tag.c_str());
    }
}
