// Every line of this room at its verbosity. Lines that only a failing platform brings forth are in PlatformCallsTest.
#include "tests/support/LogLevels.h"

#include <deque>
#include <set>

#include "tests/net/NetFixture.h"
#include "tests/support/Wine.h"

namespace kvmpd::test {
namespace {

struct Row {
    LONG level;
    const char* text;               // "@" is what a wide twin adds, "*" any characters
    const char* notWine = nullptr;  // why it is not written there
};

class NetLogLevels : public BothTwins {
  protected:
    void Expect(const std::vector<Row>& rows, const std::function<void()>& scenario) {
        std::deque<std::string> texts;
        std::vector<LineAtLevel> table;
        std::set<std::string> leftOut;
        for (const Row& row : rows) {
            if (row.notWine != nullptr && UnderWine()) {
                leftOut.insert(row.notWine);
            } else {
                table.push_back({row.level, texts.emplace_back(Text(row.text)).c_str()});
            }
        }
        ExpectLevels(table, {"NetKernelBase::"}, scenario);
        if (!leftOut.empty()) {
            GTEST_SKIP() << rows.size() - table.size() << " lines: " << testing::PrintToString(leftOut);
        }
    }
    void OpenPath(NetKernelBase& client, const char* path, RecordingStream stream, const RequestOptions& options = {}) {
        Open(client, m_peer.Url(path), &stream, options);
    }

    const std::string m_refused = "http://127.0.0.1:" + std::to_string(RefusedPort()) + "/";
    TempDir m_dir;
};
KV_FOR_BOTH_TWINS(NetLogLevels);

TEST_P(NetLogLevels, OfRequests) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineAnswersFailedRequests << "; " << kWineHasNoProxyOption;
    }
    m_peer.On("/ok", PeerReply::Ok("abc", {{"ETag", "tag"}, {"X-One", "1"}}));
    Expect({{3, " NetKernelBase::OpenUrl@ open URL: *"},
            {3, GetParam() == Twin::kNarrow
                    ? "[Error] NetKernelBase::OpenUrl  Response file length too long (261): '*' "
                    : "[Error] NetKernelBase::OpenUrlW [NetKernelBase][Error] NetKernelBase::OpenUrlW Response file "
                      "length too long (261): '*' "},
            {3, "[Error] NetKernelBase::OpenUrl@ Fail to send URL request: *"},
            {5, " NetKernelBase::SetReceiveTimeout to: 20000"},
            {5, " NetKernelBase::SetSendTimeout to: 1000"},
            {3, "[Error] NetKernelBase::PrepareConnection@ InternetConnect failed, last error: *"},
            {4, " NetKernelBase::SendUrlRequestImpl@ Disable proxy. Success: *"},
            {4, " NetKernelBase::SendUrlRequestImpl@ Set send timeout to: 1000 Success: True"},
            {3, "[Error] NetKernelBase::SendUrlRequestImpl@ SendHttpReq failed, last error: *"},
            {3, "[Error] NetKernelBase::SendUrlRequestImpl@ QueryResponseInfo failed.", kWineAnswersFailedRequests},
            {3, " NetKernelBase::SendHttpReq@ PyNetKernel::SendHttpReq Use proxy in thread: *", kWineHasNoProxyOption},
            {3, " NetKernelBase::SendHttpReq@ Last error before internet error dialog: 0x*", kWineHasNoProxyOption},
            {3, " NetKernelBase::SendHttpReq@ InternetErrorDlg result: 0x*", kWineHasNoProxyOption},
            {3, "[Error] NetKernelBase::QueryResponseInfo Status code query failed, error code: *",
             kWineAnswersFailedRequests},
            {3, " NetKernelBase::QueryResponseInfo Response ETag: tag"},
            {3, " NetKernelBase::QueryResponseInfo Query header: X-One"}},
           [this] {
               NetKernelBase client;
               client.SetReceiveTimeout(20000);
               client.SetSendTimeout(1000);
               OpenPath(client, "/ok", {}, {.disableProxy = 1, .responseFile = std::wstring(261, L'f')});
               RecordingStream wanting;
               wanting.wantedHeaders = {"X-One"};
               Open(client, m_peer.Url("/ok"), &wanting);
               Open(client, m_refused, nullptr);
               Open(client, "ftp://x", nullptr);
               Open(client, "http://far.example/x", nullptr, {.proxy = L"127.0.0.1:1"});  // no window for the dialog
           });
}

