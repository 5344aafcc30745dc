#include "origin/LiveOrigin.h"

#include <gtest/gtest.h>
#include <httplib.h>

#include <future>
#include <memory>
#include <string>
#include <vector>

#include "origin/PatternMedia.h"

namespace kvmpd::origin {
namespace {

constexpr int kAudio = 1;
constexpr int kVideo = 360;

std::size_t SmallSize(int representationId, const SegmentTime& segment) {
    return 1000 + static_cast<std::size_t>(representationId) + static_cast<std::size_t>(segment.number);
}

class ServingOrigin : public testing::Test {
  protected:
    ServingOrigin() {
        OriginOptions options;
        options.timeline.startNumber = 100;
        options.timeline.windowSegments = 5;
        options.graceSegments = 2;
        origin_ = std::make_unique<LiveOrigin>(options, media_);
        origin_->Advance(5);
        origin_->Start();
        client_ = std::make_unique<httplib::Client>("127.0.0.1", origin_->Port());
        client_->set_keep_alive(true);
    }

    std::string Expected(int representationId, std::int64_t number) const {
        return PatternMedia::Range(representationId, number, 0, SmallSize(representationId, {number, 0, 2000}));
    }

    std::shared_ptr<PatternMedia> media_ = std::make_shared<PatternMedia>(PatternOptions{{}, SmallSize});
    std::unique_ptr<LiveOrigin> origin_;
    std::unique_ptr<httplib::Client> client_;
};

TEST_F(ServingOrigin, ServesTheManifestUnderAnyName) {
    for (const char* path : {"/live.mpd", "/again.mpd", "/live.mpd?x=1"}) {
        const auto result = client_->Get(path);
        ASSERT_TRUE(result) << path;
        EXPECT_EQ(result->status, 200);
        EXPECT_EQ(result->get_header_value("Content-Type"), "application/dash+xml");
        EXPECT_NE(result->body.find("startNumber=\"100\""), std::string::npos);
    }
    EXPECT_EQ(origin_->ManifestRequests(), 3u);
}

TEST_F(ServingOrigin, BuildsBaseUrlsFromTheHostThatWasAskedFor) {
    const auto result = client_->Get("/live.mpd", {{"Host", "stream.example:81"}});
    ASSERT_TRUE(result);
    EXPECT_NE(result->body.find("<BaseURL>http://stream.example:81/media/360/</BaseURL>"), std::string::npos);
    const auto own = client_->Get("/live.mpd");
    ASSERT_TRUE(own);
    EXPECT_NE(own->body.find("<BaseURL>" + origin_->BaseUrl(kVideo) + "</BaseURL>"), std::string::npos);
}

TEST_F(ServingOrigin, ServesTheBytesOfASegment) {
    for (const int id : {kAudio, kVideo}) {
        const auto result = client_->Get("/media/" + std::to_string(id) + "/102.mp4");
        ASSERT_TRUE(result);
        EXPECT_EQ(result->status, 200);
        EXPECT_EQ(result->get_header_value("Content-Type"), id == kAudio ? "audio/mp4" : "video/mp4");
        EXPECT_EQ(result->body, Expected(id, 102));
    }
}

TEST_F(ServingOrigin, IgnoresWhatStandsBetweenIdAndNumber) {
    std::string padding;
    for (int i = 0; i < 100; ++i) {
        padding += "key%2Fvalue/";
    }
    const auto result = client_->Get("/media/360/" + padding + "sq/103");
    ASSERT_TRUE(result);
    EXPECT_EQ(result->body, Expected(kVideo, 103));
}

TEST_F(ServingOrigin, TheUrlsInTheManifestLeadToTheSegments) {
    ManifestStyle style;
    style.mediaPrefix = "sq/";
    style.basePadding = "expire/17%2C3/";
    origin_->SetStyle(style);
    const auto manifest = client_->Get("/live.mpd");
    ASSERT_TRUE(manifest);
    const std::string base = origin_->BaseUrl(kVideo);
    EXPECT_NE(manifest->body.find(base), std::string::npos);
    EXPECT_NE(manifest->body.find("media=\"sq/104.mp4\""), std::string::npos);
    const auto result = client_->Get(base.substr(base.find("/media/")) + "sq/104.mp4");
    ASSERT_TRUE(result);
    EXPECT_EQ(result->body, Expected(kVideo, 104));
}

TEST_F(ServingOrigin, AnswersARangeOfASegment) {
    const auto result = client_->Get("/media/360/102.mp4", {{"Range", "bytes=10-19"}});
    ASSERT_TRUE(result);
    EXPECT_EQ(result->status, 206);
    EXPECT_EQ(result->body, PatternMedia::Range(kVideo, 102, 10, 10));
}

TEST_F(ServingOrigin, DoesNotHaveWhatIsNotPublishedUnknownOrTooOld) {
    for (const char* path : {"/media/360/105.mp4", "/media/360/99.mp4", "/media/999/102.mp4", "/media/360/x.mp4",
                             "/media/360/", "/favicon.ico", "/"}) {
        const auto result = client_->Get(path);
        ASSERT_TRUE(result) << path;
        EXPECT_EQ(result->status, 404) << path;
    }
}

TEST_F(ServingOrigin, KeepsServingASegmentForTheGraceAfterItLeftTheList) {
    origin_->Advance(2);
    ASSERT_EQ(origin_->Timeline().FirstNumber(), 102);
    EXPECT_EQ(client_->Get("/media/360/100.mp4")->status, 200);
    origin_->Advance(1);
    EXPECT_EQ(client_->Get("/media/360/100.mp4")->status, 404);
    EXPECT_EQ(client_->Get("/media/360/101.mp4")->status, 200);
}

TEST_F(ServingOrigin, TheManifestFollowsTheTimeline) {
    origin_->Append(1234);
    const auto result = client_->Get("/live.mpd");
    ASSERT_TRUE(result);
    EXPECT_NE(result->body.find("startNumber=\"101\""), std::string::npos);
    EXPECT_NE(result->body.find("d=\"1234\""), std::string::npos);
    EXPECT_EQ(client_->Get("/media/360/105.mp4")->status, 200);
}

TEST_F(ServingOrigin, CountsRequestsAndLetsATestWaitForThem) {
    auto waiting = std::async(std::launch::async, [this] { return origin_->WaitForSegmentRequest(kVideo, 103, 2); });
    client_->Get("/media/360/103.mp4");
    client_->Get("/media/360/103.mp4");
    EXPECT_TRUE(waiting.get());
    EXPECT_EQ(origin_->SegmentRequests(kVideo, 103), 2u);
    EXPECT_EQ(origin_->SegmentRequests(kAudio, 103), 0u);
    EXPECT_FALSE(origin_->WaitForSegmentRequest(kAudio, 103, 1, std::chrono::milliseconds(0)));
    EXPECT_FALSE(origin_->WaitForManifestRequests(1, std::chrono::milliseconds(0)));
}

TEST_F(ServingOrigin, AReplyHookCanReplaceTheReply) {
    origin_->SetReplyHook([](const OriginRequest& request, OriginReply& reply) {
        if (request.kind == OriginRequest::Kind::Segment && request.ordinal == 1) {
            reply.status = 503;
            reply.contentType = "text/plain";
            reply.body = std::make_shared<const std::string>("busy");
            reply.headers.emplace("Retry-After", "1");
        }
    });
    const auto first = client_->Get("/media/360/102.mp4");
    ASSERT_TRUE(first);
    EXPECT_EQ(first->status, 503);
    EXPECT_EQ(first->body, "busy");
    EXPECT_EQ(first->get_header_value("Retry-After"), "1");
    const auto second = client_->Get("/media/360/102.mp4");
    ASSERT_TRUE(second);
    EXPECT_EQ(second->body, Expected(kVideo, 102));
}

TEST_F(ServingOrigin, ATruncatedReplyEndsTheConnectionBeforeItsLength) {
    origin_->SetReplyHook([](const OriginRequest&, OriginReply& reply) { reply.truncateAt = 100; });
    std::string got;
    const auto result = client_->Get("/media/360/102.mp4", [&got](const char* data, std::size_t size) {
        got.append(data, size);
        return true;
    });
    EXPECT_FALSE(result);
    EXPECT_EQ(got, PatternMedia::Range(kVideo, 102, 0, 100));
    origin_->SetReplyHook({});
    EXPECT_EQ(client_->Get("/media/360/102.mp4")->body, Expected(kVideo, 102));
}

TEST_F(ServingOrigin, AHeldReplyWaitsForItsGate) {
    const auto gate = std::make_shared<ReplyGate>();
    origin_->SetReplyHook([gate](const OriginRequest&, OriginReply& reply) { reply.holdUntil = gate; });
    auto held = std::async(std::launch::async, [this] { return client_->Get("/media/360/102.mp4"); });
    ASSERT_TRUE(origin_->WaitForSegmentRequest(kVideo, 102));
    EXPECT_EQ(held.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    gate->Open();
    const auto result = held.get();
    ASSERT_TRUE(result);
    EXPECT_EQ(result->body, Expected(kVideo, 102));
}

TEST_F(ServingOrigin, StoppingLetsHeldRepliesAndIdleConnectionsGo) {
    origin_->SetReplyHook(
        [](const OriginRequest&, OriginReply& reply) { reply.holdUntil = std::make_shared<ReplyGate>(); });
    httplib::Client idle("127.0.0.1", origin_->Port());
    idle.set_keep_alive(true);
    auto held = std::async(std::launch::async, [this] { return client_->Get("/media/360/102.mp4"); });
    ASSERT_TRUE(origin_->WaitForSegmentRequest(kVideo, 102));
    origin_->Stop();
    held.get();
    httplib::Client late("127.0.0.1", origin_->Port());
    EXPECT_FALSE(late.Get("/live.mpd"));
    origin_->Stop();
}

TEST_F(ServingOrigin, LogsEveryRequestWithItsStatusAndSize) {
    std::mutex mutex;
    std::vector<std::string> lines;
    origin_->SetRequestLog([&](const OriginRequest& request, int status, std::size_t bytes) {
        const std::lock_guard lock(mutex);
        lines.push_back(request.path + " " + std::to_string(status) + " " + std::to_string(bytes > 0));
    });
    client_->Get("/media/1/101.m4a");
    client_->Get("/media/1/900.m4a");
    origin_->Stop();
    EXPECT_EQ(lines, (std::vector<std::string>{"/media/1/101.m4a 200 1", "/media/1/900.m4a 404 1"}));
}

TEST_F(ServingOrigin, APortInUseIsOneSentence) {
    OriginOptions options;
    options.port = origin_->Port();
    LiveOrigin second(options, media_);
    try {
        second.Start();
        FAIL() << "started on a port that is in use";
    } catch (const OriginError& error) {
        EXPECT_NE(std::string(error.what()).find("127.0.0.1:" + std::to_string(options.port)), std::string::npos);
    }
}

TEST_F(ServingOrigin, ServesSeveralClientsAtATime) {
    std::vector<std::future<int>> clients;
    for (int i = 0; i < 8; ++i) {
        clients.push_back(std::async(std::launch::async, [this] {
            httplib::Client client("127.0.0.1", origin_->Port());
            client.set_keep_alive(true);
            int right = 0;
            for (int round = 0; round < 20; ++round) {
                const std::int64_t number = 100 + round % 5;
                const auto result = client.Get("/media/360/" + std::to_string(number) + ".mp4");
                right += result && result->body == Expected(kVideo, number) ? 1 : 0;
            }
            return right;
        }));
    }
    for (auto& client : clients) {
        EXPECT_EQ(client.get(), 20);
    }
}

}  // namespace
}  // namespace kvmpd::origin
