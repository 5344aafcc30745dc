// The interface ids, slot orders, layouts and codes of the platform's DirectShow declarations: callers that were built
// apart rely on them.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/com.h"
#include "tests/directshow/Slots.h"

namespace kvmpd::test {
namespace {

std::string Text(const GUID& id) {
    char text[40];
    std::snprintf(text, sizeof text, "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X",
                  static_cast<unsigned>(id.Data1), id.Data2, id.Data3, id.Data4[0], id.Data4[1], id.Data4[2],
                  id.Data4[3], id.Data4[4], id.Data4[5], id.Data4[6], id.Data4[7]);
    return text;
}

TEST(Interfaces, IdsAreTheDocumentedOnes) {
    EXPECT_EQ(Text(GUID_NULL), "00000000-0000-0000-0000-000000000000");
    EXPECT_EQ(Text(IID_IUnknown), "00000000-0000-0000-C000-000000000046");
    EXPECT_EQ(Text(IID_IClassFactory), "00000001-0000-0000-C000-000000000046");
    EXPECT_EQ(Text(IID_IPersist), "0000010C-0000-0000-C000-000000000046");
    EXPECT_EQ(Text(IID_IPin), "56A86891-0AD4-11CE-B03A-0020AF0BA770");
    EXPECT_EQ(Text(IID_IEnumPins), "56A86892-0AD4-11CE-B03A-0020AF0BA770");
    EXPECT_EQ(Text(IID_IEnumMediaTypes), "89C31040-846B-11CE-97D3-00AA0055595A");
    EXPECT_EQ(Text(IID_IBaseFilter), "56A86895-0AD4-11CE-B03A-0020AF0BA770");
    EXPECT_EQ(Text(IID_IReferenceClock), "56A86897-0AD4-11CE-B03A-0020AF0BA770");
    EXPECT_EQ(Text(IID_IMediaFilter), "56A86899-0AD4-11CE-B03A-0020AF0BA770");
    EXPECT_EQ(Text(IID_IMediaSample), "56A8689A-0AD4-11CE-B03A-0020AF0BA770");
    EXPECT_EQ(Text(IID_IMemAllocator), "56A8689C-0AD4-11CE-B03A-0020AF0BA770");
    EXPECT_EQ(Text(IID_IFilterGraph), "56A8689F-0AD4-11CE-B03A-0020AF0BA770");
    EXPECT_EQ(Text(IID_IFileSourceFilter), "56A868A6-0AD4-11CE-B03A-0020AF0BA770");
    EXPECT_EQ(Text(IID_IAsyncReader), "56A868AA-0AD4-11CE-B03A-0020AF0BA770");
    EXPECT_EQ(Text(MEDIATYPE_Stream), "E436EB83-524F-11CE-9F53-0020AF0BA770");
}

TEST(Interfaces, ResultCodesAreTheDocumentedOnes) {
    const auto code = [](HRESULT hr) { return static_cast<unsigned>(hr); };
    EXPECT_EQ(code(OLE_S_FIRST), 0x00040000u);
    EXPECT_EQ(code(CLASS_E_NOAGGREGATION), 0x80040110u);
    EXPECT_EQ(code(CLASS_E_CLASSNOTAVAILABLE), 0x80040111u);
    EXPECT_EQ(code(VFW_S_NO_MORE_ITEMS), 0x00040103u);
    EXPECT_EQ(code(VFW_S_STATE_INTERMEDIATE), 0x00040237u);
    EXPECT_EQ(code(VFW_S_CANT_CUE), 0x00040268u);
    EXPECT_EQ(code(VFW_S_NO_STOP_TIME), 0x00040270u);
    EXPECT_EQ(code(VFW_E_INVALIDMEDIATYPE), 0x80040200u);
    EXPECT_EQ(code(VFW_E_ENUM_OUT_OF_SYNC), 0x80040203u);
    EXPECT_EQ(code(VFW_E_ALREADY_CONNECTED), 0x80040204u);
    EXPECT_EQ(code(VFW_E_NO_ACCEPTABLE_TYPES), 0x80040207u);
    EXPECT_EQ(code(VFW_E_INVALID_DIRECTION), 0x80040208u);
    EXPECT_EQ(code(VFW_E_NOT_CONNECTED), 0x80040209u);
    EXPECT_EQ(code(VFW_E_NO_ALLOCATOR), 0x8004020Au);
    EXPECT_EQ(code(VFW_E_BUFFER_OVERFLOW), 0x8004020Du);
    EXPECT_EQ(code(VFW_E_BADALIGN), 0x8004020Eu);
    EXPECT_EQ(code(VFW_E_ALREADY_COMMITTED), 0x8004020Fu);
    EXPECT_EQ(code(VFW_E_BUFFERS_OUTSTANDING), 0x80040210u);
    EXPECT_EQ(code(VFW_E_NOT_COMMITTED), 0x80040211u);
    EXPECT_EQ(code(VFW_E_SIZENOTSET), 0x80040212u);
    EXPECT_EQ(code(VFW_E_NO_CLOCK), 0x80040213u);
    EXPECT_EQ(code(VFW_E_NOT_FOUND), 0x80040216u);
    EXPECT_EQ(code(VFW_E_NOT_STOPPED), 0x80040224u);
    EXPECT_EQ(code(VFW_E_WRONG_STATE), 0x80040227u);
    EXPECT_EQ(code(VFW_E_TYPE_NOT_ACCEPTED), 0x8004022Au);
    EXPECT_EQ(code(VFW_E_TIMEOUT), 0x8004022Eu);
    EXPECT_EQ(code(VFW_E_SAMPLE_TIME_NOT_SET), 0x80040249u);
    EXPECT_EQ(code(VFW_E_MEDIA_TIME_NOT_SET), 0x80040251u);
    EXPECT_EQ(code(VFW_E_NO_TRANSPORT), 0x80040266u);
    EXPECT_EQ(static_cast<unsigned>(MERIT_UNLIKELY), 0x400000u);
    EXPECT_EQ(static_cast<unsigned>(AM_GBF_NOWAIT), 4u);
}

TEST(Interfaces, RecordsHaveTheDocumentedLayout) {
    EXPECT_EQ(offsetof(AM_MEDIA_TYPE, subtype), 16u);
    EXPECT_EQ(offsetof(AM_MEDIA_TYPE, bFixedSizeSamples), 32u);
    EXPECT_EQ(offsetof(AM_MEDIA_TYPE, lSampleSize), 40u);
    EXPECT_EQ(offsetof(AM_MEDIA_TYPE, formattype), 44u);
    EXPECT_EQ(sizeof(ALLOCATOR_PROPERTIES), 16u);
    EXPECT_EQ(offsetof(PIN_INFO, achName), sizeof(void*) + 4);
    EXPECT_EQ(sizeof(PIN_INFO::achName), 128 * sizeof(WCHAR));
    EXPECT_EQ(sizeof(FILTER_INFO::achName), 128 * sizeof(WCHAR));
}

TEST(Interfaces, TaskMemoryOfNoBytesIsStillMemory) {
    void* memory = CoTaskMemAlloc(0);
    EXPECT_NE(memory, nullptr);
    CoTaskMemFree(memory);
    CoTaskMemFree(nullptr);
}

// Records which operation a call through the table reached.
class Reader final : public IAsyncReader {
  public:
    std::string last;
    HRESULT Note(const char* name) {
        last = name;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return Note("QueryInterface"); }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(Note("AddRef")); }
    ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(Note("Release")); }
    HRESULT STDMETHODCALLTYPE RequestAllocator(IMemAllocator*, ALLOCATOR_PROPERTIES*, IMemAllocator**) override {
        return Note("RequestAllocator");
    }
    HRESULT STDMETHODCALLTYPE Request(IMediaSample*, DWORD_PTR) override { return Note("Request"); }
    HRESULT STDMETHODCALLTYPE WaitForNext(DWORD, IMediaSample**, DWORD_PTR*) override { return Note("WaitForNext"); }
    HRESULT STDMETHODCALLTYPE SyncReadAligned(IMediaSample*) override { return Note("SyncReadAligned"); }
    HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG, LONG, BYTE*) override { return Note("SyncRead"); }
    HRESULT STDMETHODCALLTYPE Length(LONGLONG*, LONGLONG*) override { return Note("Length"); }
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return Note("BeginFlush"); }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return Note("EndFlush"); }
};

