// From what the origin was asked for and answered to what the component has to deliver and to report: the component's
// rules in their shortest form, computed from the ledger alone.
//
//   - A manifest that ends behind the one before it brings news: its segments beyond the last one queued are queued in
//     order, each with the names at its place in the two lists. At the first one, the start is `delay` segments before
//     the end.
//   - A segment's audio is fetched, then its video, each with up to three attempts at once. An attempt fails when no
//     answer or less than was announced arrives, and when a file of that name exists before the first byte is written.
//   - With both files, the segment is delivered; else it is lost as a whole, and event 9 says so.
//   - A manifest that fails is reported by event 0, and nothing happens until the host does something.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/faults/Ledger.h"

namespace kvmpd::test {

struct Judgement {
    std::string video;  ///< The delivered streams, from their beginning.
    std::string audio;
    size_t delivered = 0;  ///< Segments.
    size_t lost = 0;
    size_t skipped = 0;           ///< Numbers that were in no list while they were newer than the last one queued.
    int settledThrough = 0;       ///< Number of the last segment, in order, of which the fate is known.
    bool settled = false;         ///< The fate of everything queued is known, and no manifest is under way.
    bool newsAfterFault = false;  ///< A manifest behind the last faulted one brought news.
    size_t news = 0;              ///< Events 0 with 0, 1 and 2.
    size_t malformed = 0;
    size_t failed = 0;
    std::set<std::string> cachedFiles;    ///< Of the segments that are delivered.
    std::set<std::string> leftFiles;      ///< Cache files that failed attempts leave behind.
    std::vector<std::string> complaints;  ///< Requests that no rule explains.
};

/// Judges what this one of the host's sources has asked for.
Judgement Judge(const Ledger& ledger, int source, int delay);

/// The most manifests that were asked for within any stretch of time shorter than `window`. Each is dated by the origin
/// before it is answered. No load can bring three of them into one window when the component and the host keep to their
/// pace: the third is not asked for until a window after the second was begun (by the component) or has failed (by the
/// host), and the second not before the first was dated and answered.
size_t MostManifestsWithin(const Ledger& ledger, std::chrono::milliseconds window);

}  // namespace kvmpd::test
