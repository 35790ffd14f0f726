// Typed access to a dynamic 64-bit property, compared with a look-up in a hash table by name, which
// it replaces. Both take a few nanoseconds, and how much the processor does in parallel differs
// between machines. So scripts/bench_instructions.py has narrow limits for instructions instead.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <unordered_map>

#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/internal/MessageForwarding/DynamicProperty.h"
#include "support/Comparison.h"
#include "support/CountedHeap.h"

namespace {

using vexim::Class;
using vexim::Dictionary;
using vexim::DynamicProperty;
using vexim::testing::heapAllocations;

/// Declared like the user resource, with its key path table.
struct Account : VXIMRuntimeObject {
    using VXIMRuntimeObject::VXIMRuntimeObject;

    static const Class& staticClass() {
        static const Class& cls = Class::declare("Account", &VXIMRuntimeObject::staticClass(),
                                                 {{"uid", "T@\"NSString\",&,D,N"},
                                                  {"sessionCount", "Tq,D,N"},
                                                  {"online", "TB,D,N"},
                                                  {"attributes", "T@\"NSDictionary\",&,D,N"},
                                                  {"atomicCount", "Tq,D"},
                                                  {"nestedCount", "Tq,D,N"}});
        return cls;
    }
    const Class& runtimeClass() const override { return staticClass(); }
    std::string_view keyPathForProperty(std::string_view property) const override {
        if (property == "uid") return "id";
        if (property == "sessionCount") return "sessions";
        if (property == "nestedCount") return "attributes.count";
        return VXIMRuntimeObject::keyPathForProperty(property);
    }
};

constinit const DynamicProperty<std::int64_t> kSessionCount{&Account::staticClass, "sessionCount"};
constinit const DynamicProperty<std::int64_t> kAtomicCount{&Account::staticClass, "atomicCount"};
constinit const DynamicProperty<std::int64_t> kNestedCount{&Account::staticClass, "nestedCount"};

std::shared_ptr<Account> makeAccount() {
    return vexim::create<Account>(
        Dictionary{{"id", "5f2b7c9e8a1d4e0012345678"},
                   {"sessions", 3},
                   {"online", true},
                   {"ts", 1700000000123},
                   {"atomicCount", 4},
                   {"attributes", Dictionary{{"name", "Anne"}, {"count", 5}}}});
}

template <const DynamicProperty<std::int64_t>& property>
void get(benchmark::State& state) {
    const auto account = makeAccount();
    std::int64_t sum = property.get(*account);
    const std::int64_t before = heapAllocations();
    for (auto _ : state) {
        sum += property.get(*account);
        benchmark::DoNotOptimize(sum);
    }
    if (heapAllocations() != before)
        state.SkipWithError("a get needs no memory, and this one took some");
}

template <const DynamicProperty<std::int64_t>& property>
void set(benchmark::State& state) {
    const auto account = makeAccount();
    std::int64_t next = 0;
    for (auto _ : state) {
        property.set(*account, next++);
        benchmark::ClobberMemory();
    }
}

// A map this small is searched without hashing, which makes the peer as fast as possible.
void lookUp(benchmark::State& state) {
    const std::unordered_map<std::string, std::int64_t> map{{"id", 1},          {"sessions", 3},
                                                            {"online", 1},      {"ts", 1700000000},
                                                            {"atomicCount", 4}, {"attributes", 5}};
    std::string key = "sessions";
    std::int64_t sum = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(key);
        sum += map.find(key)->second;
        benchmark::DoNotOptimize(sum);
    }
}

using vexim::bench::compare;
const bool kRegistered =
    // The peer takes 2 to 3 ns, too short for a clock. So instructions are limited instead.
    compare("dynamic property, get", get<kSessionCount>, lookUp, std::nullopt) &&
    compare("dynamic property, set", set<kSessionCount>, lookUp, std::nullopt) &&
    compare("dynamic property, get atomic", get<kAtomicCount>, lookUp, 10.0) &&
    compare("dynamic property, set atomic", set<kAtomicCount>, lookUp, 10.0) &&
    compare("dynamic property, get by key path", get<kNestedCount>, lookUp, std::nullopt) &&
    compare("dynamic property, set by key path", set<kNestedCount>, lookUp, std::nullopt);

}  // namespace
