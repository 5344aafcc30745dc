#include "app/Notices.h"

#include "app/Json.h"
#include "app/Text.h"

namespace kvmpd::app {
namespace {

const char* Words(LossCause cause) {
    switch (cause) {
        case LossCause::kAbsent:
            break;
        case LossCause::kDownloadFailed:
            return "a download failed";
        case LossCause::kNotMedia:
            return "what came is no media";
        case LossCause::kCutShort:
            return "a segment was cut short";
        case LossCause::kDamaged:
            return "what came is damaged";
        case LossCause::kLeftCache:
            return "it had left the cache";
        case LossCause::kNewSource:
            return "a new source began later";
        case LossCause::kNewClock:
            return "the stream's clock began anew";
    }
    return "it was not delivered";
}

const char* Word(LossCause cause) {
    switch (cause) {
        case LossCause::kAbsent:
            break;
        case LossCause::kDownloadFailed:
            return "download-failed";
        case LossCause::kNotMedia:
            return "not-media";
        case LossCause::kCutShort:
            return "cut-short";
        case LossCause::kDamaged:
            return "damaged";
        case LossCause::kLeftCache:
            return "left-cache";
        case LossCause::kNewSource:
            return "new-source";
        case LossCause::kNewClock:
            return "new-clock";
    }
    return "absent";
}

const char* Word(RetryPolicy::Trouble trouble) {
    switch (trouble) {
        case RetryPolicy::Trouble::kManifestFailed:
            break;
        case RetryPolicy::Trouble::kSourceFailed:
            return "source-failed";
        case RetryPolicy::Trouble::kWakeRefused:
            return "manifest-lost";
        case RetryPolicy::Trouble::kStalled:
            return "no-media";
        case RetryPolicy::Trouble::kStillClosing:
            return "still-closing";
    }
    return "manifest-failed";
}

JsonLine& AddGap(JsonLine& line, const Gap& gap) {
    return line.Text("track", NameOf(gap.track))
        .Seconds("from", gap.fromUs / 1000)
        .Seconds("to", gap.toUs / 1000)
        .Text("cause", Word(gap.cause));
}

JsonLine& AddClockRestart(JsonLine& line, const ClockRestart& restart) {
    return line.Seconds("at", restart.atUs / 1000)
        .Seconds("from", restart.fromUs / 1000)
        .Seconds("to", restart.toUs / 1000);
}

}  // namespace

std::string DescribeRetry(const RetryPolicy::Retry& retry) {
    const std::string when =
        Format(" in %.1f s (try %d)", static_cast<double>(retry.wait.count()) / 1000, retry.attempt);
    switch (retry.trouble) {
        case RetryPolicy::Trouble::kManifestFailed:
            break;
        case RetryPolicy::Trouble::kSourceFailed:
            return "the stream cannot be read any further; a new source takes it up" + when;
        case RetryPolicy::Trouble::kWakeRefused:
            return "the source has no manifest any more; a new one takes the stream up";
        case RetryPolicy::Trouble::kStalled:
            return "no new media has come for long; a new source takes the stream up";
        case RetryPolicy::Trouble::kStillClosing:
            return "a new source must wait, because transfers of the sources before it have not ended; looked at "
                   "again" +
                   when;
    }
    return retry.action == RetryPolicy::Action::kWake ? "the manifest is asked for again" + when
                                                      : "a new source asks for the manifest" + when;
}

std::string RetryJson(const RetryPolicy::Retry& retry, std::int64_t sinceStartMs) {
    return JsonLine()
        .Text("type", "retry")
        .Seconds("time", sinceStartMs)
        .Text("reason", Word(retry.trouble))
        .Text("action", retry.action == RetryPolicy::Action::kWake ? "ask-again" : "new-source")
        .Number("attempt", retry.attempt)
        .Seconds("wait", retry.wait.count())
        .Str();
}

std::string DescribeGap(const Gap& gap) {
    return FormatClock(gap.fromUs / 1000, true) + " to " + FormatClock(gap.toUs / 1000, true) + " of the " +
           NameOf(gap.track) + " (" + Words(gap.cause) + ")";
}

std::string GapJson(const Gap& gap) {
    JsonLine line;
    return AddGap(line, gap).Str();
}

std::string GapJson(const Gap& gap, std::int64_t sinceStartMs) {
    JsonLine line;
    line.Text("type", "gap").Seconds("time", sinceStartMs);
    return AddGap(line, gap).Str();
}

std::string DescribeClockRestart(const ClockRestart& restart) {
    return "the stream's clock went from " + FormatClock(restart.fromUs / 1000, true) + " to " +
           FormatClock(restart.toUs / 1000, true) + "; the recording goes on at " +
           FormatClock(restart.atUs / 1000, true);
}

std::string ClockRestartJson(const ClockRestart& restart) {
    JsonLine line;
    return AddClockRestart(line, restart).Str();
}

std::string ClockRestartJson(const ClockRestart& restart, std::int64_t sinceStartMs) {
    JsonLine line;
    line.Text("type", "clock-restart").Seconds("time", sinceStartMs);
    return AddClockRestart(line, restart).Str();
}

}  // namespace kvmpd::app
