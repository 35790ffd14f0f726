#pragma once

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace vexim::testing {

/// An example of docs/service.md: a fenced block of the kind "http" or "live".
struct PageExample {
    std::string kind;
    std::string text;
    std::size_t start;  ///< where `text` stands in the page
};

/// VEXIM_SERVICE_PAGE is where the page is.
inline std::string readServicePage() {
    std::ifstream page(VEXIM_SERVICE_PAGE, std::ios::binary);
    return {std::istreambuf_iterator<char>(page), {}};
}

/// In their order.
inline std::vector<PageExample> examplesIn(const std::string& page) {
    static const std::string fence = "\n```";
    std::vector<PageExample> examples;
    std::size_t end = 0;
    for (std::size_t begin; (begin = page.find(fence, end)) != std::string::npos;) {
        const auto kind = begin + fence.size();
        const auto start = page.find('\n', kind) + 1;
        end = page.find(fence, start - 1);
        if (start == 0 || end == std::string::npos) break;
        const std::string name = page.substr(kind, start - 1 - kind);
        if (name == "http" || name == "live")
            examples.push_back({name, page.substr(start, end - start), start});
        end += fence.size();
    }
    return examples;
}

}  // namespace vexim::testing
