#include <string>

#include <gtest/gtest.h>

#include "filter/KVMPDFilter.h"
#include "filter/KVMPDSrc.h"
#include "filter/Module.h"

namespace kvmpd::test {
namespace {

TEST(ModuleTemplates, OfferTheSourceFilterOnly) {
    ASSERT_EQ(ModuleTemplates().size(), 1u);
    const CFactoryTemplate& entry = ModuleTemplates()[0];
    EXPECT_EQ(std::wstring(entry.name), L"Kavotra MPD Source");
    EXPECT_EQ(*entry.clsid, CLSID_KVMPDFilter);
    EXPECT_EQ(entry.create, &KVMPDFilter::CreateInstance);
    EXPECT_EQ(entry.init, nullptr);
}

TEST(ModuleTemplates, DescribeTheFilterForRegistration) {
    ASSERT_NE(ModuleTemplates()[0].setup, nullptr);
    const FilterSetup& setup = *ModuleTemplates()[0].setup;
    EXPECT_EQ(*setup.clsid, CLSID_KVMPDFilter);
    EXPECT_EQ(std::wstring(setup.name), L"Kavotra MPD Source");
    EXPECT_EQ(setup.merit, 0x400000u);
    ASSERT_EQ(setup.pins, 1u);
    const REGFILTERPINS& pin = *setup.pin;
    EXPECT_EQ(std::wstring(pin.strName), L"Output");
    EXPECT_FALSE(pin.bRendered);
    EXPECT_TRUE(pin.bOutput);
    EXPECT_FALSE(pin.bZero);
    EXPECT_FALSE(pin.bMany);
    EXPECT_EQ(*pin.clsConnectsToFilter, GUID_NULL);
    EXPECT_EQ(std::wstring(pin.strConnectsToPin), L"Input");
    ASSERT_EQ(pin.nMediaTypes, 1u);
    EXPECT_EQ(*pin.lpMediaType->clsMajorType, MEDIATYPE_Stream);
    EXPECT_EQ(*pin.lpMediaType->clsMinorType, GUID_NULL);
}

}  // namespace
}  // namespace kvmpd::test
