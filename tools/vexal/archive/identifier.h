// What a query or a retrieval asks the archive for.
#pragma once

#include <cstdint>
#include <vector>

#include "holdings/catalog.h"

namespace vexal {

// The identifier of a query as keys of the catalog; false if it is none that can be answered.
bool read_identifier(int32_t message, bool patient_root, Level& level, std::vector<CatalogKey>& keys);
// A key that leaves something out of what the archive holds.
bool narrows(const CatalogKey& key);

}  // namespace vexal
