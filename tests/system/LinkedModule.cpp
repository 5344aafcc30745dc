// Sessions with a filter of the module that the test program is linked with.

#include <stdexcept>

#include "tests/system/LiveSession.h"

namespace kvmpd::test {
namespace {

ComPtr<IBaseFilter> NewFilter() {
    // Through the class factory, as CoCreateInstance does it.
    ComPtr<IClassFactory> factory;
    ComPtr<IBaseFilter> filter;
    if (FAILED(DllGetClassObject(CLSID_KVMPDFilter, IID_IClassFactory, factory.putVoid())) ||
        FAILED(factory->CreateInstance(nullptr, IID_IBaseFilter, filter.putVoid()))) {
        throw std::runtime_error("the module refused to create the filter");
    }
    return filter;
}

}  // namespace

LiveSession::LiveSession()
    : LiveSession(NewFilter(), [](IPin& output, PullSink& sink) { return output.Connect(&sink.Input(), nullptr); }) {}

}  // namespace kvmpd::test
