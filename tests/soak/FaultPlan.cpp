#include "tests/soak/FaultPlan.h"

#include <array>
#include <span>
#include <utility>

namespace kvmpd::test {
namespace {

using std::chrono::milliseconds;

constexpr std::uint64_t kDenominator = 10'000;

template <class Fault>
struct Row {
    Fault fault;
    std::string_view name;
    std::uint64_t share;  // of kDenominator requests
};

constexpr std::array<Row<SegmentFault>, 10> kSegmentRows{{
    {SegmentFault::kCloseAtOnce, "segment: closed at once", 40},
    {SegmentFault::kReset, "segment: reset before the status line", 40},
    {SegmentFault::kResetMidBody, "segment: reset in the body", 25},
    {SegmentFault::kTruncated, "segment: truncated body", 25},
    {SegmentFault::kEmptyBody, "segment: empty body", 30},
    {SegmentFault::kErrorPage, "segment: error page", 50},
    {SegmentFault::kStall, "segment: stall before the status line", 20},
    {SegmentFault::kStallMidBody, "segment: stall in the body", 20},
    {SegmentFault::kTrickle, "segment: slow trickle", 20},
    {SegmentFault::kNoLength, "segment: no length", 40},
}};
constexpr std::array<Row<ManifestFault>, 13> kManifestRows{{
    {ManifestFault::kCloseAtOnce, "manifest: closed at once", 80},
    {ManifestFault::kReset, "manifest: reset", 80},
    {ManifestFault::kTruncated, "manifest: truncated body", 80},
    {ManifestFault::kEmptyBody, "manifest: empty body", 60},
    {ManifestFault::kErrorPage, "manifest: error page", 100},
    {ManifestFault::kMalformed, "manifest: malformed", 100},
    {ManifestFault::kOtherShape, "manifest: another shape", 80},
    {ManifestFault::kEmptyTimeline, "manifest: empty timeline", 80},
    {ManifestFault::kStall, "manifest: stall", 60},
    {ManifestFault::kTrickle, "manifest: slow trickle", 60},
    {ManifestFault::kHole, "manifest: list with a hole", 100},
    {ManifestFault::kNumberJump, "manifest: start number jumps", 60},
    {ManifestFault::kEdgeBackwards, "manifest: live edge goes backwards", 80},
}};

template <class Fault, std::size_t Count>
Fault Choose(const std::array<Row<Fault>, Count>& rows, std::uint64_t dice, unsigned percent) {
    std::uint64_t place = dice % kDenominator;
    for (const Row<Fault>& row : rows) {
        const std::uint64_t share = row.share * percent / 100;
        if (place < share) {
            return row.fault;
        }
        place -= share;
    }
    return Fault::kNone;
}

template <class Fault, std::size_t Count>
std::string_view Name(const std::array<Row<Fault>, Count>& rows, Fault fault) {
    for (const Row<Fault>& row : rows) {
        if (row.fault == fault) {
            return row.name;
        }
    }
    return "none";
}

std::string Head(std::string_view status, std::string_view type, std::size_t length) {
    return "HTTP/1.1 " + std::string(status) + "\r\nContent-Type: " + std::string(type) +
           "\r\nContent-Length: " + std::to_string(length) + "\r\nConnection: close\r\n\r\n";
}

Answer Pieces(std::initializer_list<Answer::Piece> pieces, bool reset = false) {
    Answer answer;
    answer.pieces.assign(pieces);
    answer.reset = reset;
    return answer;
}

/// Long enough to be noticed by everything that waits, short enough to be gone through often.
milliseconds StallTime(std::uint64_t dice) {
    return milliseconds(200 + dice % 1800);
}

Answer Trickle(const std::string& response, std::uint64_t dice) {
    const std::size_t count = 8 + dice % 40;
    Answer answer;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t begin = response.size() * i / count;
        answer.pieces.push_back({milliseconds(20), response.substr(begin, response.size() * (i + 1) / count - begin)});
    }
    return answer;
}

}  // namespace

