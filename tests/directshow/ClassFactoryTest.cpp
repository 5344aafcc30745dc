#include <new>
#include <span>

#include <gtest/gtest.h>

#include "common/ComPtr.h"
#include "directshow/CClassFactory.h"
#include "tests/directshow/Fakes.h"

namespace kvmpd::test {
namespace {

constexpr CLSID kGood{1, 0, 0, {}};
constexpr CLSID kFailing{2, 0, 0, {}};
constexpr CLSID kNull{3, 0, 0, {}};
constexpr CLSID kThrowing{4, 0, 0, {}};
constexpr CLSID kLastByteDiffers{1, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}};

class Thing final : public CUnknown {
  public:
    explicit Thing(IUnknown* outer) : CUnknown(outer) {}
};

const CFactoryTemplate kTemplates[] = {
    {L"Good", &kGood, [](IUnknown* outer, HRESULT*) -> CUnknown* { return new Thing(outer); }, nullptr, nullptr},
    {L"Failing", &kFailing,
     [](IUnknown* outer, HRESULT* phr) -> CUnknown* {
         *phr = E_ACCESSDENIED;
         return new Thing(outer);
     },
     nullptr, nullptr},
    {L"Null", &kNull, [](IUnknown*, HRESULT*) -> CUnknown* { return nullptr; }, nullptr, nullptr},
    {L"Throwing", &kThrowing, [](IUnknown*, HRESULT*) -> CUnknown* { throw std::bad_alloc(); }, nullptr, nullptr},
};

ComPtr<IClassFactory> Factory(REFCLSID clsid) {
    ComPtr<IClassFactory> factory;
    EXPECT_EQ(GetClassObject(kTemplates, clsid, IID_IClassFactory, factory.putVoid()), S_OK);
    return factory;
}

TEST(ClassObject, IsGivenAsFactoryOrUnknownOnly) {
    ComPtr<IUnknown> unknown;
    EXPECT_EQ(GetClassObject(kTemplates, kGood, IID_IUnknown, unknown.putVoid()), S_OK);
    ComPtr<IClassFactory> factory;
    EXPECT_EQ(unknown->QueryInterface(IID_IClassFactory, factory.putVoid()), S_OK);
    void* none = this;
    EXPECT_EQ(GetClassObject(kTemplates, kGood, IID_IPin, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);
    none = this;
    EXPECT_EQ(factory->QueryInterface(IID_IPin, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(GetClassObject(kTemplates, kGood, IID_IUnknown, nullptr), E_POINTER);
}

TEST(ClassObject, IsFoundByAll16Bytes) {
    void* none = this;
    EXPECT_EQ(GetClassObject(kTemplates, kLastByteDiffers, IID_IUnknown, &none), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(none, nullptr);
}

TEST(ClassObject, AnEmptyTableHasNoClass) {
    void* none = this;
    EXPECT_EQ(GetClassObject(std::span<const CFactoryTemplate>(), kGood, IID_IUnknown, &none),
              CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(none, nullptr);
}

TEST(ClassFactory, CreatesAnObjectWithOneReference) {
    ComPtr<IUnknown> object;
    ASSERT_EQ(Factory(kGood)->CreateInstance(nullptr, IID_IUnknown, object.putVoid()), S_OK);
    EXPECT_EQ(object->AddRef(), 2u);
    object->Release();
}

TEST(ClassFactory, AnInterfaceThatTheObjectLacksLeavesNoObject) {
    const LONG before = CBaseObject::ObjectsActive();
    void* none = this;
    EXPECT_EQ(Factory(kGood)->CreateInstance(nullptr, IID_IPin, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(CBaseObject::ObjectsActive(), before);
}

TEST(ClassFactory, AggregatesAsUnknownOnly) {
    ComPtr<FakeFilter> outer = MakeFilter();
    void* none = this;
    EXPECT_EQ(Factory(kGood)->CreateInstance(outer->NonDelegatingUnknown(), IID_IPin, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);
    ComPtr<IUnknown> inner;
    EXPECT_EQ(Factory(kGood)->CreateInstance(outer->NonDelegatingUnknown(), IID_IUnknown, inner.putVoid()), S_OK);
    EXPECT_NE(inner.get(), outer->NonDelegatingUnknown());
}

TEST(ClassFactory, ReportsWhyAnObjectCouldNotBeMade) {
    const LONG before = CBaseObject::ObjectsActive();
    void* none = this;
    EXPECT_EQ(Factory(kFailing)->CreateInstance(nullptr, IID_IUnknown, &none), E_ACCESSDENIED);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(Factory(kNull)->CreateInstance(nullptr, IID_IUnknown, &none), E_OUTOFMEMORY);
    EXPECT_EQ(Factory(kThrowing)->CreateInstance(nullptr, IID_IUnknown, &none), E_OUTOFMEMORY);
    EXPECT_EQ(Factory(kGood)->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(CBaseObject::ObjectsActive(), before);
}

TEST(Unloading, WaitsForObjects) {
    ASSERT_EQ(CanUnloadNow(), S_OK);
    ComPtr<IClassFactory> factory = Factory(kGood);
    EXPECT_EQ(CanUnloadNow(), S_FALSE);
    ComPtr<IUnknown> object;
    factory->CreateInstance(nullptr, IID_IUnknown, object.putVoid());
    factory.Reset();
    EXPECT_EQ(CanUnloadNow(), S_FALSE);
    object.Reset();
    EXPECT_EQ(CanUnloadNow(), S_OK);
}

TEST(Unloading, WaitsForEveryServerLock) {
    ComPtr<IClassFactory> factory = Factory(kGood);
    EXPECT_EQ(factory->LockServer(TRUE), S_OK);
    EXPECT_EQ(factory->LockServer(TRUE), S_OK);
    factory.Reset();
    EXPECT_EQ(CanUnloadNow(), S_FALSE);
    factory = Factory(kGood);
    factory->LockServer(FALSE);
    factory.Reset();
    EXPECT_EQ(CanUnloadNow(), S_FALSE);
    factory = Factory(kGood);
    factory->LockServer(FALSE);
    factory.Reset();
    EXPECT_EQ(CanUnloadNow(), S_OK);
}

}  // namespace
}  // namespace kvmpd::test
