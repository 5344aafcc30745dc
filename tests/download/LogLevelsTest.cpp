// Every line of this room at its verbosity.
#include "tests/support/LogLevels.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "download/DownloadNetKernelStream.h"
#include "download/FileDownloadStream.h"
#include "tests/common/Allocations.h"
#include "tests/download/DownloaderFixture.h"
#include "tests/download/TestWorker.h"

namespace kvmpd::test {
namespace {

BOOL Write(INetKernelContentStream& sink, const std::string& data) {
    return sink.WriteInputStream(reinterpret_cast<const BYTE*>(data.data()), static_cast<DWORD>(data.size()));
}

TEST(DownloadLogLevels, OfSinksAndFiles) {
    const std::vector<LineAtLevel> table{
        {3, " DownloadNetKernelStream::OnContentLength out of memory"},
        {3, "[Error] DownloadNetKernelStream::OnContentLength announced length is too large: 18446744073709551615"},
        {6, " DownloadNetKernelStream::WriteInputStream get content length failed. Use assume size: 5242880"},
        {3, "[Error] DownloadNetKernelStream::WriteInputStream Get too large buffer: 4 data. From: 0, total: 3"},
        {4, " DownloadNetKernelStream::OnWriteComplete "},
        {3, "[Error] DownloadNetKernelStream::OnWriteComplete download unexpected size 1. expected: 5242880"},
        {3, "[Error] DownloadNetKernelStream::OnWriteComplete download unexpected size 0. expected: 3"},
        {3, " FileDownloadStream::WriteInputStream Target file does not ready. Try to open it."},
        {3, "[Error] FileDownloadStream::OpenResumeFile Error when open file: *7.mp4"},
        {3, "[Error] FileDownloadStream::WriteInputStream The file did not ready for write!!"},
        {3, "[Error] FileDownloadStream::OnWriteComplete The file did not ready!!"},
        {3, "[Error] OpenFileAndSeek Create file fail, error code: 80"},
        {3, " OpenFileAndSeek Seek to: *"},
        {3, " OpenFileAndSeek Move file to offset: * + 0 offset high: 0x00000000 low: 0x*"},
        {3,
         " OpenFileAndSeek File seek does not correct (expect: 4294967295(0x        FFFFFFFF) seek: "
         "*(0x*)), last error: *"},
        {3,
         " SeekFilePosition Seek file to position: 0x0000000000000001 (1) low: 0x00000001 (1) high: 0x00000000 (0) "
         "Result low: 0x00000001 (1) high: 0x00000000 (0)"},
        {3, "[Error] SeekFilePosition Fail to set file pointer to: 0xffffffffffffffff (-1)"}};
    ExpectLevels(table, {"DownloadNetKernelStream::", "FileDownloadStream::", "OpenFileAndSeek", "SeekFilePosition"},
                 [] {
                     const TempDir dir;
                     const std::wstring path = (dir.Path() / "7.mp4").wstring();
                     DownloadNetKernelStream assumed;
                     Write(assumed, "x");
                     assumed.OnWriteComplete();
                     DownloadNetKernelStream announced;
                     announced.OnContentLength(~std::uint64_t{0});
                     {
                         const NoMemoryBeyond little(1 << 16);
                         announced.OnContentLength(1 << 20);
                     }
                     announced.OnContentLength(3);
                     Write(announced, "four");
                     announced.OnWriteComplete();
                     FileDownloadStream file(path);
                     file.OnWriteComplete();
                     Write(file, "x");
                     file.OnWriteComplete();
                     Write(file, "x");
                     const auto open = [&path](std::int64_t offset) {
                         return OpenFileAndSeek(path, offset, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, 0);
                     };
                     open(0xFFFFFFFF);
                     const SharedFile opened = open(1);
                     SeekFilePosition(opened.get(), 1);
                     SeekFilePosition(opened.get(), -1);
                 });
}

TEST(DownloadLogLevels, OfWorkersQueuesAndSegments) {
    const std::vector<LineAtLevel> table{{3, " WorkerProcessor::CloseThread "},
                                         {3, " WorkerProcessor::CloseThread Finish"},
                                         {3, "[Error] WorkerProcessor::Enter thread ended by an exception"},
                                         {4, " SegmentQueue::SegmentQueue "},
                                         {4, " SegmentQueue::~SegmentQueue "},
                                         {4, " SegmentQueue::close "},
                                         {6, " Segment::~Segment delete file: 0"},
                                         {6, " Segment::~Segment delete audio file: 0"}};
    ExpectLevels(table, {"WorkerProcessor::", "SegmentQueue::", "Segment::"}, [] {
        const TempDir dir;
        TestWorker worker([](HANDLE) -> DWORD { throw 1; });
        worker.StartThread();
        worker.CloseThread();
        SegmentQueue queue(0);
        auto segment = std::make_shared<Segment>();
        segment->m_videoSize = segment->m_audioSize = 1;
        segment->m_videoFile = segment->m_audioFile = (dir.Path() / "none").wstring();
        queue.push(std::move(segment));
        queue.pop();
    });
}

TEST(DownloadLogLevels, OfTheDownloader) {
    const std::vector<LineAtLevel> table{
        {4, " SegmentDownloader::SegmentDownloader "},
        {4, " SegmentDownloader::Init "},
        {4, " SegmentDownloader::SetCacheFileFolder *"},
        {4, "[Error] SegmentDownloader::SetCacheFileFolder MultiByteToWideChar return 0"},
        {4, " SegmentDownloader::ThreadProc "},
        {6, " SegmentDownloader::ThreadProc download segment * audio success. Result: 0x00000000"},
        {6, " SegmentDownloader::ThreadProc download segment * video success. Result: 0x00000000"},
        {6, " SegmentDownloader::ThreadProc download segment 2 success. Result: 0x00000000"},
        {3, "[Error] SegmentDownloader::ThreadProc download segment 3 failed. Result: 0x80004005"},
        {6, " SegmentDownloader::ThreadProc discard segment 1."},
        {5, " SegmentDownloader::ThreadProc skip segment 4 of an earlier url"},
        {5, " SegmentDownloader::ThreadProc  get end segment. stop thread!!"},
        {5, "[Error] SegmentDownloader::ThreadProc cannot get segment. stop thread!!"},
        {4, " SegmentDownloader::ThreadProc finish"},
        {3, " SegmentDownloader::clear "},
        {4, " SegmentDownloader::CloseThread "},
        {4, " SegmentDownloader::~SegmentDownloader "}};
    ExpectLevels(table, {"SegmentDownloader::"}, [] {
        const TempDir dir;
        FakeReceiver receiver;
        receiver.Refuse(4);
        const auto queue = std::make_shared<SegmentQueue>(0);
        auto client = std::make_unique<FakeNetKernel>();
        for (const char* url : {"a/1", "v/1", "a/2", "v/2"}) {
            client->Once(url, Body("x"));
        }
        {
            SegmentDownloader downloader(receiver, std::move(client));
            downloader.SetCacheFileFolder(Utf8(dir.Path()).c_str());
            downloader.SetCacheFileFolder(nullptr);
            downloader.clear();
            for (LONGLONG number = 1; number <= 4; ++number) {
                auto segment = std::make_shared<Segment>();
                segment->m_segmentNumber = number;
                segment->m_duration = 1;
                segment->m_audioUrl = "a/" + std::to_string(number);
                segment->m_videoUrl = "v/" + std::to_string(number);
                queue->push(std::move(segment));
            }
            queue->push(std::make_shared<Segment>());
            downloader.Init(queue);
            receiver.AwaitEndMarker();
            downloader.WorkerProcessor::CloseThread();
        }
        receiver.Forget();
        queue->close();
        SegmentDownloader ended(receiver, std::make_unique<FakeNetKernel>());
        ended.Init(queue);
        ended.WorkerProcessor::CloseThread();
    });
}

}  // namespace
}  // namespace kvmpd::test
