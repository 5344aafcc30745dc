#include "tests/faults/FaultCell.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <thread>
#include <utility>

#include "stream/CAsyncStream.h"
#include "tests/faults/Answers.h"
#include "tests/faults/CompressedTime.h"
#include "tests/faults/FaultHost.h"
#include "tests/faults/Oracle.h"
#include "tests/faults/PlatformList.h"
#include "tests/support/TempDir.h"

namespace kvmpd::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr milliseconds kLook{10};
constexpr size_t kEnoughManifests = 3;
constexpr size_t kEnoughSegments = 4;  // faulted requests: the first segment's attempts and one more
constexpr size_t kPiece = 4096;
constexpr int kAttempts = 3;

template <class Fetch>
size_t CountFaulted(const std::vector<Fetch>& fetches) {
    return static_cast<size_t>(std::ranges::count_if(fetches, &Fetch::faulted));
}

class Cell {
  public:
    explicit Cell(const FaultCase& fault)
        : m_fault(fault),
          m_origin(fault, m_folder.Path(), [this](int number) { WaitUntilSettledBefore(number); }),
          m_begin(Clock::now()) {
        m_result.fault = fault;
    }

    CellResult Run() {
        StartSource();
        while (!Look()) {
            if (!m_result.failures.empty()) {
                return Finish();
            }
            if (Clock::now() - m_begin > kCellLimit) {
                Fail("hangs: " + State());
                return Finish();
            }
            std::this_thread::sleep_for(kLook);  // nothing tells when a ledger of the origin's changes
        }
        if (m_fault.duration == Duration::kForEver) {
            StopInTheMiddle();
        } else {
            StopWhenIdle();
        }
        CheckRate();
        CheckFolder();
        CheckOutcome();
        return Finish();
    }

  private:
    /// One round: what has come is read and compared, what failed is seen to. Whether the cell is at its end.
    bool Look() {
        m_ledger = m_origin.Snapshot();
        m_judgement = Judge(m_ledger, m_manifestsBefore, FaultOrigin::kDelay);
        for (const std::string& complaint : m_judgement.complaints) {
            Fail(complaint);
        }
        if (!ReadNew(0, m_judgement.video, m_videoRead) ||
            !ReadNew(AUDIO_POSITION_BASE, m_judgement.audio, m_audioRead)) {
            return false;
        }
        m_settledThrough = m_judgement.settledThrough;
        SeeToFailures();
        if (m_fault.duration == Duration::kForEver) {
            return IsEnough();
        }
        if (!m_frozen && IsOver()) {
            m_origin.Freeze();
            m_frozen = true;
            return false;  // the ledger of this round may lack a manifest that was asked for just before
        }
        return m_frozen && m_judgement.settled && HasHeardAll();
    }

    bool ReadNew(LONGLONG base, const std::string& stream, size_t& read) {
        while (read < stream.size()) {
            std::string got(std::min(kPiece, stream.size() - read), '\0');
            const HRESULT result = m_host->Read(base + static_cast<LONGLONG>(read), got);
            if (result != S_OK || stream.compare(read, got.size(), got) != 0) {
                std::ostringstream text;
                text << (base == 0 ? "video" : "audio") << " bytes from " << read << " of " << stream.size();
                if (result == S_OK) {
                    text << " differ";
                } else {
                    text << " do not come: result 0x" << std::hex << static_cast<unsigned>(result);
                }
                text << "; " << State();
                Fail(text.str());
                return false;
            }
            read += got.size();
        }
        return true;
    }

    /// The host's part: after a failed manifest it waits, then wakes the loader; where nothing can, a new source.
    void SeeToFailures() {
        const Heard heard = m_host->SoFar();
        if (heard.ManifestFailures() > m_failuresSeen) {
            m_failuresSeen = heard.ManifestFailures();
            m_wakeAt = Clock::now() + kHostBackOff;
        }
        if (!m_wakeAt || Clock::now() < *m_wakeAt) {
            return;
        }
        m_wakeAt.reset();
        if (heard.news != 0) {
            ++m_wakes;
            m_host->Wake();
            return;
        }
        CheckEvents(m_judgement, m_judgement);
        m_result.manifestsFailed += m_failuresSeen;
        Note(m_result.idleStops, m_host->Stop(NameOf(m_fault)), milliseconds(0));
        m_manifestsBefore = m_origin.Snapshot().manifests.size();
        StartSource();
    }

