#pragma once

#include <functional>
#include <string>
#include <vector>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Foundation/Value.h"

namespace vexim::testing {

/// A JSON text with one thing wrong.
struct Wrong {
    std::string what;  ///< the place and what stands there, as "/members/0 null"
    std::string text;
};

/// `right` with every wrong type in every place, one at a time: the whole value, each field at each
/// depth, each element. The last variant of each place leaves the value out.
inline std::vector<Wrong> everyWrongKind(const Value& right) {
    // As text, because a Value cannot hold some of them.
    static const std::vector<std::string> kinds = {"null",
                                                   "true",
                                                   "-1",
                                                   "0.5",
                                                   "1e300",
                                                   "18446744073709551615",
                                                   "123456789012345678901234567890",
                                                   R"("")",
                                                   R"("x\u0000")",
                                                   "[]",
                                                   "[null,{}]",
                                                   "{}",
                                                   R"({"id":[],"type":{},"name":0})"};
    static const std::string mark = "wrong kind";
    std::vector<Wrong> all;
    // `rebuild` puts a value into the place and gives the whole.
    const std::function<void(const Value&, const std::string&, const std::function<Value(Value)>&)>
        visit = [&](const Value& node, const std::string& place,
                    const std::function<Value(Value)>& rebuild) {
            const std::string marked = writeJSON(rebuild(mark), JSONFragments::Allow).text;
            const auto start = marked.find('"' + mark + '"');
            for (const auto& kind : kinds) {
                all.push_back({place + " " + kind,
                               std::string(marked).replace(start, mark.size() + 2, kind)});
            }
            const Value without = rebuild(nullptr);
            all.push_back({place + " absent",
                           without.isNil() ? "" : writeJSON(without, JSONFragments::Allow).text});
            if (const Dictionary* fields = node.asDictionary()) {
                for (const auto& [key, field] : *fields) {
                    visit(field, place + "/" + std::string(key), [&, key = key](Value value) {
                        Dictionary changed = *fields;
                        changed.setOrRemove(key, std::move(value));
                        return rebuild(changed);
                    });
                }
            } else if (const Array* elements = node.asArray()) {
                for (std::size_t i = 0; i < elements->size(); ++i) {
                    visit(elements->at(i), place + "/" + std::to_string(i), [&, i](Value value) {
                        Array changed = *elements;
                        value.isNil() ? changed.remove(i) : changed.set(i, std::move(value));
                        return rebuild(changed);
                    });
                }
            }
        };
    visit(right, "", [](Value value) { return value; });
    return all;
}

}  // namespace vexim::testing
