// What `kvmpd record` answers to the shell. docs/recording.md lists the same numbers for people who write scripts.

#pragma once

namespace kvmpd::app {

enum class ExitCode : int {
    kRecorded = 0,        // a playable recording: the time was reached, or somebody asked for the end
    kUsage = 1,           // the command line cannot be obeyed
    kNoStream = 2,        // the stream could not be loaded, or no media came; nothing was recorded
    kOutput = 3,          // the output cannot be written
    kCacheFolder = 4,     // the folder for the cache files cannot be used, or takes no more; a recording is kept
    kNothingYet = 5,      // stopped before any media arrived
    kEndedEarly = 6,      // a playable recording that the stream, not the user, ended
    kStoppedAtOnce = 130  // a second stop signal: left without waiting for anything
};

// Why a recording came to its end.
enum class RecordEnd {
    kTimeReached,
    kAsked,           // a stop signal
    kReaderGone,      // the program behind standard output closed it
    kNoManifest,      // nothing that is a manifest came from the URL
    kManifestShape,   // a manifest, but not of the shape that the component follows
    kNoMedia,         // no new media for too long
    kNotMedia,        // the segments are not fragmented MP4
    kCodecChanged,    // the stream went on with other codec parameters
    kOutputFailed,    // disk full, no permission, ...
    kOutputRemoved,   // somebody removed the file while it was written
    kCacheFailed,     // the same for the cache's files
    kComponentFailed  // the source filter could not be created or connected
};

// hasMedia: at least one packet was written.
constexpr ExitCode ExitCodeOf(RecordEnd end, bool hasMedia) {
    switch (end) {
        case RecordEnd::kOutputFailed:
        case RecordEnd::kOutputRemoved:
            return ExitCode::kOutput;
        case RecordEnd::kCacheFailed:
            return ExitCode::kCacheFolder;
        case RecordEnd::kTimeReached:
        case RecordEnd::kReaderGone:
            return ExitCode::kRecorded;
        case RecordEnd::kAsked:
            return hasMedia ? ExitCode::kRecorded : ExitCode::kNothingYet;
        case RecordEnd::kNoManifest:
        case RecordEnd::kManifestShape:
        case RecordEnd::kNoMedia:
        case RecordEnd::kNotMedia:
        case RecordEnd::kCodecChanged:
        case RecordEnd::kComponentFailed:
            break;
    }
    return hasMedia ? ExitCode::kEndedEarly : ExitCode::kNoStream;
}

}  // namespace kvmpd::app
