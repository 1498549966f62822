// CQVTimeZone - the local time of a place, by the system's own tz database.
//
//     CQVTimeZone zone;
//     if (!zone.UseSpecifiedTimeZone("Europe/Berlin"))
//         log.PrintError("Time zone '%s' is unknown, times are in %s", ...);
//     const CQVTimestamp local = zone.ToLocalTime(time);
//
// Names:    those of the tz database, upper and lower case as there: "Europe/Berlin", "Asia/Kolkata",
//           "Etc/GMT-5", "UTC". "UTC" and "Etc/UTC" are known on machines without the database too.
//           Everything that means something on one machine only, or is no name, is unknown: "localtime",
//           "posix/..." and "right/...", rules as in POSIX's TZ, offsets, paths.
// Database: the folder that the environment's TZDIR names, else /usr/share/zoneinfo. A zone is read from it
//           once in a process's life; after an update of the database, programs keep what they have until
//           they are started again. Rules that go on for ever are followed for ever.
// Memory:   zones that were read are never freed (some tens of kilobytes each), so there are at most as many
//           as the database has. Unknown names cost nothing, so any number of them may come from outside.
// Cost:     ToLocalTime() takes a few nanoseconds as long as times fall between the same two changes of the
//           zone's clocks (these are remembered), a binary search otherwise; times from the year 2200 on take
//           longer.
// Threads:  any thread may use a zone that none changes.
#pragma once

#include <QVPlatform/String.h>
#include <QVPlatform/Timestamp.h>
#include <atomic>
#include <string_view>

class CQVTimeZone {
public:
    // "Etc/UTC".
    CQVTimeZone();
    CQVTimeZone(const CQVTimeZone& other) { *this = other; }
    CQVTimeZone& operator=(const CQVTimeZone& other) {
        m_pZone = other.m_pZone;
        m_pIntervals = other.m_pIntervals;
        m_LastInterval.store(other.m_LastInterval.load(std::memory_order_relaxed), std::memory_order_relaxed);
        return *this;
    }

    // Takes the zone of that name. False, and the old zone kept, when the name is unknown.
    bool UseSpecifiedTimeZone(std::string_view name);
    // Takes the zone that this process runs in: the first of these that gives a known name.
    //   - the environment's TZ: a name, or the path of a zone's file; empty is UTC
    //   - where the link /etc/localtime leads
    //   - the first line of /etc/timezone
    // False, and UTC taken, when none does.
    bool UseCurrentTimeZone();

    // The name as it was given. Valid for the life of the process.
    const qvstring& GetIANATimeZoneName() const;

    // The time on the zone's clocks, as a time stamp whose calendar fields are the local ones. Results
    // outside the 64-bit range become its ends.
    CQVTimestamp ToLocalTime(CQVTimestamp time) const {
        long long local;
        if (__builtin_add_overflow(time.GetValue(), GetOffset(time.GetValue()), &local))
            return CQVTimestamp(AtEndOfRange(time.GetValue()));
        return CQVTimestamp(local);
    }

private:
    friend struct QVZoneRegistry;
    // The zone's clocks are ahead of UTC by `offset` from `start` to the next interval's start.
    struct Interval {
        long long start;
        long long offset;
    };
    struct Zone;

    void Use(const Zone& zone);
    long long GetOffset(long long time) const {
        const Interval* const interval = m_pIntervals + m_LastInterval.load(std::memory_order_relaxed);
        return time >= interval[0].start && time < interval[1].start ? interval->offset : FindOffset(time);
    }
    long long FindOffset(long long time) const;
    static long long AtEndOfRange(long long time);

    const Zone* m_pZone = nullptr;
    const Interval* m_pIntervals = nullptr;              // the zone's
    mutable std::atomic<unsigned int> m_LastInterval{0}; // the one that was asked for last
};