TEST_P(NetLogLevels, OfUploads) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineTakesAClosedConnectionForAResponse << "; " << kWineWritesMoreThanAnnounced;
    }
    m_peer.On("/ok", PeerReply::Ok("abc"));
    m_peer.On("/closing", PeerReply::CloseAtOnce());
    Expect({{3, " NetKernelBase::OpenUrl@ open URL: *"},
            {3, "[Error] NetKernelBase::OpenUrl@ Fail to send URL request: *"},
            {3, "[Error] NetKernelBase::SendUrlRequestImpl@ HttpSendRequestEx failed, last error: *"},
            {3, "[Error] NetKernelBase::SendUrlRequestImpl@ Write content failed."},
            {3, "[Error] NetKernelBase::SendUrlRequestImpl@ HttpEndRequest failed, last error: *",
             kWineTakesAClosedConnectionForAResponse},
            {3,
             "[Error] NetKernelBase::SendUrlRequestImpl@ Has upload stream but return 0 content length, should be "
             "error."},
            {3, "[Error] NetKernelBase::SendUrlRequestImpl@ HttpSendRequestExA failed, last error: *"},
            {3, " NetKernelBase::SendUrlRequestImpl@ Send request with Content-Length: *"},
            {3, "[Error] NetKernelBase::SendUrlRequestImpl@ Write stream content failed."},
            {3, " NetKernelBase::SendUrlRequestImpl@ Write stream content success."},
            {3, " NetKernelBase::SendUrlRequestImpl@ HttpEndRequest success"},
            {3, " NetKernelBase::SendUrlRequestImpl@ Send multi-part request success end."},
            {3, " NetKernelBase::WriteStreamContent Write content data from stream buffer with content length: *"},
            {3, "[Error] NetKernelBase::WriteStreamContent Read buffer instance from NetKernelStream failed."},
            {3, "[Error] NetKernelBase::WriteStreamContent InternetWriteFile failed. Last error: *",
             kWineWritesMoreThanAnnounced},
            {6, " NetKernelBase::WriteStreamContent Use size to upload in this round: 4 success written: 4"},
            {3, " NetKernelBase::WriteStreamContent Write content body from stream."}},
           [this] {
               RecordingProgress progress;
               NetKernelBase client(nullptr, &progress);
               Open(client, m_refused, nullptr, {.postData = "x"});
               OpenPath(client, "/closing", {}, {.postData = "x"});
               RecordingStream upload;
               upload.hasUpload = true;
               OpenPath(client, "/ok", upload);
               upload.upload = "data";
               OpenPath(client, "/ok", upload);
               Open(client, m_refused, &upload);
               upload.uploadLength = 3;  // less than it gives
               OpenPath(client, "/ok", upload);
               upload.uploadFailsAt = 0;
               OpenPath(client, "/ok", upload);
               progress.cancelStage = "transmit";
               OpenPath(client, "/ok", {}, {.postData = "x"});
           });
}

TEST_P(NetLogLevels, OfBodies) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineEndsAShortBody;
    }
    m_peer.On("/ok", PeerReply::Ok("abc"));
    m_peer.On("/short", PeerReply::Truncated("abc", 10));
    Expect({{3, " NetKernelBase::OpenUrl@ open URL: *"},
            {3, "[Error] NetKernelBase::OpenUrl@ Fail to receive URL request: *"},
            {4, " NetKernelBase::ReceiveUrlDataImpl Does not receive response data correctly. Fail return."},
            {3, "[Error] NetKernelBase::ReceiveResponseToStream InternetReadFile failed. Last error: *",
             kWineEndsAShortBody},
            {3, " NetKernelBase::ReceiveResponseToStream2 Cancel when downloading."},
            {3, "[Error] NetKernelBase::ReceiveResponseToStream2 Read file failed, last error: *", kWineEndsAShortBody},
            {4, " NetKernelBase::ReceiveResponseToStream2 End Success: True"},
            {4, " NetKernelBase::ReceiveResponseToStream2 End Success: False", kWineKnowsNoLength},
            {3, "[Error] NetKernelBase::ReceiveResponseToFile InternetReadFile failed. Last error: *",
             kWineEndsAShortBody},
            {3, "[Error] NetKernelBase::ReceiveResponseToBuffer InternetReadFile failed. Last error: *",
             kWineEndsAShortBody}},
           [this] {
               RecordingProgress progress;
               NetKernelBase client(nullptr, &progress);
               OpenPath(client, "/short", {});
               Open(client, m_peer.Url("/short"), nullptr);
               Open(client, m_peer.Url("/short"), nullptr, {.responseFile = (m_dir.Path() / "body").wstring()});
               RecordingStream areas;
               areas.useBuffer = true;
               areas.area.resize(100);
               areas.areaOffered = 50;
               OpenPath(client, "/ok", areas);
               OpenPath(client, "/short", areas);
               RecordingStream refusing;
               refusing.writeResult = 0;
               OpenPath(client, "/ok", refusing);
               progress.cancelStage = "receive";
               OpenPath(client, "/ok", areas);
           });
}

}  // namespace
}  // namespace kvmpd::test