    void StartSource() {
        m_failuresSeen = 0;
        ++m_sources;
        m_host = std::make_unique<FaultHost>(m_folder.Path(), FaultOrigin::kDelay);
        m_host->Load(m_origin.Url());
    }

    size_t Faulted() const {
        return IsManifest(m_fault.target) ? CountFaulted(m_ledger.manifests)
                                          : CountFaulted(m_ledger.Segments(m_fault.target));
    }

    /// Whether a fault that lasts for ever has shown what it does, and is at work at this moment where it takes time.
    bool IsEnough() const {
        const bool manifest = IsManifest(m_fault.target);
        if (Faulted() < (manifest ? kEnoughManifests : kEnoughSegments)) {
            return false;
        }
        if (!IsSlow(m_fault.kind)) {
            return !manifest || m_host->SoFar().ManifestFailures() >= m_judgement.malformed + m_judgement.failed;
        }
        return manifest ? !m_ledger.manifests.back().finished
                        : std::ranges::any_of(m_ledger.Segments(m_fault.target), [](const SegmentFetch& fetch) {
                              return fetch.faulted && !fetch.finished;
                          });
    }

    /// Whether a passing fault is over and the target is served again.
    bool IsOver() const {
        if (Faulted() == 0) {
            return false;
        }
        if (IsManifest(m_fault.target)) {
            return m_judgement.newsAfterFault;
        }
        return !m_ledger.Segments(m_fault.target).back().faulted;
    }

    bool HasHeardAll() const {
        const Heard heard = m_host->SoFar();
        return heard.segmentsLost >= m_judgement.lost && heard.news >= m_judgement.news &&
               heard.ManifestFailures() >= m_judgement.failed + m_judgement.malformed &&
               heard.buffered == BufferedEnd(m_judgement);
    }
    static LONGLONG BufferedEnd(const Judgement& judgement) {
        return static_cast<LONGLONG>(judgement.delivered) * kSegment.count();
    }

    void StopWhenIdle() {
        Note(m_result.idleStops, m_host->Stop(NameOf(m_fault)), milliseconds(0));
        Conclude(m_judgement);
        const LONGLONG buffered = m_host->SoFar().buffered;
        if (buffered != BufferedEnd(m_judgement)) {
            Fail("the host was told of " + std::to_string(buffered) + " ms instead of " +
                 std::to_string(BufferedEnd(m_judgement)));
        }
    }

    void StopInTheMiddle() {
        const Judgement before = m_judgement;
        m_stopping = true;
        Note(m_result.faultingStops, m_host->Stop(NameOf(m_fault)), StopBound(m_fault));
        m_ledger = WhenAllEnded();
        m_judgement = Judge(m_ledger, m_manifestsBefore, FaultOrigin::kDelay);
        Conclude(before);
    }

    /// The ledger when the origin, too, knows that every connection is closed.
    Ledger WhenAllEnded() {
        for (;;) {
            Ledger ledger = m_origin.Snapshot();
            const auto ended = [](const auto& fetches) {
                return std::ranges::all_of(fetches, [](const auto& fetch) { return fetch.finished; });
            };
            if (ended(ledger.manifests) && ended(ledger.audio) && ended(ledger.video)) {
                return ledger;
            }
            if (Clock::now() - m_begin > kCellLimit) {
                Fail("a connection outlives its source");
                return ledger;
            }
            std::this_thread::sleep_for(kLook);
        }
    }

