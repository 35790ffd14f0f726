#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vexim {

/// The header lines of one request for libcurl, in two blocks of memory; `curl_slist_append` would
/// use two for each line.
class CurlHeaderList {
public:
    /// Adds a field. For an empty value it adds "Name;", which libcurl sends as an empty field.
    void add(std::string_view name, std::string_view value) {
        addLine(name, value.empty() ? ";" : ": ", value);
    }
    /// Makes libcurl leave out a field that it would otherwise add.
    void suppress(std::string_view name) { addLine(name, ":", {}); }
    void clear() noexcept {
        text_.clear();
        lines_.clear();
    }

    /// For CURLOPT_HTTPHEADER: valid until this object is changed or destroyed.
    curl_slist* get() {
        char* text = text_.data();
        for (auto line = lines_.begin(); line != lines_.end(); ++line) {
            line->node = {text, line + 1 == lines_.end() ? nullptr : &line[1].node};
            text += line->size;
        }
        return lines_.empty() ? nullptr : &lines_.front().node;
    }

private:
    struct Line {
        std::size_t size;  // with the final NUL
        curl_slist node;
    };

    void addLine(std::string_view name, std::string_view separator, std::string_view value) {
        text_.append(name).append(separator).append(value).push_back('\0');
        lines_.push_back({name.size() + separator.size() + value.size() + 1, {}});
    }

    std::string text_;
    std::vector<Line> lines_;
};

}  // namespace vexim
