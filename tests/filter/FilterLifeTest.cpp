#include <future>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "directshow/CClassFactory.h"
#include "directshow/CMemAllocator.h"
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

TEST(FilterLife, AStopEndsTheWaitOfAReader) {
    LogCapture log(6);
    ComPtr<KVMPDFilter> filter = MakeKVMPDFilter();
    filter->Load(L"");
    const ComPtr<IAsyncReader> pull = PullOf(filter.get());
    auto read = std::async(std::launch::async, [&pull] {
        BYTE byte = 0;
        return pull->SyncRead(0, 1, &byte);
    });
    ASSERT_TRUE(log.WaitForPrefix(" CAsyncOutputPin::SyncRead wait 100 millisecond to retry #0"));
    filter->Backdoor(kBackdoorStop, nullptr);
    EXPECT_EQ(read.get(), E_FAIL);
    EXPECT_LT(log.CountPrefix(" CAsyncOutputPin::SyncRead wait"), 100u);
}

TEST(FilterLife, AStopFailsEveryKindOfRead) {
    ComPtr<KVMPDFilter> filter = MakeKVMPDFilter();
    ComPtr<IMemAllocator> allocator;
    allocator.Attach(CMemAllocator::Create());
    ALLOCATOR_PROPERTIES wanted = {1, 16, 1, 0};
    ALLOCATOR_PROPERTIES actual;
    ASSERT_EQ(allocator->SetProperties(&wanted, &actual), S_OK);
    ASSERT_EQ(allocator->Commit(), S_OK);
    ComPtr<IMediaSample> sample;
    ASSERT_EQ(allocator->GetBuffer(sample.put(), nullptr, nullptr, 0), S_OK);
    REFERENCE_TIME start = 0;
    REFERENCE_TIME stop = 40'000'000;
    sample->SetTime(&start, &stop);
    const ComPtr<IAsyncReader> pull = PullOf(filter.get());
    filter->Load(L"");
    EXPECT_EQ(pull->SyncReadAligned(sample.get()), S_FALSE);
    filter->Backdoor(kBackdoorStop, nullptr);
    EXPECT_EQ(pull->SyncReadAligned(sample.get()), E_FAIL);
    ASSERT_EQ(pull->Request(sample.get(), 1), S_OK);
    IMediaSample* back = nullptr;
    DWORD_PTR user = 0;
    EXPECT_EQ(pull->WaitForNext(INFINITE, &back, &user), E_FAIL);
    allocator->Decommit();
}

TEST(FilterLife, CreationSaysThatItSucceeded) {
    HRESULT hr = E_UNEXPECTED;
    const ComPtr<IUnknown> filter(KVMPDFilter::CreateInstance(nullptr, &hr)->NonDelegatingUnknown());
    EXPECT_EQ(hr, S_OK);
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
