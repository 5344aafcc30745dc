#include "manifest/MpdParser.h"

#include <tinyxml2.h>

#include <algorithm>
#include <new>
#include <span>
#include <string_view>
#include <utility>

#include "common/Log.h"
#include "download/DownloadNetKernelStream.h"
#include "manifest/ManifestLimits.h"
#include "manifest/MpdReader.h"
#include "manifest/XmlDepth.h"
#include "net/NetKernelBase.h"

namespace kvmpd {
namespace {

static_assert(TINYXML2_MAX_ELEMENT_DEPTH > kDeepestXml + 1, "the XML library refuses manifests that are allowed");

/// An upper bound of the nodes and attributes that the body becomes.
size_t XmlItems(std::span<const BYTE> body) {
    return static_cast<size_t>(
        std::ranges::count_if(body, [](BYTE character) { return character == '<' || character == '='; }));
}

}  // namespace

MpdParser::MpdParser() : MpdParser(std::make_unique<NetKernelBase>(nullptr, nullptr)) {}

MpdParser::MpdParser(std::unique_ptr<INetKernelBase> client) : m_client(std::move(client)) {
    Log(4, L" MpdParser::MpdParser ");
}

MpdParser::~MpdParser() {
    Log(4, L" MpdParser::~MpdParser ");
}

HRESULT MpdParser::parse(std::wstring url, std::shared_ptr<MPD> mpd) {
    Log(4, L" MpdParser::parse ");
    try {
        tinyxml2::XMLDocument document;
        const HRESULT result = Download(url, document);
        return FAILED(result) ? result : ReadMpd(document, *mpd);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

/// The body is released as soon as the document, which has a copy of its own, is built.
HRESULT MpdParser::Download(const std::wstring& url, tinyxml2::XMLDocument& document) {
    DownloadNetKernelStream body;
    const HRESULT result = m_client->OpenUrlW(url.c_str(), L"GET", /*proxy=*/nullptr, /*disableProxy=*/FALSE,
                                              /*headers=*/nullptr, /*responseFile=*/nullptr, /*postData=*/nullptr,
                                              /*postLength=*/0, &body);
    if (FAILED(result)) {
        Log(3, L"[Error] MpdParser::parse failed to get mpd data from url");
        return result;
    }
    Log(4, L" MpdParser::parse download MPD complete");
    // The buffer is as large as the body was announced, or assumed, to be; what arrived may be less.
    const size_t size = std::min(static_cast<size_t>(body.Written()), body.Buffer().size());
    if (XmlItems({body.Buffer().data(), size}) > kMostXmlItems) {
        Log(3, L"[Error] MpdParser::parse manifest has more than %d tags and attributes", kMostXmlItems);
        return E_FAIL;
    }
    const std::string_view text(reinterpret_cast<const char*>(body.Buffer().data()), size);
    if (XmlDepth(text, kDeepestXml) > kDeepestXml) {
        Log(3, L"[Error] MpdParser::parse manifest has more than %d elements within each other", kDeepestXml);
        return E_FAIL;
    }
    const tinyxml2::XMLError error = document.Parse(text.data(), text.size());
    if (error != tinyxml2::XML_SUCCESS) {
        Log(3, L"[Error] MpdParser::parse get unexpected xml format: %d", error);
        return E_FAIL;
    }
    return S_OK;
}

}  // namespace kvmpd
