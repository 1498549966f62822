// Where a Linux system says in which time zone it runs.
#pragma once

#include <QVPlatform/String.h>
#include <vector>

struct QVCurrentTimeZonePlaces {
    const char* m_pVariable;  // the value of TZ; null when it is not set
    qvstring m_LocalTimeLink; // a link into the tz database
    qvstring m_TimeZoneFile;  // a text file whose first line is the name
};

// The folder of the tz database.
qvstring qv_time_zone_folder();
// The names that the places give, the one to be preferred first. Not all need be names of zones.
std::vector<qvstring> qv_current_time_zone_names(const QVCurrentTimeZonePlaces& places);
// Reads at most `size` bytes from the start of a file; those that were read, none when it cannot be opened.
qvstring qv_read_file_start(const qvstring& path, unsigned int size);
