#include "tests/support/LogLevels.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kvmpd::test {
namespace {

constexpr LONG kSilent = 0;
constexpr LONG kEverything = 7;

bool IsAmong(const std::vector<std::string>& lines, std::string_view pattern) {
    return std::ranges::any_of(lines, [&](const std::string& line) { return MatchesLine(line, pattern); });
}

}  // namespace

bool MatchesLine(std::string_view line, std::string_view pattern) {
    const size_t star = pattern.find('*');
    if (star == pattern.npos) {
        return line == pattern;
    }
    if (line.substr(0, star) != pattern.substr(0, star)) {
        return false;
    }
    const std::string_view rest = pattern.substr(star + 1);
    for (size_t skipped = star; skipped <= line.size(); ++skipped) {
        if (MatchesLine(line.substr(skipped), rest)) {
            return true;
        }
    }
    return false;
}

void ExpectLevels(const std::vector<LineAtLevel>& table, const std::vector<std::string>& classes,
                  const LinesAt& scenario) {
    std::vector<LONG> found(table.size(), -1);
    for (LONG level = kSilent; level <= kEverything; ++level) {
        const std::vector<std::string> lines = scenario(level);
        for (size_t row = 0; row < table.size(); ++row) {
            if (found[row] < 0 && IsAmong(lines, table[row].pattern)) {
                found[row] = level;
            }
        }
        for (const std::string& line : lines) {
            const bool own = std::ranges::any_of(
                classes, [&](const std::string& name) { return line.find(name) != std::string::npos; });
            if (own &&
                std::ranges::none_of(table, [&](const LineAtLevel& row) { return MatchesLine(line, row.pattern); })) {
                ADD_FAILURE() << "a line that the table does not have: \"" << line << "\"";
            }
        }
    }
    for (size_t row = 0; row < table.size(); ++row) {
        EXPECT_EQ(found[row], table[row].level) << "\"" << table[row].pattern << "\"";
    }
}

void ExpectLevels(const std::vector<LineAtLevel>& table, const std::vector<std::string>& classes,
                  const std::function<void()>& scenario) {
    ExpectLevels(table, classes, LinesAt([&scenario](LONG level) {
                     const LogCapture log(level);
                     scenario();
                     return log.Lines();
                 }));
}

}  // namespace kvmpd::test
