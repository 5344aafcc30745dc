// What becomes of a segment: its two files, the attempts, the hand-over and the lines that say so.
#include "download/SegmentDownloader.h"

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/download/DownloaderFixture.h"
#include "tests/support/LogCapture.h"

namespace kvmpd {
namespace {

using test::Body;
using test::FakeAnswer;
using test::LogCapture;
using test::NoResponse;
using test::ShortBody;

using Lines = std::vector<std::string>;
using Numbers = std::vector<LONGLONG>;
constexpr LONGLONG kEndMarker = 0;

/// The downloader's own lines.
Lines Own(const LogCapture& log) {
    Lines lines = log.Lines();
    std::erase_if(lines, [](const std::string& line) {
        return line.find(" SegmentDownloader::ThreadProc") == std::string::npos;
    });
    return lines;
}

class SegmentDownloaderFiles : public test::FakeDownloaderTest {};

TEST_F(SegmentDownloaderFiles, SegmentSevenBecomesTwoFilesAndOneHandOver) {
    const LogCapture log(6);
    Serve(7, "sound", "pictures");
    Start();
    Push(7);
    const auto segment = m_receiver.AwaitSegments(1).front();
    Finish();

    EXPECT_EQ(m_receiver.Numbers(), (Numbers{7, kEndMarker}));
    EXPECT_EQ(m_receiver.Failures(), 0);
    EXPECT_EQ(segment->m_audioFile, CachePath(L"7.m4a"));
    EXPECT_EQ(segment->m_videoFile, CachePath(L"7.mp4"));
    EXPECT_EQ(segment->m_audioSize, 5);
    EXPECT_EQ(segment->m_videoSize, 8);
    EXPECT_EQ(Content("7.m4a"), "sound");
    EXPECT_EQ(Content("7.mp4"), "pictures");
    EXPECT_EQ(m_downloader->AudioBytes(), 5);
    EXPECT_EQ(m_downloader->VideoBytes(), 8);
    EXPECT_EQ(Own(log), (Lines{" SegmentDownloader::ThreadProc ",
                               " SegmentDownloader::ThreadProc download segment 7 audio success. Result: 0x00000000",
                               " SegmentDownloader::ThreadProc download segment 7 video success. Result: 0x00000000",
                               " SegmentDownloader::ThreadProc download segment 7 success. Result: 0x00000000",
                               " SegmentDownloader::ThreadProc  get end segment. stop thread!!",
                               " SegmentDownloader::ThreadProc finish"}));
}

TEST_F(SegmentDownloaderFiles, AreFetchedAudioFirstByPlainGets) {
    Serve(7);
    Start();
    Push(7);
    Finish();
    EXPECT_EQ(m_client->Urls(), (std::vector<std::string>{"a/7", "v/7"}));
    for (const auto& call : m_client->Calls()) {
        EXPECT_TRUE(call.plain) << call.url;
    }
}

TEST_F(SegmentDownloaderFiles, AreDeletedWithTheLastReferenceToTheSegment) {
    Serve(7);
    Start();
    Push(7);
    Finish();
    EXPECT_TRUE(Exists("7.m4a"));
    m_downloader.reset();
    m_receiver.Forget();
    EXPECT_FALSE(Exists("7.m4a"));
    EXPECT_FALSE(Exists("7.mp4"));
}

TEST_F(SegmentDownloaderFiles, CountersAddUpOverSegments) {
    Serve(7, "12345", "1234567");
    Serve(8, "123", "12");
    Start();
    Push(7);
    Push(8);
    Finish();
    EXPECT_EQ(m_receiver.Numbers(), (Numbers{7, 8, kEndMarker}));
    EXPECT_EQ(m_downloader->AudioBytes(), 8);
    EXPECT_EQ(m_downloader->VideoBytes(), 9);
}

TEST_F(SegmentDownloaderFiles, BodyOfSeveralBlocksIsOneFile) {
    m_client->Once(Audio(7), {S_OK, {"one ", "two ", "three"}});
    m_client->Once(Video(7), Body("v"));
    Start();
    Push(7);
    Finish();
    EXPECT_EQ(Content("7.m4a"), "one two three");
    EXPECT_EQ(m_downloader->AudioBytes(), 13);
}

TEST_F(SegmentDownloaderFiles, EmptyBodiesMakeNoFilesAndAreHandedOnWithSizeZero) {
    m_client->Once(Audio(7), {S_OK, {}});
    m_client->Once(Video(7), {S_OK, {}});
    Start();
    Push(7);
    const auto segment = m_receiver.AwaitSegments(1).front();
    Finish();
    EXPECT_EQ(segment->m_audioSize, 0);
    EXPECT_EQ(segment->m_videoSize, 0);
    EXPECT_FALSE(Exists("7.m4a"));
    EXPECT_FALSE(Exists("7.mp4"));
}

// Any result that is not negative is a success, and the lines show which it was.
TEST_F(SegmentDownloaderFiles, SuccessCodeOtherThanZeroIsASuccess) {
    const LogCapture log(6);
    m_client->Once(Audio(7), {S_FALSE, {"sound"}});
    m_client->Once(Video(7), {HRESULT{0x12AB}, {"pictures"}});
    Start();
    Push(7);
    Finish();
    EXPECT_EQ(m_receiver.Numbers(), (Numbers{7, kEndMarker}));
    EXPECT_TRUE(log.Contains(" SegmentDownloader::ThreadProc download segment 7 audio success. Result: 0x00000001"));
    EXPECT_TRUE(log.Contains(" SegmentDownloader::ThreadProc download segment 7 video success. Result: 0x000012AB"));
    EXPECT_TRUE(log.Contains(" SegmentDownloader::ThreadProc download segment 7 success. Result: 0x000012AB"));
}

struct NamedNumber {
    LONGLONG number;
    const char* text;
};

class SegmentDownloaderNames : public test::FakeDownloaderTest, public testing::WithParamInterface<NamedNumber> {};

TEST_P(SegmentDownloaderNames, AreTheSegmentNumberInDecimal) {
    const auto [number, text] = GetParam();
    const LogCapture log(6);
    Serve(number);
    Start();
    Push(number);
    const auto segment = m_receiver.AwaitSegments(1).front();
    Finish();
    const std::wstring wide(text, text + std::string(text).size());
    EXPECT_EQ(segment->m_audioFile, CachePath(wide + L".m4a"));
    EXPECT_EQ(segment->m_videoFile, CachePath(wide + L".mp4"));
    EXPECT_TRUE(Exists(text + std::string(".m4a")));
    EXPECT_TRUE(log.Contains(" SegmentDownloader::ThreadProc download segment " + std::string(text) +
                             " success. Result: 0x00000000"));
}

INSTANTIATE_TEST_SUITE_P(Numbers, SegmentDownloaderNames,
                         testing::Values(NamedNumber{1234, "1234"}, NamedNumber{0, "0"}, NamedNumber{-5, "-5"},
                                         NamedNumber{std::numeric_limits<LONGLONG>::max(), "9223372036854775807"}));

class SegmentDownloaderFailure : public test::FakeDownloaderTest {};

TEST_F(SegmentDownloaderFailure, OfTheAudioIsReportedWithTheVideosSuccessCode) {
    const LogCapture log(6);
    m_client->Once(Video(7), Body("pictures"));
    Start();
    Push(7);
    Finish();
    EXPECT_EQ(m_client->Urls(), (std::vector<std::string>{"a/7", "a/7", "a/7", "v/7"}));
    EXPECT_EQ(m_receiver.Numbers(), Numbers{kEndMarker});
    EXPECT_EQ(m_receiver.Failures(), 1);
    EXPECT_TRUE(log.Contains("[Error] SegmentDownloader::ThreadProc download segment 7 failed. Result: 0x00000000"));
    EXPECT_EQ(log.CountPrefix(" SegmentDownloader::ThreadProc download segment 7 audio success"), 0u);
    EXPECT_EQ(log.CountPrefix(" SegmentDownloader::ThreadProc download segment 7 success"), 0u);
    EXPECT_EQ(m_downloader->VideoBytes(), 0);
    EXPECT_FALSE(Exists("7.mp4")) << "the video that did arrive goes with its segment";
}

TEST_F(SegmentDownloaderFailure, OfTheVideoIsReportedWithItsLastResult) {
    const LogCapture log(6);
    m_client->Once(Audio(7), Body("sound"));
    m_client->Once(Video(7), NoResponse(E_OUTOFMEMORY));
    m_client->Once(Video(7), NoResponse(E_ACCESSDENIED));
    m_client->Once(Video(7), NoResponse(E_UNEXPECTED));
    Start();
    Push(7);
    Finish();
    EXPECT_EQ(m_client->Urls(), (std::vector<std::string>{"a/7", "v/7", "v/7", "v/7"}));
    EXPECT_EQ(m_receiver.Failures(), 1);
    EXPECT_TRUE(log.Contains("[Error] SegmentDownloader::ThreadProc download segment 7 failed. Result: 0x8000FFFF"));
    EXPECT_FALSE(Exists("7.m4a"));
}

TEST_F(SegmentDownloaderFailure, OfBothTakesThreeAttemptsEachAndIsReportedOnce) {
    Start();
    Push(7);
    Finish();
    EXPECT_EQ(m_client->Calls().size(), 6u);
    EXPECT_EQ(m_receiver.Failures(), 1);
    EXPECT_EQ(m_receiver.Numbers(), Numbers{kEndMarker});
}

TEST_F(SegmentDownloaderFailure, IsNotTriedLaterAndTheNextSegmentGoesOn) {
    Serve(8);
    Start();
    Push(7);
    Push(8);
    Finish();
    EXPECT_EQ(m_receiver.Numbers(), (Numbers{8, kEndMarker}));
    EXPECT_EQ(std::ranges::count(m_client->Urls(), "a/7"), 3);
    EXPECT_EQ(m_downloader->AudioBytes(), 5) << "only what was handed on counts";
}

TEST_F(SegmentDownloaderFailure, LineIsAtLevelThree) {
    const LogCapture log(3);
    Start();
    Push(7);
    Finish();
    EXPECT_EQ(Own(log), Lines{"[Error] SegmentDownloader::ThreadProc download segment 7 failed. Result: 0x80004005"});
}

class SegmentDownloaderRetry : public test::FakeDownloaderTest {};

TEST_F(SegmentDownloaderRetry, SucceedsAfterAttemptsThatGaveNoByte) {
    const LogCapture log(6);
    m_client->Once(Audio(7), NoResponse());
    m_client->Once(Audio(7), Body("sound"));
    m_client->Once(Video(7), NoResponse());
    m_client->Once(Video(7), NoResponse());
    m_client->Once(Video(7), Body("pictures"));
    Start();
    Push(7);
    Finish();
    EXPECT_EQ(m_client->Urls(), (std::vector<std::string>{"a/7", "a/7", "v/7", "v/7", "v/7"}));
    EXPECT_EQ(m_receiver.Numbers(), (Numbers{7, kEndMarker}));
    EXPECT_EQ(m_receiver.Failures(), 0);
    EXPECT_EQ(Content("7.m4a"), "sound");
    EXPECT_EQ(Content("7.mp4"), "pictures");
    EXPECT_EQ(log.CountPrefix(" SegmentDownloader::ThreadProc download segment 7 audio success"), 1u);
}

TEST_F(SegmentDownloaderRetry, UsesOneSinkForAllAttemptsOfAFile) {
    m_client->Once(Video(7), NoResponse());
    m_client->Once(Video(7), Body("pictures"));
    Start();
    Push(7);
    Finish();
    const auto calls = m_client->Calls();
    ASSERT_EQ(calls.size(), 5u);
    EXPECT_EQ(calls[0].sink, calls[1].sink);
    EXPECT_EQ(calls[0].sink, calls[2].sink);
    EXPECT_EQ(calls[3].sink, calls[4].sink);
}

TEST_F(SegmentDownloaderRetry, FailsAtFileCreationAfterAShortBody) {
    const LogCapture log(6);
    m_client->Once(Audio(7), ShortBody("sou"));
    m_client->Once(Audio(7), Body("sound"));
    m_client->Once(Audio(7), Body("sound"));
    m_client->Once(Video(7), Body("pictures"));
    Start();
    Push(7);
    Finish();
    EXPECT_EQ(std::ranges::count(m_client->Urls(), "a/7"), 3);
    EXPECT_EQ(log.Count("[Error] OpenFileAndSeek Create file fail, error code: 80"), 2u);
    EXPECT_EQ(m_receiver.Failures(), 1);
    EXPECT_EQ(Content("7.m4a"), "sou") << "the partial file stays";
}

// What a write that failed leaves behind: the sink hears of no end, and its file stays open.
TEST_F(SegmentDownloaderRetry, AppendsAfterAnAttemptThatStoppedInTheBody) {
    const LogCapture log(6);
    m_client->Once(Audio(7), {E_FAIL, {"sou"}, /*endsBody=*/false});
    m_client->Once(Audio(7), Body("sound"));
    m_client->Once(Video(7), Body("pictures"));
    Start();
    Push(7);
    Finish();
    EXPECT_EQ(Content("7.m4a"), "sousound");
    const auto segments = m_receiver.Segments();
    ASSERT_EQ(m_receiver.Numbers(), (Numbers{7, kEndMarker}));
    EXPECT_EQ(segments[0]->m_audioSize, 8) << "the count goes on, too";
    EXPECT_EQ(log.CountPrefix("[Error]"), 0u);
}

TEST_F(SegmentDownloaderRetry, LaterDownloadOfTheSameNumberFailsBecauseOfThePartialFile) {
    m_client->Once(Audio(7), ShortBody("sou"));
    Start();
    Push(7);
    m_receiver.AwaitFailures(1);
    Serve(7);
    Push(7);
    Finish();
    EXPECT_EQ(m_receiver.Failures(), 2);
    EXPECT_EQ(Content("7.m4a"), "sou");
}

TEST_F(SegmentDownloaderRetry, ForeignFileIsNeverWrittenOver) {
    std::ofstream(Path("7.mp4")) << "somebody's";
    Serve(7);
    Start();
    Push(7);
    Finish();
    EXPECT_EQ(m_receiver.Failures(), 1);
    EXPECT_EQ(Content("7.mp4"), "somebody's");
}

TEST_F(SegmentDownloaderRetry, FolderThatDoesNotExistFailsEveryAttempt) {
    m_downloader->SetCacheFileFolder((Folder() + "/missing").c_str());
    for (int attempt = 0; attempt < 3; ++attempt) {
        Serve(7);
    }
    m_downloader->Init(m_queue);
    Push(7);
    Finish();
    EXPECT_EQ(m_client->Calls().size(), 6u);
    EXPECT_EQ(m_receiver.Failures(), 1);
}

class SegmentDownloaderEnd : public test::FakeDownloaderTest {};

TEST_F(SegmentDownloaderEnd, MarkerItselfIsHandedOnBeforeTheThreadEnds) {
    const LogCapture log(6);
    bool finished = true;
    m_receiver.AtPush([&] { finished = log.Contains(" SegmentDownloader::ThreadProc finish"); });
    Start();
    const auto marker = std::make_shared<Segment>();
    m_queue->push(marker);
    m_receiver.AwaitEndMarker();
    m_downloader->WorkerProcessor::CloseThread();
    EXPECT_EQ(m_receiver.Segments(), std::vector<std::shared_ptr<Segment>>{marker});
    EXPECT_FALSE(finished);
    EXPECT_TRUE(log.Contains(" SegmentDownloader::ThreadProc  get end segment. stop thread!!"));
    EXPECT_TRUE(log.Contains(" SegmentDownloader::ThreadProc finish"));
}

TEST_F(SegmentDownloaderEnd, EmptyVideoUrlWithADurationIsDownloadedAndFails) {
    Start();
    auto segment = std::make_shared<Segment>();
    segment->m_duration = 1;
    m_queue->push(std::move(segment));
    Finish();
    EXPECT_EQ(m_client->Urls(), std::vector<std::string>(6, ""));
    EXPECT_EQ(m_receiver.Failures(), 1);
    EXPECT_EQ(m_receiver.Numbers(), Numbers{kEndMarker});
}

TEST_F(SegmentDownloaderEnd, VideoUrlWithoutADurationIsDownloaded) {
    Serve(7);
    Start();
    auto segment = std::make_shared<Segment>();
    segment->m_segmentNumber = 7;
    segment->m_audioUrl = Audio(7);
    segment->m_videoUrl = Video(7);
    m_queue->push(std::move(segment));
    Finish();
    EXPECT_EQ(m_receiver.Numbers(), (Numbers{7, kEndMarker}));
}

TEST_F(SegmentDownloaderEnd, EmptyVideoUrlWithAVideoSizeIsDownloaded) {
    Start();
    auto segment = std::make_shared<Segment>();
    segment->m_videoSize = 1;
    m_queue->push(std::move(segment));
    Finish();
    EXPECT_EQ(m_client->Calls().size(), 6u);
    EXPECT_EQ(m_receiver.Failures(), 1);
}

TEST_F(SegmentDownloaderEnd, ClosedQueueEndsTheThread) {
    const LogCapture log(6);
    Start();
    m_queue->close();
    ASSERT_TRUE(log.WaitForPrefix(" SegmentDownloader::ThreadProc finish"));
    EXPECT_EQ(Own(log), (Lines{" SegmentDownloader::ThreadProc ",
                               "[Error] SegmentDownloader::ThreadProc cannot get segment. stop thread!!",
                               " SegmentDownloader::ThreadProc finish"}));
    EXPECT_EQ(m_receiver.Segments().size(), 0u);
}

}  // namespace
}  // namespace kvmpd
