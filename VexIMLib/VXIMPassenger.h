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

/// On success (the passenger, nullptr), on failure (nullptr, the error). The error can be nullptr
/// as well.
using VXIMPassengerCompletion =
    std::function<void(std::shared_ptr<VXIMPassenger> passenger, vexim::ErrorPtr error)>;

/// An anonymous visitor of the application, who can chat with users without having an account.
///
/// Operations keep the passenger alive until they end. Each completion runs once, on the main
/// queue, and may be empty. If the passenger has no id, the completion runs at once, with
/// `VXIMErrorDomain` 5004 (`VXIMErrorPassengerWithoutId`). Use a passenger on the main thread.
///
/// Other errors of all operations: `VXErrorDomain` with the service's code if it refused, or with
/// `VXErrorNoUsableAnswer` (100) if no usable answer came; the underlying error
/// ("NSURLErrorDomain") is the cause. `VXIMErrorDomain` with `VXIMErrorUnusableAnswer` (2) if no
/// object can be made from the answer. `vexim::isTemporary` says whether trying again later may
/// help.
class VEXIM_EXPORT VXIMPassenger : public VXIMRuntimeObject {
public:
    using VXIMRuntimeObject::VXIMRuntimeObject;

    /// Makes a passenger that knows its id only. The template makes a derived class:
    /// `VXIMPassenger::passengerWithId<Visitor>("p1")`. nil raises NSInvalidArgumentException.
    template <std::derived_from<VXIMPassenger> T = VXIMPassenger>
    static std::shared_ptr<T> passengerWithId(vexim::Value passengerId) {
        return vexim::create<T>(vexim::Dictionary{{"id", std::move(passengerId)}});
    }
    /// Makes a passenger from a record of the service.
    static std::shared_ptr<VXIMPassenger> initWithDictionary(vexim::Dictionary dictionary);

    /// The passenger's id; nil if not known.
    vexim::Value pid() const;
    void setPid(vexim::Value pid);

    /// Creates a passenger on the server, or updates the one whose "id" is among the attributes.
    /// `completion` gets (nullptr, nullptr) if the answer is not an id.
    static void createOrUpdatePassengerWithAttributes(vexim::Dictionary attributes,
                                                      VXIMPassengerCompletion completion);
    /// Changes attributes on the server and, if it answers with the passenger's id, locally.
    /// Succeeds with any other answer, too.
    void updatePassengerAttributes(vexim::Dictionary attributes, VXIMBooleanCompletion completion);
    /// Merges the server's record into this passenger. An answer that is not a dictionary changes
    /// nothing and counts as a success.
    void fetchWithCompletion(VXIMBooleanCompletion completion);
    /// Gets the messages with a user before `beforeTime` (seconds since 1970), `limit` at most.
    /// `completion` gets (nullopt, nullptr) if the answer is not a list. A nil user id raises
    /// NSInvalidArgumentException.
    void getHistoryMessagesWithUser(vexim::Value userId, double beforeTime, std::int32_t limit,
                                    VXIMMessagesCompletion completion);

    std::string_view keyPathForProperty(std::string_view property) const override;
    const vexim::Class& runtimeClass() const override;
    static const vexim::Class& staticClass();

private:
    std::shared_ptr<VXIMPassenger> self() { return sharedAs<VXIMPassenger>(); }
};
