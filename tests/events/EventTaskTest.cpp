#include "events/EventTask.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "events/EventIds.h"
#include "tests/events/FakeCallback.h"

namespace kvmpd {
namespace {

using test::Buffering;
using test::Delivered;
using test::FakeCallback;
using test::NumberEvent;
using test::TextEvent;

TEST(EventTaskKinds, BufferedMakesOneBufferingCall) {
    FakeCallback host;
    constexpr LONGLONG kFar = 0x7FFFFFFFFFFFFFFF;
    BufferedEventTask(-1, 5000000000, kFar).Run(host);
    EXPECT_EQ(host.All(), std::vector<Delivered>{Buffering(-1, 5000000000, kFar)});
}

TEST(EventTaskKinds, DwordMakesOneCallWithTwoNumbers) {
    FakeCallback host;
    DwordStreamEventTask(kEventManifest, kManifestFailed, -2147483647).Run(host);
    EXPECT_EQ(host.All(), std::vector<Delivered>{NumberEvent(0, 2, -2147483647)});
}

TEST(EventTaskKinds, StringMakesOneCallWithATextAndNull) {
    FakeCallback host;
    StreamStringEventTask(kEventQualityList, L"1080p, na\u00EFve").Run(host);
    EXPECT_EQ(host.All(), std::vector<Delivered>{TextEvent(6, L"1080p, na\u00EFve")});
}

TEST(EventTaskKinds, StringOwnsItsText) {
    FakeCallback host;
    std::wstring text = L"first";
    StreamStringEventTask task(kEventQualityList, text);
    text = L"other";
    task.Run(host);
    EXPECT_EQ(host.All(), std::vector<Delivered>{TextEvent(6, L"first")});
}

TEST(EventTaskKinds, EmptyTextIsATextAndNotNull) {
    FakeCallback host;
    StreamStringEventTask(kEventQualityList, L"").Run(host);
    EXPECT_EQ(host.All(), std::vector<Delivered>{TextEvent(6, L"")});
}

TEST(EventTaskKinds, ResultOfTheHostIsNotLookedAt) {
    FakeCallback host;
    host.AnswerWith(E_FAIL);
    const std::shared_ptr<EventTask> task = std::make_shared<DwordStreamEventTask>(kEventPosition, 1, 0);
    task->Run(host);
    task->Run(host);
    EXPECT_EQ(host.All().size(), 2u);
}

TEST(EventIds, AreWhatHostsKnow) {
    EXPECT_EQ(kEventManifest, 0u);
    EXPECT_EQ(kEventQualityList, 6u);
    EXPECT_EQ(kEventQualityChosen, 7u);
    EXPECT_EQ(kEventPosition, 8u);
    EXPECT_EQ(kEventDownloadFailed, 9u);
    EXPECT_EQ(kManifestLoaded, 0);
    EXPECT_EQ(kManifestMalformed, 1);
    EXPECT_EQ(kManifestFailed, 2);
}

}  // namespace
}  // namespace kvmpd
