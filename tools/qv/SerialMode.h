// A mode string as the user gave it: checked, with what is wrong or doubtful told under the text.
#pragma once

#include "Tool.h"

#include <QVLib/SerialPorts/SerialModeString.h>
#include <string>

// Reads the text into `mode`. False, with the messages on the error stream, when it is no mode string.
bool ReadSerialMode(const std::string& text, OutputFormat format, CSerialModeString& mode);

// False when the device does not know the mode's rate and would use the one below.
bool IsDeviceRate(const CSerialModeString& mode);
constexpr unsigned int FallbackRate = 19200;

// Tells of a rate that the device does not know, at its place in the text.
void WarnOfRate(const std::string& text, OutputFormat format, const CSerialModeString& mode);
