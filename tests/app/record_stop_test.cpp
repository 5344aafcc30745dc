// How a recording is stopped, and whom it does not wait for: servers, and readers of what it writes and says.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/app/RecordFixture.h"
#include "tests/support/ScriptedPeer.h"

namespace kvmpd::app {
namespace {

namespace fs = std::filesystem;
using kvmpd::test::PeerReply;
using kvmpd::test::ScriptedPeer;
using test::ChildProcess;
using test::JsonValue;
using test::kWindowSegments;
using Kind = origin::OriginRequest::Kind;

class StoppedRecording : public test::RecordCommandLine {
  protected:
    // In the log, level 4: the component was closed, every thread of it joined.
    static constexpr const char* kClosed = "SegmentQueue::~SegmentQueue";

    // Ends the origin where the scope ends, so that a reply hook may use what stands in front of this.
    struct OriginUntilHere {
        origin::LiveOrigin& origin;
        ~OriginUntilHere() { origin.Stop(); }
    };
};

// What the tests below find missing. On a machine that is busy enough a program may leave before that is done.
TEST_F(StoppedRecording, ClosesTheComponentWhenNothingHoldsItUp) {
    bool closed = false;
    for (int n = 0; n < 20 && !closed; ++n) {
        const auto child = StartRecording({"--for", "1s", "--log", "4", "-y"});
        EXPECT_EQ(Finish(*child), 0) << Errors();
        closed = Errors().find(kClosed) != std::string::npos;
    }
    EXPECT_TRUE(closed);
}

struct Hold {
    const char* name;
    Kind kind;
    std::int64_t number;  // of the segment
    bool inTheBody;
};

class StopDuringAStall : public StoppedRecording, public testing::WithParamInterface<Hold> {};

// The server holds the transfer until after the program has ended. A program that waited for it, or for its time-out,
// would close the component in good order, and the component's log would say so.
TEST_P(StopDuringAStall, LeavesAFileThatPlaysSoon) {
    ScriptedPeer peer;
    peer.Otherwise(PeerReply::Head(1'000'000).Send(std::string(5'000, 'x')).Stall());
    const auto gate = std::make_shared<origin::ReplyGate>();
    std::atomic<bool> armed = GetParam().kind == Kind::Segment;
    std::atomic<bool> stalled = false;
    const OriginUntilHere until{*m_origin};
    m_origin->SetReplyHook([&](const origin::OriginRequest& request, origin::OriginReply& reply) {
        if (!armed || request.kind != GetParam().kind ||
            (request.kind == Kind::Segment && request.number != GetParam().number)) {
            return;
        }
        stalled = true;
        if (GetParam().inTheBody) {
            reply.status = 302;
            reply.headers.emplace("Location", peer.Url("/stalls"));
            reply.body = std::make_shared<const std::string>();
        } else {
            reply.holdUntil = gate;
        }
    });
    const auto child = StartRecording({"--log", "4"});
    if (GetParam().kind == Kind::Segment) {
        ASSERT_TRUE(KeepUntil(*child, "\"segments\":" + std::to_string(GetParam().number - 1))) << Errors();
    } else {
        ASSERT_TRUE(KeepUntil(*child, "\"segments\":12")) << Errors();
        armed = true;
    }
    while (!stalled || (GetParam().inTheBody && peer.RequestCount() == 0)) {
        ASSERT_TRUE(KeepUntil(*child, "\"type\":")) << Errors();
    }
    child->Signal(SIGINT);
    EXPECT_EQ(Finish(*child), 0) << Errors();
    ASSERT_NE(Errors().find("SegmentDownloader::ThreadProc "), std::string::npos) << "no log";
    EXPECT_EQ(Errors().find(kClosed), std::string::npos) << "the transfer was waited for";
    const auto facts = test::Inspect(Output().string());
    ExpectSummaryAgreesWith(facts);
    EXPECT_EQ(facts.videoPackets,
              25 * (GetParam().kind == Kind::Segment ? static_cast<int>(GetParam().number) - 1 : 12));
    EXPECT_EQ(JsonValue(m_summary, "end"), "\"asked\"");
    EXPECT_TRUE(fs::is_empty(Temporary()));
}

INSTANTIATE_TEST_SUITE_P(Stalls, StopDuringAStall,
                         testing::Values(Hold{"BeforeASegment", Kind::Segment, 4, false},
                                         Hold{"InASegment", Kind::Segment, 4, true},
                                         Hold{"BeforeTheManifest", Kind::Manifest, 0, false},
                                         Hold{"InTheManifest", Kind::Manifest, 0, true}),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(StoppedRecording, CanBeStoppedBetweenTwoTries) {
    const auto child = StartRecording({});
    ASSERT_TRUE(KeepUntil(*child, "\"segments\":12")) << Errors();
    m_origin->Stop();
    ASSERT_TRUE(KeepUntil(*child, "\"type\":\"retry\"")) << Errors();
    child->Signal(SIGINT);
    EXPECT_EQ(Finish(*child), 0) << Errors();
    ExpectSummaryAgreesWith(test::Inspect(Output().string()));
}

// ---- a pager that reads its first page and no more ----

class RecordingNobodyListensTo : public StoppedRecording {
  protected:
    std::unique_ptr<ChildProcess> StartUnheard(std::vector<std::string> more) {
        ChildProcess::Options options;
        options.smallPipe = true;
        return StartRecording(std::move(more), options);
    }
};

TEST_F(RecordingNobodyListensTo, GoesOnToItsEnd) {
    const auto child = StartUnheard({"--for", "12s"});
    EXPECT_EQ(child->Wait(), 0) << Errors();
    EXPECT_EQ(test::Inspect(Output().string()).videoPackets, 12 * 25);
    EXPECT_TRUE(fs::is_empty(Temporary()));
}

TEST_F(RecordingNobodyListensTo, CanBeStopped) {
    const auto child = StartUnheard({});
    ASSERT_TRUE(child->WaitForUnread()) << Errors();
    while (!fs::exists(Output()) || fs::file_size(Output()) < 10'000) {
        std::this_thread::yield();
    }
    child->Signal(SIGINT);
    EXPECT_EQ(child->Wait(), 0) << Errors();
    EXPECT_GT(test::Inspect(Output().string()).videoPackets, 0);
    EXPECT_TRUE(fs::is_empty(Temporary()));
}

// ---- a named pipe ----

class RecordingIntoANamedPipe : public StoppedRecording {
  protected:
    void SetUp() override {
        StoppedRecording::SetUp();
        ASSERT_EQ(::mkfifo(Output().c_str(), 0600), 0);
    }
};

TEST_F(RecordingIntoANamedPipe, CanBeStoppedBeforeAnybodyReadsIt) {
    const auto child = StartRecording({});
    ASSERT_TRUE(KeepUntil(*child, "nobody reads")) << Errors();
    child->Signal(SIGINT);
    EXPECT_EQ(Finish(*child), 5) << Errors();
    ExpectError("stopped before any media arrived");
    EXPECT_EQ(LinesOf("warning").size(), 1u);
    EXPECT_EQ(m_origin->ManifestRequests(), 0u);
    EXPECT_TRUE(fs::exists(Output()));
    EXPECT_TRUE(fs::is_empty(Temporary()));
}

TEST_F(RecordingIntoANamedPipe, BeginsWhenSomebodyReadsIt) {
    const auto child = StartRecording({"--for", "3s"});
    ASSERT_TRUE(KeepUntil(*child, "nobody reads")) << Errors();
    const fs::path copy = m_dir.Path() / "copy.mkv";
    std::thread reader([&] {
        std::ifstream pipe(Output(), std::ios::binary);
        std::ofstream(copy, std::ios::binary) << pipe.rdbuf();
    });
    EXPECT_EQ(Finish(*child), 0) << Errors();
    reader.join();
    EXPECT_EQ(test::Inspect(copy.string()).videoPackets, 3 * 25);
}

}  // namespace
}  // namespace kvmpd::app
