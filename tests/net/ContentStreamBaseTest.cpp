#include <gtest/gtest.h>

#include "net/NetKernelContentStreamBase.h"

namespace kvmpd {
namespace {

class PlainStream final : public NetKernelContentStreamBase {
  public:
    BOOL WriteInputStream(const BYTE* /*data*/, DWORD /*size*/) override { return 1; }
    BOOL OnWriteComplete() override { return 1; }
};

TEST(NetKernelContentStreamBase, AnswersNeutrally) {
    PlainStream plain;
    INetKernelContentStream& stream = plain;
    const BYTE* data = nullptr;
    BYTE* area = nullptr;
    DWORD size = 1;
    std::uint64_t length = 1;
    EXPECT_EQ(stream.HasUploadContent(), 0);
    EXPECT_EQ(stream.GetUploadLength(), 0u);
    EXPECT_EQ(stream.ReadOutputStream(0, &data, &size), static_cast<HRESULT>(0x80004005));
    EXPECT_EQ(stream.HasCustomHeaders(), 0);
    EXPECT_EQ(stream.GetRequestHeaders("host", "/path"), "");
    EXPECT_EQ(stream.GetRequestHeadersW(L"host", L"/path"), L"");
    EXPECT_EQ(stream.WantsHeaders(), 0);
    EXPECT_EQ(stream.OnContentLength(5), 0);
    EXPECT_EQ(stream.OnContentType("text/xml"), 0);
    EXPECT_EQ(stream.OnETag("\"1\""), 0);
    EXPECT_TRUE(stream.GetQueryHeaders().empty());
    EXPECT_EQ(stream.OnQueryHeader("name", "value"), 0);
    EXPECT_EQ(stream.UseStreamWrite(), 1);
    EXPECT_EQ(stream.UseStreamBuffer(), 0);
    EXPECT_EQ(stream.GetWriteBuffer(&area, 0, &size), 0);
    EXPECT_EQ(stream.UseResponseFile(&length, L"file", &area), 0);
    EXPECT_EQ(stream.GetResponseFile(), L"");
}

}  // namespace
}  // namespace kvmpd
