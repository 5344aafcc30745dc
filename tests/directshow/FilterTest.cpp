#include <future>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "common/ComPtr.h"
#include "tests/directshow/Fakes.h"

namespace kvmpd::test {
namespace {

using Notes = std::vector<std::string>;

FILTER_STATE StateOf(IBaseFilter* filter) {
    FILTER_STATE state = State_Running;
    EXPECT_EQ(filter->GetState(0, &state), S_OK);
    return state;
}

// A graph that only counts its references.
class FakeGraph final : public IFilterGraph {
  public:
    ULONG references = 1;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
    HRESULT STDMETHODCALLTYPE AddFilter(IBaseFilter*, LPCWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE RemoveFilter(IBaseFilter*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumFilters(IEnumFilters**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE FindFilterByName(LPCWSTR, IBaseFilter**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ConnectDirect(IPin*, IPin*, const AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reconnect(IPin*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Disconnect(IPin*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetDefaultSyncSource() override { return E_NOTIMPL; }
};

class Filter : public testing::Test {
  protected:
    Filter() : filter(MakeFilter()), other(MakeFilter()) {
        pin = filter->Add(L"Out", PINDIR_OUTPUT);
        pin->types = {MakeType(MEDIATYPE_Stream)};
        unconnected = filter->Add(L"Spare", PINDIR_OUTPUT);
        input = other->Add(L"In", PINDIR_INPUT);
    }
    void Connect() {
        ASSERT_EQ(pin->Connect(input, nullptr), S_OK);
        pin->notes.clear();
    }
    ~Filter() override {
        filter->Stop();
        pin->breakResult = S_OK;
        pin->Disconnect();
        input->Disconnect();
    }

    ComPtr<FakeFilter> filter;
    ComPtr<FakeFilter> other;
    FakePin* pin;
    FakePin* unconnected;
    FakePin* input;
};

TEST_F(Filter, IsBornStopped) {
    EXPECT_EQ(StateOf(filter.get()), State_Stopped);
}

TEST_F(Filter, StateChangesReachConnectedPinsOnly) {
    Connect();
    EXPECT_EQ(filter->Pause(), S_OK);
    EXPECT_EQ(StateOf(filter.get()), State_Paused);
    EXPECT_EQ(filter->Pause(), S_OK);
    EXPECT_EQ(filter->Run(77), S_OK);
    EXPECT_EQ(StateOf(filter.get()), State_Running);
    EXPECT_EQ(filter->Run(78), S_OK);
    EXPECT_EQ(filter->Pause(), S_OK);
    EXPECT_EQ(filter->Stop(), S_OK);
    EXPECT_EQ(filter->Stop(), S_OK);
    EXPECT_EQ(StateOf(filter.get()), State_Stopped);
    EXPECT_EQ(pin->notes, (Notes{"active", "run 77", "inactive"}));
    EXPECT_EQ(unconnected->notes, Notes{});
}

TEST_F(Filter, RunFromStoppedPausesFirst) {
    Connect();
    EXPECT_EQ(filter->Run(5), S_OK);
    EXPECT_EQ(pin->notes, (Notes{"active", "run 5"}));
}

TEST_F(Filter, APinThatCannotStartKeepsTheFilterStopped) {
    Connect();
    pin->activeResult = E_FAIL;
    EXPECT_EQ(filter->Run(0), E_FAIL);
    EXPECT_EQ(StateOf(filter.get()), State_Stopped);
}

TEST_F(Filter, StateIsAnsweredWhileAnotherThreadHoldsTheFilterLock) {
    CritSecLock held(filter->lock);
    auto answer = std::async(std::launch::async, [this] { return StateOf(filter.get()); });
    EXPECT_EQ(answer.get(), State_Stopped);
    EXPECT_EQ(filter->GetState(0, nullptr), E_POINTER);
}

TEST_F(Filter, AnswersForItsInterfacesWithOneIdentity) {
    for (const IID* id : {&IID_IBaseFilter, &IID_IMediaFilter, &IID_IPersist}) {
        ComPtr<IBaseFilter> face;
        ASSERT_EQ(filter->QueryInterface(*id, face.putVoid()), S_OK);
        EXPECT_EQ(face.get(), static_cast<IBaseFilter*>(filter.get()));
    }
    CLSID id;
    EXPECT_EQ(filter->GetClassID(&id), S_OK);
    EXPECT_EQ(id, kFakeFilterClass);
    EXPECT_EQ(filter->GetClassID(nullptr), E_POINTER);
}

TEST_F(Filter, JoiningAGraphTakesNoReferenceButTellingOfItDoes) {
    FakeGraph graph;
    EXPECT_EQ(filter->JoinFilterGraph(&graph, L"Source"), S_OK);
    EXPECT_EQ(graph.references, 1u);
    FILTER_INFO info;
    ASSERT_EQ(filter->QueryFilterInfo(&info), S_OK);
    EXPECT_EQ(info.pGraph, &graph);
    EXPECT_EQ(std::wstring(info.achName), L"Source");
    EXPECT_EQ(graph.references, 2u);
    info.pGraph->Release();
    EXPECT_EQ(filter->JoinFilterGraph(nullptr, nullptr), S_OK);
    ASSERT_EQ(filter->QueryFilterInfo(&info), S_OK);
    EXPECT_EQ(info.pGraph, nullptr);
    EXPECT_EQ(std::wstring(info.achName), L"");
    EXPECT_EQ(filter->QueryFilterInfo(nullptr), E_POINTER);
}

TEST_F(Filter, ANameTooLongForTheRecordIsCut) {
    filter->JoinFilterGraph(nullptr, std::wstring(500, L'x').c_str());
    FILTER_INFO info;
    ASSERT_EQ(filter->QueryFilterInfo(&info), S_OK);
    EXPECT_EQ(std::wstring(info.achName), std::wstring(127, L'x'));
}

TEST_F(Filter, HasNoVendorAndNoClockUntilItGetsOne) {
    wchar_t text[] = L"";
    LPWSTR vendor = text;
    EXPECT_EQ(filter->QueryVendorInfo(&vendor), E_NOTIMPL);
    EXPECT_EQ(vendor, nullptr);
    IReferenceClock* clock = nullptr;
    EXPECT_EQ(filter->GetSyncSource(&clock), S_OK);
    EXPECT_EQ(clock, nullptr);
    EXPECT_EQ(filter->SetSyncSource(nullptr), S_OK);
    EXPECT_EQ(filter->GetSyncSource(nullptr), E_POINTER);
}

TEST_F(Filter, FindsPinsById) {
    ComPtr<IPin> found;
    EXPECT_EQ(filter->FindPin(L"Spare", found.put()), S_OK);
    EXPECT_EQ(found.get(), static_cast<IPin*>(unconnected));
    IPin* none = unconnected;
    EXPECT_EQ(filter->FindPin(L"Nowhere", &none), VFW_E_NOT_FOUND);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(filter->FindPin(nullptr, &none), E_POINTER);
    EXPECT_EQ(filter->FindPin(L"Spare", nullptr), E_POINTER);
}

TEST_F(Filter, EnumeratesItsPinsInOrder) {
    ComPtr<IEnumPins> pins;
    ASSERT_EQ(filter->EnumPins(pins.put()), S_OK);
    IPin* fetched[3] = {};
    ULONG count = 9;
    EXPECT_EQ(pins->Next(3, fetched, &count), S_FALSE);
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(fetched[0], static_cast<IPin*>(pin));
    EXPECT_EQ(fetched[1], static_cast<IPin*>(unconnected));
    fetched[0]->Release();
    fetched[1]->Release();
    EXPECT_EQ(pins->Next(1, fetched, nullptr), S_FALSE);
    EXPECT_EQ(filter->EnumPins(nullptr), E_POINTER);
}

TEST_F(Filter, PinEnumeratorSkipsResetsAndClones) {
    ComPtr<IEnumPins> pins;
    ASSERT_EQ(filter->EnumPins(pins.put()), S_OK);
    EXPECT_EQ(pins->Skip(1), S_OK);
    ComPtr<IEnumPins> clone;
    ASSERT_EQ(pins->Clone(clone.put()), S_OK);
    ComPtr<IPin> next;
    EXPECT_EQ(clone->Next(1, next.put(), nullptr), S_OK);
    EXPECT_EQ(next.get(), static_cast<IPin*>(unconnected));
    EXPECT_EQ(pins->Skip(2), S_FALSE);
    EXPECT_EQ(pins->Reset(), S_OK);
    EXPECT_EQ(pins->Next(1, next.put(), nullptr), S_OK);
    EXPECT_EQ(next.get(), static_cast<IPin*>(pin));
    EXPECT_EQ(pins->Next(2, next.put(), nullptr), E_INVALIDARG);
    EXPECT_EQ(pins->Next(1, nullptr, nullptr), E_POINTER);
    EXPECT_EQ(pins->Clone(nullptr), E_POINTER);
}

TEST_F(Filter, PinEnumeratorNoticesThatThePinsChanged) {
    ComPtr<IEnumPins> pins;
    ASSERT_EQ(filter->EnumPins(pins.put()), S_OK);
    filter->Add(L"Late", PINDIR_OUTPUT);
    ComPtr<IPin> next;
    EXPECT_EQ(pins->Next(1, next.put(), nullptr), VFW_E_ENUM_OUT_OF_SYNC);
    EXPECT_EQ(pins->Skip(1), VFW_E_ENUM_OUT_OF_SYNC);
    pins->Reset();
    EXPECT_EQ(pins->Next(1, next.put(), nullptr), S_OK);
}

TEST_F(Filter, PinEnumeratorKeepsTheFilterAlive) {
    ComPtr<FakeFilter> mortal = MakeFilter();
    mortal->Add(L"Only", PINDIR_OUTPUT);
    ComPtr<IEnumPins> pins;
    ASSERT_EQ(mortal->EnumPins(pins.put()), S_OK);
    mortal.Reset();
    ComPtr<IPin> next;
    EXPECT_EQ(pins->Next(1, next.put(), nullptr), S_OK);
    pins.Reset();
    PIN_DIRECTION direction;
    EXPECT_EQ(next->QueryDirection(&direction), S_OK);  // the pin's reference counts on the filter
}

}  // namespace
}  // namespace kvmpd::test
