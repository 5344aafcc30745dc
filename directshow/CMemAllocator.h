// The allocator of plain memory: one block, cut into samples with the alignment and prefix that were asked for.

#pragma once

#include <memory>
#include <vector>

#include "directshow/CBaseAllocator.h"
#include "directshow/CMediaSample.h"
#include "platform/com.h"

namespace kvmpd {

class CMemAllocator final : public CBaseAllocator {
  public:
    explicit CMemAllocator(IUnknown* outer = nullptr);

    // A new allocator with one reference, which is the caller's, or null when there is no memory.
    static IMemAllocator* Create();

  protected:
    // VFW_E_BADALIGN unless the alignment is a power of two; the size is rounded up so that every buffer starts
    // aligned.
    HRESULT Grant(const ALLOCATOR_PROPERTIES& request, ALLOCATOR_PROPERTIES* actual) override;
    HRESULT Alloc(const ALLOCATOR_PROPERTIES& properties, std::vector<CMediaSample*>* samples) override;
    void Free() override;

  private:
    // Both under the base's lock: the base calls Alloc and Free with it held.
    std::unique_ptr<BYTE[]> m_memory;
    std::vector<std::unique_ptr<CMediaSample>> m_samples;
};

}  // namespace kvmpd
