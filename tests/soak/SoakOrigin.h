// Live streams on loopback that misbehave by a seed, each with the ledger that tells afterwards which segments its
// client may have missed and why.
//
// What goes wrong is a function of the seed, the stream and what is asked for, not of time: the same segment of the
// same stream fails in the same way in every run with the seed.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "tests/soak/AnswerLoop.h"
#include "tests/soak/Records.h"
#include "tests/soak/StreamLedger.h"

namespace kvmpd::test {

struct OriginTuning {
    std::uint64_t seed = 1;
    std::uint32_t segmentMs = 100;  // segments last from half of it to twice as long
    unsigned faultPercent = 100;    // of the usual share of requests that fail; 0: none
};

/// Streams that one source may play, one after the other: source I has the ids from I times this on.
inline constexpr std::uint32_t kStreamsPerSource = 20'000;

class SoakOrigin {
  public:
    explicit SoakOrigin(const OriginTuning& tuning);

    /// Makes a stream that goes live at once. `id` is new.
    void OpenStream(std::uint32_t id);
    /// Forgets it; it answers 404 from then on.
    void CloseStream(std::uint32_t id);
    std::string Url(std::uint32_t id) const;

    /// A host is about to do something to its source, for which the source may ask for a manifest sooner than it is
    /// due; whether that may let it choose its start anew, and the end of that.
    void HostActs(std::uint32_t id, bool mayRestart);
    void HostActed(std::uint32_t id);

    /// Why segment `number` with this video may be missing between two others that were delivered; nothing when it may
    /// not.
    std::optional<Missing> WhyMissing(std::uint32_t stream, int video, std::int64_t number) const;
    /// The same for a person who looks into it.
    std::string History(std::uint32_t stream, std::int64_t number) const;
    /// Whether this representation of the segment was once sent as an empty body, which is a file like any other.
    bool WasEmpty(const BodyName& name) const;
    /// Whether a failed download may have left a file of this number behind.
    bool MayHaveLeft(std::uint32_t stream, std::int64_t number, bool isVideo) const;
    StreamLedger::Losses LossesSoFar(std::uint32_t stream) const;
    /// What a source asked for and should not have; nothing while all is well.
    std::optional<std::string> Wrong() const;

    std::uint32_t DurationMs(std::uint32_t stream, std::int64_t number) const;
    /// Whose segment has this number; within one source no number is used twice.
    static bool IsNumberOf(std::uint32_t stream, std::int64_t number);

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
    struct Stream {
        std::int64_t first = 0;  // number of the oldest segment that there can be
        std::int64_t edge = 0;   // and of the newest
        std::size_t window = 0;
        Clock::time_point due;  // when the next one is there
        std::uint64_t manifests = 0;
        StreamLedger ledger;
    };
    /// Manifests that a source may ask for now.
    struct Allowance {
        double manifests = 0;
        Clock::time_point since;
    };

    Answer Respond(const std::string& path);
    Answer RespondManifest(std::uint32_t id, Stream& stream);
    Answer RespondSegment(const BodyName& name, Stream& stream);
    void MoveOn(std::uint32_t id, Stream& stream);
    const StreamLedger* Find(std::uint32_t stream) const;
    void TakeFromAllowance(std::uint32_t id);
    void NoteWrong(const std::optional<std::string>& wrong);
    std::string ManifestText(std::uint32_t id, std::int64_t first, std::int64_t last,
                             std::optional<std::int64_t> hole) const;
    void NoteFault(std::string_view kind);

    const OriginTuning m_tuning;
    mutable std::mutex m_mutex;                       // guards what follows, but not the loop
    std::map<std::uint32_t, Stream> m_streams;        // by id
    std::map<std::uint32_t, Allowance> m_allowances;  // by source
    std::optional<std::string> m_wrong;
    Counts m_counts;
    AnswerLoop m_loop;  // last: its thread uses the others
};

}  // namespace kvmpd::test
