// Fetches a live manifest and reads it into an MPD record.
//
// One shape is understood: the first Period has a SegmentList of its own with "startNumber" and a SegmentTimeline in
// which every S is one segment ("d" in milliseconds; "t" and "r" are not read), and every Representation lists its
// files as a BaseURL and one SegmentURL a segment. Element names follow ISO/IEC 23009-1; what is not named there is
// ignored.
#pragma once

#include <memory>
#include <string>

#include "manifest/ManifestSource.h"
#include "net/INetKernelBase.h"

namespace tinyxml2 {
class XMLDocument;
}

namespace kvmpd {

/// One thread at a time.
class MpdParser : public ManifestSource {
  public:
    /// Fetches with a NetKernelBase of its own.
    MpdParser();
    /// Fetches with `client`.
    explicit MpdParser(std::unique_ptr<INetKernelBase> client);
    MpdParser(const MpdParser&) = delete;
    MpdParser& operator=(const MpdParser&) = delete;
    ~MpdParser() override;

    /// S_OK; the client's own negative code when the download failed; E_UNEXPECTED when MPD, Period, SegmentList or
    /// SegmentTimeline is missing; E_FAIL when the body is not well-formed XML, "startNumber" is missing or not a
    /// number, an S has no "d", or the manifest goes beyond what ManifestLimits.h allows; E_OUTOFMEMORY. What else is
    /// wrong costs the item that it is in, or its value.
    HRESULT parse(std::wstring url, std::shared_ptr<MPD> mpd) override;

  private:
    HRESULT Download(const std::wstring& url, tinyxml2::XMLDocument& document);

    const std::unique_ptr<INetKernelBase> m_client;
};

}  // namespace kvmpd
