// Live streams on loopback that misbehave by a seed, and the ledger that tells afterwards which segments a client may
// have missed and why.
//
// What goes wrong is a function of the seed, the stream and what is asked for, not of time: the same segment of the
// same stream fails in the same way in every run with the seed.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "tests/soak/AnswerLoop.h"
#include "tests/soak/Records.h"

namespace kvmpd::test {

struct OriginTuning {
    std::uint64_t seed = 1;
    std::uint32_t segmentMs = 100;  // segments last from half of it to twice as long
    unsigned faultPercent = 100;    // of the usual share of requests that fail; 0: none
};

class SoakOrigin {
  public:
    explicit SoakOrigin(const OriginTuning& tuning);

    /// Makes a stream that goes live at once. `id` is new.
    void OpenStream(std::uint32_t id);
    /// Forgets it; it answers 404 from then on.
    void CloseStream(std::uint32_t id);
    std::string Url(std::uint32_t id) const;

    enum class Missing {
        kFailed,      // it was asked for, and at least one of its files could not be had
        kEmpty,       // both of its files were sent empty
        kHole,        // a manifest left names out, so that it was never named, or its number was given another name
        kNotOffered,  // it was in no manifest that was answered
    };
    /// Why segment `number` may be missing between two others that were delivered; nothing when it may not.
    std::optional<Missing> WhyMissing(std::uint32_t stream, std::int64_t number) const;
    /// The same for a person who looks into it.
    std::string History(std::uint32_t stream, std::int64_t number) const;
    /// Whether this representation of the segment was once sent as an empty body, which is a file like any other.
    bool WasEmpty(const BodyName& name) const;
    /// Whether a failed download may have left a file of this name behind.
    bool MayHaveLeft(std::uint32_t stream, std::int64_t number) const;

    struct Counts {
        std::uint64_t manifests = 0;
        std::uint64_t segmentFiles = 0;
        std::uint64_t faults = 0;
        std::map<std::string_view, std::uint64_t> byKind;
    };
    Counts Count() const;
    std::size_t Connections() const { return m_loop.Connections(); }
    std::chrono::microseconds CpuTime() const { return m_loop.CpuTime(); }

  private:
    using Clock = std::chrono::steady_clock;
    /// What happened to the requests for one segment, its audio and its video together.
    struct Fetches {
        std::map<int, unsigned> attempts;  // by representation
        unsigned failed = 0;               // without a byte of a body
        std::set<int> empty;               // representations sent without a byte
        bool partial = false;              // a body that began and was cut off: its file then stands in the way
        bool audioAsked = false;
        bool videoAsked = false;
        bool listed = false;  // was named in a manifest that was answered in full
        bool holed = false;
    };
    struct Stream {
        std::int64_t first = 0;  // number of the oldest segment that there can be
        std::int64_t edge = 0;   // and of the newest
        std::size_t window = 0;
        Clock::time_point due;  // when the next one is there
        std::uint64_t manifests = 0;
        std::map<std::int64_t, Fetches> fetches;
    };

    Answer Respond(const std::string& path);
    Answer RespondManifest(std::uint32_t id, Stream& stream);
    Answer RespondSegment(const BodyName& name, Stream& stream);
    void MoveOn(std::uint32_t id, Stream& stream);
    std::uint32_t DurationMs(std::uint32_t stream, std::int64_t number) const;
    std::string ManifestText(std::uint32_t id, std::int64_t first, std::int64_t last,
                             std::optional<std::int64_t> hole) const;
    void NoteFault(std::string_view kind);

    const OriginTuning m_tuning;
    mutable std::mutex m_mutex;                 // guards the two that follow
    std::map<std::uint32_t, Stream> m_streams;  // by id
    Counts m_counts;
    AnswerLoop m_loop;  // last: its thread uses the others
};

}  // namespace kvmpd::test
