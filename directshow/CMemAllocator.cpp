#include "directshow/CMemAllocator.h"

#include <cstdint>
#include <limits>
#include <new>

namespace kvmpd {

CMemAllocator::CMemAllocator(IUnknown* outer) : CBaseAllocator(outer) {}

IMemAllocator* CMemAllocator::Create() {
    auto* allocator = new (std::nothrow) CMemAllocator;
    if (allocator != nullptr) {
        allocator->AddRef();
    }
    return allocator;
}

HRESULT CMemAllocator::Grant(const ALLOCATOR_PROPERTIES& request, ALLOCATOR_PROPERTIES* actual) {
    if (request.cBuffers < 0 || request.cbBuffer < 0 || request.cbPrefix < 0) {
        return E_INVALIDARG;
    }
    const LONG align = request.cbAlign;
    if (align <= 0 || (align & (align - 1)) != 0) {
        return VFW_E_BADALIGN;
    }
    // Each buffer is prefix and data together, as long as a multiple of the alignment.
    const std::int64_t wanted = std::int64_t{request.cbBuffer} + request.cbPrefix;
    const std::int64_t stride = (wanted + align - 1) / align * align;
    if (stride > std::numeric_limits<LONG>::max()) {
        return E_INVALIDARG;
    }
    actual->cBuffers = request.cBuffers;
    actual->cbBuffer = static_cast<LONG>(stride - request.cbPrefix);
    actual->cbAlign = align;
    actual->cbPrefix = request.cbPrefix;
    return S_OK;
}

HRESULT CMemAllocator::Alloc(const ALLOCATOR_PROPERTIES& properties, std::vector<CMediaSample*>* samples) {
    const auto count = static_cast<std::size_t>(properties.cBuffers);
    const auto align = static_cast<std::size_t>(properties.cbAlign);
    const auto prefix = static_cast<std::size_t>(properties.cbPrefix);
    const std::size_t stride = static_cast<std::size_t>(properties.cbBuffer) + prefix;
    if (count > (std::numeric_limits<std::size_t>::max() - align) / stride) {
        return E_OUTOFMEMORY;
    }
    m_memory.reset(new (std::nothrow) BYTE[count * stride + align]);
    if (!m_memory) {
        return E_OUTOFMEMORY;
    }
    // The data is what must be aligned; the prefix lies before it.
    const auto start = reinterpret_cast<std::uintptr_t>(m_memory.get()) + prefix;
    BYTE* data = m_memory.get() + prefix + (align - start % align) % align;
    m_samples.reserve(count);
    for (std::size_t index = 0; index < count; ++index, data += stride) {
        m_samples.push_back(std::make_unique<CMediaSample>(this, data, properties.cbBuffer));
        samples->push_back(m_samples.back().get());
    }
    return S_OK;
}

void CMemAllocator::Free() {
    m_samples.clear();
    m_memory.reset();
}

}  // namespace kvmpd
