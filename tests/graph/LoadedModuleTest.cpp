// The module's file: what it exports, what it says of itself, and its class factory as a COM host meets it.

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "tests/graph/Graph.h"

namespace kvmpd::test {
namespace {

/// Something of ours at an offset of the loaded module's image ("PE Format", Microsoft).
template <class Type>
const Type* At(HMODULE module, DWORD offset) {
    return reinterpret_cast<const Type*>(reinterpret_cast<const BYTE*>(module) + offset);
}

const IMAGE_NT_HEADERS64& Headers(HMODULE module) {
    return *At<IMAGE_NT_HEADERS64>(module, static_cast<DWORD>(At<IMAGE_DOS_HEADER>(module, 0)->e_lfanew));
}

TEST(ModuleFile, ExportsFiveFunctionsByNameAndNothingElse) {
    const LoadedModule module;
    ASSERT_TRUE(module.IsLoaded());
    const DWORD place =
        Headers(module.Handle()).OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT].VirtualAddress;
    ASSERT_NE(place, 0u);
    const auto* table = At<IMAGE_EXPORT_DIRECTORY>(module.Handle(), place);
    const auto* names = At<DWORD>(module.Handle(), table->AddressOfNames);
    std::set<std::string> exported;
    for (DWORD i = 0; i < table->NumberOfNames; ++i) {
        exported.insert(At<char>(module.Handle(), names[i]));
    }
    EXPECT_EQ(table->NumberOfFunctions, 5u);
    EXPECT_EQ(exported, (std::set<std::string>{"DllCanUnloadNow", "DllGetClassObject", "DllMain", "DllRegisterServer",
                                               "DllUnregisterServer"}));
}

TEST(ModuleFile, NeedsTheSystemsLibrariesOnly) {
    const LoadedModule module;
    ASSERT_TRUE(module.IsLoaded());
    const DWORD place =
        Headers(module.Handle()).OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    ASSERT_NE(place, 0u);
    static const std::set<std::string> kSystem{"kernel32.dll", "msvcrt.dll", "advapi32.dll", "ole32.dll",
                                               "wininet.dll",  "user32.dll", "oleaut32.dll"};
    for (const auto* entry = At<IMAGE_IMPORT_DESCRIPTOR>(module.Handle(), place); entry->Name != 0; ++entry) {
        std::string name = At<char>(module.Handle(), entry->Name);
        std::ranges::transform(name, name.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; });
        EXPECT_TRUE(kSystem.contains(name)) << name;
    }
}

TEST(ModuleFile, CarriesItsNameAndVersion) {
    const LoadedModule module;
    ASSERT_TRUE(module.IsLoaded());
    std::wstring path(MAX_PATH, L'\0');
    path.resize(GetModuleFileNameW(module.Handle(), path.data(), MAX_PATH));
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &ignored);
    ASSERT_GT(size, 0u);
    std::vector<BYTE> block(size);
    ASSERT_TRUE(GetFileVersionInfoW(path.c_str(), 0, size, block.data()));
    for (const wchar_t* name : {L"FileDescription", L"ProductName"}) {
        void* text = nullptr;
        UINT length = 0;
        ASSERT_TRUE(VerQueryValueW(block.data(), (std::wstring(L"\\StringFileInfo\\040904B0\\") + name).c_str(), &text,
                                   &length));
        EXPECT_EQ(std::wstring(static_cast<const wchar_t*>(text)), L"Kavotra MPD Source");
    }
    void* fixed = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueW(block.data(), L"\\", &fixed, &length));
    EXPECT_NE(static_cast<const VS_FIXEDFILEINFO*>(fixed)->dwFileVersionMS, 0u);
}

class FactoryTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(m_module.IsLoaded());
        ASSERT_EQ(m_module.GetClassObject(CLSID_KVMPDFilter, IID_IClassFactory, m_factory.putVoid()), S_OK);
    }
    ComScope m_com;
    LoadedModule m_module;
    ComPtr<IClassFactory> m_factory;
};

/// A controlling unknown that holds the filter inside and hands its interfaces on.
class Outer final : public IUnknown {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (iid == IID_IUnknown) {
            *object = static_cast<IUnknown*>(this);
            AddRef();
            return S_OK;
        }
        return m_inner ? m_inner->QueryInterface(iid, object) : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override { return --m_references; }

    ULONG References() const { return m_references; }
    ComPtr<IUnknown> m_inner;

  private:
    ULONG m_references = 0;
};

TEST_F(FactoryTest, AnAggregateSharesItsOutersIdentity) {
    Outer outer;
    ASSERT_EQ(m_factory->CreateInstance(&outer, IID_IUnknown, outer.m_inner.putVoid()), S_OK);
    {
        ComPtr<IBaseFilter> filter;
        ASSERT_EQ(outer.QueryInterface(IID_IBaseFilter, filter.putVoid()), S_OK);
        EXPECT_EQ(outer.References(), 1u);
        ComPtr<IUnknown> identity;
        ASSERT_EQ(filter->QueryInterface(IID_IUnknown, identity.putVoid()), S_OK);
        EXPECT_EQ(identity.get(), &outer);
    }
    EXPECT_EQ(outer.References(), 0u);
    EXPECT_EQ(m_module.CanUnloadNow(), S_FALSE);
    outer.m_inner.Reset();
    m_factory.Reset();
    EXPECT_EQ(m_module.CanUnloadNow(), S_OK);
}

TEST_F(FactoryTest, AnAggregateIsRefusedEveryInterfaceButUnknown) {
    Outer outer;
    void* object = &outer;
    EXPECT_EQ(m_factory->CreateInstance(&outer, IID_IBaseFilter, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(outer.References(), 0u);
}

TEST_F(FactoryTest, AServerLockKeepsTheModule) {
    EXPECT_EQ(m_factory->LockServer(TRUE), S_OK);
    IClassFactory* const factory = m_factory.Detach();
    EXPECT_EQ(m_module.CanUnloadNow(), S_FALSE);
    EXPECT_EQ(factory->LockServer(FALSE), S_OK);
    factory->Release();
    EXPECT_EQ(m_module.CanUnloadNow(), S_OK);
}

TEST_F(FactoryTest, RegistrationSucceedsAndWritesNothing) {
    const std::wstring key = L"CLSID\\{7D3E2A91-5C4B-4F18-A6E2-3B9C0D4E1F27}";
    using Function = HRESULT(STDAPICALLTYPE*)();
    for (const char* name : {"DllRegisterServer", "DllUnregisterServer"}) {
        const auto call = reinterpret_cast<Function>(reinterpret_cast<void*>(m_module.Export(name)));
        ASSERT_NE(call, nullptr);
        EXPECT_EQ(call(), S_OK);
        HKEY opened = nullptr;
        EXPECT_EQ(RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, &opened), ERROR_FILE_NOT_FOUND) << name;
    }
}

}  // namespace
}  // namespace kvmpd::test
