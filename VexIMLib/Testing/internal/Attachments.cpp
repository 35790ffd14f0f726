#include "VexIMLib/Testing/internal/Attachments.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

#include "VexIMLib/Testing/internal/ServiceError.h"

namespace vexim::testing::fake {

namespace {

/// The text between `before` and `after`; nullopt if they are missing.
std::optional<std::string_view> between(std::string_view text, std::string_view before,
                                        std::string_view after) {
    const auto start = text.find(before);
    if (start == std::string_view::npos) return std::nullopt;
    text.remove_prefix(start + before.size());
    const auto end = text.find(after);
    if (end == std::string_view::npos) return std::nullopt;
    return text.substr(0, end);
}

/// The extension in lower case, ".png" for "a.PNG"; empty unless it is short and plain.
std::string extensionOf(std::string_view name) {
    const auto dot = name.rfind('.');
    if (dot == std::string_view::npos || name.size() - dot > 11) return "";
    std::string extension(name.substr(dot));
    std::ranges::transform(extension, extension.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    });
    const bool isPlain = std::ranges::all_of(extension.substr(1), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    });
    return isPlain ? extension : "";
}

std::optional<std::size_t> number(std::string_view text) {
    std::size_t value = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || stop != text.data() + text.size()) return std::nullopt;
    return value;
}

/// The range of "bytes=FIRST-LAST", "bytes=FIRST-" or "bytes=-COUNT"; nullopt if it is empty.
std::optional<std::pair<std::size_t, std::size_t>> rangeIn(std::string_view header,
                                                           std::size_t size) {
    const auto dash = header.find('-');
    if (!header.starts_with("bytes=") || dash == std::string_view::npos || size == 0)
        return std::nullopt;
    const auto first = number(header.substr(6, dash - 6));
    const auto last = number(header.substr(dash + 1));
    if (!first)
        return last && *last > 0 ? std::optional(std::pair(size - std::min(*last, size), size - 1))
                                 : std::nullopt;
    if (*first >= size) return std::nullopt;
    return std::pair(*first, std::min(last.value_or(size - 1), size - 1));
}

}  // namespace

std::string Attachments::receive(const FakeService::Request& request, const std::string& name) {
    const std::string type = request.headers.get("content-type").asString().value_or("");
    const auto mark = type.find("boundary=");
    must(type.starts_with("multipart/form-data") && mark != std::string::npos,
         errors::malformedBody, sentences::notMultipart);
    std::string boundary = type.substr(mark + 9);
    std::erase(boundary, '"');

    std::string_view rest = request.body;
    while (const auto part = between(rest, "--" + boundary + "\r\n", "\r\n--" + boundary)) {
        rest.remove_prefix(static_cast<std::size_t>(part->data() - rest.data()) + part->size() + 2);
        const auto headEnd = part->find("\r\n\r\n");
        must(headEnd != std::string_view::npos, errors::malformedBody, sentences::brokenForm);
        const std::string head = std::string(part->substr(0, headEnd)) + "\r\n";
        if (between(head, " name=\"", "\"") != "attachment") continue;
        File file{std::string(
                      between(head, "Content-Type: ", "\r\n").value_or("application/octet-stream")),
                  std::string(part->substr(headEnd + 4))};
        std::string full = name + extensionOf(between(head, "filename=\"", "\"").value_or(""));
        files_[full] = std::move(file);
        return full;
    }
    throw ServiceError(errors::invalidValue, sentences::noFile);
}

bool Attachments::isPicture(const std::string& name) const {
    return files_.at(name).type.starts_with("image/");
}

FakeService::Answer Attachments::answer(const std::string& name,
                                        const FakeService::Request& request) const {
    const auto found = files_.find(name);
    must(found != files_.end(), errors::unknownFile);
    const auto& [type, bytes] = found->second;
    const Dictionary headers{{"Content-Type", type}, {"Accept-Ranges", "bytes"}};
    const Value& wanted = request.headers.get("range");
    if (wanted.isNil()) return {200, Data(bytes), headers};
    const auto range = rangeIn(*wanted.asStringView(), bytes.size());
    must(range.has_value(), errors::badRange);
    const auto [first, last] = *range;
    FakeService::Answer answer{206, Data(std::string_view(bytes).substr(first, last - first + 1)),
                               headers};
    answer.headers.set("Content-Range", "bytes " + std::to_string(first) + "-" +
                                            std::to_string(last) + "/" +
                                            std::to_string(bytes.size()));
    return answer;
}

}  // namespace vexim::testing::fake
