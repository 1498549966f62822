// Recorder - samples this machine into the store, flushes it and keeps house, in two threads of its own: nothing that
// a client does, and no disk that is slow, delays a sample.
//
// A sample counts as recorded when it is on the disk. Only then it is published, so what an operator has seen is never
// lost, however the server ends. Its sequence number goes on from the last one on the disk.
#pragma once

#include "Store.h"

#include <QVPlatform/OutputLog.h>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <thread>

class Recorder {
public:
    struct Settings {
        std::chrono::milliseconds m_Every{100};
        std::chrono::milliseconds m_FlushEvery{100};
        std::chrono::milliseconds m_KeepHouseEvery{10'000};
        unsigned int m_MaxRecords = 100'000'000;
        unsigned int m_MaxFileSize = 16u << 20; // bytes
    };

    // Starts. `onPublished` is called by a thread of the recorder when there is something to take.
    Recorder(Store& store, const Settings& settings, COutputLog& log, std::function<void()> onPublished);
    // Ends the threads and flushes what is left.
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // Moves out the samples that were published since the last call, at most MaxPublished.
    void TakePublished(std::vector<Sample>& samples);

private:
    static constexpr std::size_t MaxPublished = 100'000;
    using Clock = std::chrono::steady_clock;

    void SampleMachine(const std::stop_token& stop);
    void KeepStore(const std::stop_token& stop);
    void Flush();
    bool Wait(const std::stop_token& stop, Clock::time_point until);

    Store& m_Store;
    const Settings m_Settings;
    COutputLog& m_Log;
    const std::function<void()> m_OnPublished;
    Sample m_Last{};    // before the start
    std::mutex m_Mutex; // guards the next two, and is what the threads sleep on
    std::vector<Sample> m_Fresh;
    std::vector<Sample> m_Published;
    std::condition_variable_any m_Stopping;
    std::jthread m_Sampler; // last, so that they end first
    std::jthread m_Keeper;
};
