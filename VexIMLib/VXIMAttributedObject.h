#pragma once

#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMCompletions.h"
#include "VexIMLib/VXIMRuntimeObject.h"

/// What users, groups and rooms share: custom attributes, a free-form dictionary that the
/// application defines and the service stores. The operations keep the object alive until they end;
/// each completion runs once, on the main queue, and may be empty. On an object without an id they
/// raise NSInvalidArgumentException. After a failure nothing local has changed.
///
/// Errors of all operations: `VXErrorDomain` with the service's code where it refused, or
/// `VXErrorNoUsableAnswer` (100) where no usable answer came, with the cause beneath
/// ("NSURLErrorDomain"); `VXIMErrorDomain` with `VXIMErrorUnusableAnswer` (2) where the answer
/// makes no object. `vexim::isTemporary` tells which may pass.
class VEXIM_EXPORT VXIMAttributedObject : public VXIMRuntimeObject {
public:
    using VXIMRuntimeObject::VXIMRuntimeObject;

    /// The local copy: normally a dictionary, nil until set or fetched.
    vexim::Value attributes() const;
    void setAttributes(vexim::Value attributes);

    /// Merges into the local copy only; entries given win. What is no dictionary locally is treated
    /// as none.
    void addAttrsFromDictionary(const vexim::Dictionary& attributes);
    /// Merges on the server, then locally.
    void updateAttributes(vexim::Dictionary attributes, VXIMBooleanCompletion completion);
    /// Replaces all attributes on the server. The local copy of a group or a room becomes
    /// `attributes`; a user's stays as it is.
    void replaceAttributes(vexim::Dictionary attributes, VXIMBooleanCompletion completion);
    /// Takes the server's dictionary over. `completion` gets what the service answered, even when
    /// it is no dictionary (and the local copy then stays).
    void fetchAttributesWithCompletion(VXIMResultCompletion completion);
    /// Reads one attribute from the server. A string arrives without its quotes but otherwise as it
    /// travelled: escapes in it stay. Text that is no JSON value, and text that is not UTF-8, gives
    /// nil. The local copy stays.
    void getAttributeForKey(std::string key, VXIMResultCompletion completion);
    /// Deletes all attributes on the server. The local copy of a group or a room becomes nil; a
    /// user's stays as it is.
    void deleteAttributesWithCompletion(VXIMBooleanCompletion completion);

protected:
    /// What becomes of the local attributes when those on the server are replaced or deleted.
    enum class LocalCopy {
        FollowsServer,  ///< they are replaced or deleted, too
        StaysAsItIs,    ///< they are left alone
    };
    // Where the class's objects live on the server ("/groups"), by which id, and how their local
    // attributes behave.
    virtual const char* pathPrefix() const = 0;
    virtual vexim::Value resourceId() const = 0;
    virtual LocalCopy localAttributes() const = 0;

    /// The path of this object ("/groups/g1") and of what lies below it. Raises when the object has
    /// no id.
    std::string resourcePath(std::string_view below = {}) const;
};
