// The tables that g_LibModule is made of, one source per language, sorted by number.
#pragma once

#include <QVPlatform/Module.h>

constexpr unsigned int EnglishMessageCount = 93;
constexpr unsigned int GermanMessageCount = 38;

extern const CQVModule::StringResource g_EnglishMessages[EnglishMessageCount];
extern const CQVModule::StringResource g_GermanMessages[GermanMessageCount];
