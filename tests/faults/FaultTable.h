// What each fault is, where it can strike, and what is then expected of the component and its host: plain decisions,
// without a server, a clock or a component.
#pragma once

#include <array>
#include <string_view>

namespace kvmpd::test {

enum class FaultKind {
    kPortClosed,
    kRedirectToClosedPort,
    kNameNotResolved,
    kNameTryAgain,
    kNameSlow,
    kResetBeforeStatus,
    kResetMidBody,
    kStatus404,
    kStatus500,
    kStatus503,
    kRedirectLoop,
    kRedirectToOtherScheme,
    kEmptyBody,
    kTruncatedBody,
    kBodyTooLong,
    kNoContentLength,
    kWrongContentLength,
    kTrickle,
    kEndlessTrickle,
    kStallThatEnds,
    kStallBeforeBody,
    kStallMidBody,
    kHtml,
    kMalformedXml,
    kOtherShape,
    kEmptyTimeline,
    kEdgeBackwards,
    kHole,
    kNumberJump,
    kHugeManifest,
    kTlsHandshake,
    kTlsExpired,
    kTlsWrongHost,
    kFolderGone,
    kFileThere,
};

/// Where a fault strikes. The first manifest is a target of its own: before it, nothing can wake the loader.
enum class Target { kFirstManifest, kManifest, kAudio, kVideo };

/// kOnce: one request. kTenSegments: every request that belongs to ten segments of media time.
enum class Duration { kOnce, kTenSegments, kForEver };

/// What one faulted request means to the component.
enum class Effect {
    kTaken,              // the body counts as what was asked for, whatever it is
    kCut,                // the same, up to the announced length
    kNothingArrived,     // the attempt fails before a byte is written: the next attempt starts clean
    kPartArrived,        // the attempt fails with a part of the file written, which stands in the way of the next ones
    kFileInTheWay,       // the body is complete, but its file is somebody else's
    kNoFolder,           // the body is complete, but there is no folder for it
    kManifestFailed,     // event 0 with 2; the loader sleeps until the host wakes it
    kManifestMalformed,  // event 0 with 1; the same
    kManifestNoNews,     // nothing new in it: fetched again at the usual pace, nothing to tell
};

/// What a whole cell comes to.
enum class Outcome {
    kNothingLost,         // every segment is delivered
    kOneLost,             // exactly one segment is lost, and reported
    kFaultedLost,         // the segments that met nothing but the fault are lost, each reported
    kStoredAsMedia,       // nothing is lost, and what the origin answered is delivered as if it were media
    kWokenByHost,         // each failed manifest is reported, the host wakes the loader, every segment is delivered
    kReplacedByHost,      // each failed manifest is reported, the host makes a new source, every segment is delivered
    kReportedUntilStop,   // each failed manifest is reported until the host gives up
    kNumbersLost,         // what a wrong list leaves without a name is lost, and reported
    kNotOfferedNotAsked,  // followed as listed: numbers that no list offered in time are not asked for
    kStandsStill,         // nothing new is ever listed: nothing to deliver, nothing to report
    kStallSeenByHost,     // nothing comes, nothing ends and nothing is reported: the host makes a new source
};

inline constexpr std::array kKinds{
    FaultKind::kPortClosed,
    FaultKind::kRedirectToClosedPort,
    FaultKind::kNameNotResolved,
    FaultKind::kNameTryAgain,
    FaultKind::kNameSlow,
    FaultKind::kResetBeforeStatus,
    FaultKind::kResetMidBody,
    FaultKind::kStatus404,
    FaultKind::kStatus500,
    FaultKind::kStatus503,
    FaultKind::kRedirectLoop,
    FaultKind::kRedirectToOtherScheme,
    FaultKind::kEmptyBody,
    FaultKind::kTruncatedBody,
    FaultKind::kBodyTooLong,
    FaultKind::kNoContentLength,
    FaultKind::kWrongContentLength,
    FaultKind::kTrickle,
    FaultKind::kEndlessTrickle,
    FaultKind::kStallThatEnds,
    FaultKind::kStallBeforeBody,
    FaultKind::kStallMidBody,
    FaultKind::kHtml,
    FaultKind::kMalformedXml,
    FaultKind::kOtherShape,
    FaultKind::kEmptyTimeline,
    FaultKind::kEdgeBackwards,
    FaultKind::kHole,
    FaultKind::kNumberJump,
    FaultKind::kHugeManifest,
    FaultKind::kTlsHandshake,
    FaultKind::kTlsExpired,
    FaultKind::kTlsWrongHost,
    FaultKind::kFolderGone,
    FaultKind::kFileThere,
};
inline constexpr std::array kTargets{Target::kFirstManifest, Target::kManifest, Target::kAudio, Target::kVideo};
inline constexpr std::array kDurations{Duration::kOnce, Duration::kTenSegments, Duration::kForEver};

constexpr bool IsManifest(Target target) {
    return target == Target::kFirstManifest || target == Target::kManifest;
}

constexpr bool IsTls(FaultKind kind) {
    return kind == FaultKind::kTlsHandshake || kind == FaultKind::kTlsExpired || kind == FaultKind::kTlsWrongHost;
}

/// Kinds that only end by the component's receive time-out.
constexpr bool IsStall(FaultKind kind) {
    return kind == FaultKind::kStallBeforeBody || kind == FaultKind::kStallMidBody;
}

/// Kinds that strike the way to a server, before its request is known.
constexpr bool StrikesTheName(FaultKind kind) {
    return kind == FaultKind::kNameNotResolved || kind == FaultKind::kNameTryAgain || kind == FaultKind::kNameSlow;
}
constexpr bool StrikesBeforeRequest(FaultKind kind) {
    return IsTls(kind) || StrikesTheName(kind) || kind == FaultKind::kPortClosed;
}

/// Kinds of which a cell runs with the receive time-out shortened: stalls, and what looks like one and is none.
constexpr bool WantsShortTimeout(FaultKind kind) {
    return IsStall(kind) || kind == FaultKind::kEndlessTrickle;
}

/// Kinds whose faulted requests take time by themselves: ten segments of them are bounded by the clock as well.
constexpr bool IsSlow(FaultKind kind) {
    return WantsShortTimeout(kind) || kind == FaultKind::kTrickle || kind == FaultKind::kStallThatEnds ||
           kind == FaultKind::kNameSlow;
}

/// Kinds whose answer is the right body, only sent strangely.
constexpr bool BringsTheBody(FaultKind kind) {
    return kind == FaultKind::kNoContentLength || kind == FaultKind::kTrickle || kind == FaultKind::kEndlessTrickle ||
           kind == FaultKind::kStallThatEnds || kind == FaultKind::kNameSlow;
}

constexpr std::string_view NameOf(FaultKind kind) {
    switch (kind) {
        case FaultKind::kPortClosed:
            return "connection refused";
        case FaultKind::kRedirectToClosedPort:
            return "redirect to a closed port";
        case FaultKind::kNameNotResolved:
            return "DNS: no such name";
        case FaultKind::kNameTryAgain:
            return "DNS: try again";
        case FaultKind::kNameSlow:
            return "DNS: slow answer";
        case FaultKind::kResetBeforeStatus:
            return "reset before the status line";
        case FaultKind::kResetMidBody:
            return "reset mid-body";
        case FaultKind::kStatus404:
            return "404";
        case FaultKind::kStatus500:
            return "500";
        case FaultKind::kStatus503:
            return "503";
        case FaultKind::kRedirectLoop:
            return "redirect loop";
        case FaultKind::kRedirectToOtherScheme:
            return "redirect to another scheme";
        case FaultKind::kEmptyBody:
            return "empty body";
        case FaultKind::kTruncatedBody:
            return "truncated body";
        case FaultKind::kBodyTooLong:
            return "body longer than announced";
        case FaultKind::kNoContentLength:
            return "no Content-Length";
        case FaultKind::kWrongContentLength:
            return "wrong Content-Length";
        case FaultKind::kTrickle:
            return "one byte per second at the end";
        case FaultKind::kEndlessTrickle:
            return "one byte per second without end";
        case FaultKind::kStallThatEnds:
            return "stall that ends in time";
        case FaultKind::kStallBeforeBody:
            return "stall before the body";
        case FaultKind::kStallMidBody:
            return "stall mid-body";
        case FaultKind::kHtml:
            return "HTML instead of media";
        case FaultKind::kMalformedXml:
            return "malformed XML";
        case FaultKind::kOtherShape:
            return "manifest of another shape";
        case FaultKind::kEmptyTimeline:
            return "empty timeline";
        case FaultKind::kEdgeBackwards:
            return "live edge going backwards";
        case FaultKind::kHole:
            return "list with a hole";
        case FaultKind::kNumberJump:
            return "startNumber jump";
        case FaultKind::kHugeManifest:
            return "3 MB manifest";
        case FaultKind::kTlsHandshake:
            return "TLS handshake failure";
        case FaultKind::kTlsExpired:
            return "expired certificate";
        case FaultKind::kTlsWrongHost:
            return "wrong host name";
        case FaultKind::kFolderGone:
            return "cache folder gone";
        case FaultKind::kFileThere:
            return "cache file already there";
    }
    return "";
}

constexpr std::string_view NameOf(Target target) {
    switch (target) {
        case Target::kFirstManifest:
            return "first manifest";
        case Target::kManifest:
            return "manifest";
        case Target::kAudio:
            return "audio segment";
        case Target::kVideo:
            return "video segment";
    }
    return "";
}

constexpr std::string_view NameOf(Duration duration) {
    switch (duration) {
        case Duration::kOnce:
            return "once";
        case Duration::kTenSegments:
            return "10 s";
        case Duration::kForEver:
            return "for ever";
    }
    return "";
}

/// Why there is no such cell; empty when there is one.
constexpr std::string_view LeftOut(FaultKind kind, Target target) {
    const bool manifest = IsManifest(target);
    switch (kind) {
        case FaultKind::kFolderGone:
        case FaultKind::kFileThere:
            return manifest ? "a manifest is never written to a file" : "";
        case FaultKind::kMalformedXml:
        case FaultKind::kOtherShape:
            return manifest ? "" : "a segment is not parsed; its counterpart is HTML instead of media";
        case FaultKind::kEmptyTimeline:
            return manifest ? "" : "a segment has no timeline; its counterpart is the empty body";
        case FaultKind::kEdgeBackwards:
        case FaultKind::kNumberJump:
            if (target == Target::kFirstManifest) {
                return "before the first manifest there is no edge to move from";
            }
            return manifest ? "" : "a segment has no live edge: only the manifest says where it is";
        case FaultKind::kHole:
            return manifest ? "" : "a segment is one file; its counterparts are 404 and the empty body";
        case FaultKind::kHugeManifest:
            return manifest ? "" : "3 MB is an ordinary segment; the system tests deliver such ones byte for byte";
        default:
            return "";
    }
}

/// What one faulted request comes to. Only for cells that are not left out.
constexpr Effect EffectOf(FaultKind kind, Target target) {
    const bool manifest = IsManifest(target);
    switch (kind) {
        case FaultKind::kStatus404:  // the status is never judged: the error page counts as what was asked for
        case FaultKind::kStatus500:
        case FaultKind::kStatus503:
        case FaultKind::kHtml:
        case FaultKind::kOtherShape:
            return manifest ? Effect::kManifestMalformed : Effect::kTaken;
        case FaultKind::kNoContentLength:
        case FaultKind::kTrickle:
        case FaultKind::kEndlessTrickle:
        case FaultKind::kStallThatEnds:
        case FaultKind::kNameSlow:
        case FaultKind::kHole:
        case FaultKind::kNumberJump:
        case FaultKind::kHugeManifest:
            return Effect::kTaken;
        case FaultKind::kEmptyBody:
            return manifest ? Effect::kManifestFailed : Effect::kTaken;
        case FaultKind::kBodyTooLong:
            return manifest ? Effect::kManifestFailed : Effect::kCut;
        case FaultKind::kResetMidBody:
        case FaultKind::kTruncatedBody:
        case FaultKind::kStallMidBody:
            return manifest ? Effect::kManifestFailed : Effect::kPartArrived;
        case FaultKind::kFileThere:
            return Effect::kFileInTheWay;
        case FaultKind::kFolderGone:
            return Effect::kNoFolder;
        case FaultKind::kEdgeBackwards:
            return Effect::kManifestNoNews;
        default:
            return manifest ? Effect::kManifestFailed : Effect::kNothingArrived;
    }
}

constexpr bool FailsManifest(Effect effect) {
    return effect == Effect::kManifestFailed || effect == Effect::kManifestMalformed;
}

constexpr Outcome OutcomeOfManifest(FaultKind kind, Target target, Duration duration) {
    const Effect effect = EffectOf(kind, target);
    if (FailsManifest(effect)) {
        if (duration == Duration::kForEver) {
            return Outcome::kReportedUntilStop;
        }
        return target == Target::kFirstManifest ? Outcome::kReplacedByHost : Outcome::kWokenByHost;
    }
    switch (kind) {
        case FaultKind::kHole:
            return Outcome::kNumbersLost;
        case FaultKind::kNumberJump:
            return Outcome::kNotOfferedNotAsked;
        case FaultKind::kEdgeBackwards:
            return duration == Duration::kForEver ? Outcome::kStandsStill : Outcome::kNothingLost;
        default:
            return Outcome::kNothingLost;
    }
}

constexpr Outcome OutcomeOfSegment(FaultKind kind, Target target, Duration duration) {
    const bool once = duration == Duration::kOnce;
    switch (EffectOf(kind, target)) {
        case Effect::kTaken:
        case Effect::kCut:
            return BringsTheBody(kind) ? Outcome::kNothingLost : Outcome::kStoredAsMedia;
        case Effect::kNothingArrived:
        case Effect::kNoFolder:
            return once ? Outcome::kNothingLost : Outcome::kFaultedLost;  // within the three attempts
        default:
            return once ? Outcome::kOneLost : Outcome::kFaultedLost;
    }
}

constexpr Outcome OutcomeOf(FaultKind kind, Target target, Duration duration) {
    if (kind == FaultKind::kEndlessTrickle) {
        return Outcome::kStallSeenByHost;
    }
    return IsManifest(target) ? OutcomeOfManifest(kind, target, duration) : OutcomeOfSegment(kind, target, duration);
}

constexpr std::string_view NameOf(Outcome outcome) {
    switch (outcome) {
        case Outcome::kNothingLost:
            return "nothing lost";
        case Outcome::kOneLost:
            return "one lost";
        case Outcome::kFaultedLost:
            return "faulted lost";
        case Outcome::kStoredAsMedia:
            return "stored as media";
        case Outcome::kWokenByHost:
            return "woken";
        case Outcome::kReplacedByHost:
            return "new source";
        case Outcome::kReportedUntilStop:
            return "reported";
        case Outcome::kNumbersLost:
            return "nameless lost";
        case Outcome::kNotOfferedNotAsked:
            return "followed as listed";
        case Outcome::kStandsStill:
            return "stands still";
        case Outcome::kStallSeenByHost:
            return "stall, new source";
    }
    return "";
}

}  // namespace kvmpd::test
