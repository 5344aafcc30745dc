#include "origin/LiveClock.h"

#include <utility>

namespace kvmpd::origin {

LiveClock::LiveClock(LiveOrigin& origin, Published published) : origin_(origin), published_(std::move(published)) {}

LiveClock::~LiveClock() {
    Stop();
}

void LiveClock::Start() {
    thread_ = std::thread([this] { Run(); });
}

void LiveClock::Stop() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void LiveClock::Run() {
    using namespace std::chrono;
    const auto mediaZero = steady_clock::now() - (system_clock::now() - origin_.AvailabilityStart());
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        lock.unlock();
        const auto elapsed = floor<milliseconds>(steady_clock::now() - mediaZero);
        const std::size_t published = origin_.AdvanceTo(elapsed.count());
        const LiveTimeline timeline = origin_.Timeline();
        if (published > 0 && published_) {
            published_(*timeline.Find(timeline.LastNumber()));
        }
        origin_.Media().Prepare(timeline.Upcoming());
        const auto due = mediaZero + milliseconds(timeline.Upcoming().EndMs());
        lock.lock();
        wake_.wait_until(lock, time_point_cast<steady_clock::duration>(due), [this] { return stopping_; });
    }
}

}  // namespace kvmpd::origin
