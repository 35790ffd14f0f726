#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// One piece of an attribute string: its letter and what follows, such as {"T", "@\"NSString\""} or
/// {"N", ""}.
struct PropertyAttribute {
    std::string name;   // the letter
    std::string value;  // empty for a letter that stands alone
    friend bool operator==(const PropertyAttribute&, const PropertyAttribute&) = default;
};

/// A declared property: a name and its attributes, separated by commas.
///
///     T type encoding   R read-only   C copy   & retain   W weak   N nonatomic
///     G custom getter   S custom setter   V backing instance variable   D dynamic (no accessors,
///     no storage)
///
/// Example: `T@"NSString",&,D,N` is a retained, dynamic, nonatomic string.
class VEXIM_EXPORT Property {
public:
    /// The attributes as above; what is none of them is kept, too.
    Property(std::string name, std::string attributes);

    /// As declared.
    const std::string& name() const noexcept { return name_; }
    /// The attribute string as declared.
    const std::string& attributes() const noexcept { return attributes_; }
    /// Its pieces in order; empty ones are left out.
    const std::vector<PropertyAttribute>& attributeList() const noexcept { return list_; }
    /// What follows the letter `name`, nullopt when the property has no such attribute.
    std::optional<std::string> attributeValue(std::string_view name) const;

    /// The setter's name for a property that gives none itself: "setTitle:" for "title".
    static std::string defaultSetterName(std::string_view name);

private:
    std::string name_;
    std::string attributes_;
    std::vector<PropertyAttribute> list_;
};

}  // namespace vexim
