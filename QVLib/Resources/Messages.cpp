#include "MessageTables.h"
#include <QVLib/Resources/Messages.h>

namespace {

constexpr CQVModule::StringTable Tables[] = {
    {CQVLocale::English, g_EnglishMessages, EnglishMessageCount},
    {CQVLocale::German, g_GermanMessages, GermanMessageCount},
};

} // namespace

// Set up by the compiler: other statics log while they are constructed.
constinit const CQVModule g_LibModule(Tables, 2);
