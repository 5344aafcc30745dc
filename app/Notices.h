// What the recording says of tries, gaps and clocks, for people and as JSON.

#pragma once

#include <cstdint>
#include <string>

#include "app/Gap.h"
#include "app/RetryPolicy.h"

namespace kvmpd::app {

// A sentence without a line feed.
std::string DescribeRetry(const RetryPolicy::Retry& retry);
std::string RetryJson(const RetryPolicy::Retry& retry, std::int64_t sinceStartMs);

// "0:04.000 to 0:05.000 of the video (a download failed)"
std::string DescribeGap(const Gap& gap);
// The members "track", "from", "to" and "cause", as an object.
std::string GapJson(const Gap& gap);
// The same with type and time, as a line.
std::string GapJson(const Gap& gap, std::int64_t sinceStartMs);

// "the stream's clock went from 9:48.000 to 0:00.000; the recording goes on at 0:12.000"
std::string DescribeClockRestart(const ClockRestart& restart);
// The members "at", "from" and "to", as an object; and with type and time, as a line.
std::string ClockRestartJson(const ClockRestart& restart);
std::string ClockRestartJson(const ClockRestart& restart, std::int64_t sinceStartMs);

}  // namespace kvmpd::app
