#pragma once

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "origin/AudioTrack.h"
#include "origin/FileReader.h"
#include "origin/MediaSource.h"
#include "origin/TestCard.h"
#include "origin/VideoSegmentEncoder.h"

namespace kvmpd::origin {

struct FileMediaOptions {
    std::string path;
    // Heights to offer, as far as the file's own picture is not lower; its own height when all of them are above it.
    std::vector<int> heights{360, 720, 1080};
    // As of the origin: the file is cut into these segments. Only the pattern is used, LiveOrigin::Append is not for
    // it.
    TimelineOptions timeline;
    // Segments encoded before the first Prepare.
    std::int64_t history = 3;
    // As of the test card, which stands in when the file has no video.
    std::chrono::system_clock::time_point availabilityStart{};
    // Called on the encoding thread when it cannot go on; every later segment is missing.
    std::function<void(const std::string& reason)> failed;
};

// Live media from a file, in a loop. A thread decodes it once, from segment to segment, and encodes every quality a
// segment ahead of the live edge. A segment is kept until it is forgotten; it cannot be made again.
class FileMedia final : public MediaSource {
  public:
    // Opens the file; throws OriginError.
    explicit FileMedia(FileMediaOptions options);
    ~FileMedia() override;

    // Waits until the first `history` segments are encoded; false when closed before. Throws what the thread ran into.
    bool WaitForHistory();

    // MediaSource; a segment that is due but not encoded yet is waited for.
    const std::vector<MediaSet>& Sets() const override { return sets_; }
    Bytes Segment(int representationId, const SegmentTime& segment) override;
    void Prepare(const SegmentTime& upcoming) override;
    void Forget(const SegmentTime& oldestKept) override;
    void Close() override;

  private:
    using Key = std::pair<std::int64_t, int>;  // segment number, representation

    void Run();
    bool WaitForDemand(std::int64_t number);
    void EncodeSegment(const SegmentTime& segment);
    void Paint(std::size_t quality, AVFrame& picture, std::int64_t frame, std::int64_t segmentNumber);
    void Keep(std::int64_t number, std::map<int, std::string> segments);

    // The thread's own after construction.
    FileReader reader_;
    AudioTrack audio_;
    LiveTimeline timeline_;
    std::vector<std::unique_ptr<TestCardFrames>> testCards_;
    std::vector<ScalerPtr> scalers_;  // one a quality

    // Constant after construction.
    const std::int64_t historyEnd_;
    const std::function<void(const std::string&)> failed_;
    const std::vector<VideoQuality> qualities_;
    const std::vector<MediaSet> sets_;
    std::stop_source stop_;

    // mutex_ guards everything below.
    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<Key, Bytes> segments_;
    std::int64_t encodedUntil_;  // number behind the last encoded segment
    std::int64_t wantedUntil_;   // number behind the last segment to encode
    std::exception_ptr failure_;
    bool closed_ = false;

    std::thread thread_;
};

}  // namespace kvmpd::origin