std::string_view NameOf(SegmentFault fault) {
    return Name(kSegmentRows, fault);
}

std::string_view NameOf(ManifestFault fault) {
    return Name(kManifestRows, fault);
}

SegmentFault ChooseSegmentFault(std::uint64_t dice, unsigned percent) {
    return Choose(kSegmentRows, dice, percent);
}

ManifestFault ChooseManifestFault(std::uint64_t dice, unsigned percent) {
    return Choose(kManifestRows, dice, percent);
}

Answer Respond(std::string_view status, std::string_view type, const std::string& body) {
    return Pieces({{milliseconds(0), Head(status, type, body.size()) + body}});
}

Answer Spoil(SegmentFault fault, const std::string& body, std::uint64_t dice) {
    const std::string head = Head("200 OK", "video/mp4", body.size());
    const std::size_t cut = 1 + (dice >> 16) % (body.size() - 1);
    switch (fault) {
        case SegmentFault::kCloseAtOnce:
            return Pieces({});
        case SegmentFault::kReset:
            return Pieces({}, true);
        case SegmentFault::kResetMidBody:
            // A reset overtakes what the client has not taken yet.
            return Pieces({{milliseconds(0), head + body.substr(0, cut)}, {milliseconds(dice % 40), ""}}, true);
        case SegmentFault::kTruncated:
            return Pieces({{milliseconds(0), head + body.substr(0, cut)}});
        case SegmentFault::kEmptyBody:
            return Respond("200 OK", "video/mp4", "");
        case SegmentFault::kErrorPage:
            return Respond(dice % 2 == 0 ? "404 Not Found" : "500 Internal Server Error", "text/html", body);
        case SegmentFault::kStall:
            return Pieces({{StallTime(dice), head + body}});
        case SegmentFault::kStallMidBody:
            return Pieces({{milliseconds(0), head + body.substr(0, cut)}, {StallTime(dice), body.substr(cut)}});
        case SegmentFault::kTrickle:
            return Trickle(head + body, dice);
        case SegmentFault::kNoLength:
            return Pieces({{milliseconds(0), "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + body}});
        case SegmentFault::kNone:
            break;
    }
    return Respond("200 OK", "video/mp4", body);
}

Answer Spoil(ManifestFault fault, const std::string& body, std::uint64_t dice) {
    constexpr std::string_view kType = "application/dash+xml";
    const std::string head = Head("200 OK", kType, body.size());
    switch (fault) {
        case ManifestFault::kCloseAtOnce:
            return Pieces({});
        case ManifestFault::kReset:
            return Pieces({}, true);
        case ManifestFault::kTruncated:
            return Pieces({{milliseconds(0), head + body.substr(0, (dice >> 16) % body.size())}});
        case ManifestFault::kEmptyBody:
            return Respond("200 OK", kType, "");
        case ManifestFault::kErrorPage:
            return Respond(dice % 2 == 0 ? "404 Not Found" : "503 Service Unavailable", "text/html",
                           "<html><body>try again</body></html>");
        case ManifestFault::kMalformed:
            return Respond("200 OK", kType, body.substr(0, body.size() / 2));
        case ManifestFault::kOtherShape:
            return Respond("200 OK", kType,
                           "<MPD><Period><AdaptationSet><SegmentTemplate media='$Number$.m4s'/></AdaptationSet>"
                           "</Period></MPD>");
        case ManifestFault::kEmptyTimeline:
            return Respond("200 OK", kType,
                           "<MPD><Period><SegmentList startNumber='1'><SegmentTimeline/></SegmentList></Period></MPD>");
        case ManifestFault::kStall:
            return Pieces({{StallTime(dice), head + body}});
        case ManifestFault::kTrickle:
            return Trickle(head + body, dice);
        case ManifestFault::kHole:
        case ManifestFault::kNumberJump:
        case ManifestFault::kEdgeBackwards:
        case ManifestFault::kNone:
            break;
    }
    return Respond("200 OK", kType, body);
}

}  // namespace kvmpd::test
