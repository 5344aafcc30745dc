#include "directshow/CMediaType.h"

#include <cstring>

namespace kvmpd {

HRESULT CopyMediaType(AM_MEDIA_TYPE* target, const AM_MEDIA_TYPE* source) {
    *target = *source;
    target->cbFormat = 0;
    target->pbFormat = nullptr;
    if (target->pUnk != nullptr) {
        target->pUnk->AddRef();
    }
    if (source->cbFormat == 0 || source->pbFormat == nullptr) {
        return S_OK;
    }
    void* format = CoTaskMemAlloc(source->cbFormat);
    if (format == nullptr) {
        return E_OUTOFMEMORY;
    }
    std::memcpy(format, source->pbFormat, source->cbFormat);
    target->pbFormat = static_cast<BYTE*>(format);
    target->cbFormat = source->cbFormat;
    return S_OK;
}

void FreeMediaType(AM_MEDIA_TYPE& type) {
    CoTaskMemFree(type.pbFormat);
    type.pbFormat = nullptr;
    type.cbFormat = 0;
    if (type.pUnk != nullptr) {
        type.pUnk->Release();
        type.pUnk = nullptr;
    }
}

AM_MEDIA_TYPE* CreateMediaType(const AM_MEDIA_TYPE* source) {
    auto* type = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
    if (type != nullptr && FAILED(CopyMediaType(type, source))) {
        DeleteMediaType(type);
        type = nullptr;
    }
    return type;
}

void DeleteMediaType(AM_MEDIA_TYPE* type) {
    if (type != nullptr) {
        FreeMediaType(*type);
        CoTaskMemFree(type);
    }
}

CMediaType::CMediaType() : AM_MEDIA_TYPE{} {
    bFixedSizeSamples = TRUE;
}

CMediaType::CMediaType(const AM_MEDIA_TYPE& type) : AM_MEDIA_TYPE{} {
    CopyMediaType(this, &type);
}

CMediaType::CMediaType(const CMediaType& type) : CMediaType(static_cast<const AM_MEDIA_TYPE&>(type)) {}

CMediaType& CMediaType::operator=(const CMediaType& type) {
    Set(type);
    return *this;
}

CMediaType::~CMediaType() {
    FreeMediaType(*this);
}

HRESULT CMediaType::Set(const AM_MEDIA_TYPE& type) {
    if (&type == this) {
        return S_OK;
    }
    AM_MEDIA_TYPE copy;
    const HRESULT hr = CopyMediaType(&copy, &type);
    if (FAILED(hr)) {
        FreeMediaType(copy);
        return hr;
    }
    FreeMediaType(*this);
    static_cast<AM_MEDIA_TYPE&>(*this) = copy;
    return S_OK;
}

bool CMediaType::operator==(const CMediaType& other) const {
    return majortype == other.majortype && subtype == other.subtype && formattype == other.formattype &&
           cbFormat == other.cbFormat && (cbFormat == 0 || std::memcmp(pbFormat, other.pbFormat, cbFormat) == 0);
}

bool CMediaType::IsPartiallySpecified() const {
    return majortype == GUID_NULL || formattype == GUID_NULL;
}

bool CMediaType::MatchesPartial(const CMediaType& pattern) const {
    const auto agrees = [](const GUID& own, const GUID& wanted) { return wanted == GUID_NULL || own == wanted; };
    if (!agrees(majortype, pattern.majortype) || !agrees(subtype, pattern.subtype) ||
        !agrees(formattype, pattern.formattype)) {
        return false;
    }
    return pattern.cbFormat == 0 ||
           (cbFormat == pattern.cbFormat && std::memcmp(pbFormat, pattern.pbFormat, cbFormat) == 0);
}

}  // namespace kvmpd
