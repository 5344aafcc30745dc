// The pump over the component itself, against a live origin: what a host meets that reads too slowly.

#include <gtest/gtest.h>

#include <array>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

#include "app/MediaPump.h"
#include "app/PinReader.h"
#include "app/RecordingSource.h"
#include "origin/LiveOrigin.h"
#include "origin/TestCard.h"
#include "tests/app/TestMedia.h"
#include "tests/support/TempDir.h"

namespace kvmpd::app {
namespace {

constexpr std::int64_t kSegments = 12;
constexpr int kQuality = 144;
constexpr std::uint32_t kCacheSeconds = 2;
// The last segment of which the reader is given nothing, because it is held up.
constexpr std::int64_t kLostSegment = 4;
// Each segment of both tracks is made so much longer by a box that holds nothing. The component's rings keep 16 MiB
// although they have been read, and only what lies further back is served from the cache, or gone.
constexpr std::size_t kPadding = std::size_t{3} << 20;
constexpr std::int64_t kPiece = 32 * 1024;

// Holds the first reader that comes after this position of the video until it is let go.
class HeldReader : public ByteSource {
  public:
    explicit HeldReader(ByteSource& source) : m_source(source) {}

    std::int64_t holdAt = 0;  // set before it is read from

    ReadStatus Read(std::int64_t position, std::span<std::uint8_t> bytes) override {
        if (position >= holdAt && position < kAudioPositionBase) {
            std::unique_lock lock(m_mutex);
            m_held = true;
            m_changed.notify_all();
            m_changed.wait(lock, [this] { return m_letGo; });
        }
        return m_source.Read(position, bytes);
    }
    ReadStatus Probe(std::int64_t position) override { return m_source.Probe(position); }
    void Restarted() override { m_source.Restarted(); }

    void WaitUntilHeld() {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_held; });
    }
    void LetGo() {
        const std::lock_guard lock(m_mutex);
        m_letGo = true;
        m_changed.notify_all();
    }

  private:
    ByteSource& m_source;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_held = false;   // guarded by m_mutex
    bool m_letGo = false;  // guarded by m_mutex
};

class SlowReader : public testing::Test, protected SourceListener, protected PumpListener {
  protected:
    void SetUp() override {
        origin::TestCardOptions card;
        card.qualities = {origin::QualityOfHeight(kQuality)};
        origin::OriginOptions options;
        options.timeline.durationsMs = {1000};
        options.timeline.windowMs = 1000 * kSegments;
        m_origin = std::make_unique<origin::LiveOrigin>(options, std::make_shared<origin::TestCard>(card));
        m_origin->Advance(static_cast<std::size_t>(kSegments));
        m_origin->SetReplyHook([](const origin::OriginRequest& request, origin::OriginReply& reply) {
            if (request.kind == origin::OriginRequest::Kind::Segment) {
                const test::Bytes box = test::MakeBox("free", test::Bytes(kPadding - 8));
                reply.body = std::make_shared<const std::string>(*reply.body + std::string(box.begin(), box.end()));
            }
        });
        m_origin->Start();
        std::string error;
        m_output = OutputFile::Open((m_dir.Path() / "out.mkv").string(), /*overwrite=*/false, error);
        ASSERT_TRUE(m_output) << error;
        m_recording = std::make_unique<Recording>(*m_output, Recording::Options{.limitUs = kSegments * 1'000'000});
        m_folder = CacheFolder::Create(m_dir.Path().string(), error);
        ASSERT_TRUE(m_folder) << error;
        m_pin = std::make_unique<PinReader>(kvmpd::ComPtr<IAsyncReader>(), [this] { return m_gate.Interrupted(); });
        SourceListener& listener = *this;
        m_source = RecordingSource::Open(1,
                                         SourceOptions{.url = m_origin->ManifestUrl(),
                                                       .cacheFolder = {},
                                                       .maxCacheSeconds = kCacheSeconds,
                                                       .delaySegments = kSegments - 1,
                                                       .preferHeight = {},
                                                       .qualityId = {}},
                                         *m_folder, *m_pin, listener, error);
        ASSERT_TRUE(m_source) << error;
        m_pin->SetNext(m_source->Reader());
        m_gate.PositionsRestart();
    }

    void TearDown() override {
        m_pin->Close();  // no reader is left
    }

    void OnSourceEvent(std::uint64_t, const StreamEvent&) override { m_gate.News(); }
    void OnSegmentRead(std::int64_t) override {}
    void OnWarning(const std::string& sentence) override { m_warnings.push_back(sentence); }
    void OnGap(const Gap& gap) override { m_gaps.push_back(gap); }

