// The end of a recording in words.

#pragma once

#include <cstdint>
#include <string>

#include "app/ExitCode.h"

namespace kvmpd::app {

struct EndContext {
    std::string url = {};
    std::string detail = {};      // what the part that failed said, or empty
    bool hasMedia = false;        // something was recorded
    bool manifestLoaded = false;  // at least one manifest was
    std::int64_t failedDownloads = 0;
    std::string patience = "30 s";  // after which it was given up
};

// One sentence that says what happened and what to do; empty when all went as asked.
std::string EndSentence(RecordEnd end, const EndContext& context);

// One word for programs: "time-reached", "asked", ...
const char* EndWord(RecordEnd end);

}  // namespace kvmpd::app
