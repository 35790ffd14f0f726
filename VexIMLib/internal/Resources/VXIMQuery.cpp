#include "VexIMLib/VXIMQuery.h"

#include <optional>
#include <utility>

#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/internal/Networking/VXIMHTTPRequest.h"
#include "VexIMLib/internal/Resources/ResourceOperations.h"

using vexim::Dictionary;
using vexim::Value;

namespace {

/// Runs one search and makes a T from each element of the answer.
template <class T>
void find(
    const char* path, Dictionary params,
    std::function<void(std::optional<std::vector<std::shared_ptr<T>>>, vexim::ErrorPtr)> block,
    const char* what) {
    using Found = std::optional<std::vector<std::shared_ptr<T>>>;
    VXIMHTTPRequest::get(
        path, std::move(params),
        vexim::resources::endingWith<Found>(
            std::move(block), std::nullopt,
            [what](const Value& result, const vexim::ErrorPtr&) -> Found {
                if (!result.isArray()) return std::nullopt;
                return vexim::resources::objectsFrom(
                    *result.asArray(), what, [](const Value& element) {
                        return T::initWithDictionary(
                            vexim::resources::requireDictionary(element, "An element of the list"));
                    });
            }));
}

}  // namespace

std::shared_ptr<VXIMQuery> VXIMQuery::query() { return init(); }

std::shared_ptr<VXIMQuery> VXIMQuery::init() { return vexim::create<VXIMQuery>(); }

void VXIMQuery::whereAttribute(std::string_view attribute, Value equalTo) {
    where_.setOrRemove(attribute, std::move(equalTo));
}

void VXIMQuery::orderByAscending(std::string key) {
    order_.clear();
    addAscendingOrder(std::move(key));
}

void VXIMQuery::addAscendingOrder(std::string key) { order_.push_back(std::move(key)); }

void VXIMQuery::orderByDescending(std::string key) {
    order_.clear();
    addDescendingOrder(std::move(key));
}

void VXIMQuery::addDescendingOrder(std::string key) { order_.push_back("-" + std::move(key)); }

void VXIMQuery::orderBySortDescriptor(const vexim::SortDescriptor& descriptor) {
    if (!descriptor.key) return;
    descriptor.ascending ? orderByAscending(*descriptor.key) : orderByDescending(*descriptor.key);
}

void VXIMQuery::orderBySortDescriptors(const std::vector<vexim::SortDescriptor>& descriptors) {
    for (const vexim::SortDescriptor& descriptor : descriptors) {
        if (!descriptor.key) continue;
        descriptor.ascending ? addAscendingOrder(*descriptor.key)
                             : addDescendingOrder(*descriptor.key);
    }
}

// The order of the steps decides which entry wins: a condition named "_sort" overwrites the sort,
// paging overwrites conditions.
Dictionary VXIMQuery::combinedParams() const {
    Dictionary params;
    if (!order_.empty()) {
        std::string sort = order_.front();
        for (std::size_t i = 1; i < order_.size(); ++i) sort.append(",").append(order_[i]);
        params.set("_sort", sort);
    }
    params.addEntries(where_);
    if (limit_ >= 0) params.set("_limit", std::to_string(limit_));
    if (skip_ >= 0) params.set("_skip", std::to_string(skip_));
    return params;
}

void VXIMQuery::findUserWithBlock(VXIMUsersCompletion block) const {
    find<VXIMUser>("/ctx", combinedParams(), std::move(block), "user");
}

void VXIMQuery::findGroupWithBlock(VXIMGroupsCompletion block) const {
    find<VXIMGroup>("/groups", combinedParams(), std::move(block), "group");
}

void VXIMQuery::findRoomWithBlock(VXIMRoomsCompletion block) const {
    find<VXIMRoom>("/rooms", combinedParams(), std::move(block), "room");
}

const vexim::Class& VXIMQuery::runtimeClass() const {
    static const vexim::Class& cls =
        vexim::Class::declare("VXIMQuery", &vexim::Object::staticClass());
    return cls;
}
