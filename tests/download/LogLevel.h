// At which verbosity a line begins to be written.
#pragma once

#include <string_view>

#include "tests/support/LogCapture.h"

namespace kvmpd::test {

/// The lowest verbosity at which `action` writes the line `text`; -1 when it never does. The action runs once for every
/// verbosity tried.
template <class Action>
LONG LevelOf(std::string_view text, const Action& action) {
    for (LONG level = 0; level <= 8; ++level) {
        const LogCapture log(level);
        action();
        if (log.Contains(text)) {
            return level;
        }
    }
    return -1;
}

}  // namespace kvmpd::test
