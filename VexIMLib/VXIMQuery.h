#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/SortDescriptor.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMGroup.h"
#include "VexIMLib/VXIMRoom.h"
#include "VexIMLib/VXIMUser.h"

/// A search of the service's users, groups or rooms: conditions on attributes, sort keys, paging.
///
///     auto query = VXIMQuery::query();
///     query->whereAttribute("gender", "f");
///     query->orderByAscending("name");
///     query->setLimit(50);
///     query->findUserWithBlock([](auto users, vexim::ErrorPtr error) { … });
///
/// A query may be run again, and changed while a search is running: a search copies its parameters
/// when it starts. Use a query from one thread at a time.
///
/// Errors of all operations: `VXErrorDomain` with the service's code if it refused, or with
/// `VXErrorNoUsableAnswer` (100) if no usable answer came; the underlying error
/// ("NSURLErrorDomain") is the cause. `VXIMErrorDomain` with `VXIMErrorUnusableAnswer` (2) if no
/// object can be made from the answer. `vexim::isTemporary` says whether trying again later may
/// help.
class VEXIM_EXPORT VXIMQuery final : public vexim::Object {
public:
    using Object::Object;
    // Makes a search without conditions.
    static std::shared_ptr<VXIMQuery> query();
    static std::shared_ptr<VXIMQuery> init();

    /// How many results to skip; 0 at first. A negative number is not sent.
    std::int32_t skip() const noexcept { return skip_; }
    void setSkip(std::int32_t skip) noexcept { skip_ = skip; }
    /// The most results to return; 20 at first. A negative number is not sent, and the service
    /// decides.
    std::int32_t limit() const noexcept { return limit_; }
    void setLimit(std::int32_t limit) noexcept { limit_ = limit; }
    /// The sort keys, the most important first. A leading "-" means descending. May be changed in
    /// place.
    std::vector<std::string>& order() noexcept { return order_; }
    void setOrder(std::vector<std::string> order) { order_ = std::move(order); }
    /// The value that each named attribute must have. May be changed in place. Values must be
    /// strings; anything else raises NSInvalidArgumentException when the search starts.
    vexim::Dictionary& where() noexcept { return where_; }
    void setWhere(vexim::Dictionary where) { where_ = std::move(where); }

    /// Sets the condition on `attribute`, replacing an earlier one; nil removes it.
    void whereAttribute(std::string_view attribute, vexim::Value equalTo);

    // `orderBy…` replaces the sort keys, `add…` appends one.
    void orderByAscending(std::string key);
    void addAscendingOrder(std::string key);
    void orderByDescending(std::string key);
    void addDescendingOrder(std::string key);

    /// Replaces the sort keys. A descriptor without a key changes nothing.
    void orderBySortDescriptor(const vexim::SortDescriptor& descriptor);
    /// Appends to the sort keys. Descriptors without a key are left out.
    void orderBySortDescriptors(const std::vector<vexim::SortDescriptor>& descriptors);

    /// The parameters of the request: "_sort", the conditions by name, "_limit", "_skip". If two
    /// have the same name, the later one wins.
    vexim::Dictionary combinedParams() const;

    // Start the search, on any thread. `block` runs once, on the main queue, with (the results,
    // nullptr) or (nullopt, the error). It gets (nullopt, nullptr) if the answer is not a list. It
    // may be empty.
    void findUserWithBlock(VXIMUsersCompletion block) const;
    void findGroupWithBlock(VXIMGroupsCompletion block) const;
    void findRoomWithBlock(VXIMRoomsCompletion block) const;

    const vexim::Class& runtimeClass() const override;

private:
    std::int32_t skip_ = 0;
    std::int32_t limit_ = 20;
    std::vector<std::string> order_;
    vexim::Dictionary where_;
};
