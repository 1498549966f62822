// SmallDisk - a real file system of a few hundred KiB, for tests of a disk that is full.
//
//     const SmallDisk disk(256);
//     if (!disk.IsMounted())
//         GTEST_SKIP() << "may not mount";
#pragma once

#include "support/TemporaryFolder.h"

class SmallDisk {
public:
    // Mounts one, if this process may.
    explicit SmallDisk(unsigned int kibibytes);
    ~SmallDisk();

    bool IsMounted() const { return m_bMounted; }
    const TemporaryFolder& GetFolder() const { return m_Folder; }

private:
    const TemporaryFolder m_Folder; // the mount point
    bool m_bMounted;
};
