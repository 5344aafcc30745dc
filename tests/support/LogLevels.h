// At which verbosity lines begin to be written: one table a room.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/LogCapture.h"

namespace kvmpd::test {

/// Whether `line` is `pattern`, in which each '*' stands for any characters.
bool MatchesLine(std::string_view line, std::string_view pattern);

struct LineAtLevel {
    LONG level;
    const char* pattern;
};

/// The lines that a scenario writes at one verbosity.
using LinesAt = std::function<std::vector<std::string>(LONG level)>;

/// Runs the scenario at every verbosity and expects each row's line at its level and above, and not below. Every line
/// that contains one of `classes` ("CRingBuffer::") has to be in the table.
void ExpectLevels(const std::vector<LineAtLevel>& table, const std::vector<std::string>& classes,
                  const LinesAt& scenario);

/// The same with a capture for each run.
void ExpectLevels(const std::vector<LineAtLevel>& table, const std::vector<std::string>& classes,
                  const std::function<void()>& scenario);

}  // namespace kvmpd::test
