// MenuLayout - a menu described once, for any user interface to build.
//
//     MenuLayout menu;
//     menu.AddMenuEntry("Open", CommandOpen);
//     menu.AddSeparator();
//     menu.AddSubMenu("More", more); // `more` belongs to the menu now
//     menu.BuildMenu(builder);       // the client's toolkit makes the real one
//
// Ownership: a layout owns its submenus.
// Depth:     menus made from data may be as deep as they like; nothing here recurses.
// Threads:   one thread at a time.
#pragma once

#include <QVPlatform/String.h>
#include <memory>
#include <vector>

class CTextOutput;

enum MenuLayoutStringEntryType : int {
    MenuLayoutEntryNormal = 0,
    MenuLayoutEntryChecked = 1,
    MenuLayoutEntryDisabled = 2,
};

enum MenuEntryKind : int {
    MenuEntrySeparator = 0,
    MenuEntryItem = 1,
    MenuEntrySubMenu = 2,
};

// Makes a menu in a toolkit, entry by entry. Between the beginning and the end of a submenu, entries are its own.
class MenuLayoutBuilderInterface {
public:
    virtual void AddMenuItem(const qvstring& text, unsigned int command, MenuLayoutStringEntryType state) = 0;
    virtual void AddSeparator() = 0;
    virtual void BeginSubMenu(const qvstring& text) = 0;
    virtual void EndSubMenu(const qvstring& text) = 0;

protected:
    ~MenuLayoutBuilderInterface() = default;
};

class MenuLayout {
public:
    struct MenuEntry {
        int m_Kind = MenuEntrySeparator;
        qvstring m_Text;
        unsigned int m_Command = 0;
        MenuLayoutStringEntryType m_State = MenuLayoutEntryNormal;
        std::unique_ptr<MenuLayout> m_pSubMenu; // null unless the kind is MenuEntrySubMenu
    };

    MenuLayout() = default;
    MenuLayout(const MenuLayout&) = delete;
    MenuLayout& operator=(const MenuLayout&) = delete;
    ~MenuLayout() { ClearMenuLayout(); }

    // `command` is the number that the client gets when the user picks the entry.
    void AddMenuEntry(const char* text, unsigned int command);
    void AddMenuEntry(const char* text, unsigned int length, unsigned int command,
                      MenuLayoutStringEntryType state);
    void AddMenuEntry(const qvstring& text, unsigned int command, MenuLayoutStringEntryType state);
    void AddMenuEntry(qvstring&& text, unsigned int command, MenuLayoutStringEntryType state);
    // Adds nothing at the beginning and behind another separator, so callers may add one before each group.
    void AddSeparator();
    // Takes the submenu over; it must not be null.
    void AddSubMenu(const qvstring& text, MenuLayout* submenu);
    void AddSubMenu(qvstring&& text, MenuLayout* submenu);

    // Deletes the entries, submenus included.
    void ClearMenuLayout();
    bool IsEmptyLayout() const { return m_Entries.empty(); }
    const std::vector<MenuEntry>& GetEntries() const { return m_Entries; }

    // Tells all entries, in order, to the builder.
    void BuildMenu(MenuLayoutBuilderInterface& builder) const;
    // One line an entry, submenus indented: "Open (5) checked", "Separator", "More submenu:".
    void PrintMenuLayout(CTextOutput& out) const;

private:
    std::vector<MenuEntry> m_Entries;
};
