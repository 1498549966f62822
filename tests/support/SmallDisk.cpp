#include "support/SmallDisk.h"

#include <sys/mount.h>

SmallDisk::SmallDisk(unsigned int kibibytes) {
    const std::string options = "size=" + std::to_string(kibibytes) + "k";
    m_bMounted = mount("tmpfs", m_Folder.GetPath().c_str(), "tmpfs", 0, options.c_str()) == 0;
}

SmallDisk::~SmallDisk() {
    if (m_bMounted)
        umount2(m_Folder.GetPath().c_str(), MNT_DETACH);
}