    void Conclude(const Judgement& before) {
        CheckEvents(before, m_judgement);
        m_result.delivered = before.delivered;
        m_result.lost = m_host->SoFar().segmentsLost;
        m_result.skipped = m_judgement.skipped;
        m_result.manifestsFailed += m_host->SoFar().ManifestFailures();
        m_result.faultedRequests = Faulted();
    }

    /// What was told is what happened: all that was known `before` a stop, at most what is known `after` it.
    void CheckEvents(const Judgement& before, const Judgement& after) {
        const Heard heard = m_host->SoFar();
        const auto check = [this](const char* what, size_t got, size_t least, size_t most) {
            if (got < least || got > most) {
                Fail(std::string(what) + ": " + std::to_string(got) + " reported, " + std::to_string(least) + " to " +
                     std::to_string(most) + " happened");
            }
        };
        check("segments lost", heard.segmentsLost, before.lost, after.lost);
        check("manifests failed", heard.failed, before.failed, after.failed);
        check("manifests malformed", heard.malformed, before.malformed, after.malformed);
        check("manifests with news", heard.news, before.news, after.news);
        check("other events", heard.unexpected, 0, 0);
    }

    void CheckRate() {
        m_result.manifestFetches = m_ledger.manifests.size();
        m_result.mostManifestsInASecond = MostManifestsWithin(m_ledger, kRateWindow);
        if (m_result.mostManifestsInASecond > 2) {
            std::ostringstream text;
            text << m_result.mostManifestsInASecond << " manifests asked for within a second; all of them, in ms:";
            for (const ManifestFetch& fetch : m_ledger.manifests) {
                text << ' ' << std::chrono::duration_cast<milliseconds>(fetch.at - m_begin).count();
            }
            Fail(text.str());
        }
        if (m_ledger.redirectHops > Faulted() * MostRedirects()) {
            Fail(std::to_string(m_ledger.redirectHops) + " steps around " + std::to_string(Faulted()) + " redirects");
        }
    }

