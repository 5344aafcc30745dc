// What a faulty origin has been asked for and what it answered: the one record that says what the component could have
// received, and so what it has to deliver and what it has to report.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/faults/FaultTable.h"

namespace kvmpd::test {

struct ManifestFetch {
    int source = 1;  ///< Which of the host's sources asked, in the order of their making.
    std::chrono::steady_clock::time_point at;
    bool faulted = false;
    Effect effect = Effect::kTaken;
    int first = 0;            ///< Number of the first segment listed.
    int count = 0;            ///< How many segments its timeline has.
    std::optional<int> hole;  ///< Index of the segment that both lists leave out.
    bool finished = false;    ///< Nothing more is sent.
};

struct SegmentFetch {
    int source = 1;
    std::optional<int> number;  ///< As named by the URL; none when no request came through.
    bool faulted = false;
    Effect effect = Effect::kTaken;
    /// What the component keeps of the answer if it keeps anything; null while no request came through.
    std::shared_ptr<const std::string> body;
    bool fileThere = false;  ///< The cache file existed when the request arrived.
    bool finished = false;
};

struct Ledger {
    std::vector<ManifestFetch> manifests;
    std::vector<SegmentFetch> audio;
    std::vector<SegmentFetch> video;
    size_t redirectHops = 0;  ///< Requests for the address that redirects to itself.

    const std::vector<SegmentFetch>& Segments(Target target) const { return target == Target::kAudio ? audio : video; }
};

}  // namespace kvmpd::test
