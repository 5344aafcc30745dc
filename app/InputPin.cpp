#include "app/InputPin.h"

#include <algorithm>
#include <iterator>

namespace kvmpd::app {
namespace {

constexpr wchar_t kPinName[] = L"Input";

}  // namespace

HRESULT InputPin::Connect(IPin*, const AM_MEDIA_TYPE*) {
    return VFW_E_INVALID_DIRECTION;  // connecting is the output pin's part
}

HRESULT InputPin::ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* type) {
    if (connector == nullptr || type == nullptr) {
        return E_POINTER;
    }
    if (m_connected) {
        return VFW_E_ALREADY_CONNECTED;
    }
    if (QueryAccept(type) != S_OK) {
        return VFW_E_TYPE_NOT_ACCEPTED;
    }
    kvmpd::ComPtr<IAsyncReader> reader;
    if (FAILED(connector->QueryInterface(IID_IAsyncReader, reader.putVoid()))) {
        return VFW_E_NO_TRANSPORT;
    }
    m_reader = reader;
    m_connected = kvmpd::ComPtr<IPin>(connector);
    return S_OK;
}

HRESULT InputPin::Disconnect() {
    if (!m_connected) {
        return S_FALSE;
    }
    m_reader.Reset();
    m_connected.Reset();
    return S_OK;
}

HRESULT InputPin::ConnectedTo(IPin** pin) {
    if (pin == nullptr) {
        return E_POINTER;
    }
    *pin = kvmpd::ComPtr<IPin>(m_connected).Detach();
    return *pin != nullptr ? S_OK : VFW_E_NOT_CONNECTED;
}

HRESULT InputPin::ConnectionMediaType(AM_MEDIA_TYPE* type) {
    if (type == nullptr) {
        return E_POINTER;
    }
    *type = AM_MEDIA_TYPE{};
    if (!m_connected) {
        return VFW_E_NOT_CONNECTED;
    }
    type->majortype = MEDIATYPE_Stream;
    return S_OK;
}

HRESULT InputPin::QueryPinInfo(PIN_INFO* info) {
    if (info == nullptr) {
        return E_POINTER;
    }
    info->pFilter = nullptr;  // this pin is the host's own and belongs to no filter
    info->dir = PINDIR_INPUT;
    std::copy(std::begin(kPinName), std::end(kPinName), info->achName);
    return S_OK;
}

HRESULT InputPin::QueryDirection(PIN_DIRECTION* direction) {
    if (direction == nullptr) {
        return E_POINTER;
    }
    *direction = PINDIR_INPUT;
    return S_OK;
}

HRESULT InputPin::QueryId(LPWSTR* id) {
    if (id == nullptr) {
        return E_POINTER;
    }
    *id = static_cast<LPWSTR>(CoTaskMemAlloc(sizeof(kPinName)));
    if (*id == nullptr) {
        return E_OUTOFMEMORY;
    }
    std::copy(std::begin(kPinName), std::end(kPinName), *id);
    return S_OK;
}

HRESULT InputPin::QueryAccept(const AM_MEDIA_TYPE* type) {
    return type != nullptr && type->majortype == MEDIATYPE_Stream ? S_OK : S_FALSE;
}

HRESULT InputPin::EnumMediaTypes(IEnumMediaTypes** types) {
    if (types != nullptr) {
        *types = nullptr;
    }
    return E_NOTIMPL;  // whatever stream the other pin offers is taken
}

HRESULT InputPin::QueryInternalConnections(IPin**, ULONG*) {
    return E_NOTIMPL;
}

}  // namespace kvmpd::app
