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

void MenuLayout::BuildMenu(MenuLayoutBuilderInterface& builder) const {
    for (const MenuEntry& entry : m_Entries) {
        switch (entry.m_Kind) {
        case MenuEntryItem:
            builder.AddMenuItem(entry.m_Text, entry.m_Command, entry.m_State);
            break;
        case MenuEntrySubMenu:
            builder.BeginSubMenu(entry.m_Text);
            entry.m_pSubMenu->BuildMenu(builder);
            builder.EndSubMenu(entry.m_Text);
            break;
        default:
            builder.AddSeparator();
        }
    }
}

void MenuLayout::PrintMenuLayout(CTextOutput& out) const {
    for (const MenuEntry& entry : m_Entries) {
        switch (entry.m_Kind) {
        case MenuEntryItem:
            out.PrintLine("%s (%u)%s", entry.m_Text.c_str(), entry.m_Command, StateText(entry.m_State));
            break;
        case MenuEntrySubMenu:
            out.PrintLine("%s submenu:", entry.m_Text.c_str());
            out.AdjustIndent(1);
            entry.m_pSubMenu->PrintMenuLayout(out);
            out.AdjustIndent(-1);
            break;
        default:
            out.PrintLine("Separator");
        }
    }
}
