// The table of the module's creatable classes: one, the source filter.

#pragma once

#include <span>

#include "directshow/CFactoryTemplate.h"

namespace kvmpd {

std::span<const CFactoryTemplate> ModuleTemplates();

}  // namespace kvmpd
