#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

#include "origin/AudioTrack.h"
#include "origin/MediaSource.h"
#include "origin/TestCardPainter.h"
#include "origin/VideoSegmentEncoder.h"

namespace kvmpd::origin {

struct VideoQuality {
    int id = 0;  // of the representation
    VideoFormat format;
};

// The quality of this height at 16:9: its id is the height, its bit rate what such a height is usually given.
VideoQuality QualityOfHeight(int height, AVRational frameRate = {25, 1});

inline constexpr int kAudioRepresentationId = 1;
inline constexpr std::int64_t kAudioBitrate = 128'000;

// The manifest's words for one audio and these video qualities.
std::vector<MediaSet> DescribeQualities(const std::vector<VideoQuality>& qualities);

struct TestCardOptions {
    std::vector<VideoQuality> qualities{QualityOfHeight(360), QualityOfHeight(720), QualityOfHeight(1080)};
    // Wall-clock time of media time 0; a whole second, so that clock and beep agree.
    std::chrono::system_clock::time_point availabilityStart{};
    // Encoded segments are kept up to so many bytes; older ones are encoded again when asked for, to the same bytes.
    std::size_t cacheBytes = std::size_t{256} << 20;
};

// Samples of the test card's sound: a tone of 1 kHz for the first 100 ms of each second of media time, else silence.
void TestCardSound(std::int64_t firstSample, std::span<float> left, std::span<float> right);

// Paints the moments of a test card into pictures of one quality.
class TestCardFrames {
  public:
    TestCardFrames(const VideoFormat& format, std::chrono::system_clock::time_point availabilityStart);
    void Paint(AVFrame& picture, std::int64_t frame, std::int64_t segmentNumber) const;

  private:
    const AVRational frameRate_;
    const std::int64_t startMs_;
    const TestCardPainter painter_;
};

// Live media without a file: H.264 and AAC of a test card whose clock and beep show lost and repeated media. A video
// segment is encoded when it is first asked for; qualities that were asked for lately are encoded ahead by Prepare.
// Sound is encoded on from segment to segment. Decode times start with 0 at the availability start.
class TestCard final : public MediaSource {
  public:
    explicit TestCard(TestCardOptions options = {});
    ~TestCard() override;

    // MediaSource
    const std::vector<MediaSet>& Sets() const override { return sets_; }
    Bytes Segment(int representationId, const SegmentTime& segment) override;
    void Prepare(const SegmentTime& upcoming) override;
    void Forget(const SegmentTime& oldestKept) override;
    void Close() override { stop_.request_stop(); }

  private:
    struct Quality {
        VideoQuality video;
        TestCardFrames frames;
    };
    using Key = std::pair<std::int64_t, int>;  // segment number, representation

    Bytes FromCacheOrEncoder(int representationId, const SegmentTime& segment);
    Bytes Encode(int representationId, const SegmentTime& segment);
    void Store(const Key& key, Bytes bytes);

    // Constant after construction.
    const std::size_t cacheBytes_;
    std::vector<MediaSet> sets_;
    std::map<int, Quality> qualities_;
    std::stop_source stop_;

    // One video encoder at a time, so that many clients do not take every processor.
    std::mutex videoMutex_;
    std::mutex audioMutex_;
    AudioTrack audio_;  // guarded by audioMutex_

    // mutex_ guards everything below; held alone, or inside none of the others.
    std::mutex mutex_;
    std::condition_variable encoded_;
    std::map<Key, Bytes> cache_;
    std::size_t cachedBytes_ = 0;
    std::set<Key> encoding_;
    std::map<int, std::int64_t> lastAsked_;
};

}  // namespace kvmpd::origin
