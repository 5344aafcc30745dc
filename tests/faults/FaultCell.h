// One cell of the matrix: a source with its host against an origin with one fault, from the first manifest to the stop.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "tests/faults/FaultOrigin.h"

namespace kvmpd::test {

struct CellResult {
    FaultCase fault;
    std::vector<std::string> failures;  ///< Empty: the cell is as it should be.
    size_t faultedRequests = 0;
    size_t delivered = 0;  ///< Segments.
    size_t lost = 0;       ///< Segments, as the ledger says and as event 9 said.
    size_t skipped = 0;    ///< Numbers that no list offered while they could be asked for.
    size_t manifestsFailed = 0;
    size_t manifestFetches = 0;
    size_t mostManifestsInASecond = 0;
    size_t mostThreads = 0;  ///< Of the component, at any look; 0 where they cannot be counted.
    size_t mostCached =
        0;  ///< Files in a source's cache folder, at any look, but those that belong to no segment it has.
    std::vector<std::chrono::milliseconds> trickledStops;  ///< From the end of a trickle without end that held it up.
    std::vector<std::chrono::milliseconds> idleStops;      ///< Stops with nothing under way.
    std::vector<std::chrono::milliseconds> faultingStops;  ///< Stops in the middle of the fault.
};

std::string NameOf(const FaultCase& fault);

/// The longest that a stop in the middle of this fault may take: the transfers that are running come to their end, or
/// to their time-out. Without the slack for the machine.
std::chrono::milliseconds StopBound(const FaultCase& fault);

CellResult RunCell(const FaultCase& fault);

}  // namespace kvmpd::test
