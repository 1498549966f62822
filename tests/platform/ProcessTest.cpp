#include <QVPlatform/Process.h>

#include <climits>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <thread>

namespace {

CQVTimestamp InSeconds(double seconds) {
    CQVTimestamp time;
    time.SetUTC();
    return time += CQVTimeInterval(static_cast<long long>(seconds * CQVTimeInterval::UnitsPerSecond));
}

} // namespace

// Signals change the process for good, so each case has one of its own.
TEST(ProcessDeathTest, AStopSignalEndsASleepAndASecondOneTheProcess) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    // A signal that came before the sleep must end it just as well.
    EXPECT_EXIT(
        {
            qv_catch_stop_signals();
            const bool before = qv_stop_requested();
            std::raise(SIGINT);
            std::exit(!before && qv_stop_requested() && !qv_sleep_until(CQVTimestamp(LLONG_MAX)) ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    // One that another thread receives.
    EXPECT_EXIT(
        {
            qv_catch_stop_signals();
            std::thread other([] {
                qv_sleep_until(InSeconds(0.05));
                std::raise(SIGTERM);
            });
            const bool timeUp = qv_sleep_until(CQVTimestamp(LLONG_MAX));
            other.join();
            std::exit(timeUp ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EXIT(
        {
            qv_catch_stop_signals();
            std::raise(SIGTERM);
            std::raise(SIGTERM);
        },
        testing::KilledBySignal(SIGTERM), "");
}

TEST(Process, SleepsUntilTheDeadlineAndNotLonger) {
    const CQVTimestamp deadline = InSeconds(0.02);
    EXPECT_TRUE(qv_sleep_until(deadline));
    EXPECT_GE(InSeconds(0), deadline);
    EXPECT_TRUE(qv_sleep_until(CQVTimestamp(LLONG_MIN)));
    EXPECT_FALSE(qv_stop_requested());
}

TEST(Process, TerminalAndMemory) {
    EXPECT_FALSE(qv_is_terminal(-1));
    EXPECT_EQ(qv_terminal_width(-1), 80u);
    const long long before = qv_peak_memory();
    const std::vector<char> block(64 << 20, 'x');
    EXPECT_GE(qv_peak_memory(), std::max(before, static_cast<long long>(block.size())));
    EXPECT_LT(before, 4LL << 40) << "bytes, not another unit";
}
