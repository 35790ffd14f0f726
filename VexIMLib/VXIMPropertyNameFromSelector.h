#pragma once

#include <optional>
#include <string>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/Foundation/Runtime/Selector.h"

/// The declared property of `cls` that an accessor belongs to, by its selector alone: "title" and
/// "setTitle:" give "title", "setURL:" gives "URL". nullopt when there is none. Everything that
/// begins with "set" is taken for a setter, getters too.
VEXIM_EXPORT std::optional<std::string> VXIMPropertyNameFromSelector(const vexim::Class& cls,
                                                                     vexim::Selector selector);
