// The module through its exports.
#include <gtest/gtest.h>

#include "filter/KVMPDSrc.h"

namespace {

template <class Interface>
struct Released {
    Interface* pointer = nullptr;
    ~Released() {
        if (pointer != nullptr) {
            pointer->Release();
        }
    }
    void** Put() { return reinterpret_cast<void**>(&pointer); }
};

constexpr CLSID kOtherClass{0x7D3E2A91, 0x5C4B, 0x4F18, {0xA6, 0xE2, 0x3B, 0x9C, 0x0D, 0x4E, 0x1F, 0x28}};

TEST(Module, GivesTheClassFactoryOfTheFilterOnly) {
    Released<IClassFactory> factory;
    EXPECT_EQ(DllGetClassObject(CLSID_KVMPDFilter, IID_IClassFactory, factory.Put()), S_OK);
    Released<IUnknown> unknown;
    EXPECT_EQ(DllGetClassObject(CLSID_KVMPDFilter, IID_IUnknown, unknown.Put()), S_OK);
    void* none = &factory;
    EXPECT_EQ(DllGetClassObject(kOtherClass, IID_IClassFactory, &none), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(none, nullptr);
    none = &factory;
    EXPECT_EQ(DllGetClassObject(CLSID_KVMPDFilter, IID_IKVMPDSource, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);
}

TEST(Module, StaysWhileItIsInUse) {
    EXPECT_EQ(DllCanUnloadNow(), S_OK);
    {
        Released<IKVMPDSource> source;
        ASSERT_EQ(KVMPDCreateInstance(CLSID_KVMPDFilter, nullptr, IID_IKVMPDSource, source.Put()), S_OK);
        EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
    }
    EXPECT_EQ(DllCanUnloadNow(), S_OK);
    Released<IClassFactory> factory;
    ASSERT_EQ(DllGetClassObject(CLSID_KVMPDFilter, IID_IClassFactory, factory.Put()), S_OK);
    EXPECT_EQ(factory.pointer->LockServer(TRUE), S_OK);
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
    EXPECT_EQ(factory.pointer->LockServer(FALSE), S_OK);
}

TEST(Module, CreatesTheFilterByClassId) {
    Released<IBaseFilter> filter;
    ASSERT_EQ(KVMPDCreateInstance(CLSID_KVMPDFilter, nullptr, IID_IBaseFilter, filter.Put()), S_OK);
    CLSID clsid;
    EXPECT_EQ(filter.pointer->GetClassID(&clsid), S_OK);
    EXPECT_TRUE(clsid == CLSID_KVMPDFilter);
    Released<IFileSourceFilter> file;
    EXPECT_EQ(filter.pointer->QueryInterface(IID_IFileSourceFilter, file.Put()), S_OK);
}

TEST(Module, RefusesWhatItCannotCreate) {
    void* none = &none;
    EXPECT_EQ(KVMPDCreateInstance(kOtherClass, nullptr, IID_IUnknown, &none), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(KVMPDCreateInstance(CLSID_KVMPDFilter, nullptr, IID_IAsyncReader, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(KVMPDCreateInstance(CLSID_KVMPDFilter, nullptr, IID_IUnknown, nullptr), E_POINTER);
    Released<IUnknown> outer;
    ASSERT_EQ(KVMPDCreateInstance(CLSID_KVMPDFilter, nullptr, IID_IUnknown, outer.Put()), S_OK);
    EXPECT_EQ(KVMPDCreateInstance(CLSID_KVMPDFilter, outer.pointer, IID_IBaseFilter, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);
}

TEST(Module, RegistrationSucceeds) {
    EXPECT_EQ(DllRegisterServer(), S_OK);
    EXPECT_EQ(DllUnregisterServer(), S_OK);
}

}  // namespace
