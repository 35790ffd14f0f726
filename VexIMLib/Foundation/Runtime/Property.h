#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// One attribute of a property: a letter and what follows it, such as {"T", "@\"NSString\""} or
/// {"N", ""}.
struct PropertyAttribute {
    /// The letter.
    std::string name;
    /// What follows it; empty if the letter stands alone.
    std::string value;
    friend bool operator==(const PropertyAttribute&, const PropertyAttribute&) = default;
};

/// A declared property: a name and its attributes, separated by commas.
///
///     T type encoding    R read-only    C copy    & retain    W weak    N nonatomic
///     G custom getter    S custom setter    V backing instance variable
///     D dynamic (no accessors, no storage)
///
/// Example: `T@"NSString",&,D,N` is a retained, dynamic, nonatomic string.
class VEXIM_EXPORT Property {
public:
    /// Makes a property with attributes as above. Unknown attributes are kept.
    Property(std::string name, std::string attributes);

    /// The name as declared, such as "title".
    const std::string& name() const noexcept { return name_; }
    /// The attribute string as declared.
    const std::string& attributes() const noexcept { return attributes_; }
    /// The single attributes, in order. Empty ones are left out.
    const std::vector<PropertyAttribute>& attributeList() const noexcept { return list_; }
    /// What follows the letter `name`; nullopt if the property has no such attribute.
    std::optional<std::string> attributeValue(std::string_view name) const;

    /// The setter's name for a property that does not declare one: "setTitle:" for "title". Only
    /// the first letter changes.
    static std::string defaultSetterName(std::string_view name);

private:
    std::string name_;
    std::string attributes_;
    std::vector<PropertyAttribute> list_;
};

}  // namespace vexim
