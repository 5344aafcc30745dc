#include "tests/soak/SoakOrigin.h"

#include <algorithm>
#include <charconv>

#include "tests/soak/FaultPlan.h"

namespace kvmpd::test {
namespace {

using std::chrono::milliseconds;

constexpr std::int64_t kRemembered = 3000;  // segments behind the live edge
constexpr unsigned kAttempts = 3;

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
    stream.first = 1000 + static_cast<std::int64_t>((dice >> 16) % 1'000'000);
    stream.edge = stream.first + static_cast<std::int64_t>(stream.window) / 2;
    stream.due = Clock::now() + milliseconds(DurationMs(id, stream.edge + 1));
    const std::lock_guard lock(m_mutex);
    m_streams.emplace(id, std::move(stream));
}

void SoakOrigin::CloseStream(std::uint32_t id) {
    const std::lock_guard lock(m_mutex);
    m_streams.erase(id);
}

std::string SoakOrigin::Url(std::uint32_t id) const {
    return "http://127.0.0.1:" + std::to_string(m_loop.Port()) + "/" + std::to_string(id) + "/live.mpd";
}

std::optional<SoakOrigin::Missing> SoakOrigin::WhyMissing(std::uint32_t stream, std::int64_t number) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_streams.find(stream);
    if (found == m_streams.end()) {
        return Missing::kNotOffered;
    }
    const auto fetches = found->second.fetches.find(number);
    if (fetches == found->second.fetches.end()) {
        return Missing::kNotOffered;
    }
    const Fetches& of = fetches->second;
    if (of.partial || of.failed >= kAttempts) {
        return Missing::kFailed;
    }
    if (of.empty.size() > 1) {
        return Missing::kEmpty;
    }
    if (of.holed) {
        return Missing::kHole;
    }
    return of.listed || of.audioAsked || of.videoAsked ? std::nullopt : std::optional(Missing::kNotOffered);
}

std::string SoakOrigin::History(std::uint32_t stream, std::int64_t number) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_streams.find(stream);
    if (found == m_streams.end() || !found->second.fetches.contains(number)) {
        return "nothing is known of it";
    }
    const Stream& of = found->second;
    const Fetches& fetches = of.fetches.at(number);
    std::string text = fetches.listed ? "listed" : "not listed";
    for (const auto& [representation, attempts] : fetches.attempts) {
        text +=
            ", representation " + std::to_string(representation) + " asked for " + std::to_string(attempts) + " times";
    }
    return text + "; the list is now " + std::to_string(of.first) + " or later to " + std::to_string(of.edge) + ", " +
           std::to_string(of.window) + " long, after " + std::to_string(of.manifests) + " manifests";
}

bool SoakOrigin::WasEmpty(const BodyName& name) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_streams.find(name.stream);
    if (found == m_streams.end()) {
        return false;
    }
    const auto fetches = found->second.fetches.find(name.number);
    return fetches != found->second.fetches.end() && fetches->second.empty.contains(name.representation);
}

bool SoakOrigin::MayHaveLeft(std::uint32_t stream, std::int64_t number) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_streams.find(stream);
    if (found == m_streams.end()) {
        return false;
    }
    // Behind a hole a segment is stored under the number before its own.
    return std::ranges::any_of(std::array{number, number + 1}, [&](std::int64_t asked) {
        const auto fetches = found->second.fetches.find(asked);
        return fetches != found->second.fetches.end() && fetches->second.partial;
    });
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
    stream.fetches.erase(stream.fetches.begin(), stream.fetches.lower_bound(stream.edge - kRemembered));
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
    std::int64_t last = stream.edge;
    std::int64_t first = std::max(stream.first, last - static_cast<std::int64_t>(stream.window) + 1);
    std::optional<std::int64_t> hole;
    const bool offers = fault == ManifestFault::kNone || fault == ManifestFault::kStall ||
                        fault == ManifestFault::kTrickle || fault == ManifestFault::kHole ||
                        fault == ManifestFault::kNumberJump;
    if (fault == ManifestFault::kEdgeBackwards) {
        const auto back = static_cast<std::int64_t>(1 + (dice >> 20) % 10);
        first -= back;
        last -= back;
        // Whoever starts with this one need not be offered again what newer ones named; to all others it offers
        // nothing.
        for (auto& [number, fetches] : stream.fetches) {
            fetches.listed = fetches.audioAsked = fetches.videoAsked = false;
        }
    } else if (fault == ManifestFault::kHole) {
        hole = std::max(first, last - static_cast<std::int64_t>((dice >> 20) % 8));
    }
    for (std::int64_t number = first; offers && number <= last; ++number) {
        Fetches& fetches = stream.fetches[number];
        fetches.listed = fetches.listed || hole != number;
        fetches.holed = fetches.holed || (hole && *hole <= number);
    }
    return Spoil(fault, ManifestText(id, first, last, hole), dice >> 8);
}

Answer SoakOrigin::RespondSegment(const BodyName& name, Stream& stream) {
    ++m_counts.segmentFiles;
    Fetches& fetches = stream.fetches[name.number];
    const unsigned attempt = fetches.attempts[name.representation]++;
    (name.representation == kAudioRepresentation ? fetches.audioAsked : fetches.videoAsked) = true;
    const std::uint64_t dice = Mix(m_tuning.seed, name.stream, name.representation, name.number);
    SegmentFault fault = ChooseSegmentFault(dice, m_tuning.faultPercent);
    const bool everyTime = (dice >> 40) % 3 == 0;
    if (attempt > 0 && !everyTime) {
        fault = SegmentFault::kNone;
    }
    if (fault != SegmentFault::kNone) {
        NoteFault(NameOf(fault));
    }
    fetches.partial = fetches.partial || fault == SegmentFault::kResetMidBody || fault == SegmentFault::kTruncated;
    if (fault == SegmentFault::kCloseAtOnce || fault == SegmentFault::kReset) {
        ++fetches.failed;
    }
    if (fault == SegmentFault::kEmptyBody) {
        fetches.empty.insert(name.representation);
    }
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
