// What one stream's client was offered, asked for and was sent, and what follows from it: which segments it may have
// missed and why, how many of them it must have reported, and whether it asked for anything that it should not.
//
// It is kept by the component's own rules. A segment is its audio file and then its video file, each asked for until it
// is had, three times at most; the segments of a manifest are taken if its last one is newer than what was taken
// before, or if the client starts with it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "tests/soak/FaultPlan.h"
#include "tests/soak/Records.h"

namespace kvmpd::test {

enum class Missing {
    kFailed,      // one of its files failed three times
    kEmpty,       // both of its files were sent empty
    kHole,        // a manifest left names out, so that it was never named, or its number was given another name
    kNotOffered,  // no manifest named it to a client that plays from before it
};

/// Not thread-safe.
class StreamLedger {
  public:
    struct Manifest {
        std::int64_t first = 0;
        std::int64_t last = 0;
        std::optional<std::int64_t> hole;  // has no name; the names behind it move up by one
        bool taken = true;                 // it arrives whole and can be read
        bool backwards = false;
    };
    void Answer(const Manifest& manifest);
    /// The client may choose its start anew from the manifest that was answered last on: when that begins, and when it
    /// is done.
    void RestartBegins();
    void RestartEnds();

    /// A file is asked for. How often it had been before, in all.
    unsigned Ask(const BodyName& name);
    /// And answered like this.
    void Send(const BodyName& name, SegmentFault fault);

    /// Why segment `number` with this video may be missing between two others that were delivered; nothing when it may
    /// not.
    std::optional<Missing> WhyMissing(int video, std::int64_t number) const;
    /// Whether this representation of the segment was once sent as an empty body, which is a file like any other.
    bool WasEmpty(const BodyName& name) const;
    /// Whether a failed download may have left a file of this number behind.
    bool MayHaveLeft(std::int64_t number, bool isVideo) const;
    std::string History(std::int64_t number) const;

    /// Segments that the client has failed to fetch by now, or is about to have failed.
    struct Losses {
        std::uint64_t fetched = 0;  // that it asked for in vain
        // Segments at the end of a list with a hole have no name and are failures without a request.
        std::uint64_t unnamedPassed = 0;  // of a client that never restarts, those that it must have come by
        std::uint64_t unnamedAhead = 0;   // and those that it may not have come by yet
        std::uint64_t unnamedMost = 0;    // of one that does, at most
    };
    Losses LossesSoFar() const;
    /// What the client asked for and should not have; the first of it.
    const std::optional<std::string>& Wrong() const { return m_wrong; }

    void ForgetBelow(std::int64_t number) { m_segments.erase(m_segments.begin(), m_segments.lower_bound(number)); }

  private:
    struct Segment {
        std::map<int, unsigned> attempts;  // by representation
        std::set<int> empty;               // representations sent without a byte
        std::set<int> partial;             // those whose body began and was cut off: their file then stands in the way
        std::set<int> failedWith;          // videos with which it was fetched in vain,
        std::set<int> emptyWith;           // and with which both files were empty
        bool named = false;
        bool holed = false;
    };
    /// The files of one segment that are being fetched, one attempt after the other.
    struct Round {
        std::int64_t number = -1;
        int video = 0;  // 0: still at the audio
        unsigned attempts = 0;
        bool had = false;  // the last attempt was answered with what makes a file
        bool failed = false;
        bool audioEmpty = false;
    };

    void Forget(std::int64_t last);
    bool IsPartial(std::int64_t number, bool isVideo) const;
    void CheckAttempt(const BodyName& name);

    std::map<std::int64_t, Segment> m_segments;
    Round m_round;
    std::uint64_t m_failed = 0;
    std::int64_t m_newestAsked = 0;
    std::int64_t m_newestNamed = 0;
    bool m_restarting = false;
    bool m_startDue = true;
    std::optional<std::int64_t> m_backTo;  // the last manifest, when it went backwards
    std::set<std::int64_t> m_unnamed;      // ends of lists with holes that were new to every client
    std::uint64_t m_holes = 0;
    std::optional<std::string> m_wrong;
};

}  // namespace kvmpd::test
