#pragma once

#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMCompletions.h"
#include "VexIMLib/VXIMRuntimeObject.h"

/// The base of users, groups and rooms: it adds custom attributes, a dictionary that the
/// application defines and the service stores. An operation keeps the object alive until it ends.
/// Each completion runs once, on the main queue, and may be empty. On an object without an id the
/// operations raise NSInvalidArgumentException. After a failure the local copy is unchanged.
///
/// Errors of all operations: `VXErrorDomain` with the service's code if it refused, or with
/// `VXErrorNoUsableAnswer` (100) if no usable answer came; the underlying error
/// ("NSURLErrorDomain") is the cause. `VXIMErrorDomain` with `VXIMErrorUnusableAnswer` (2) if no
/// object can be made from the answer. `vexim::isTemporary` says whether trying again later may
/// help.
class VEXIM_EXPORT VXIMAttributedObject : public VXIMRuntimeObject {
public:
    using VXIMRuntimeObject::VXIMRuntimeObject;

    /// The local copy of the attributes: normally a dictionary, and nil until set or fetched.
    vexim::Value attributes() const;
    void setAttributes(vexim::Value attributes);

    /// Merges `attributes` into the local copy only, overwriting entries of the same name. A local
    /// copy that is not a dictionary is replaced.
    void addAttrsFromDictionary(const vexim::Dictionary& attributes);
    /// Merges `attributes` into those on the server, then into the local copy.
    void updateAttributes(vexim::Dictionary attributes, VXIMBooleanCompletion completion);
    /// Replaces all attributes on the server. For a group or a room the local copy becomes
    /// `attributes`; for a user it stays the same.
    void replaceAttributes(vexim::Dictionary attributes, VXIMBooleanCompletion completion);
    /// Fetches the attributes from the server into the local copy. `completion` gets the service's
    /// answer. An answer that is not a dictionary is passed on too, but the local copy then stays
    /// the same.
    void fetchAttributesWithCompletion(VXIMResultCompletion completion);
    /// Reads one attribute from the server. A string arrives without its quotes, but its JSON
    /// escapes are not decoded. The result is nil if the text is not a JSON value or not valid
    /// UTF-8. The local copy stays the same.
    void getAttributeForKey(std::string key, VXIMResultCompletion completion);
    /// Deletes all attributes on the server. For a group or a room the local copy becomes nil; for
    /// a user it stays the same.
    void deleteAttributesWithCompletion(VXIMBooleanCompletion completion);

protected:
    /// What happens to the local attributes when those on the server are replaced or deleted.
    enum class LocalCopy {
        FollowsServer,  ///< they are replaced or deleted as well
        StaysAsItIs,    ///< they are left alone
    };
    // The path of the class's objects on the server ("/groups"), this object's id, and how its
    // local attributes behave.
    virtual const char* pathPrefix() const = 0;
    virtual vexim::Value resourceId() const = 0;
    virtual LocalCopy localAttributes() const = 0;

    /// The path of this object ("/groups/g1"), with `below` appended. Raises
    /// NSInvalidArgumentException if the object has no id.
    std::string resourcePath(std::string_view below = {}) const;
};
