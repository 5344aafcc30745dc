#include "origin/TestCard.h"

#include <cmath>
#include <cstdint>
#include <numbers>

namespace kvmpd::origin {

namespace {

constexpr std::int64_t kBeepMs = 100;
constexpr double kBeepHz = 1000.0;
constexpr float kBeepLevel = 0.5F;
// The tone swells and fades over so many samples, so that it does not click.
constexpr std::int64_t kBeepEdge = 96;

// A quality that nobody asked for during so many segments is not encoded ahead any more.
constexpr std::int64_t kDemandSegments = 6;

std::int64_t MillisecondsSince1970(std::chrono::system_clock::time_point time) {
    return std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

std::string FrameRateText(AVRational rate) {
    return rate.den == 1 ? std::to_string(rate.num) : std::to_string(rate.num) + "/" + std::to_string(rate.den);
}

}  // namespace

VideoQuality QualityOfHeight(int height, AVRational frameRate) {
    VideoQuality quality;
    quality.id = height;
    quality.format.height = height;
    quality.format.width = (height * 16 / 9 + 1) & ~1;
    quality.format.frameRate = frameRate;
    quality.format.maxBitrate = height <= 360    ? 800'000
                                : height <= 720  ? 2'000'000
                                : height <= 1080 ? 4'000'000
                                                 : 8'000'000;
    return quality;
}

std::vector<MediaSet> DescribeQualities(const std::vector<VideoQuality>& qualities) {
    MediaSet audio{"audio/mp4",
                   {{kAudioRepresentationId, static_cast<std::uint32_t>(kAudioBitrate), 0, 0, "", "mp4a.40.2",
                     kAudioRate, kAudioChannels, ".m4a"}}};
    MediaSet video{"video/mp4", {}};
    for (const VideoQuality& quality : qualities) {
        Representation representation;
        representation.id = quality.id;
        representation.bandwidth = static_cast<std::uint32_t>(quality.format.maxBitrate);
        representation.width = static_cast<std::uint32_t>(quality.format.width);
        representation.height = static_cast<std::uint32_t>(quality.format.height);
        representation.frameRate = FrameRateText(quality.format.frameRate);
        representation.codecs = VideoCodecs(quality.format);
        representation.extension = ".mp4";
        video.representations.push_back(representation);
    }
    return {audio, video};
}

void TestCardSound(std::int64_t firstSample, std::span<float> left, std::span<float> right) {
    constexpr std::int64_t kBeepSamples = kBeepMs * kAudioRate / 1000;
    for (std::size_t i = 0; i < left.size(); ++i) {
        const std::int64_t inSecond = (firstSample + static_cast<std::int64_t>(i)) % kAudioRate;
        float sample = 0;
        if (inSecond < kBeepSamples) {
            const std::int64_t edge = std::min(inSecond, kBeepSamples - inSecond);
            const float swell = std::min(1.0F, static_cast<float>(edge) / static_cast<float>(kBeepEdge));
            const double angle = 2 * std::numbers::pi * kBeepHz * static_cast<double>(inSecond) / kAudioRate;
            sample = kBeepLevel * swell * static_cast<float>(std::sin(angle));
        }
        left[i] = right[i] = sample;
    }
}

TestCardFrames::TestCardFrames(const VideoFormat& format, std::chrono::system_clock::time_point availabilityStart)
    : frameRate_(format.frameRate),
      startMs_(MillisecondsSince1970(availabilityStart)),
      painter_(format.width, format.height) {}

void TestCardFrames::Paint(AVFrame& picture, std::int64_t frame, std::int64_t segmentNumber) const {
    TestCardMoment moment;
    moment.frame = frame;
    moment.mediaMs = frame * 1000 * frameRate_.den / frameRate_.num;
    moment.wallMs = startMs_ + moment.mediaMs;
    moment.segment = segmentNumber;
    moment.framesPerSecond = (frameRate_.num + frameRate_.den / 2) / frameRate_.den;
    // A frame belongs to the second in which it starts.
    const std::int64_t firstOfSecond = CeilTicks(moment.mediaMs / 1000 * 1000, frameRate_);
    moment.frameInSecond = static_cast<int>(frame - firstOfSecond);
    moment.flash = moment.mediaMs % 1000 < kBeepMs;
    painter_.Paint(picture, moment);
}

TestCard::TestCard(TestCardOptions options)
    : cacheBytes_(options.cacheBytes),
      sets_(DescribeQualities(options.qualities)),
      audio_(kAudioBitrate, TestCardSound) {
    for (const VideoQuality& quality : options.qualities) {
        qualities_.emplace(quality.id, Quality{quality, TestCardFrames(quality.format, options.availabilityStart)});
    }
}

TestCard::~TestCard() {
    Close();
}

Bytes TestCard::Segment(int representationId, const SegmentTime& segment) {
    {
        const std::lock_guard lock(mutex_);
        std::int64_t& lastAsked = lastAsked_[representationId];
        lastAsked = std::max(lastAsked, segment.number);
    }
    return FromCacheOrEncoder(representationId, segment);
}

Bytes TestCard::FromCacheOrEncoder(int representationId, const SegmentTime& segment) {
    const Key key{segment.number, representationId};
    {
        std::unique_lock lock(mutex_);
        encoded_.wait(lock, [&] { return !encoding_.contains(key); });
        if (const auto found = cache_.find(key); found != cache_.end()) {
            return found->second;
        }
        encoding_.insert(key);
    }
    Bytes bytes;
    try {
        bytes = Encode(representationId, segment);
    } catch (...) {
        Store(key, nullptr);
        throw;
    }
    Store(key, bytes);
    return bytes;
}

Bytes TestCard::Encode(int representationId, const SegmentTime& segment) {
    std::string bytes;
    if (representationId == kAudioRepresentationId) {
        const std::lock_guard lock(audioMutex_);
        bytes = audio_.Segment(segment.startMs, segment.EndMs(), stop_.get_token());
    } else if (const auto found = qualities_.find(representationId); found != qualities_.end()) {
        const Quality& quality = found->second;
        const std::lock_guard lock(videoMutex_);
        bytes = EncodeVideoSegment(
            quality.video.format, FramesOf(segment.startMs, segment.EndMs(), quality.video.format.frameRate),
            [&](AVFrame& picture, std::int64_t frame) { quality.frames.Paint(picture, frame, segment.number); },
            stop_.get_token());
    }
    return bytes.empty() ? nullptr : std::make_shared<const std::string>(std::move(bytes));
}

void TestCard::Store(const Key& key, Bytes bytes) {
    {
        const std::lock_guard lock(mutex_);
        encoding_.erase(key);
        if (bytes) {
            cachedBytes_ += bytes->size();
            cache_.emplace(key, std::move(bytes));
        }
        while (cachedBytes_ > cacheBytes_ && cache_.size() > 1) {
            cachedBytes_ -= cache_.begin()->second->size();
            cache_.erase(cache_.begin());
        }
    }
    encoded_.notify_all();
}

void TestCard::Prepare(const SegmentTime& upcoming) {
    std::set<int> wanted{kAudioRepresentationId};
    {
        const std::lock_guard lock(mutex_);
        for (const auto& [id, number] : lastAsked_) {
            if (number + kDemandSegments > upcoming.number) {
                wanted.insert(id);
            }
        }
    }
    for (const int id : wanted) {
        FromCacheOrEncoder(id, upcoming);
    }
}

void TestCard::Forget(const SegmentTime& oldestKept) {
    {
        const std::lock_guard lock(audioMutex_);
        audio_.Forget(oldestKept.startMs);
    }
    const std::lock_guard lock(mutex_);
    while (!cache_.empty() && cache_.begin()->first.first < oldestKept.number) {
        cachedBytes_ -= cache_.begin()->second->size();
        cache_.erase(cache_.begin());
    }
}

}  // namespace kvmpd::origin
