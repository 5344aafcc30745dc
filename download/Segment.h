// One media segment: where its audio and video come from, how long it lasts and, once downloaded, where its two cache
// files lie. Shared by pointer; the last owner's release deletes the cache files.
#pragma once

#include <string>

#include "platform/win32.h"

namespace kvmpd {

/// A plain record. Its fields are written by one thread at a time (the loader before queuing, the downloader before
/// handing on) and only read afterwards, so they need no lock.
struct Segment {
    Segment() = default;
    /// Deletes each cache file whose size is above 0. A file whose download failed part-way keeps size 0 and stays:
    /// sizes alone say what belongs to the segment.
    virtual ~Segment();
    Segment(const Segment&) = delete;
    Segment& operator=(const Segment&) = delete;

    /// The marker that tells the downloader to stop: nothing to fetch, no duration, no bytes.
    bool IsEndMarker() const { return m_videoSize == 0 && m_duration == 0 && m_videoUrl.empty(); }

    std::string m_videoUrl;
    std::string m_audioUrl;
    LONG m_duration = 0;           // milliseconds
    LONGLONG m_segmentNumber = 0;  // on the manifest's timeline
    LONGLONG m_videoSize = 0;      // bytes in m_videoFile; 0 until the video download succeeded
    std::wstring m_videoFile;
    LONGLONG m_audioSize = 0;  // bytes in m_audioFile; 0 until the audio download succeeded
    std::wstring m_audioFile;

    /// Which manifest URL of the loader the segment comes from, counted from 1; 0 for one made by hand. A segment of an
    /// earlier URL that was still on its way when the host loaded another must not enter the new stream.
    DWORD m_generation = 0;
};

}  // namespace kvmpd
