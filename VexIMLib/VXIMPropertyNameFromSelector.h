#pragma once

#include <optional>
#include <string>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/Foundation/Runtime/Selector.h"

/// The declared property of `cls` whose accessor has this selector: "title" and "setTitle:" give
/// "title", "setURL:" gives "URL". nullopt if there is none. A selector that begins with "set"
/// always counts as a setter. Call from any thread.
///
///     VXIMPropertyNameFromSelector(VXIMUser::staticClass(), "setOnline:");  // "online"
///     VXIMPropertyNameFromSelector(VXIMUser::staticClass(), "age");         // nullopt
VEXIM_EXPORT std::optional<std::string> VXIMPropertyNameFromSelector(const vexim::Class& cls,
                                                                     vexim::Selector selector);
