// The ids with which IKVMPDCallback::OnStreamEvent is called, and what its two parameters then point to.
//
// "Number events" pass pointers to two signed 32-bit numbers; the "text event" passes a zero-terminated wide text as
// param1 and null as param2. All pointers are valid during the call only.

#pragma once

#include "platform/com.h"

namespace kvmpd {

// A manifest was fetched and brought new segments, or could not be loaded. Sent after the reloads of which that is
// true. Success is also sent when the manifest has no audio or no video set, though nothing of it can then be played.
//   *param1: kManifestLoaded, kManifestMalformed or kManifestFailed; *param2: after success the duration of the newest
//   segment in milliseconds, else 0.
inline constexpr DWORD kEventManifest = 0;

// Text event: the available video qualities, described in one text. Sent when the segment at which playback
// starts is chosen: at the first manifest and again after each restart of the stream.
inline constexpr DWORD kEventQualityList = 6;

// The video quality that was chosen. *param1: its id, as Backdoor's kBackdoorTargetQuality takes it; *param2: 0.
inline constexpr DWORD kEventQualityChosen = 7;

// Positions changed. *param1 = 1: Run restarted a stream whose cache had filled up in a pause; *param2 = 1: a seek is
// done. In both cases the byte positions of video and audio start again at 0. Both 0: a preferred delay was set that
// moves nothing (the same as before, or nothing is loaded yet).
inline constexpr DWORD kEventPosition = 8;

// A segment could not be downloaded. Both parameters 0.
inline constexpr DWORD kEventDownloadFailed = 9;

// Values of *param1 of kEventManifest.
inline constexpr LONG kManifestLoaded = 0;
inline constexpr LONG kManifestMalformed = 1;  // fetched, but without the required structure
inline constexpr LONG kManifestFailed = 2;     // any other failure

}  // namespace kvmpd
