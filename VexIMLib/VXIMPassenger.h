#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMCompletions.h"
#include "VexIMLib/VXIMMessage.h"
#include "VexIMLib/VXIMRuntimeObject.h"

class VXIMPassenger;

/// On success (the passenger, nullptr); on failure nullptr and the error, which can be nullptr,
/// too.
using VXIMPassengerCompletion =
    std::function<void(std::shared_ptr<VXIMPassenger> passenger, vexim::ErrorPtr error)>;

/// An anonymous visitor of the application, who can chat with users without being one.
///
/// Operations keep the passenger alive until they end. Each completion runs once and may be empty;
/// where the passenger has no id, it gets `VXIMErrorDomain` 5004 at once, otherwise it runs on the
/// main queue. Use a passenger on the main thread.
///
/// Errors of all operations besides that: `VXErrorDomain` with the service's code where it refused,
/// or `VXErrorNoUsableAnswer` (100) where no usable answer came, with the cause beneath
/// ("NSURLErrorDomain"); `VXIMErrorDomain` with `VXIMErrorUnusableAnswer` (2) where the answer
/// makes no object. `vexim::isTemporary` tells which may pass.
class VEXIM_EXPORT VXIMPassenger : public VXIMRuntimeObject {
public:
    using VXIMRuntimeObject::VXIMRuntimeObject;

    /// A passenger that knows the id only, or one of a class derived from it:
    /// `VXIMPassenger::passengerWithId<Visitor>("p1")`. nil raises NSInvalidArgumentException.
    template <std::derived_from<VXIMPassenger> T = VXIMPassenger>
    static std::shared_ptr<T> passengerWithId(vexim::Value passengerId) {
        return vexim::create<T>(vexim::Dictionary{{"id", std::move(passengerId)}});
    }
    /// A passenger from a record as the service sends it.
    static std::shared_ptr<VXIMPassenger> initWithDictionary(vexim::Dictionary dictionary);

    /// The passenger's id; nil when not known.
    vexim::Value pid() const;
    void setPid(vexim::Value pid);

    /// Creates a passenger on the server, or updates the one whose "id" is among the attributes. An
    /// answer that is no id gives (nullptr, nullptr).
    static void createOrUpdatePassengerWithAttributes(vexim::Dictionary attributes,
                                                      VXIMPassengerCompletion completion);
    /// Changes attributes on the server and, when it answers with the id, locally. Succeeds
    /// whatever the answer is.
    void updatePassengerAttributes(vexim::Dictionary attributes, VXIMBooleanCompletion completion);
    /// Merges the server's record into this passenger. An answer that is no dictionary changes
    /// nothing and counts as a success.
    void fetchWithCompletion(VXIMBooleanCompletion completion);
    /// Messages with a user before a time in seconds since 1970, `limit` at most. An answer that is
    /// no list gives (nullopt, nullptr). A nil user id raises.
    void getHistoryMessagesWithUser(vexim::Value userId, double beforeTime, std::int32_t limit,
                                    VXIMMessagesCompletion completion);

    std::string_view keyPathForProperty(std::string_view property) const override;
    const vexim::Class& runtimeClass() const override;
    static const vexim::Class& staticClass();

private:
    std::shared_ptr<VXIMPassenger> self() { return sharedAs<VXIMPassenger>(); }
};