TEST(Interfaces, AsyncReaderSlotsAreInTheDocumentedOrder) {
    Reader reader;
    IAsyncReader* face = &reader;
    void* out = nullptr;
    CallSlot<HRESULT>(face, 0, &IID_IUnknown, &out);
    EXPECT_EQ(reader.last, "QueryInterface");
    CallSlot<ULONG>(face, 1);
    EXPECT_EQ(reader.last, "AddRef");
    CallSlot<ULONG>(face, 2);
    EXPECT_EQ(reader.last, "Release");
    CallSlot<HRESULT>(face, 3, out, out, out);
    EXPECT_EQ(reader.last, "RequestAllocator");
    CallSlot<HRESULT>(face, 4, out, DWORD_PTR{0});
    EXPECT_EQ(reader.last, "Request");
    CallSlot<HRESULT>(face, 5, DWORD{0}, out, out);
    EXPECT_EQ(reader.last, "WaitForNext");
    CallSlot<HRESULT>(face, 6, out);
    EXPECT_EQ(reader.last, "SyncReadAligned");
    CallSlot<HRESULT>(face, 7, LONGLONG{0}, LONG{0}, out);
    EXPECT_EQ(reader.last, "SyncRead");
    CallSlot<HRESULT>(face, 8, out, out);
    EXPECT_EQ(reader.last, "Length");
    CallSlot<HRESULT>(face, 9);
    EXPECT_EQ(reader.last, "BeginFlush");
    CallSlot<HRESULT>(face, 10);
    EXPECT_EQ(reader.last, "EndFlush");
}

}  // namespace
}  // namespace kvmpd::test
