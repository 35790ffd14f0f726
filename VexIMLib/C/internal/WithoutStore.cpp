// For the library without the store.

#include "VexIMLib/C/internal/Operations.h"

namespace vexim::c {

const bool kHasStore = false;

Found<Operation> findStoreOperation(std::string_view) { return {}; }

}  // namespace vexim::c
