#include "tests/soak/SoakOrigin.h"

#include <algorithm>
#include <charconv>

#include "tests/soak/FaultPlan.h"

namespace kvmpd::test {
namespace {

using std::chrono::milliseconds;

constexpr std::int64_t kRemembered = 3000;  // segments behind the live edge
/// Segment numbers that a stream has for itself; all of a source's streams together stay below 2^31.
constexpr std::int64_t kNumbersPerStream = 100'000;
/// A source asks for a manifest once a second at most, unless its host does something. One that is answered late, or
/// noticed late, may be followed by the next at once: so some may come together, and on the whole twice as many.
constexpr double kManifestsPerSecond = 2;
constexpr double kManifestsTogether = 8;
constexpr double kManifestsPerAction = 2;

/// The number at the front of `text`, which then begins behind it and one further character.
std::int64_t TakeNumber(std::string_view& text) {
    std::int64_t number = 0;
    const char* const end = std::from_chars(text.data(), text.data() + text.size(), number).ptr;
    text.remove_prefix(std::min(text.size(), static_cast<std::size_t>(end - text.data()) + 1));
    return number;
}

std::string Names(std::int64_t first, std::int64_t last, std::optional<std::int64_t> hole) {
    std::string text = "<SegmentList>";
    for (std::int64_t number = first; number <= last; ++number) {
        if (hole != number) {
            text += "<SegmentURL media=\"" + std::to_string(number) + "\"/>";
        }
    }
    return text + "</SegmentList>";
}

}  // namespace

SoakOrigin::SoakOrigin(const OriginTuning& tuning)
    : m_tuning(tuning), m_loop([this](const std::string& path) { return Respond(path); }) {}

void SoakOrigin::OpenStream(std::uint32_t id) {
    const std::uint64_t dice = Mix(m_tuning.seed, id);
    Stream stream;
    stream.window = 12 + dice % 70;
    stream.first = id % kStreamsPerSource * kNumbersPerStream + 1000 + static_cast<std::int64_t>((dice >> 16) % 10'000);
    stream.edge = stream.first + static_cast<std::int64_t>(stream.window) / 2;
    stream.due = Clock::now() + milliseconds(DurationMs(id, stream.edge + 1));
    const std::lock_guard lock(m_mutex);
    m_streams.emplace(id, std::move(stream));
}

void SoakOrigin::CloseStream(std::uint32_t id) {
    const std::lock_guard lock(m_mutex);
    m_streams.erase(id);
}

bool SoakOrigin::IsNumberOf(std::uint32_t stream, std::int64_t number) {
    return number / kNumbersPerStream == stream % kStreamsPerSource;
}

std::string SoakOrigin::Url(std::uint32_t id) const {
    return "http://127.0.0.1:" + std::to_string(m_loop.Port()) + "/" + std::to_string(id) + "/live.mpd";
}

void SoakOrigin::HostActs(std::uint32_t id, bool mayRestart) {
    const std::lock_guard lock(m_mutex);
    m_allowances[id / kStreamsPerSource].manifests += kManifestsPerAction;
    if (const auto found = m_streams.find(id); mayRestart && found != m_streams.end()) {
        found->second.ledger.RestartBegins();
    }
}

void SoakOrigin::HostActed(std::uint32_t id) {
    const std::lock_guard lock(m_mutex);
    if (const auto found = m_streams.find(id); found != m_streams.end()) {
        found->second.ledger.RestartEnds();
    }
}

void SoakOrigin::TakeFromAllowance(std::uint32_t id) {
    Allowance& allowance = m_allowances[id / kStreamsPerSource];
    const Clock::time_point now = Clock::now();
    const double seconds = std::chrono::duration<double>(now - allowance.since).count();
    allowance.manifests = std::min(kManifestsTogether, allowance.manifests + seconds * kManifestsPerSecond) - 1;
    allowance.since = now;
    if (allowance.manifests < 0) {
        NoteWrong("source " + std::to_string(id / kStreamsPerSource) + " asks for manifests more often than it may");
    }
}

void SoakOrigin::NoteWrong(const std::optional<std::string>& wrong) {
    if (!m_wrong) {
        m_wrong = wrong;
    }
}

std::optional<std::string> SoakOrigin::Wrong() const {
    const std::lock_guard lock(m_mutex);
    return m_wrong;
}

/// The ledger of a stream that is open.
const StreamLedger* SoakOrigin::Find(std::uint32_t stream) const {
    const auto found = m_streams.find(stream);
    return found == m_streams.end() ? nullptr : &found->second.ledger;
}

std::optional<Missing> SoakOrigin::WhyMissing(std::uint32_t stream, int video, std::int64_t number) const {
    const std::lock_guard lock(m_mutex);
    const StreamLedger* const ledger = Find(stream);
    return ledger ? ledger->WhyMissing(video, number) : Missing::kNotOffered;
}

std::string SoakOrigin::History(std::uint32_t stream, std::int64_t number) const {
    const std::lock_guard lock(m_mutex);
    const StreamLedger* const ledger = Find(stream);
    return ledger ? ledger->History(number) : "its stream is closed";
}

bool SoakOrigin::WasEmpty(const BodyName& name) const {
    const std::lock_guard lock(m_mutex);
    const StreamLedger* const ledger = Find(name.stream);
    return ledger && ledger->WasEmpty(name);
}

bool SoakOrigin::MayHaveLeft(std::uint32_t stream, std::int64_t number, bool isVideo) const {
    const std::lock_guard lock(m_mutex);
    const StreamLedger* const ledger = Find(stream);
    return ledger && ledger->MayHaveLeft(number, isVideo);
}

StreamLedger::Losses SoakOrigin::LossesSoFar(std::uint32_t stream) const {
    const std::lock_guard lock(m_mutex);
    const StreamLedger* const ledger = Find(stream);
    return ledger ? ledger->LossesSoFar() : StreamLedger::Losses{};
}

SoakOrigin::Counts SoakOrigin::Count() const {
    const std::lock_guard lock(m_mutex);
    return m_counts;
}

std::uint32_t SoakOrigin::DurationMs(std::uint32_t stream, std::int64_t number) const {
    const std::uint32_t shortest = std::max(1u, m_tuning.segmentMs / 2);
    return shortest + static_cast<std::uint32_t>(Mix(m_tuning.seed, stream, number) % (3 * shortest));
}

void SoakOrigin::MoveOn(std::uint32_t id, Stream& stream) {
    const Clock::time_point now = Clock::now();
    while (stream.due <= now) {
        ++stream.edge;
        stream.due += milliseconds(DurationMs(id, stream.edge + 1));
    }
    stream.ledger.ForgetBelow(stream.edge - kRemembered);
}

void SoakOrigin::NoteFault(std::string_view kind) {
    ++m_counts.faults;
    ++m_counts.byKind[kind];
}

Answer SoakOrigin::Respond(const std::string& path) {
    std::string_view rest(path);
    rest.remove_prefix(std::min<std::size_t>(rest.size(), 1));
    const auto id = static_cast<std::uint32_t>(TakeNumber(rest));
    const std::lock_guard lock(m_mutex);
    const auto found = m_streams.find(id);
    if (found == m_streams.end()) {
        return kvmpd::test::Respond("404 Not Found", "text/plain", "this stream is over\n");
    }
    if (rest == "live.mpd") {
        return RespondManifest(id, found->second);
    }
    BodyName name{id};
    name.representation = static_cast<int>(TakeNumber(rest));
    name.number = TakeNumber(rest);
    return RespondSegment(name, found->second);
}

Answer SoakOrigin::RespondManifest(std::uint32_t id, Stream& stream) {
    ++m_counts.manifests;
    TakeFromAllowance(id);
    MoveOn(id, stream);
    const std::uint64_t dice = Mix(m_tuning.seed, id, ++stream.manifests, 7);
    const ManifestFault fault = ChooseManifestFault(dice, m_tuning.faultPercent);
    if (fault != ManifestFault::kNone) {
        NoteFault(NameOf(fault));
    }
    if (fault == ManifestFault::kNumberJump) {
        stream.first = stream.edge + 2 + static_cast<std::int64_t>((dice >> 20) % 40);
        stream.edge = stream.first + 3;
    }
    StreamLedger::Manifest offer;
    offer.last = stream.edge;
    offer.first = std::max(stream.first, stream.edge - static_cast<std::int64_t>(stream.window) + 1);
    offer.backwards = fault == ManifestFault::kEdgeBackwards;
    offer.taken = fault == ManifestFault::kNone || fault == ManifestFault::kStall || fault == ManifestFault::kTrickle ||
                  fault == ManifestFault::kHole || fault == ManifestFault::kNumberJump || offer.backwards;
    if (offer.backwards) {
        const auto back = static_cast<std::int64_t>(1 + (dice >> 20) % 10);
        offer.first -= back;
        offer.last -= back;
    } else if (fault == ManifestFault::kHole) {
        offer.hole = std::max(offer.first, offer.last - static_cast<std::int64_t>((dice >> 20) % 8));
    }
    stream.ledger.Answer(offer);
    return Spoil(fault, ManifestText(id, offer.first, offer.last, offer.hole), dice >> 8);
}

Answer SoakOrigin::RespondSegment(const BodyName& name, Stream& stream) {
    ++m_counts.segmentFiles;
    const unsigned attempt = stream.ledger.Ask(name);
    NoteWrong(stream.ledger.Wrong());
    const std::uint64_t dice = Mix(m_tuning.seed, name.stream, name.representation, name.number);
    SegmentFault fault = ChooseSegmentFault(dice, m_tuning.faultPercent);
    const bool everyTime = (dice >> 40) % 3 == 0;
    if (attempt > 0 && !everyTime) {
        fault = SegmentFault::kNone;
    }
    if (fault != SegmentFault::kNone) {
        NoteFault(NameOf(fault));
    }
    stream.ledger.Send(name, fault);
    BodyName sent = name;
    sent.isPage = fault == SegmentFault::kErrorPage;
    return Spoil(fault, Body(sent), dice >> 8);
}

std::string SoakOrigin::ManifestText(std::uint32_t id, std::int64_t first, std::int64_t last,
                                     std::optional<std::int64_t> hole) const {
    std::string text = "<?xml version=\"1.0\"?><MPD type=\"dynamic\"><Period><SegmentList startNumber=\"" +
                       std::to_string(first) + "\" timescale=\"1000\"><SegmentTimeline>";
    for (std::int64_t number = first; number <= last; ++number) {
        text += "<S d=\"" + std::to_string(DurationMs(id, number)) + "\"/>";
    }
    text += "</SegmentTimeline></SegmentList>";
    const std::string names = Names(first, last, hole);
    const std::string base = "http://127.0.0.1:" + std::to_string(m_loop.Port()) + "/" + std::to_string(id) + "/";
    text += "<AdaptationSet mimeType=\"audio/mp4\"><Representation id=\"1\" bandwidth=\"64000\"><BaseURL>" + base +
            "1/</BaseURL>" + names + "</Representation></AdaptationSet><AdaptationSet mimeType=\"video/mp4\">";
    for (const int representation : kVideoRepresentations) {
        const std::string height = std::to_string(representation);
        text += "<Representation id=\"" + height + "\" bandwidth=\"" + height + "000\" width=\"" +
                std::to_string(representation * 16 / 9) + "\" height=\"" + height + "\" frameRate=\"25\"><BaseURL>" +
                base + height + "/</BaseURL>" + names + "</Representation>";
    }
    return text + "</AdaptationSet></Period></MPD>";
}

}  // namespace kvmpd::test
