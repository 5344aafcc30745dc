#include "app/EndText.h"

#include "app/Text.h"

namespace kvmpd::app {
namespace {

std::string WithDetail(const std::string& detail) {
    return detail.empty() ? "" : " (" + detail + ")";
}

std::string NoMediaSentence(const EndContext& context) {
    const std::string failed = context.failedDownloads > 0 ? Format("%lld of its segments could not be downloaded",
                                                                    static_cast<long long>(context.failedDownloads))
                                                           : "";
    if (context.hasMedia) {
        return "no new media came for " + context.patience + WithDetail(failed.empty() ? context.detail : failed) +
               "; the recording ends here: if the stream is still live, check the network and start again";
    }
    if (!context.manifestLoaded) {
        return "no answer came from " + context.url + " within " + context.patience +
               "; check the address and the network";
    }
    if (!failed.empty()) {
        return "the manifest was loaded but " + failed + "; check that its segments can be reached from here";
    }
    return "the manifest was loaded but no segment of media came within " + context.patience +
           "; check that the stream is live and offers audio/mp4 and video/mp4";
}

}  // namespace

std::string EndSentence(RecordEnd end, const EndContext& context) {
    const std::string kept = context.hasMedia ? "; the recording ends here and holds what came before" : "";
    switch (end) {
        case RecordEnd::kTimeReached:
        case RecordEnd::kReaderGone:
            return "";
        case RecordEnd::kAsked:
            return context.hasMedia ? "" : "stopped before any media arrived; nothing was recorded";
        case RecordEnd::kNoManifest:
            return "no manifest could be fetched from " + context.url + " for " + context.patience +
                   ": the server cannot be reached, refuses, or answers with something that is no manifest or is too "
                   "large for one; check the address, and that a browser on this machine can open it";
        case RecordEnd::kManifestShape:
            return "the manifest at " + context.url +
                   " is not of the shape that can be followed: one Period whose SegmentList has a SegmentTimeline and "
                   "a SegmentURL for each segment; give the address of a live manifest of that shape";
        case RecordEnd::kNoMedia:
            return NoMediaSentence(context);
        case RecordEnd::kNotMedia:
            return "the stream's segments cannot be recorded" + WithDetail(context.detail) +
                   ": each must be fragmented MP4 with its own ftyp and moov, video and audio apart; check the "
                   "address, or try another --quality";
        case RecordEnd::kCodecChanged:
            return context.detail + ", and one file cannot hold both" + kept + "; start again to record the rest";
        case RecordEnd::kOutputFailed:
            return (context.detail.empty() ? std::string("the output cannot be written") : context.detail) + kept +
                   "; make room or give another output";
        case RecordEnd::kOutputRemoved:
            return "the output \"" + context.detail +
                   "\" was removed while it was written, so that nothing of the recording is left; start again";
        case RecordEnd::kCacheFailed:
            return context.detail + kept +
                   "; make room, give another folder with --cache-dir, or a shorter --max-cache";
        case RecordEnd::kComponentFailed:
            return context.detail + "; check the installation";
    }
    return "";
}

const char* EndWord(RecordEnd end) {
    switch (end) {
        case RecordEnd::kTimeReached:
            return "time-reached";
        case RecordEnd::kAsked:
            return "asked";
        case RecordEnd::kReaderGone:
            return "reader-gone";
        case RecordEnd::kNoManifest:
            return "no-manifest";
        case RecordEnd::kManifestShape:
            return "manifest-shape";
        case RecordEnd::kNoMedia:
            return "no-media";
        case RecordEnd::kNotMedia:
            return "not-media";
        case RecordEnd::kCodecChanged:
            return "codec-changed";
        case RecordEnd::kOutputFailed:
            return "output-failed";
        case RecordEnd::kOutputRemoved:
            return "output-removed";
        case RecordEnd::kCacheFailed:
            return "cache-failed";
        case RecordEnd::kComponentFailed:
            return "component-failed";
    }
    return "unknown";
}

}  // namespace kvmpd::app
