#include <QVLib/Presentation/MenuLayout.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/TextOutput.h>
#include <utility>

namespace {

const char* StateText(MenuLayoutStringEntryType state) {
    switch (state) {
    case MenuLayoutEntryChecked:
        return " checked";
    case MenuLayoutEntryDisabled:
        return " disabled";
    default:
        return "";
    }
}

class Printer final : public MenuLayoutBuilderInterface {
public:
    explicit Printer(CTextOutput& out) : m_Out(out) {}

    void AddMenuItem(const qvstring& text, unsigned int command, MenuLayoutStringEntryType state) override {
        m_Out.PrintLine("%s (%u)%s", text.c_str(), command, StateText(state));
    }
    void AddSeparator() override { m_Out.PrintLine("Separator"); }
    void BeginSubMenu(const qvstring& text) override {
        m_Out.PrintLine("%s submenu:", text.c_str());
        m_Out.AdjustIndent(1);
    }
    void EndSubMenu(const qvstring&) override { m_Out.AdjustIndent(-1); }

private:
    CTextOutput& m_Out;
};

} // namespace

void MenuLayout::AddMenuEntry(const char* text, unsigned int command) {
    AddMenuEntry(qvstring(text), command, MenuLayoutEntryNormal);
}

void MenuLayout::AddMenuEntry(const char* text, unsigned int length, unsigned int command,
                              MenuLayoutStringEntryType state) {
    AddMenuEntry(qvstring(text, length), command, state);
}

void MenuLayout::AddMenuEntry(const qvstring& text, unsigned int command, MenuLayoutStringEntryType state) {
    AddMenuEntry(qvstring(text), command, state);
}

void MenuLayout::AddMenuEntry(qvstring&& text, unsigned int command, MenuLayoutStringEntryType state) {
    m_Entries.push_back({MenuEntryItem, std::move(text), command, state, nullptr});
}

void MenuLayout::AddSeparator() {
    if (!m_Entries.empty() && m_Entries.back().m_Kind != MenuEntrySeparator)
        m_Entries.emplace_back();
}

void MenuLayout::AddSubMenu(const qvstring& text, MenuLayout* submenu) {
    AddSubMenu(qvstring(text), submenu);
}

void MenuLayout::AddSubMenu(qvstring&& text, MenuLayout* submenu) {
    QV_ASSERT(submenu != nullptr && submenu != this);
    std::unique_ptr<MenuLayout> owned(submenu);
    m_Entries.push_back({MenuEntrySubMenu, std::move(text), 0, MenuLayoutEntryNormal, std::move(owned)});
}

// On the way down, the place of a submenu in its menu keeps the way up. That takes neither a stack nor an allocation.
void MenuLayout::ClearMenuLayout() {
    MenuLayout* above = nullptr;
    for (MenuLayout* layout = this; layout != this || !layout->m_Entries.empty();) {
        if (layout->m_Entries.empty()) {
            delete std::exchange(layout, above);
            above = layout->m_Entries.back().m_pSubMenu.release();
            layout->m_Entries.pop_back();
        } else if (MenuLayout* const subMenu = layout->m_Entries.back().m_pSubMenu.release()) {
            layout->m_Entries.back().m_pSubMenu.reset(above);
            above = std::exchange(layout, subMenu);
        } else {
            layout->m_Entries.pop_back();
        }
    }
}

void MenuLayout::BuildMenu(MenuLayoutBuilderInterface& builder) const {
    struct Place {
        const MenuLayout* m_pLayout;
        std::size_t m_Next;
    };
    std::vector<Place> places = {{this, 0}};
    for (;;) {
        Place& place = places.back();
        if (place.m_Next == place.m_pLayout->m_Entries.size()) {
            places.pop_back();
            if (places.empty())
                return;
            builder.EndSubMenu(places.back().m_pLayout->m_Entries[places.back().m_Next - 1].m_Text);
            continue;
        }
        const MenuEntry& entry = place.m_pLayout->m_Entries[place.m_Next++];
        switch (entry.m_Kind) {
        case MenuEntryItem:
            builder.AddMenuItem(entry.m_Text, entry.m_Command, entry.m_State);
            break;
        case MenuEntrySubMenu:
            builder.BeginSubMenu(entry.m_Text);
            places.push_back({entry.m_pSubMenu.get(), 0});
            break;
        default:
            builder.AddSeparator();
        }
    }
}

void MenuLayout::PrintMenuLayout(CTextOutput& out) const {
    Printer printer(out);
    BuildMenu(printer);
}
