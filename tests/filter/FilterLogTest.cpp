#include <string>

#include <gtest/gtest.h>

#include "common/Log.h"
#include "tests/filter/HostFakes.h"
#include "tests/support/LogCapture.h"

namespace kvmpd::test {
namespace {

struct Line {
    const char* name;
    const char* text;
    LONG level;
    void (*act)(KVMPDFilter& filter);
};

class FilterLog : public testing::TestWithParam<Line> {};

TEST_P(FilterLog, ALineComesFromItsLevelOn) {
    ComPtr<KVMPDFilter> filter = MakeKVMPDFilter();
    LogCapture log(GetParam().level - 1);
    GetParam().act(*filter.get());
    EXPECT_EQ(log.Count(GetParam().text), 0u);
    LogTestHooks::SetLevel(GetParam().level);
    GetParam().act(*filter.get());
    EXPECT_EQ(log.Count(GetParam().text), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    All, FilterLog,
    testing::Values(Line{"Load", " KVMPDFilter::Load ", 3, [](KVMPDFilter& filter) { filter.Load(L""); }},
                    Line{"Run", " KVMPDFilter::Run ", 3, [](KVMPDFilter& filter) { filter.Run(0); }},
                    Line{"Backdoor", " KVMPDFilter::Backdoor  1", 3,
                         [](KVMPDFilter& filter) { filter.Backdoor(1, nullptr); }},
                    Line{"UnknownId", "[Error] KVMPDFilter::Backdoor Unknown ID: 9", 3,
                         [](KVMPDFilter& filter) { filter.Backdoor(9, nullptr); }},
                    Line{"CacheFolder", " KVMPDFilter::SetCacheFileFolder : (null)", 4,
                         [](KVMPDFilter& filter) { filter.Backdoor(kBackdoorCacheFolder, nullptr); }},
                    Line{"CurrentFile", " KVMPDFilter::GetCurFile ", 6,
                         [](KVMPDFilter& filter) {
                             LPOLESTR name = nullptr;
                             filter.GetCurFile(&name, nullptr);
                         }}),
    [](const auto& each) { return std::string(each.param.name); });

// As a file and as a URL: each of the two loads says so.
TEST(FilterLogOfAFile, ComesAtLevelThreeTwice) {
    ComPtr<KVMPDFilter> filter = MakeKVMPDFilter();
    IFileSourceFilter* const file = filter.get();
    LogCapture log(2);
    file->Load(L"", nullptr);
    EXPECT_EQ(log.Count(" KVMPDFilter::Load "), 0u);
    LogTestHooks::SetLevel(3);
    file->Load(L"", nullptr);
    EXPECT_EQ(log.Count(" KVMPDFilter::Load "), 2u);
}

}  // namespace
}  // namespace kvmpd::test
