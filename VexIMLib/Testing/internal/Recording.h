#pragma once

#include <cstddef>
#include <deque>
#include <utility>
#include <vector>

namespace vexim::testing::fake {

/// The newest records only, so that a test may run for hours.
template <class T>
class Recording {
public:
    void add(T entry) {
        entries_.push_back(std::move(entry));
        if (entries_.size() > kMost) entries_.pop_front();
    }
    std::vector<T> all() const { return {entries_.begin(), entries_.end()}; }
    void clear() { entries_.clear(); }

private:
    static constexpr std::size_t kMost = 10'000;
    std::deque<T> entries_;
};

}  // namespace vexim::testing::fake
