#include "filter/Module.h"

#include "filter/KVMPDFilter.h"
#include "filter/KVMPDSrc.h"

namespace kvmpd {

namespace {

constexpr wchar_t kFilterName[] = L"Kavotra MPD Source";

}  // namespace

std::span<const CFactoryTemplate> ModuleTemplates() {
    // How the filter would be registered. Nobody does that here; hosts and tools read it from the template.
    static wchar_t outputName[] = L"Output";  // the record wants it writable
    static const REGPINTYPES outputTypes[] = {{&MEDIATYPE_Stream, &GUID_NULL}};
    static const REGFILTERPINS output = {
        outputName,
        /*bRendered=*/FALSE,
        /*bOutput=*/TRUE,
        /*bZero=*/FALSE,
        /*bMany=*/FALSE,
        /*clsConnectsToFilter=*/&GUID_NULL,
        /*strConnectsToPin=*/L"Input",
        /*nMediaTypes=*/1,
        outputTypes,
    };
    static const FilterSetup setup = {&CLSID_KVMPDFilter, kFilterName, MERIT_UNLIKELY, /*pins=*/1, &output};
    static const CFactoryTemplate templates[] = {
        {kFilterName, &CLSID_KVMPDFilter, &KVMPDFilter::CreateInstance, /*init=*/nullptr, &setup},
    };
    return templates;
}

}  // namespace kvmpd
