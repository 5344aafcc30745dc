// What is left in the cache folders when all sources are closed.
#pragma once

#include <string>
#include <vector>

#include "tests/faults/FaultOrigin.h"
#include "tests/faults/Ledger.h"

namespace kvmpd::test {

/// Of the caches of so many sources nothing is to be left but what failed attempts wrote, and what was there before is
/// to be untouched. Puts a folder back that is gone.
std::vector<std::string> ComplaintsOfFolders(FaultOrigin& origin, const Ledger& ledger, int sources);

}  // namespace kvmpd::test
