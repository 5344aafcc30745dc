#include "net/NetKernelBase.h"

#include "common/Log.h"

namespace kvmpd {

NetKernelBase::NetKernelBase(HWND parentWindow, INetKernelProgress* progress)
    : m_hParentWnd(parentWindow), m_pProgress(progress) {}

NetKernelBase::~NetKernelBase() {
    Reset();
}

void NetKernelBase::SetReceiveChunkSize(DWORD size) {
    m_nReceiveChunk = size;
}

void NetKernelBase::Close() {
    m_hRequest.reset();
    m_hConnect.reset();
    m_hSession.reset();
}

DWORD NetKernelBase::Reset() {
    NetKernelBase::Close();
    m_hParentWnd = nullptr;
    m_pProgress = nullptr;
    return 0;
}

DWORD NetKernelBase::GetErrorType() {
    return m_nErrorType;
}

void NetKernelBase::SetReceiveTimeout(DWORD milliseconds) {
    Log(5, L" NetKernelBase::SetReceiveTimeout to: %lu", milliseconds);
    m_nReceiveTimeout = milliseconds;
}

void NetKernelBase::SetSendTimeout(DWORD milliseconds) {
    Log(5, L" NetKernelBase::SetSendTimeout to: %lu", milliseconds);
    m_nSendTimeout = milliseconds;
}

DWORD NetKernelBase::Reserved8() {
    return 0;
}

DWORD NetKernelBase::Reserved9() {
    return 0;
}

bool NetKernelBase::Cancelled(const char* stage, std::uint64_t done, std::uint64_t total) {
    return m_pProgress != nullptr && m_pProgress->OnProgress(stage, done, total) != 0;
}

}  // namespace kvmpd
