#include "filter/CAsyncReader.h"

namespace kvmpd {

CAsyncReader::CAsyncReader(IUnknown* outer, CAsyncStream* stream, HRESULT* phr, REFCLSID clsid)
    : CBaseFilter(outer, &m_csFilter, clsid), m_Io(stream), m_OutputPin(this, &m_Io, &m_csFilter) {
    if (stream == nullptr && phr != nullptr) {
        *phr = E_POINTER;
    }
    m_mt.majortype = MEDIATYPE_Stream;
    m_mt.subtype = GUID_NULL;
}

CAsyncReader::~CAsyncReader() = default;

HRESULT CAsyncReader::GetOutputType(CMediaType* type) {
    if (type == nullptr) {
        return E_POINTER;
    }
    CritSecLock lock(m_csFilter);
    return type->Set(m_mt);
}

}  // namespace kvmpd
