#include <future>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "directshow/CClassFactory.h"
#include "filter/KVMPDSrc.h"
#include "filter/Module.h"
#include "tests/directshow/Fakes.h"
#include "tests/filter/HostFakes.h"
#include "tests/support/LogCapture.h"

namespace kvmpd::test {
namespace {

std::vector<std::string> LinesOf(const LogCapture& log, const std::string& name) {
    std::vector<std::string> lines;
    for (const std::string& line : log.Lines()) {
        if (line.find(name) != std::string::npos) {
            lines.push_back(line);
        }
    }
    return lines;
}

TEST(FilterLife, DestructionClosesTheEngineAndSaysSo) {
    ComPtr<KVMPDFilter> filter = MakeKVMPDFilter();
    LogCapture log(6);
    filter.Reset();
    EXPECT_EQ(LinesOf(log, "KVMPDFilter"),
              (std::vector<std::string>{" KVMPDFilter::~KVMPDFilter ", " KVMPDFilter::CloseThread ",
                                        " KVMPDFilter::~KVMPDFilter complete"}));
    EXPECT_TRUE(log.Contains(" KVMPDStream::CloseThread "));
    EXPECT_TRUE(log.Contains(" KVMPDStream::~KVMPDStream "));
    EXPECT_EQ(log.Lines().back(), " CAsyncOutputPin::~CAsyncOutputPin ");  // the reader base goes last
}

TEST(FilterLife, DestructionLinesHaveTheirLevels) {
    ComPtr<KVMPDFilter> filter = MakeKVMPDFilter();
    LogCapture log(3);
    filter.Reset();
    EXPECT_EQ(LinesOf(log, "KVMPDFilter"),
              (std::vector<std::string>{" KVMPDFilter::~KVMPDFilter ", " KVMPDFilter::~KVMPDFilter complete"}));
}

TEST(FilterLife, AReaderThatWaitsInsideThePinLeavesBeforeTheEngineGoes) {
    LogCapture log(6);
    ComPtr<KVMPDFilter> filter = MakeKVMPDFilter();
    filter->Load(L"");                                // ends the stop; nothing is loaded, so a read waits
    IAsyncReader* pull = PullOf(filter.get()).get();  // a reader without a reference: the case that needs the care
    auto read = std::async(std::launch::async, [pull] {
        BYTE byte = 0;
        return pull->SyncRead(0, 1, &byte);
    });
    ASSERT_TRUE(log.WaitForPrefix(" CAsyncOutputPin::SyncRead wait 100 millisecond to retry #0"));
    filter.Reset();
    EXPECT_EQ(read.get(), S_FALSE);
    EXPECT_LT(log.CountPrefix(" CAsyncOutputPin::SyncRead wait"), 100u);
}

TEST(FilterLife, AFilterMayBeAggregated) {
    ComPtr<FakeFilter> outer = MakeFilter();
    HRESULT hr = S_OK;
    CUnknown* inner = KVMPDFilter::CreateInstance(outer->NonDelegatingUnknown(), &hr);
    ASSERT_EQ(hr, S_OK);
    inner->NonDelegatingAddRef();
    ComPtr<IKVMPDSource> control;
    ASSERT_EQ(inner->NonDelegatingQueryInterface(IID_IKVMPDSource, control.putVoid()), S_OK);
    ComPtr<IUnknown> identity;
    ASSERT_EQ(control->QueryInterface(IID_IUnknown, identity.putVoid()), S_OK);
    EXPECT_EQ(identity.get(), outer->NonDelegatingUnknown());
    control.Reset();
    identity.Reset();
    EXPECT_EQ(inner->NonDelegatingRelease(), 0u);
}

TEST(FilterLife, ComesFromTheClassFactory) {
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(GetClassObject(ModuleTemplates(), CLSID_KVMPDFilter, IID_IClassFactory, factory.putVoid()), S_OK);
    ComPtr<IBaseFilter> filter;
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_IBaseFilter, filter.putVoid()), S_OK);
    factory.Reset();
    EXPECT_EQ(CanUnloadNow(), S_FALSE);
    filter.Reset();
    EXPECT_EQ(CanUnloadNow(), S_OK);
}

}  // namespace
}  // namespace kvmpd::test
