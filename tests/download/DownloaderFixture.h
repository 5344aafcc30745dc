#pragma once

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "download/SegmentDownloader.h"
#include "tests/download/FakeNetKernel.h"
#include "tests/support/Gate.h"
#include "tests/support/TempDir.h"

namespace kvmpd::test {

/// The engine as the downloader sees it.
class FakeReceiver final : public SegmentReceiver {
  public:
    // SegmentReceiver
    bool IsWanted(const Segment& segment) override {
        const std::lock_guard lock(m_mutex);
        return !m_unwanted.contains(segment.m_segmentNumber);
    }
    void PushSegmentToCache(std::shared_ptr<Segment> segment) override {
        std::function<void()> atPush;
        {
            const std::lock_guard lock(m_mutex);
            m_segments.push_back(std::move(segment));
            atPush = m_atPush;
            m_changed.notify_all();
        }
        if (atPush) {
            atPush();
        }
    }
    void OnSegmentFailed() override {
        const std::lock_guard lock(m_mutex);
        ++m_failures;
        m_changed.notify_all();
    }

    /// From now on segment `number` is not wanted.
    void Refuse(LONGLONG number) {
        const std::lock_guard lock(m_mutex);
        m_unwanted.insert(number);
    }

    /// Calls `action` on the downloader's thread in every push.
    void AtPush(std::function<void()> action) {
        const std::lock_guard lock(m_mutex);
        m_atPush = std::move(action);
    }

    std::vector<std::shared_ptr<Segment>> AwaitSegments(size_t count) {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return m_segments.size() >= count; });
        return m_segments;
    }
    void AwaitEndMarker() {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return !m_segments.empty() && m_segments.back()->IsEndMarker(); });
    }
    std::vector<std::shared_ptr<Segment>> Segments() { return AwaitSegments(0); }
    /// The numbers of what was handed on; the end marker has 0.
    std::vector<LONGLONG> Numbers() {
        std::vector<LONGLONG> numbers;
        for (const auto& segment : Segments()) {
            numbers.push_back(segment->m_segmentNumber);
        }
        return numbers;
    }
    /// Lets go of every segment.
    void Forget() {
        const std::lock_guard lock(m_mutex);
        m_segments.clear();
    }
    void AwaitFailures(int count) {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return m_failures >= count; });
    }
    int Failures() {
        const std::lock_guard lock(m_mutex);
        return m_failures;
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::shared_ptr<Segment>> m_segments;
    std::set<LONGLONG> m_unwanted;
    int m_failures = 0;
    std::function<void()> m_atPush;
};

inline std::string Utf8(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

/// A folder for cache files, a queue and a receiver.
class DownloaderTest : public testing::Test {
  protected:
    std::string Folder() const { return Utf8(m_dir.Path()); }
    std::filesystem::path Path(const std::string& name) const { return m_dir.Path() / name; }
    /// The cache file `name` as the component writes its path.
    std::wstring CachePath(const std::wstring& name) const { return m_dir.Path().wstring() + L"\\" + name; }
    bool Exists(const std::string& name) const { return std::filesystem::exists(Path(name)); }
    std::string Content(const std::string& name) const {
        std::ifstream file(Path(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    test::TempDir m_dir;
    std::shared_ptr<SegmentQueue> m_queue = std::make_shared<SegmentQueue>(0);
    FakeReceiver m_receiver;
};

/// With a downloader whose client is the fake one. URLs are "a/NUMBER" and "v/NUMBER".
class FakeDownloaderTest : public DownloaderTest {
  protected:
    FakeDownloaderTest() : FakeDownloaderTest(std::make_unique<FakeNetKernel>()) {}

    void Start() {
        m_downloader->SetCacheFileFolder(Folder().c_str());
        ASSERT_EQ(m_downloader->Init(m_queue), 0);
    }
    void Push(LONGLONG number) {
        auto segment = std::make_shared<Segment>();
        segment->m_segmentNumber = number;
        segment->m_duration = 2000;
        segment->m_audioUrl = Audio(number);
        segment->m_videoUrl = Video(number);
        m_queue->push(std::move(segment));
    }
    /// Scripts both answers of a segment that arrives whole.
    void Serve(LONGLONG number, const std::string& audio = "sound", const std::string& video = "pictures") {
        m_client->Once(Audio(number), Body(audio));
        m_client->Once(Video(number), Body(video));
    }
    /// Lets the thread work off what is queued and end.
    void Finish() {
        m_queue->push(std::make_shared<Segment>());
        m_receiver.AwaitEndMarker();
        m_downloader->WorkerProcessor::CloseThread();
    }
    static std::string Audio(LONGLONG number) { return "a/" + std::to_string(number); }
    static std::string Video(LONGLONG number) { return "v/" + std::to_string(number); }

  private:
    explicit FakeDownloaderTest(std::unique_ptr<FakeNetKernel> client)
        : m_client(client.get()), m_downloader(std::make_unique<SegmentDownloader>(m_receiver, std::move(client))) {}

  protected:
    FakeNetKernel* const m_client;
    std::unique_ptr<SegmentDownloader> m_downloader;
};

}  // namespace kvmpd::test
