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
/// A query may be run again and changed while a search is in flight: each takes its parameters when
/// it starts. Build one on one thread.
///
/// Errors of all operations: `VXErrorDomain` with the service's code where it refused, or
/// `VXErrorNoUsableAnswer` (100) where no usable answer came, with the cause beneath
/// ("NSURLErrorDomain"); `VXIMErrorDomain` with `VXIMErrorUnusableAnswer` (2) where the answer
/// makes no object. `vexim::isTemporary` tells which may pass.
class VEXIM_EXPORT VXIMQuery final : public vexim::Object {
public:
    using Object::Object;
    // A search without conditions.
    static std::shared_ptr<VXIMQuery> query();
    static std::shared_ptr<VXIMQuery> init();

    /// Results to leave out at the start; a negative number leaves it to the service. 0 at first.
    std::int32_t skip() const noexcept { return skip_; }
    void setSkip(std::int32_t skip) noexcept { skip_ = skip; }
    /// The most results wanted; a negative number leaves it to the service. 20 at first.
    std::int32_t limit() const noexcept { return limit_; }
    void setLimit(std::int32_t limit) noexcept { limit_ = limit; }
    /// The sort keys by priority, to be written in place; a leading "-" means descending.
    std::vector<std::string>& order() noexcept { return order_; }
    void setOrder(std::vector<std::string> order) { order_ = std::move(order); }
    /// The value that each named attribute must have, to be written in place. Values must be
    /// strings: anything else raises when the search starts.
    vexim::Dictionary& where() noexcept { return where_; }
    void setWhere(vexim::Dictionary where) { where_ = std::move(where); }

    /// Replaces an earlier condition on `attribute`; nil removes it.
    void whereAttribute(std::string_view attribute, vexim::Value equalTo);

    // `orderBy…` forgets the sort keys so far, `add…` appends to them.
    void orderByAscending(std::string key);
    void addAscendingOrder(std::string key);
    void orderByDescending(std::string key);
    void addDescendingOrder(std::string key);

    /// Replaces the order; a descriptor without a key changes nothing.
    void orderBySortDescriptor(const vexim::SortDescriptor& descriptor);
    /// Appends to the order, leaving out descriptors without a key.
    void orderBySortDescriptors(const std::vector<vexim::SortDescriptor>& descriptors);

    /// The parameters of the request: "_sort", the conditions by their names, "_limit", "_skip"; a
    /// later one overwrites an earlier one of the same name.
    vexim::Dictionary combinedParams() const;

    // `block` runs once on the main queue: (what was found, nullptr), or (nullopt, the error). An
    // answer that is no list gives (nullopt, nullptr).
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
