#include "MessageTables.h"

// Month and day names. The spelling of the third long month is the one that is in use.
constinit const CQVModule::StringResource g_GermanMessages[GermanMessageCount] = {
    {500, "Jan"},        {501, "Feb"},     {502, "Mär"},      {503, "Apr"},
    {504, "Mai"},        {505, "Jun"},     {506, "Jul"},      {507, "Aug"},
    {508, "Sep"},        {509, "Okt"},     {510, "Nov"},      {511, "Dez"},

    {512, "Januar"},     {513, "Februar"}, {514, "Marz"},     {515, "April"},
    {516, "Mai"},        {517, "Juni"},    {518, "Juli"},     {519, "August"},
    {520, "September"},  {521, "Oktober"}, {522, "November"}, {523, "Dezember"},

    {524, "So"},         {525, "Mo"},      {526, "Di"},       {527, "Mi"},
    {528, "Do"},         {529, "Fr"},      {530, "Sa"},

    {531, "Sonntag"},    {532, "Montag"},  {533, "Dienstag"}, {534, "Mittwoch"},
    {535, "Donnerstag"}, {536, "Freitag"}, {537, "Samstag"},
};
