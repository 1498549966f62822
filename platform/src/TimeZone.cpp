#include <QVPlatform/TimeZone.h>

#include "CurrentTimeZone.h"

#include <absl/time/time.h>
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace {

constexpr long long UnitsPerSecond = CQVTimeInterval::UnitsPerSecond;
constexpr long long SecondsFrom1601To1970 = 11'644'473'600;
// Zones are read ahead as far as anybody plans; the rest is left to Abseil.
constexpr absl::CivilSecond ReadAheadUntil(2200, 1, 1);
constexpr size_t LongestName = 64; // the database's own are half as long

constexpr const char* LocalTimeLink = "/etc/localtime";
constexpr const char* TimeZoneFile = "/etc/timezone";

bool IsNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-' || c == '+' || c == '.';
}

// Whether a name may be that of a zone's file: no path that leaves the folder, and one spelling for each
// file.
bool IsWellFormed(std::string_view name) {
    if (name.empty() || name.size() > LongestName)
        return false;
    char previous = '/';
    for (const char c : name) {
        if (c == '/' ? previous == '/' : !IsNameCharacter(c) || (previous == '/' && (c == '.' || c == '-')))
            return false;
        previous = c;
    }
    return previous != '/';
}

// What the folder holds besides the zones: this machine's choice, and the zones a second and a third time.
bool IsForThisMachineOnly(std::string_view name) {
    return name == "localtime" || name == "posixrules" || name.starts_with("posix/") ||
           name.starts_with("right/");
}

bool IsInDatabase(const qvstring& name) {
    return qv_read_file_start(qv_time_zone_folder() + '/' + name, 4) == "TZif";
}

absl::Time AbseilTime(long long time) {
    long long seconds = time / UnitsPerSecond;
    seconds -= time % UnitsPerSecond < 0;
    return absl::FromUnixSeconds(seconds - SecondsFrom1601To1970);
}

// Only for times that the 64 bits can hold.
long long Value(absl::Time time) {
    return (absl::ToUnixSeconds(time) + SecondsFrom1601To1970) * UnitsPerSecond;
}

} // namespace

struct CQVTimeZone::Zone {
    explicit Zone(std::string_view name) : m_Name(name), m_Intervals{{LLONG_MIN, 0}, {LLONG_MAX, 0}} {}

    Zone(std::string_view name, const absl::TimeZone& rules) : m_Name(name), m_Rules(rules) {
        const long long end = Value(absl::FromCivil(ReadAheadUntil, rules));
        m_Intervals.push_back({LLONG_MIN, OffsetByRules(LLONG_MIN)});
        absl::TimeZone::CivilTransition change;
        for (absl::Time time = AbseilTime(LLONG_MIN); rules.NextTransition(time, &change);) {
            time = rules.At(change.to).trans;
            const long long start = Value(time);
            if (start >= end) {
                m_bEndless = true;
                m_Intervals.push_back({end, 0});
                return;
            }
            m_Intervals.push_back({start, OffsetByRules(start)});
        }
        m_Intervals.push_back({LLONG_MAX, 0});
    }

    long long OffsetByRules(long long time) const {
        return m_Rules.At(AbseilTime(time)).offset * UnitsPerSecond;
    }

    const qvstring m_Name;
    const absl::TimeZone m_Rules;
    std::vector<Interval> m_Intervals; // by start; the last one only ends the one before
    bool m_bEndless = false;           // there are changes behind the last interval
};

// The zones that have been asked for, for the life of the process.
struct QVZoneRegistry {
    using Zone = CQVTimeZone::Zone;

    // Null for unknown names.
    const Zone* Find(std::string_view name) {
        const std::lock_guard lock(m_Lock);
        const auto known = m_Zones.find(name);
        if (known != m_Zones.end())
            return known->second.get();
        // Abseil never forgets a name, the wrong ones included, so it only ever gets those of existing files.
        absl::TimeZone rules;
        const qvstring text(name);
        if (!IsWellFormed(name) || IsForThisMachineOnly(name) || !IsInDatabase(text) ||
            !absl::LoadTimeZone(text, &rules))
            return nullptr;
        return m_Zones.emplace(text, std::make_unique<Zone>(text, rules)).first->second.get();
    }

    // Never destroyed, so that static objects may hold time zones.
    static QVZoneRegistry& Get() {
        static QVZoneRegistry* const registry = new QVZoneRegistry;
        return *registry;
    }
    static const Zone* GetUTC() {
        static const Zone* const zone = Get().Find("Etc/UTC");
        return zone;
    }

private:
    QVZoneRegistry() {
        for (const char* const name : {"Etc/UTC", "UTC"})
            m_Zones.emplace(name, std::make_unique<Zone>(name));
    }

    std::mutex m_Lock;
    std::map<qvstring, std::unique_ptr<Zone>, std::less<>> m_Zones;
};

CQVTimeZone::CQVTimeZone() {
    Use(*QVZoneRegistry::GetUTC());
}

bool CQVTimeZone::UseSpecifiedTimeZone(std::string_view name) {
    const Zone* const zone = QVZoneRegistry::Get().Find(name);
    if (!zone)
        return false;
    Use(*zone);
    return true;
}

bool CQVTimeZone::UseCurrentTimeZone() {
    for (const qvstring& name : qv_current_time_zone_names({std::getenv("TZ"), LocalTimeLink, TimeZoneFile}))
        if (UseSpecifiedTimeZone(name))
            return true;
    Use(*QVZoneRegistry::GetUTC());
    return false;
}

const qvstring& CQVTimeZone::GetIANATimeZoneName() const {
    return m_pZone->m_Name;
}

void CQVTimeZone::Use(const Zone& zone) {
    m_pZone = &zone;
    m_pIntervals = zone.m_Intervals.data();
    m_LastInterval.store(0, std::memory_order_relaxed);
}

long long CQVTimeZone::FindOffset(long long time) const {
    const std::vector<Interval>& intervals = m_pZone->m_Intervals;
    if (m_pZone->m_bEndless && time >= intervals.back().start)
        return m_pZone->OffsetByRules(time);
    const auto next = std::upper_bound(intervals.begin() + 1, intervals.end() - 1, time,
                                       [](long long value, const Interval& i) { return value < i.start; });
    const auto index = next - intervals.begin() - 1;
    m_LastInterval.store(static_cast<unsigned int>(index), std::memory_order_relaxed);
    return intervals[static_cast<size_t>(index)].offset;
}

long long CQVTimeZone::AtEndOfRange(long long time) {
    return time < 0 ? LLONG_MIN : LLONG_MAX;
}
