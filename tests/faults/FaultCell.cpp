#include "tests/faults/FaultCell.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <future>
#include <memory>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

#include "stream/CAsyncStream.h"
#include "tests/faults/Answers.h"
#include "tests/faults/CellSources.h"
#include "tests/faults/CompressedTime.h"
#include "tests/faults/LeftFiles.h"
#include "tests/faults/Oracle.h"
#include "tests/faults/PlatformList.h"
#include "tests/support/TempDir.h"

namespace kvmpd::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr milliseconds kLook{20};
/// Its feed, dispatcher, loader and downloader.
constexpr size_t kThreadsOfASource = 4;
/// Each of the last two may have one that looks a name up.
constexpr size_t kThreadsThatLookUp = 2;
/// Of a segment that is under way.
constexpr size_t kFilesUnderWay = 2;
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
          m_sources(m_origin, fault, NameOf(fault)),
          m_begin(Clock::now()) {
        m_result.fault = fault;
    }
    ~Cell() {
        m_stopping = true;
        m_origin.Release();  // nothing may hold the sources up that end next
    }
    Cell(const Cell&) = delete;
    Cell& operator=(const Cell&) = delete;

    CellResult Run() {
        m_sources.Start();
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
        Stop();
        CheckRate();
        for (std::string& complaint : ComplaintsOfFolders(m_origin, m_ledger, m_sources.Count())) {
            Fail(std::move(complaint));
        }
        CheckOutcome();
        return Finish();
    }

  private:
    /// One round: what has come is read and compared, what failed is seen to. Whether the cell is at its end.
    bool Look() {
        const size_t files = m_origin.CountFiles(m_sources.Count());  // before the ledger, which then explains them all
        m_ledger = m_origin.Snapshot();
        m_judgement = Judge(m_ledger, m_sources.Count(), FaultOrigin::kDelay);
        for (const std::string& complaint : m_judgement.complaints) {
            Fail(complaint);
        }
        if (!ReadNew(0, m_judgement.video, m_videoRead) ||
            !ReadNew(AUDIO_POSITION_BASE, m_judgement.audio, m_audioRead)) {
            return false;
        }
        m_settledThrough = m_judgement.settledThrough;
        CheckGrowth(files);
        if (m_sources.Step(m_judgement)) {
            m_videoRead = 0;
            m_audioRead = 0;
            return false;
        }
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

    /// Whatever lasts, the component keeps no more than its sources' threads and the cache that it was granted.
    void CheckGrowth(size_t files) {
        const size_t open = m_sources.Open();  // before the threads: one that closes meanwhile has fewer
        const size_t threads = m_sources.Threads().value_or(0);
        m_result.mostThreads = std::max(m_result.mostThreads, threads);
        const size_t granted = kThreadsOfASource + (StrikesTheName(m_fault.kind) ? kThreadsThatLookUp : 0);
        if (threads > granted * open) {
            Fail(std::to_string(threads) + " threads of " + std::to_string(open) + " sources");
        }
        const size_t others = m_judgement.leftFiles.size() + m_origin.ForeignFiles().size();
        const size_t cached = files - std::min(files, others);
        m_result.mostCached = std::max(m_result.mostCached, cached);
        if (m_fault.duration == Duration::kForEver && cached > 2 * (kCachedSegments + 1) + kFilesUnderWay) {
            Fail(std::to_string(files) + " files in the cache folder, " + std::to_string(others) +
                 " of them not of the cache");
        }
    }

    bool ReadNew(LONGLONG base, const std::string& stream, size_t& read) {
        while (read < stream.size()) {
            std::string got(std::min(kPiece, stream.size() - read), '\0');
            const HRESULT result = m_sources.Host().Read(base + static_cast<LONGLONG>(read), got);
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
            m_sources.MediaArrived();
        }
        return true;
    }

    size_t Faulted() const {
        return IsManifest(m_fault.target) ? CountFaulted(m_ledger.manifests)
                                          : CountFaulted(m_ledger.Segments(m_fault.target));
    }

    /// Faulted requests of which nobody has ended the answer.
    size_t FaultedAndOpen() const {
        const auto count = [](const auto& fetches) {
            return static_cast<size_t>(
                std::ranges::count_if(fetches, [](const auto& fetch) { return fetch.faulted && !fetch.finished; }));
        };
        return IsManifest(m_fault.target) ? count(m_ledger.manifests) : count(m_ledger.Segments(m_fault.target));
    }

    /// Whether a fault that lasts for ever has lasted longer than one of ten segments, and is at work at this moment
    /// where it takes time.
    bool IsEnough() const {
        if (m_fault.kind == FaultKind::kEndlessTrickle) {
            return FaultedAndOpen() >= kForEverTrickling;
        }
        const bool stall = IsStall(m_fault.kind);
        if (IsManifest(m_fault.target)) {
            if (Faulted() < (stall ? kForEverStalledManifests : kForEverManifests)) {
                return false;
            }
        } else if (m_judgement.settledThrough + 1 <
                   FaultOrigin::kFirstFaulted + (stall ? kForEverStalledSegments : kForEverSegments)) {
            return false;
        }
        if (IsSlow(m_fault.kind)) {
            return FaultedAndOpen() != 0;
        }
        return !IsManifest(m_fault.target) ||
               m_sources.SoFar().ManifestFailures() >= m_judgement.malformed + m_judgement.failed;
    }

    /// Whether a passing fault is over and the target is served again.
    bool IsOver() const {
        if (Faulted() == 0) {
            return false;
        }
        if (IsManifest(m_fault.target)) {
            return m_judgement.newsAfterFault;
        }
        const SegmentFetch& last = m_ledger.Segments(m_fault.target).back();
        return !last.faulted && last.source == m_sources.Count();
    }

    bool HasHeardAll() const {
        const Heard heard = m_sources.SoFar();
        return heard.segmentsLost >= m_judgement.lost && heard.news >= m_judgement.news &&
               heard.ManifestFailures() >= m_judgement.failed + m_judgement.malformed &&
               heard.buffered == BufferedEnd(m_judgement);
    }
    static LONGLONG BufferedEnd(const Judgement& judgement) {
        return static_cast<LONGLONG>(judgement.delivered) * kSegment.count();
    }

    void Stop() {
        const bool idle = m_fault.duration != Duration::kForEver;
        const std::vector<std::shared_ptr<SourceRecord>>& records = m_sources.Records();
        records.back()->before = m_judgement;
        m_stopping = true;
        const Clock::time_point released = CloseAll();
        m_ledger = WhenAllEnded();
        for (const auto& record : records) {
            const bool last = record == records.back();
            m_judgement = Judge(m_ledger, static_cast<int>(&record - records.data()) + 1, FaultOrigin::kDelay);
            Conclude(*record, last);
            NoteStop(*record, last && !idle, released);
        }
        if (const LONGLONG buffered = m_sources.SoFar().buffered; idle && buffered != BufferedEnd(m_judgement)) {
            Fail("the host was told of " + std::to_string(buffered) + " ms instead of " +
                 std::to_string(BufferedEnd(m_judgement)));
        }
        m_result.faultedRequests = Faulted();
        CheckThreadsEnded();
    }

    /// Closes the sources. A trickle has to outlast every time-out and the stop: it ends when the origin ends it, at
    /// the time that is returned.
    Clock::time_point CloseAll() {
        if (m_fault.kind != FaultKind::kEndlessTrickle) {
            m_sources.Close();
            return {};
        }
        const std::future<void> closed = std::async(std::launch::async, [this] { m_sources.Close(); });
        if (closed.wait_for(2 * kShortReceiveTimeout) == std::future_status::ready) {
            Fail("the sources are closed although a transfer goes on");
        }
        m_ledger = m_origin.Snapshot();
        if (FaultedAndOpen() != Faulted()) {
            Fail("of " + std::to_string(Faulted()) + " transfers that trickle only " +
                 std::to_string(FaultedAndOpen()) + " go on");
        }
        const Clock::time_point released = Clock::now();
        m_origin.Release();
        closed.wait();
        return released;
    }

    /// One stop, with nothing under way but what the fault is at.
    void NoteStop(const SourceRecord& record, bool faulting, Clock::time_point released) {
        const bool trickled = m_fault.kind == FaultKind::kEndlessTrickle && record.stopEnded >= released;
        if (trickled) {
            Note(m_result.trickledStops, record.StopTookFrom(released), milliseconds(0));
        } else {
            Note(faulting ? m_result.faultingStops : m_result.idleStops, record.StopTook(),
                 faulting ? StopBound(m_fault) : milliseconds(0));
        }
    }

    /// A source's last release returns when its threads are joined; they, and what they started, end.
    void CheckThreadsEnded() {
        while (m_sources.Threads().value_or(0) != 0) {
            if (Clock::now() - m_begin > kCellLimit) {
                Fail(std::to_string(*m_sources.Threads()) + " threads outlive their source");
                return;
            }
            std::this_thread::sleep_for(kLook);
        }
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

    void Conclude(const SourceRecord& record, bool last) {
        const Heard heard = record.heard.SoFar();
        Judgement before = record.before;
        if (!last && m_fault.kind == FaultKind::kEndlessTrickle && before.news != 0) {
            --before.news;  // it was replaced at any time: the last one may not have been told yet
        }
        CheckEvents(heard, before, m_judgement);
        m_result.delivered += before.delivered;
        m_result.lost += heard.segmentsLost;
        m_result.skipped += m_judgement.skipped;
        m_result.manifestsFailed += heard.ManifestFailures();
    }

    /// What was told is what happened: all that was known `before` a stop, at most what is known `after` it.
    void CheckEvents(const Heard& heard, const Judgement& before, const Judgement& after) {
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

    void CheckOutcome() {
        const Outcome outcome = OutcomeOf(m_fault.kind, m_fault.target, m_fault.duration);
        if (!IsAs(outcome)) {
            Fail("is not: " + std::string(NameOf(outcome)) + "; " + State());
        }
    }

    bool IsAs(Outcome outcome) const {
        const size_t lost = m_result.lost;
        const bool none = lost == 0 && m_result.skipped == 0;
        const bool steady = m_result.manifestsFailed == 0 && m_sources.Count() == 1 && m_sources.Wakes() == 0;
        const bool allOfTen = m_fault.duration == Duration::kTenSegments && !IsSlow(m_fault.kind);
        const bool allReported = m_result.manifestsFailed == m_result.faultedRequests;
        switch (outcome) {
            case Outcome::kNothingLost:
            case Outcome::kStoredAsMedia:
                return none && steady;
            case Outcome::kOneLost:
                return lost == 1 && m_result.skipped == 0 && steady;
            case Outcome::kFaultedLost:
                return (allOfTen ? lost == kFaultSegments : lost >= LeastLost()) && m_result.skipped == 0 && steady;
            case Outcome::kWokenByHost:
                return none && allReported && m_sources.Count() == 1 && m_sources.Wakes() == m_result.faultedRequests;
            case Outcome::kReplacedByHost:
                return none && allReported && static_cast<size_t>(m_sources.Count()) == 1 + m_result.faultedRequests &&
                       m_sources.Wakes() == 0;
            case Outcome::kReportedUntilStop:
                return none && m_result.manifestsFailed + 1 >= m_result.faultedRequests;
            case Outcome::kNumbersLost:
                return lost >= 1 && m_result.skipped == 0 && steady;
            case Outcome::kNotOfferedNotAsked:
                return lost == 0 && m_result.skipped >= 1 && steady;
            case Outcome::kStandsStill:
                return none && steady && m_result.delivered == FaultOrigin::kDelay + 1;
            case Outcome::kStallSeenByHost:
                return none && m_result.manifestsFailed == 0 && m_sources.Wakes() == 0 &&
                       m_sources.Count() >= (m_fault.duration == Duration::kForEver ? kForEverTrickling : 2) &&
                       (m_fault.duration != Duration::kOnce || m_result.faultedRequests == 1);
        }
        return false;
    }

    /// Of segments that meet nothing but the fault.
    size_t LeastLost() const {
        if (m_fault.duration != Duration::kForEver) {
            return 1;
        }
        return IsStall(m_fault.kind) ? kForEverStalledSegments : kForEverSegments;
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
        const Heard heard = m_sources.SoFar();
        std::ostringstream text;
        text << m_ledger.manifests.size() << " manifests, " << m_ledger.audio.size() << " audio and "
             << m_ledger.video.size() << " video requests, " << Faulted() << " of them faulted; "
             << m_judgement.delivered << " segments delivered, " << m_judgement.lost << " lost, " << m_judgement.skipped
             << " skipped, " << (m_judgement.settled ? "settled" : "not settled") << (m_frozen ? ", frozen" : "")
             << "; heard " << heard.news << "/" << heard.malformed << "/" << heard.failed << " manifests, "
             << heard.segmentsLost << " lost, " << heard.buffered << " ms; " << m_sources.Wakes() << " wakes, "
             << m_sources.Count() << " sources";
        return text.str();
    }

    void Fail(std::string text) { m_result.failures.push_back(std::move(text)); }

    CellResult Finish() {
        m_stopping = true;
        m_origin.Release();
        m_sources.Close();
        return std::move(m_result);
    }

    const FaultCase m_fault;
    TempDir m_folder;
    std::atomic<int> m_settledThrough{0};
    std::atomic<bool> m_stopping{false};
    FaultOrigin m_origin;
    CellSources m_sources;
    const Clock::time_point m_begin;
    CellResult m_result{};
    Ledger m_ledger;
    Judgement m_judgement;
    size_t m_videoRead = 0;
    size_t m_audioRead = 0;
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
        case FaultKind::kNameSlow:
            return 2 * kSlowLookUp;
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