    /// Of the cache nothing is left but what failed attempts wrote, and what was there before is untouched.
    void CheckFolder() {
        if (m_origin.RestoreFolder()) {
            return;  // it was gone at the stop: nobody could remove anything
        }
        std::set<std::string> expected = m_judgement.leftFiles;
        for (const std::filesystem::path& foreign : m_origin.ForeignFiles()) {
            expected.insert(foreign.filename().string());
            std::ifstream file(foreign, std::ios::binary);
            if (std::string(std::istreambuf_iterator<char>(file), {}) != kForeignText) {
                Fail("a file that is not the component's was touched");
            }
        }
        std::set<std::string> left;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder.Path())) {
            left.insert(entry.path().filename().string());
        }
        if (left != expected) {
            Fail(std::to_string(left.size()) + " files left in the cache folder instead of " +
                 std::to_string(expected.size()));
        }
    }

    void CheckOutcome() {
        const Outcome outcome = OutcomeOf(m_fault.kind, m_fault.target, m_fault.duration);
        if (!IsAs(outcome)) {
            Fail("is not: " + std::string(NameOf(outcome)) + "; " + State());
        }
    }

    bool IsAs(Outcome outcome) const {
        const size_t lost = m_result.lost;
        const bool none = lost == 0 && m_result.skipped == 0;
        const bool steady = m_result.manifestsFailed == 0 && m_sources == 1 && m_wakes == 0;
        const bool allOfTen = m_fault.duration == Duration::kTenSegments && !IsSlow(m_fault.kind);
        const bool allReported = m_result.manifestsFailed == m_result.faultedRequests;
        switch (outcome) {
            case Outcome::kNothingLost:
            case Outcome::kStoredAsMedia:
                return none && steady;
            case Outcome::kOneLost:
                return lost == 1 && m_result.skipped == 0 && steady;
            case Outcome::kFaultedLost:
                return (allOfTen ? lost == kFaultSegments : lost >= 1) && m_result.skipped == 0 && steady;
            case Outcome::kWokenByHost:
                return none && allReported && m_sources == 1 && m_wakes == m_result.faultedRequests;
            case Outcome::kReplacedByHost:
                return none && allReported && m_sources == 1 + m_result.faultedRequests && m_wakes == 0;
            case Outcome::kReportedUntilStop:
                return none && m_result.manifestsFailed >= kEnoughManifests - 1;
            case Outcome::kNumbersLost:
                return lost >= 1 && m_result.skipped == 0 && steady;
            case Outcome::kNotOfferedNotAsked:
                return lost == 0 && m_result.skipped >= 1 && steady;
            case Outcome::kStandsStill:
                return none && steady && m_result.delivered == FaultOrigin::kDelay + 1;
        }
        return false;
    }

    void Note(std::vector<milliseconds>& times, milliseconds took, milliseconds bound) {
        times.push_back(took);
        if (took > bound + kStopSlack) {
            Fail("the stop took " + std::to_string(took.count()) + " ms; its bound is " +
                 std::to_string(bound.count()) + " ms and " + std::to_string(kStopSlack.count()) + " ms of slack");
        }
    }

    void WaitUntilSettledBefore(int number) {
        const Clock::time_point limit = Clock::now() + kCellLimit;
        while (m_settledThrough + 1 < number && !m_stopping && Clock::now() < limit) {
            std::this_thread::sleep_for(kLook);
        }
    }

    std::string State() const {
        const Heard heard = m_host->SoFar();
        std::ostringstream text;
        text << m_ledger.manifests.size() << " manifests, " << m_ledger.audio.size() << " audio and "
             << m_ledger.video.size() << " video requests, " << Faulted() << " of them faulted; "
             << m_judgement.delivered << " segments delivered, " << m_judgement.lost << " lost, " << m_judgement.skipped
             << " skipped, " << (m_judgement.settled ? "settled" : "not settled") << (m_frozen ? ", frozen" : "")
             << "; heard " << heard.news << "/" << heard.malformed << "/" << heard.failed << " manifests, "
             << heard.segmentsLost << " lost, " << heard.buffered << " ms; " << m_wakes << " wakes, " << m_sources
             << " sources";
        return text.str();
    }

    void Fail(std::string text) { m_result.failures.push_back(std::move(text)); }

    CellResult Finish() {
        m_stopping = true;
        m_host.reset();
        return std::move(m_result);
    }

    const FaultCase m_fault;
    TempDir m_folder;
    std::atomic<int> m_settledThrough{0};
    std::atomic<bool> m_stopping{false};
    FaultOrigin m_origin;
    std::unique_ptr<FaultHost> m_host;
    const Clock::time_point m_begin;
    CellResult m_result{};
    Ledger m_ledger;
    Judgement m_judgement;
    size_t m_manifestsBefore = 0;
    size_t m_videoRead = 0;
    size_t m_audioRead = 0;
    size_t m_failuresSeen = 0;
    size_t m_wakes = 0;
    size_t m_sources = 0;
    std::optional<Clock::time_point> m_wakeAt;
    bool m_frozen = false;
};

}  // namespace

std::string NameOf(const FaultCase& fault) {
    return std::string(NameOf(fault.kind)) + ", " + std::string(NameOf(fault.target)) + ", " +
           std::string(NameOf(fault.duration));
}

milliseconds StopBound(const FaultCase& fault) {
    if (IsStall(fault.kind)) {
        return IsManifest(fault.target) ? kShortReceiveTimeout : kAttempts * kShortReceiveTimeout;
    }
    switch (fault.kind) {
        case FaultKind::kTrickle:
            return 2 * kTrickledBytes * kTricklePace;
        case FaultKind::kStallThatEnds:
            return 2 * kPauses * kPause;
        default:
            return milliseconds(0);
    }
}

CellResult RunCell(const FaultCase& fault) {
    try {
        return Cell(fault).Run();
    } catch (const std::exception& error) {
        CellResult result{};
        result.fault = fault;
        result.failures.emplace_back(error.what());
        return result;
    }
}

}  // namespace kvmpd::test
