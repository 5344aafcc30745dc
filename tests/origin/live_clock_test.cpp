#include "origin/LiveClock.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>

#include "origin/PatternMedia.h"

namespace kvmpd::origin {
namespace {

OriginOptions BegunSecondsAgo(int seconds, std::uint32_t durationMs) {
    OriginOptions options;
    options.timeline.durationsMs = {durationMs};
    options.availabilityStart = std::chrono::system_clock::now() - std::chrono::seconds(seconds);
    return options;
}

TEST(LiveClock, PublishesAtOnceWhatHasEndedAlready) {
    LiveOrigin origin(BegunSecondsAgo(3600, 60'000), std::make_shared<PatternMedia>());
    std::promise<std::int64_t> published;
    LiveClock clock(origin, [&](const SegmentTime& last) { published.set_value(last.number); });
    clock.Start();
    EXPECT_EQ(published.get_future().get(), 60);
    clock.Stop();
}

TEST(LiveClock, GoesOnPublishingAsTimePasses) {
    LiveOrigin origin(BegunSecondsAgo(0, 20), std::make_shared<PatternMedia>());
    std::promise<void> fifth;
    LiveClock clock(origin, [&, told = false](const SegmentTime& last) mutable {
        if (last.number >= 5 && !told) {
            told = true;
            fifth.set_value();
        }
    });
    clock.Start();
    fifth.get_future().wait();
    EXPECT_GE(origin.Timeline().LastNumber(), 5);
}

class NotedMedia final : public MediaSource {
  public:
    const std::vector<MediaSet>& Sets() const override { return sets_; }
    Bytes Segment(int, const SegmentTime&) override { return nullptr; }
    void Prepare(const SegmentTime& upcoming) override {
        if (!told_) {
            told_ = true;
            prepared.set_value(upcoming.number);
        }
    }

    std::promise<std::int64_t> prepared;

  private:
    std::vector<MediaSet> sets_;
    bool told_ = false;  // the clock's thread only
};

TEST(LiveClock, AsksTheMediaToPrepareTheNextSegment) {
    const auto media = std::make_shared<NotedMedia>();
    LiveOrigin origin(BegunSecondsAgo(3600, 60'000), media);
    LiveClock clock(origin);
    clock.Start();
    EXPECT_EQ(media->prepared.get_future().get(), 61);
}

}  // namespace
}  // namespace kvmpd::origin
