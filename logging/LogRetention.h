// Deletes log files older than seven days, at most once a day per log folder.
//
// The day's run is remembered by the marker file "logclear.info" beside the
// logs, whose last-write time alone matters, so that many short-lived
// processes do not all scan the folder.
#pragma once

#include <cstdint>
#include <string>

namespace pixmill::logging {

inline constexpr const wchar_t* kRetentionMarker = L"logclear.info";
inline constexpr int64_t kOneDay = 864000000000LL;      // 100 ns units
inline constexpr int64_t kSevenDays = 6048000000000LL;  // 100 ns units

// Runs the check for the folder of the given log file (prober path form).
// Reports nothing; its log lines tell what happened.
void RunLogRetention(const std::wstring& logFilePath);

}  // namespace pixmill::logging
