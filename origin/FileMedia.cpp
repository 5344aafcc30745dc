#include "origin/FileMedia.h"

#include <algorithm>
#include <utility>

#include "origin/LiveOrigin.h"

namespace kvmpd::origin {

namespace {

// Segments encoded ahead of the one that is published next.
constexpr std::int64_t kLookahead = 1;

std::vector<VideoQuality> ChooseQualities(const FileReader& reader, std::vector<int> heights) {
    std::vector<VideoQuality> qualities;
    if (!reader.HasVideo()) {
        for (const int height : heights) {
            qualities.push_back(QualityOfHeight(height));
        }
        return qualities;
    }
    std::erase_if(heights, [&](int height) { return height > reader.Height(); });
    if (heights.empty()) {
        heights.push_back(reader.Height());
    }
    for (const int height : heights) {
        VideoQuality quality = QualityOfHeight(height, reader.FrameRate());
        quality.format.width = std::max(2, (reader.Width() * height / reader.Height() + 1) & ~1);
        qualities.push_back(quality);
    }
    return qualities;
}

}  // namespace

FileMedia::FileMedia(FileMediaOptions options)
    : reader_(options.path),
      audio_(kAudioBitrate,
             [this](std::int64_t, std::span<float> left, std::span<float> right) { reader_.ReadSamples(left, right); }),
      timeline_(options.timeline),
      historyEnd_(options.timeline.startNumber + options.history),
      failed_(std::move(options.failed)),
      qualities_(ChooseQualities(reader_, options.heights)),
      sets_(DescribeQualities(qualities_)),
      encodedUntil_(options.timeline.startNumber),
      wantedUntil_(historyEnd_) {
    scalers_.resize(qualities_.size());
    if (!reader_.HasVideo()) {
        for (const VideoQuality& quality : qualities_) {
            testCards_.push_back(std::make_unique<TestCardFrames>(quality.format, options.availabilityStart));
        }
    }
    thread_ = std::thread([this] { Run(); });
}

FileMedia::~FileMedia() {
    Close();
    thread_.join();
}

void FileMedia::Close() {
    stop_.request_stop();
    {
        const std::lock_guard lock(mutex_);
        closed_ = true;
    }
    changed_.notify_all();
}

bool FileMedia::WaitForHistory() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return closed_ || failure_ || encodedUntil_ >= historyEnd_; });
    if (failure_) {
        std::rethrow_exception(failure_);
    }
    return encodedUntil_ >= historyEnd_;
}

Bytes FileMedia::Segment(int representationId, const SegmentTime& segment) {
    std::unique_lock lock(mutex_);
    if (segment.number >= wantedUntil_) {
        wantedUntil_ = segment.number + 1;
        changed_.notify_all();
    }
    changed_.wait(lock, [&] { return closed_ || failure_ || encodedUntil_ > segment.number; });
    const auto found = segments_.find({segment.number, representationId});
    return found == segments_.end() ? nullptr : found->second;
}

void FileMedia::Prepare(const SegmentTime& upcoming) {
    {
        const std::lock_guard lock(mutex_);
        wantedUntil_ = std::max(wantedUntil_, upcoming.number + kLookahead + 1);
    }
    changed_.notify_all();
}

void FileMedia::Forget(const SegmentTime& oldestKept) {
    const std::lock_guard lock(mutex_);
    while (!segments_.empty() && segments_.begin()->first.first < oldestKept.number) {
        segments_.erase(segments_.begin());
    }
}

void FileMedia::Run() {
    try {
        while (WaitForDemand(timeline_.Upcoming().number)) {
            EncodeSegment(timeline_.Upcoming());
            timeline_.Advance();
        }
    } catch (const std::exception& error) {
        {
            const std::lock_guard lock(mutex_);
            failure_ = std::current_exception();
        }
        changed_.notify_all();
        if (failed_) {
            failed_(error.what());
        }
    }
}

bool FileMedia::WaitForDemand(std::int64_t number) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return closed_ || wantedUntil_ > number; });
    return !closed_;
}

void FileMedia::EncodeSegment(const SegmentTime& segment) {
    const FrameRange frames = FramesOf(segment.startMs, segment.EndMs(), qualities_.front().format.frameRate);
    std::vector<VideoSegmentEncoder> encoders;
    for (const VideoQuality& quality : qualities_) {
        encoders.emplace_back(quality.format, frames);
    }
    for (std::int64_t i = frames.first; i < frames.end; ++i) {
        if (stop_.stop_requested()) {
            return;
        }
        for (std::size_t quality = 0; quality < encoders.size(); ++quality) {
            encoders[quality].Add(
                [&](AVFrame& picture, std::int64_t frame) { Paint(quality, picture, frame, segment.number); });
        }
    }
    std::map<int, std::string> done;
    for (std::size_t quality = 0; quality < encoders.size(); ++quality) {
        done[qualities_[quality].id] = encoders[quality].Finish();
    }
    done[kAudioRepresentationId] = audio_.Segment(segment.startMs, segment.EndMs(), stop_.get_token());
    audio_.Forget(segment.EndMs());
    Keep(segment.number, std::move(done));
}

void FileMedia::Paint(std::size_t quality, AVFrame& picture, std::int64_t frame, std::int64_t segmentNumber) {
    if (!testCards_.empty()) {
        testCards_[quality]->Paint(picture, frame, segmentNumber);
        return;
    }
    const AVRational rate = qualities_[quality].format.frameRate;
    const AVFrame& source = reader_.FrameAt(av_rescale(frame, std::int64_t{1'000'000} * rate.den, rate.num));
    SwsContext* scaler = sws_getCachedContext(scalers_[quality].release(), source.width, source.height,
                                              static_cast<AVPixelFormat>(source.format), picture.width, picture.height,
                                              AV_PIX_FMT_YUV420P, SWS_BILINEAR, nullptr, nullptr, nullptr);
    scalers_[quality].reset(scaler);
    if (scaler == nullptr) {
        throw OriginError("the file's pictures have a format that cannot be converted");
    }
    sws_scale(scaler, source.data, source.linesize, 0, source.height, picture.data, picture.linesize);
}

void FileMedia::Keep(std::int64_t number, std::map<int, std::string> segments) {
    {
        const std::lock_guard lock(mutex_);
        for (auto& [id, bytes] : segments) {
            segments_[{number, id}] = std::make_shared<const std::string>(std::move(bytes));
        }
        encodedUntil_ = number + 1;
    }
    changed_.notify_all();
}

}  // namespace kvmpd::origin
