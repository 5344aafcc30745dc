// The order of the operations in their tables: callers and streams that were built apart rely on it.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "net/INetKernelBase.h"
#include "net/INetKernelContentStream.h"
#include "net/INetKernelProgress.h"

namespace kvmpd {
namespace {

/// The number of a virtual operation in its table, from 0. On every compiler that builds this, the first word of a
/// pointer to one is its distance from the table's beginning, plus 1.
template <class Operation>
size_t SlotOf(Operation operation) {
    std::uintptr_t word = 0;
    static_assert(sizeof(operation) >= sizeof(word));
    std::memcpy(&word, &operation, sizeof(word));
    return (word - 1) / sizeof(void*);
}

TEST(SlotOrder, OfTheClient) {
    using Client = INetKernelBase;
    EXPECT_EQ(SlotOf(&Client::SetReceiveChunkSize), 0u);
    EXPECT_EQ(SlotOf(&Client::OpenUrl), 1u);
    EXPECT_EQ(SlotOf(&Client::OpenUrlW), 2u);
    EXPECT_EQ(SlotOf(&Client::Close), 3u);
    EXPECT_EQ(SlotOf(&Client::Reset), 4u);
    EXPECT_EQ(SlotOf(&Client::GetErrorType), 5u);
    EXPECT_EQ(SlotOf(&Client::SetReceiveTimeout), 6u);
    EXPECT_EQ(SlotOf(&Client::SetSendTimeout), 7u);
    EXPECT_EQ(SlotOf(&Client::Reserved8), 8u);
    EXPECT_EQ(SlotOf(&Client::Reserved9), 9u);  // and then the destructor, to which there are no pointers
}

TEST(SlotOrder, OfAContentStream) {
    using Stream = INetKernelContentStream;
    EXPECT_EQ(SlotOf(&Stream::HasUploadContent), 0u);
    EXPECT_EQ(SlotOf(&Stream::GetUploadLength), 1u);
    EXPECT_EQ(SlotOf(&Stream::ReadOutputStream), 2u);
    EXPECT_EQ(SlotOf(&Stream::HasCustomHeaders), 3u);
    EXPECT_EQ(SlotOf(&Stream::GetRequestHeaders), 4u);
    EXPECT_EQ(SlotOf(&Stream::GetRequestHeadersW), 5u);
    EXPECT_EQ(SlotOf(&Stream::WantsHeaders), 6u);
    EXPECT_EQ(SlotOf(&Stream::OnContentLength), 7u);
    EXPECT_EQ(SlotOf(&Stream::OnContentType), 8u);
    EXPECT_EQ(SlotOf(&Stream::OnETag), 9u);
    EXPECT_EQ(SlotOf(&Stream::GetQueryHeaders), 10u);
    EXPECT_EQ(SlotOf(&Stream::OnQueryHeader), 11u);
    EXPECT_EQ(SlotOf(&Stream::UseStreamWrite), 12u);
    EXPECT_EQ(SlotOf(&Stream::WriteInputStream), 13u);
    EXPECT_EQ(SlotOf(&Stream::OnWriteComplete), 14u);
    EXPECT_EQ(SlotOf(&Stream::UseStreamBuffer), 15u);
    EXPECT_EQ(SlotOf(&Stream::GetWriteBuffer), 16u);
    EXPECT_EQ(SlotOf(&Stream::UseResponseFile), 17u);
    EXPECT_EQ(SlotOf(&Stream::GetResponseFile), 18u);
}

TEST(SlotOrder, OfAProgressSink) {
    EXPECT_EQ(SlotOf(&INetKernelProgress::OnProgress), 0u);
    EXPECT_EQ(SlotOf(&INetKernelProgress::OnComplete), 1u);
}

}  // namespace
}  // namespace kvmpd
