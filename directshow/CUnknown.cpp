#include "directshow/CUnknown.h"

namespace kvmpd {

CUnknown::CUnknown(IUnknown* outer) : m_inner(*this), m_owner(outer != nullptr ? outer : &m_inner) {}

HRESULT CUnknown::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IUnknown) {
        return GetInterface(&m_inner, ppv);
    }
    return NoInterface(ppv);
}

ULONG CUnknown::NonDelegatingAddRef() {
    return ++m_references;
}

ULONG CUnknown::NonDelegatingRelease() {
    const ULONG left = --m_references;
    if (left == 0) {
        // A destructor may hand the object out and take it back; that must not delete it a second time.
        m_references = 1;
        delete this;
    }
    return left;
}

}  // namespace kvmpd
