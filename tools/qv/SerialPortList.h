// The serial ports of this machine, as the kernel's text files tell of them. No port is opened for that,
// since opening moves the lines of the device behind it.
#pragma once

#include <string>
#include <vector>

struct SerialPortEntry {
    std::string m_Port;   // "/dev/ttyUSB0"
    std::string m_Driver; // the kernel's; empty when it does not tell
    std::string m_Device; // what is plugged in: maker, product, serial number; empty when unknown
};

// In natural order of their names. `sysFolder` is where the kernel shows itself.
std::vector<SerialPortEntry> FindSerialPorts(const std::string& sysFolder = "/sys");