    std::int64_t BytesUpTo(int representation, std::int64_t segment) {
        std::int64_t bytes = 0;
        const origin::LiveTimeline timeline = m_origin->Timeline();
        for (std::int64_t number = 1; number <= segment; ++number) {
            const auto media = m_origin->Media().Segment(representation, timeline.Find(number).value());
            bytes += static_cast<std::int64_t>(media->size() + kPadding);
        }
        return bytes;
    }

    // Another reader of the same pin, which is not held up: so the rings go on, and with them the cache.
    void ReadOn(Track track, std::int64_t to) {
        const kvmpd::ComPtr<IAsyncReader> reader = m_source->Reader();
        const std::int64_t base = track == Track::kVideo ? 0 : kAudioPositionBase;
        std::int64_t& at = m_readOnTo[static_cast<std::size_t>(IndexOf(track))];
        std::vector<BYTE> bytes(static_cast<std::size_t>(kPiece));
        for (; at + kPiece <= to; at += kPiece) {
            const HRESULT result = reader->SyncRead(base + at, static_cast<LONG>(bytes.size()), bytes.data());
            ASSERT_EQ(result, S_OK) << ResultText(result) << " at " << at << " of the " << NameOf(track);
        }
    }

    HRESULT ReadAt(std::int64_t position) {
        std::vector<BYTE> bytes(8);
        return m_source->Reader()->SyncRead(position, static_cast<LONG>(bytes.size()), bytes.data());
    }

    kvmpd::test::TempDir m_dir;
    std::unique_ptr<origin::LiveOrigin> m_origin;
    PumpGate m_gate;
    std::unique_ptr<OutputFile> m_output;
    std::unique_ptr<Recording> m_recording;
    std::unique_ptr<CacheFolder> m_folder;
    std::array<std::int64_t, kTracks> m_readOnTo{};
    std::vector<std::string> m_warnings;
    std::vector<Gap> m_gaps;
    std::unique_ptr<PinReader> m_pin;
    std::unique_ptr<RecordingSource> m_source;
};

TEST_F(SlowReader, GoesOnWithTheEarliestThatIsCachedAndTellsOfTheGap) {
    HeldReader held(*m_pin);
    held.holdAt = BytesUpTo(kQuality, 1) + 2000;  // in the second segment's media
    PumpListener& listener = *this;
    MediaPump pump(
        held, [this] { return m_pin->Error(); }, *m_recording, m_gate, listener);
    RecordEnd end = RecordEnd::kAsked;
    std::thread reader([&] { end = pump.Run(); });
    held.WaitUntilHeld();
    // The cache lets go of segments when others come; the last one that is to be gone tells that they are.
    const std::int64_t lost = BytesUpTo(kQuality, kLostSegment) - 8;
    for (std::int64_t segment = 2; segment <= kSegments || ReadAt(lost) == S_OK; ++segment) {
        if (segment > kSegments) {
            m_origin->Advance();
        }
        ReadOn(Track::kVideo, BytesUpTo(kQuality, segment));
        ReadOn(Track::kAudio, BytesUpTo(origin::kAudioRepresentationId, segment));
    }
    EXPECT_EQ(ReadAt(lost), E_ACCESSDENIED);
    held.LetGo();
    reader.join();
    m_recording->Finish();
    const auto summary = m_recording->Snapshot();
    EXPECT_EQ(end, RecordEnd::kTimeReached);
    ASSERT_EQ(m_gaps.size(), 2u);
    for (const Gap& gap : m_gaps) {
        EXPECT_EQ(gap.cause, LossCause::kLeftCache);
        EXPECT_NEAR(static_cast<double>(gap.fromUs) / 1e6, 1, 0.05);
        EXPECT_GE(static_cast<double>(gap.toUs) / 1e6, static_cast<double>(kLostSegment) - 0.05);
    }
    // Each track goes on by itself; what is there of one is there of the other, up to a segment.
    EXPECT_NEAR(static_cast<double>(m_gaps[0].toUs - m_gaps[1].toUs) / 1e6, 0, 1.05);
    EXPECT_GE(m_warnings.size(), 2u);
    // What is not in the gap is in the file.
    const auto facts = test::Inspect((m_dir.Path() / "out.mkv").string());
    EXPECT_EQ(facts.videoPackets, (kSegments * 1'000'000 - summary.tracks[0].missingUs) / 40'000);
    EXPECT_NEAR(facts.duration, static_cast<double>(kSegments), 0.1);
    EXPECT_TRUE(facts.timesRise);
}

}  // namespace
}  // namespace kvmpd::app
