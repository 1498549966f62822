#include "Recorder.h"

#include <algorithm>

Recorder::Recorder(Store& store, const Settings& settings, COutputLog& log, std::function<void()> onPublished)
    : m_Store(store), m_Settings(settings), m_Log(log), m_OnPublished(std::move(onPublished)) {
    m_Store.ReadLast(m_Last);
    m_Sampler = std::jthread([this](const std::stop_token& stop) { SampleMachine(stop); });
    m_Keeper = std::jthread([this](const std::stop_token& stop) { KeepStore(stop); });
}

Recorder::~Recorder() {
    m_Sampler = std::jthread();
    m_Keeper = std::jthread();
    m_Store.EndHouseKeeping(); // it may have asked for a turn that it does not take any more
    Flush();
}

void Recorder::TakePublished(std::vector<Sample>& samples) {
    const std::lock_guard lock(m_Mutex);
    samples.swap(m_Published);
    m_Published.clear();
}

void Recorder::SampleMachine(const std::stop_token& stop) {
    Machine machine;
    Sample sample = m_Last;
    for (Clock::time_point next = Clock::now(); Wait(stop, next);
         next = std::max(next + m_Settings.m_Every, Clock::now())) {
        machine.Read(sample.m_Values);
        CQVTimestamp now;
        now.SetUTC();
        // A clock that is set back must not turn the order of the records around.
        sample.m_Time = std::max(now.GetValue(), sample.m_Time + 1);
        sample.m_Sequence++;
        const std::lock_guard lock(m_Mutex);
        m_Fresh.push_back(sample);
    }
}

void Recorder::KeepStore(const std::stop_token& stop) {
    Clock::time_point nextHouseKeeping = Clock::now() + m_Settings.m_KeepHouseEvery;
    while (Wait(stop, Clock::now() + m_Settings.m_FlushEvery)) {
        Flush();
        if (Clock::now() >= nextHouseKeeping && m_Store.TryBeginHouseKeeping()) {
            {
                const Store::Change change(m_Store);
                m_Store.GetTable().HouseKeepFiles(&m_Log, m_Settings.m_MaxRecords, m_Settings.m_MaxFileSize);
            }
            m_Store.EndHouseKeeping();
            nextHouseKeeping = Clock::now() + m_Settings.m_KeepHouseEvery;
        }
    }
}

void Recorder::Flush() {
    std::vector<Sample> samples;
    {
        const std::lock_guard lock(m_Mutex);
        samples.swap(m_Fresh);
    }
    for (const Sample& sample : samples)
        m_Store.GetTable().WriteNewRecord(sample.m_Time, &sample);
    const qvstring before = m_Store.GetErrorText();
    const std::size_t written = m_Store.GetTable().FlushRecords(&m_Log);
    // A file that cannot be closed may have kept none of what was written to it.
    if (written < samples.size() || m_Store.GetErrorText() != before) {
        m_Log.PrintError("Of %zu samples, %zu were written: %s", samples.size(), written,
                         m_Store.GetErrorText().c_str());
        samples.clear();
    }
    if (samples.empty())
        return;
    {
        const std::lock_guard lock(m_Mutex);
        m_Published.insert(m_Published.end(), samples.begin(), samples.end());
        if (m_Published.size() > MaxPublished)
            m_Published.erase(m_Published.begin(), m_Published.end() - MaxPublished);
    }
    m_OnPublished();
}

bool Recorder::Wait(const std::stop_token& stop, Clock::time_point until) {
    std::unique_lock lock(m_Mutex);
    m_Stopping.wait_until(lock, stop, until, [] { return false; });
    return !stop.stop_requested();
}
