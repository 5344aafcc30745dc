#include "tests/faults/FaultReport.h"

#include <algorithm>
#include <map>
#include <ostream>
#include <string>

#include "tests/faults/CompressedTime.h"
#include "tests/faults/PlatformList.h"

namespace kvmpd::test {
namespace {

using Times = std::vector<milliseconds>;

void Append(Times& times, const Times& more) {
    times.insert(times.end(), more.begin(), more.end());
}

void WriteStopRow(std::ostream& out, const char* what, Times times, const std::string& bound) {
    if (times.empty()) {
        return;
    }
    std::ranges::sort(times);
    out << "| " << what << " | " << times.size() << " | " << times[times.size() / 2].count() << " ms | "
        << times.back().count() << " ms | " << bound << " |\n";
}

std::string Milliseconds(milliseconds time) {
    return std::to_string(time.count()) + " ms";
}

std::string_view WhyNot(FaultKind kind, Target target) {
    const std::string_view reason = LeftOut(kind, target);
    return reason.empty() ? NotOnThisList(kind, target) : reason;
}

/// What a cell came to, in the words of the legend.
std::string TextOf(const CellResult& cell) {
    if (!cell.failures.empty()) {
        return "**FAILED**";
    }
    const Outcome outcome = OutcomeOf(cell.fault.kind, cell.fault.target, cell.fault.duration);
    std::string text(NameOf(outcome));
    if (cell.fault.duration == Duration::kForEver) {
        return text;  // how many they were is a question of when the cell was stopped
    }
    switch (outcome) {
        case Outcome::kFaultedLost:
        case Outcome::kNumbersLost:
            return text + " (" + std::to_string(cell.lost) + ")";
        case Outcome::kWokenByHost:
        case Outcome::kReplacedByHost:
        case Outcome::kReportedUntilStop:
            return text + " (" + std::to_string(cell.manifestsFailed) + ")";
        case Outcome::kNotOfferedNotAsked:
            return text + " (" + std::to_string(cell.skipped) + ")";
        default:
            return text;
    }
}

constexpr char kIntroduction[] = R"(# The fault matrix

One live stream, one fault, one cell: what becomes of the source, its host and the bytes. This page is written by the test
itself (`cmake --build BUILD --target faults_report`); the test is `tests/faults`. It counts in real time and so runs alone:
`scripts/test faults` runs it plain and under the address sanitizer, and the suite `windows` runs it under Wine after its other
tests, with the shorter list of [windows.md](windows.md#the-fault-matrix).

## What a cell is

A source made through the module's exported functions follows a live origin on loopback, which answers everything as it
should but for one *kind* of fault at one *target*:

- *once*: one request;
- *10 s*: every request that belongs to ten segments of media time;
- *for ever*: every request from a point on, until the source is stopped in the middle of it; that is longer than *10 s*.

The stream plays before the fault begins, except for the target "first manifest". The host is `kvmpd`'s supervisor with its
policy (`app/SourceSupervisor.h`, `app/RetryPolicy.h`), as they ship: after a failed manifest it waits, then wakes the loader
with a changed delay; where no manifest had been loaded yet nothing can wake it, and it makes a new source. It watches for
stalls only in the cells where a transfer has no end. Each source has a cache folder of its own; that is the folder which goes
away in "cache folder gone".

Each cell asserts

- that nothing crashes, and that the cell comes to its end (no hang);
- that the delivered video and audio are, byte for byte and in order, the segments of which the origin sent both files
  completely, each once; the test computes them from the origin's own record of what it was asked and what it answered;
- that what was lost is what was reported: as many events 9 as segments that could not be had, as many events 0 with 1 or 2 as
  manifests that failed, no other event, and a buffering report that counts exactly the delivered segments;
- that a passing fault passes: the stream follows the live edge again;
- that no three manifests are asked for within one second, the steps of a redirect loop (ten at most) not counted;
- that each segment is asked for at most three times, at once, and nothing is asked for twice otherwise;
- that each source's stop ends within its bound, that every thread of it has then ended, and that no file is left in its cache
  folder but those that failed attempts had written (a file of somebody else's is never touched). Where the folder was gone
  at the stop, nothing could be removed: what was delivered is in it still, nothing else, and no other folder was made;
- at every look, and so as long as a fault lasts, that the component has no more threads than its open sources need, and where
  it lasts for ever, no more files than the cache it was granted, what failed attempts wrote and the segment under way.

## Compressed time

)";

constexpr char kLegend[] = R"(## What came of it

| word | meaning |
|---|---|
| nothing lost | every segment is delivered; a failed attempt is made good by the next one |
| stored as media | every segment is delivered, and what the origin answered in its place (an error page, nothing, the announced part) is delivered as media: the HTTP status is never judged, the announced length rules |
| one lost | one segment is lost and reported by event 9: its file has a beginning, or belongs to somebody else, and is never written over |
| faulted lost (n) | n segments met nothing but the fault; each is reported by event 9, the stream goes on behind them |
| woken (n) | n manifests failed, each is reported by event 0; the host wakes the loader, and every segment is delivered |
| new source (n) | the same before the first manifest: the host makes a new source each time |
| reported (n) | n manifests failed, each is reported by event 0, until the host stops the source |
| nameless lost (n) | the lists have one name less than the timeline has segments: names move up, the last segment has none; it is reported by event 9 |
| followed as listed (n) | the numbers are taken as they come: n of them were in no list while they could be asked for. Nothing was fetched and lost, so nothing is reported; the gap shows in the media times |
| stands still | no manifest lists anything new; the source asks on at its pace |
| stall, new source | the transfer goes on and brings nothing of use: no time-out ends it, nothing is reported, and a stop waits for it. The host sees that nothing comes, makes a new source beside it, and with that every segment is delivered once the fault is over |
| - | no such cell, see below |

The three entries of a field are: once / 10 s / for ever.

)";

}  // namespace

FaultReport& FaultReport::Instance() {
    static FaultReport report;
    return report;
}

void FaultReport::Add(const std::vector<CellResult>& results) {
    m_results.insert(m_results.end(), results.begin(), results.end());
}

const CellResult* FaultReport::Find(const FaultCase& fault) const {
    const auto found = std::ranges::find_if(m_results, [&](const CellResult& cell) {
        return cell.fault.kind == fault.kind && cell.fault.target == fault.target &&
               cell.fault.duration == fault.duration;
    });
    return found == m_results.end() ? nullptr : &*found;
}

void FaultReport::Write(std::ostream& out) const {
    out << kIntroduction;
    out << "A segment is " << kSegment.count() << " ms of media, and the live edge moves by " << kSegmentsPerReload
        << " segments with each manifest that is asked for: the pace of a live\n"
           "stream, since the component never reloads more than once a second. Ten seconds are the ten segments from "
           "the first\n"
           "faulted one on, or "
        << Milliseconds(kFaultTime)
        << " where the faulted requests take time by themselves (stalls, one byte per second, a slow\n"
           "look-up). For ever is "
        << kForEverSegments << " segments or " << kForEverManifests << " manifests, with stalls "
        << kForEverStalledSegments << " or " << kForEverStalledManifests << ", and " << kForEverTrickling
        << " sources that trickle without end; a source may\n"
           "then keep "
        << kCacheSeconds << " s in its cache.\n\n"
        << "One byte per second at the end is one byte every " << Milliseconds(kTricklePace) << ", for the last "
        << kTrickledBytes << " bytes of a body; without end, one byte every\n"
        << Milliseconds(kEndlessPace)
        << " from an eighth of the body on, until the cell is over. A stall that ends in time is "
        << Milliseconds(kPause)
        << ", once before and\n"
           "once in the middle of a body. A slow look-up takes "
        << Milliseconds(kSlowLookUp)
        << ". The receive time-out of 30 s, which the control interface does\n"
           "not offer to change, is "
        << Milliseconds(kShortReceiveTimeout)
        << " in the cells with the other stalls and with the trickle without end; the test shortens\n"
           "it where the component hands it to the system.\n\n"
           "The host waits "
        << Milliseconds(app::RetryPolicy::Options{}.shortest) << " to " << Milliseconds(kLongestBackOff)
        << " between two tries, where `kvmpd` goes up to " << Milliseconds(app::RetryPolicy::Options{}.longest)
        << ", and replaces a source that\n"
           "trickles after "
        << Milliseconds(kStallLimit)
        << " without media, longer each time. The rate of manifests is not compressed: it is counted in\n"
           "real seconds.\n\n"
           "A connection is refused by the system, which the test gives a closed port in place of the origin's; a name "
           "is not\n"
           "found, or late, because the test answers in place of the system's look-up. So both begin and end in the "
           "middle of a\n"
           "stream, at the manifest's own address as well.\n\n";
    WriteTotals(out);
    WriteStops(out);
    out << kLegend;
    WriteTable(out);
    WriteLeftOut(out);
    WriteFailures(out);
}

void FaultReport::WriteTotals(std::ostream& out) const {
    size_t failed = 0;
    size_t faulted = 0;
    size_t delivered = 0;
    size_t lost = 0;
    size_t manifests = 0;
    size_t most = 0;
    size_t threads = 0;
    size_t files = 0;
    for (const CellResult& cell : m_results) {
        failed += cell.failures.empty() ? 0 : 1;
        faulted += cell.faultedRequests;
        delivered += cell.delivered;
        lost += cell.lost;
        manifests += cell.manifestFetches;
        most = std::max(most, cell.mostManifestsInASecond);
        threads = std::max(threads, cell.mostThreads);
        files = std::max(files, cell.fault.duration == Duration::kForEver ? cell.mostCached : 0);
    }
    out << "## Totals\n\n| | |\n|---|---|\n| cells | " << m_results.size() << " |\n| as expected | "
        << m_results.size() - failed << " |\n| not as expected | " << failed << " |\n| faulted requests | " << faulted
        << " |\n| segments delivered and compared | " << delivered << " |\n| segments lost, each reported | " << lost
        << " |\n| manifests asked for | " << manifests << " |\n| most manifests within a second | " << most
        << " |\n| most threads of the component in a cell | " << threads
        << " |\n| most files of the cache and of the segment under way, where the fault lasts for ever | " << files
        << " |\n\n";
}

void FaultReport::WriteStops(std::ostream& out) const {
    Times all;
    Times idle;
    Times quick;
    Times stalled;
    Times trickling;
    Times pausing;
    Times slow;
    Times endless;
    for (const CellResult& cell : m_results) {
        Append(idle, cell.idleStops);
        Append(cell.fault.kind == FaultKind::kTrickle         ? trickling
               : cell.fault.kind == FaultKind::kStallThatEnds ? pausing
               : cell.fault.kind == FaultKind::kNameSlow      ? slow
               : IsStall(cell.fault.kind)                     ? stalled
                                                              : quick,
               cell.faultingStops);
        Append(endless, cell.trickledStops);
        Append(all, cell.idleStops);
        Append(all, cell.faultingStops);
    }
    const std::string slack = Milliseconds(kStopSlack) + " for the machine";
    out << "## Stop times\n\nFrom the last release of the source until it returned, every thread of the source having "
           "ended.\nA running transfer is completed, or ends by its time-out; that is the bound. One that trickles "
           "meets no\n"
           "time-out and has no end of its own: the stop waits for it, whatever that takes, and its time is counted "
           "from\n"
           "the moment at which the server ends it.\n\n"
           "| stop | count | median | worst | bound |\n|---|---|---|---|---|\n";
    WriteStopRow(out, "after the fault, nothing under way", idle, slack);
    WriteStopRow(out, "in the middle of a fault that answers", quick, slack);
    WriteStopRow(out, "in the middle of one byte per second at the end", trickling,
                 "the rest of the bodies, " + Milliseconds(2 * kTrickledBytes * kTricklePace) + ", and the same");
    WriteStopRow(out, "in the middle of a stall that ends in time", pausing,
                 "the rest of the bodies, " + Milliseconds(2 * kPauses * kPause) + ", and the same");
    WriteStopRow(out, "in the middle of a slow look-up", slow,
                 "the look-ups, " + Milliseconds(2 * kSlowLookUp) + ", and the same");
    WriteStopRow(out, "in an endless trickle, from its end", endless, slack);
    WriteStopRow(out, "in the middle of a stall", stalled,
                 "the time-out, " + Milliseconds(kShortReceiveTimeout) +
                     ", for a manifest and three times that for a "
                     "segment, and the same");
    WriteStopRow(out, "all but those of the endless trickle", all, "");
    out << "\n";
}

void FaultReport::WriteTable(std::ostream& out) const {
    out << "| fault |";
    for (const Target target : kTargets) {
        out << ' ' << NameOf(target) << " |";
    }
    out << "\n|---|---|---|---|---|\n";
    for (const FaultKind kind : kKinds) {
        out << "| " << NameOf(kind) << " |";
        for (const Target target : kTargets) {
            std::string field;
            for (const Duration duration : kDurations) {
                const CellResult* const cell = Find({kind, target, duration});
                field += (field.empty() ? "" : " / ") + (cell != nullptr ? TextOf(*cell) : std::string("-"));
            }
            out << ' ' << (field == "- / - / -" ? "-" : field) << " |";
        }
        out << "\n";
    }
    out << "\n";
}

void FaultReport::WriteLeftOut(std::ostream& out) const {
    out << "## Cells that there are not\n\n| fault | target | why |\n|---|---|---|\n";
    for (const FaultKind kind : kKinds) {
        std::map<std::string_view, std::string> targets;  // by reason
        for (const Target target : kTargets) {
            const std::string_view reason = WhyNot(kind, target);
            if (!reason.empty()) {
                std::string& list = targets[reason];
                list += (list.empty() ? "" : ", ") + std::string(NameOf(target));
            }
        }
        for (const auto& [reason, list] : targets) {
            out << "| " << NameOf(kind) << " | " << list << " | " << reason << " |\n";
        }
    }
}

void FaultReport::WriteFailures(std::ostream& out) const {
    if (std::ranges::all_of(m_results, [](const CellResult& cell) { return cell.failures.empty(); })) {
        return;
    }
    out << "\n## Cells that are not as they should be\n\n";
    for (const CellResult& cell : m_results) {
        for (const std::string& failure : cell.failures) {
            out << "- " << NameOf(cell.fault) << ": " << failure << "\n";
        }
    }
}

}  // namespace kvmpd::test
