#include <QVPlatform/FileLock.h>

#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

TEST(FileLock, HasOneHolderAtATime) {
    TemporaryFolder folder;
    const CQVFilePath path = folder.File("lock");
    auto first = std::make_unique<CQVFileLock>();
    CQVFileLock second;
    ASSERT_TRUE(first->TryLock(path));
    EXPECT_TRUE(folder.Exists("lock"));

    EXPECT_FALSE(second.TryLock(path));
    EXPECT_TRUE(second.IsHeldElsewhere());
    EXPECT_FALSE(second.IsLocked());

    first->Unlock();
    EXPECT_TRUE(second.TryLock(path));
    EXPECT_FALSE(second.IsHeldElsewhere());
    EXPECT_FALSE(first->TryLock(path));
    second.Unlock();

    // The destructor gives the lock back too, and locking anew gives back the old one.
    ASSERT_TRUE(first->TryLock(path));
    ASSERT_TRUE(first->TryLock(folder.File("other")));
    EXPECT_TRUE(second.TryLock(path));
    first.reset();
    EXPECT_TRUE(second.TryLock(folder.File("other")));
}

TEST(FileLock, TellsTroubleWithTheFileFromAnotherHolder) {
    TemporaryFolder folder;
    CQVFileLock lock;
    EXPECT_FALSE(lock.TryLock(folder.File("missing/lock")));
    EXPECT_EQ(lock.GetLastError(), ENOENT);
    EXPECT_FALSE(lock.IsHeldElsewhere());
    EXPECT_FALSE(lock.IsLocked());
}
