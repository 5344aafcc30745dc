// `kvmpd record` when the stream, the network or a disk misbehaves.

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "tests/app/RecordFixture.h"

namespace kvmpd::app {
namespace {

namespace fs = std::filesystem;
using test::ChildProcess;
using test::JsonValue;
using test::kWindowSegments;
using Kind = origin::OriginRequest::Kind;

class RecordThroughFaults : public test::RecordCommandLine {
  protected:
    static bool IsVideo(const origin::OriginRequest& request) {
        return request.kind == Kind::Segment && request.path.find(".m4a") == std::string::npos;
    }

    // Ends the origin where the scope ends, so that a reply hook may use what stands in front of this.
    struct OriginUntilHere {
        origin::LiveOrigin& origin;
        ~OriginUntilHere() { origin.Stop(); }
    };

    void ExpectGaplessVideo(int seconds) const {
        EXPECT_EQ(JsonValue(m_summary, "video_packets"), std::to_string(25 * seconds));
        EXPECT_EQ(JsonValue(m_summary, "video_gaps"), "0");
        EXPECT_EQ(JsonValue(m_summary, "audio_gaps"), "0");
        EXPECT_EQ(test::Inspect(Output().string()).videoPackets, 25 * seconds);
    }
};

TEST_F(RecordThroughFaults, WaitsForAnOriginThatIsNotReadyYet) {
    m_origin->SetReplyHook([](const origin::OriginRequest& request, origin::OriginReply& reply) {
        if (request.kind == Kind::Manifest && request.ordinal <= 2) {
            reply.status = 503;
            reply.body = std::make_shared<const std::string>("come back later");
        }
    });
    const auto child = StartRecording({"--for", "5s"});
    EXPECT_EQ(Finish(*child), 0) << Errors();
    ExpectGaplessVideo(5);
    const auto retries = LinesOf("retry");
    ASSERT_EQ(retries.size(), 2u);
    EXPECT_EQ(JsonValue(retries[0], "action"), "\"new-source\"");
    EXPECT_EQ(JsonValue(retries[1], "attempt"), "2");
    EXPECT_GE(std::stod(JsonValue(retries[0], "wait")), 1.0);
    EXPECT_GE(std::stod(JsonValue(retries[1], "wait")), 2.0);
    EXPECT_EQ(m_origin->SegmentRequests(240, 1) + m_origin->SegmentRequests(144, 1), 1u) << "no source loads twice";
    EXPECT_TRUE(fs::is_empty(Temporary()));
}

TEST_F(RecordThroughFaults, GoesOnWhenTheOriginWasRestarted) {
    const auto child = StartRecording({"--for", "15s"});
    ASSERT_TRUE(KeepUntil(*child, "\"segments\":12")) << Errors();
    m_origin->Stop();
    ASSERT_TRUE(KeepUntil(*child, "\"result\":\"failed\"")) << Errors();
    RestartOrigin(kWindowSegments + 4);
    EXPECT_EQ(Finish(*child), 0) << Errors();
    ExpectGaplessVideo(15);
    ASSERT_FALSE(LinesOf("retry").empty());
    EXPECT_EQ(JsonValue(LinesOf("retry")[0], "action"), "\"ask-again\"");
    EXPECT_EQ(JsonValue(LinesOf("retry")[0], "reason"), "\"manifest-failed\"");
}

// A request for the fourth segment never ends; the component would wait for half a minute, and then three times over.
TEST_F(RecordThroughFaults, TakesTheStreamUpWithANewSourceWhenATransferHangs) {
    const auto gate = std::make_shared<origin::ReplyGate>();
    std::atomic<bool> held = false;
    const OriginUntilHere until{*m_origin};
    m_origin->SetReplyHook([&](const origin::OriginRequest& request, origin::OriginReply& reply) {
        if (request.kind == Kind::Segment && request.number == 4 && !held.exchange(true)) {
            reply.holdUntil = gate;
        }
    });
    const auto child = StartRecording({"--for", "9s", "--reconnect-after", "2s"});
    EXPECT_EQ(Finish(*child), 0) << Errors();
    ExpectGaplessVideo(9);
    ASSERT_EQ(LinesOf("retry").size(), 1u);
    EXPECT_EQ(JsonValue(LinesOf("retry")[0], "reason"), "\"no-media\"");
    EXPECT_TRUE(fs::is_empty(Temporary())) << "both cache folders are gone";
}

TEST_F(RecordThroughFaults, GivesUpAfterTheTimeAskedFor) {
    const auto child = StartRecording({"--give-up-after", "2s"});
    ASSERT_TRUE(KeepUntil(*child, "\"segments\":12")) << Errors();
    m_origin->Stop();
    EXPECT_EQ(Finish(*child), 6);
    ExpectError("no new media came for 2 s");
    const auto facts = test::Inspect(Output().string());
    ExpectSummaryAgreesWith(facts);
    EXPECT_EQ(facts.videoPackets, 12 * 25);
    EXPECT_EQ(JsonValue(m_summary, "end"), "\"no-media\"");
}

struct SegmentFault {
    const char* name;
    std::function<void(const origin::OriginRequest&, origin::OriginReply&)> damage;
    const char* cause;
};

class OneBadSegment : public RecordThroughFaults, public testing::WithParamInterface<SegmentFault> {};

TEST_P(OneBadSegment, IsAGapThatIsTold) {
    m_origin->SetReplyHook([](const origin::OriginRequest& request, origin::OriginReply& reply) {
        if (request.kind == Kind::Segment && request.number == 4) {
            GetParam().damage(request, reply);
        }
    });
    const auto child = StartRecording({"--for", "8s"});
    EXPECT_EQ(Finish(*child), 0) << Errors();
    EXPECT_EQ(JsonValue(m_summary, "video_packets"), std::to_string(7 * 25));
    EXPECT_EQ(test::Inspect(Output().string()).videoPackets, 7 * 25);
    EXPECT_NEAR(test::Inspect(Output().string()).duration, 8, 0.15);
    const auto gaps = LinesOf("gap");
    ASSERT_EQ(gaps.size(), 2u);
    for (const std::string& gap : gaps) {
        EXPECT_NEAR(std::stod(JsonValue(gap, "from")), 3, 0.05) << gap;
        EXPECT_NEAR(std::stod(JsonValue(gap, "to")), 4, 0.05) << gap;
        EXPECT_EQ(JsonValue(gap, "cause"), std::string("\"") + GetParam().cause + "\"");
        // The same object stands in the summary, without type and time.
        EXPECT_NE(m_summary.find("{" + gap.substr(gap.find("\"track\""))), std::string::npos) << m_summary;
    }
}

void ReplaceBody(origin::OriginReply& reply, std::string body) {
    reply.body = std::make_shared<const std::string>(std::move(body));
}

INSTANTIATE_TEST_SUITE_P(
    Faults, OneBadSegment,
    testing::Values(SegmentFault{"ErrorPage",
                                 [](const auto&, auto& reply) {
                                     reply.status = 503;
                                     ReplaceBody(reply, "<html><body>Service unavailable</body></html>");
                                 },
                                 "not-media"},
                    SegmentFault{"PageThatBeginsWithALineFeed",
                                 [](const auto&, auto& reply) {
                                     ReplaceBody(reply, "\r\n<html><body>Not here, not now</body></html>");
                                 },
                                 "not-media"},
                    SegmentFault{"CutShort",
                                 [](const auto&, auto& reply) {
                                     ReplaceBody(reply, reply.body->substr(0, reply.body->size() * 3 / 4));
                                 },
                                 "cut-short"},
                    SegmentFault{"BrokenTransfer", [](const auto&, auto& reply) { reply.truncateAt = 10; },
                                 "download-failed"}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(RecordThroughFaults, TellsOfAGapAtTheBeginning) {
    m_origin->SetReplyHook([](const origin::OriginRequest& request, origin::OriginReply& reply) {
        if (request.number == 1 && IsVideo(request)) {
            ReplaceBody(reply, "<html></html>");
        }
    });
    const auto child = StartRecording({"--for", "5s"});
    EXPECT_EQ(Finish(*child), 0) << Errors();
    const auto gaps = LinesOf("gap");
    ASSERT_EQ(gaps.size(), 1u);
    EXPECT_EQ(JsonValue(gaps[0], "track"), "\"video\"");
    EXPECT_EQ(JsonValue(gaps[0], "from"), "0.000");
    EXPECT_NEAR(std::stod(JsonValue(gaps[0], "to")), 1, 0.05);
}

// ---- what is taken away meanwhile ----

TEST_F(RecordThroughFaults, SaysThatItsFileWasRemoved) {
    const auto child = StartRecording({});
    ASSERT_TRUE(KeepUntil(*child, "\"segments\":12")) << Errors();
    fs::remove_all(Results());
    EXPECT_EQ(Finish(*child), 3);
    ExpectError("\"" + Output().string() + "\" was removed while it was written");
    EXPECT_EQ(m_summary, "") << "there is no recording";
    ASSERT_EQ(LinesOf("error").size(), 1u);
    EXPECT_GT(std::stod(JsonValue(LinesOf("error")[0], "time")), 0);
    EXPECT_TRUE(fs::is_empty(Temporary()));
}

// Each source has a folder of its own inside the command's.
TEST_F(RecordThroughFaults, TakesAnotherSourceWhenTheCacheOfThePresentOneIsGone) {
    std::atomic<bool> removed = false;
    const OriginUntilHere until{*m_origin};
    m_origin->SetReplyHook([&](const origin::OriginRequest& request, origin::OriginReply&) {
        if (request.kind == Kind::Segment && request.number == 5 && !removed.exchange(true)) {
            for (const auto& command : fs::directory_iterator(Temporary())) {
                for (const auto& source : fs::directory_iterator(command.path())) {
                    fs::remove_all(source.path());
                }
            }
        }
    });
    const auto child = StartRecording({"--for", "12s"});
    EXPECT_EQ(Finish(*child), 0) << Errors();
    ExpectGaplessVideo(12);
    EXPECT_TRUE(SaidOnStdout("takes no more files: No such file or directory"));
    ASSERT_FALSE(LinesOf("retry").empty());
    EXPECT_EQ(JsonValue(LinesOf("retry")[0], "reason"), "\"source-failed\"");
    EXPECT_TRUE(fs::is_empty(Temporary()));
}

// ---- full disks ----

class FullDisk : public RecordThroughFaults {
  protected:
    // A file system of this size in `name`; false, and skipped, where that is not allowed.
    bool Mount(const fs::path& at, const char* size) {
        fs::create_directory(at);
        const std::string options = std::string("size=") + size;
        if (::mount("tmpfs", at.c_str(), "tmpfs", 0, options.c_str()) != 0) {
            m_whyNot = std::string("a small file system cannot be mounted here: ") + std::strerror(errno);
            return false;
        }
        m_mounted.push_back(at);
        return true;
    }

    void TearDown() override {
        for (const fs::path& at : m_mounted) {
            ::umount2(at.c_str(), MNT_DETACH);
        }
        RecordThroughFaults::TearDown();
    }

    // One sentence about it, and what was recorded plays to the end that was told.
    void ExpectKept(const fs::path& output, bool withIndex) const {
        EXPECT_NE(Errors().find("holds what came before"), std::string::npos) << Errors();
        const auto facts = test::Inspect(output.string());
        ASSERT_TRUE(facts.opened);
        EXPECT_GT(facts.videoPackets, 0);
        if (withIndex) {
            EXPECT_EQ(JsonValue(m_summary, "video_packets"), std::to_string(facts.videoPackets));
            EXPECT_NEAR(std::stod(JsonValue(m_summary, "duration")), facts.duration, 0.0015);
        }
    }

    std::vector<fs::path> m_mounted;
    std::string m_whyNot;
};

TEST_F(FullDisk, UnderTheOutputEndsTheRecordingWithAFinishedFile) {
    const fs::path disk = m_dir.Path() / "disk";
    if (!Mount(disk, "200k")) {
        GTEST_SKIP() << m_whyNot;
    }
    const fs::path output = disk / "show.mkv";
    const auto child = Start(m_origin->ManifestUrl(), {"-o", output.string(), "--json", "--delay-segments", "11"});
    EXPECT_EQ(Finish(*child), 3);
    ExpectError("writing \"" + output.string() + "\" failed: No space left on device");
    ExpectKept(output, /*withIndex=*/true);
    EXPECT_EQ(JsonValue(m_summary, "end"), "\"output-failed\"");
    EXPECT_TRUE(fs::is_empty(Temporary()));
}

// Where room cannot be set aside in advance, the file ends where the disk does.
TEST_F(FullDisk, ThatCannotBeForeseenLeavesWhatWasWritten) {
    // A limit on the size of files shows only in a write.
    ChildProcess::Options options;
    options.arguments = {"/bin/sh",
                         "-c",
                         "ulimit -f 300; exec \"$@\"",
                         "sh",
                         KVMPD_PROGRAM,
                         "record",
                         m_origin->ManifestUrl(),
                         "-o",
                         Output().string(),
                         "--delay-segments",
                         "11"};
    AddEnvironment(options);
    options.standardError = m_dir.Path() / "stderr";
    ChildProcess child(options);
    EXPECT_EQ(Finish(child), 3) << Errors();
    EXPECT_NE(Errors().find("failed: File too large"), std::string::npos) << Errors();
    ExpectKept(Output(), /*withIndex=*/false);
}

TEST_F(FullDisk, UnderTheCacheEndsTheRecordingWithAFinishedFile) {
    const fs::path disk = m_dir.Path() / "disk";
    if (!Mount(disk, "300k")) {
        GTEST_SKIP() << m_whyNot;
    }
    const auto child = StartRecording({"--cache-dir", disk.string()});
    EXPECT_EQ(Finish(*child), 4);
    ExpectError("takes no more files: No space left on device");
    ExpectKept(Output(), /*withIndex=*/true);
    EXPECT_EQ(JsonValue(m_summary, "end"), "\"cache-failed\"");
    EXPECT_TRUE(fs::is_empty(disk));
}

TEST_F(FullDisk, IsNotSuspectedWhenTheCacheFolderIsGone) {
    const fs::path folder = m_dir.Path() / "cache";
    fs::create_directory(folder);
    const OriginUntilHere until{*m_origin};
    m_origin->SetReplyHook([&](const origin::OriginRequest& request, origin::OriginReply&) {
        if (request.kind == Kind::Segment && request.number == 5) {
            fs::remove_all(folder);
        }
    });
    const auto child = StartRecording({"--cache-dir", folder.string()});
    EXPECT_EQ(Finish(*child), 4);
    ExpectError("takes no more files: No such file or directory");
}

}  // namespace
}  // namespace kvmpd::app
