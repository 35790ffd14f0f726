#include "endtoend/ServicePageExchanges.h"

#include <cstddef>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/JSON.h"
#include "support/Describe.h"

namespace vexim::testing {
namespace {

/// JSON on one line if that is short enough, otherwise one entry per line.
std::string print(const Value& value, const std::string& indent = "") {
    std::vector<std::string> heads;
    std::vector<Value> items;
    if (const Dictionary* fields = value.asDictionary()) {
        for (const auto& [key, item] : *fields) {
            heads.push_back(json(key) + ": ");
            items.push_back(item);
        }
    } else if (const Array* elements = value.asArray()) {
        items.assign(elements->begin(), elements->end());
        heads.resize(items.size());
    } else {
        return json(value);
    }
    const auto join = [&](const std::string& inner, const std::string& separator) {
        std::string text;
        for (std::size_t i = 0; i < items.size(); ++i)
            text += (i == 0 ? "" : separator) + heads[i] + print(items[i], inner);
        return text;
    };
    const char* brackets = value.isArray() ? "[]" : "{}";
    const std::string flat = brackets[0] + join("", ", ") + brackets[1];
    if (indent.size() + flat.size() <= 120 && flat.find('\n') == std::string::npos) return flat;
    const std::string inner = indent + "  ";
    return brackets[0] + ("\n" + inner) + join(inner, ",\n" + inner) + "\n" + indent + brackets[1];
}

Value parsed(const Value& text) {
    return parseJSON(text.description(), JSONFragments::Allow).value;
}

std::string request(const Value& entry) {
    std::string text = entry.get("method").description() + " " + entry.get("url").description();
    if (const Value& file = entry.get("file"); !file.isNil()) {
        text += "\n(form field " + json(file.get("field")) + ": the file " +
                file.get("name").description() + ", " + file.get("type").description() + ")";
    } else if (const auto body = entry.get("body").asString(); body && !body->empty()) {
        text += "\n" + print(parsed(*body));
    }
    text += "\n\n" + entry.get("status").description() + "\n";
    if (!entry.get("answer").isNil()) return text + print(parsed(entry.get("answer")));
    return text + "(" + entry.get("length").description() + " bytes of " +
           entry.get("type").description() + ")";
}

/// A name for the page.
std::string nameOf(const Value& id) {
    if (id.isNil()) return "stranger";
    return std::regex_match(id.description(), std::regex("p[0-9a-f]{16}")) ? "visitor"
                                                                           : id.description();
}

}  // namespace

std::vector<Exchange> recorded(const Array& log) {
    std::vector<Exchange> exchanges;
    for (const Value& entry : log) {
        const Value& kind = entry.get("kind");
        const std::string name = nameOf(entry.get("id"));
        if (kind == "request") exchanges.emplace_back("http", request(entry));
        if (kind == "login") {
            Dictionary credentials = *parsed(entry.get("auth")).asDictionary();
            credentials.remove("app");
            credentials.remove("sign");
            Dictionary answer = *entry.asDictionary();
            for (const char* ofTheLog : {"kind", "number", "at", "auth"}) answer.remove(ofTheLog);
            exchanges.emplace_back("live", name + " connects " + print(credentials));
            exchanges.emplace_back("live", name + " < login " + print(answer));
        }
        if (kind == "say")
            exchanges.emplace_back("live", name + " > say " + print(entry.get("payload")));
        if (kind == "event") {
            const std::string event = entry.get("event").description();
            exchanges.emplace_back(
                "live", name + " < " + event + " " + print(entry.get("items").asArray()->get(0)));
        }
        if (kind == "leave") exchanges.emplace_back("live", name + " disconnects");
    }
    return exchanges;
}

namespace {

/// The steps of a `live` example: lines that are indented or close a bracket continue a step.
std::vector<std::string> stepsOf(const std::string& example) {
    std::vector<std::string> steps;
    std::istringstream lines(example);
    for (std::string line; std::getline(lines, line);) {
        if (steps.empty() || std::string(" }]").find(line[0]) == std::string::npos) {
            steps.push_back(line);
        } else {
            steps.back() += "\n" + line;
        }
    }
    return steps;
}

}  // namespace

std::vector<Exchange> documented(const std::vector<PageExample>& examples) {
    std::vector<Exchange> exchanges;
    for (const PageExample& example : examples) {
        if (example.kind == "http") {
            exchanges.emplace_back("http", example.text);
        } else {
            for (const auto& step : stepsOf(example.text)) exchanges.emplace_back("live", step);
        }
    }
    return exchanges;
}

std::string form(std::string text) {
    static const std::pair<std::regex, const char*> varying[] = {
        {std::regex("(https?://[^/\"]+)?/files/[0-9a-f]{32}"), "FILE"},
        {std::regex("\\b[grp][0-9a-f]{16}\\b"), "ID"},
        {std::regex("\\b1[0-9]{12}\\b"), "TIME"},
        {std::regex("\\s+"), " "},
        {std::regex("(\\{|\\[) | (?=\\}|\\])"), "$1"},
    };
    for (const auto& [pattern, replacement] : varying)
        text = std::regex_replace(text, pattern, replacement);
    return text;
}

std::string pageWith(const std::string& page, const std::vector<PageExample>& examples,
                     const std::vector<Exchange>& exchanges) {
    std::string text;
    std::size_t end = 0;
    auto next = exchanges.begin();
    for (const PageExample& example : examples) {
        const auto count = example.kind == "http" ? 1 : stepsOf(example.text).size();
        text += page.substr(end, example.start - end);
        for (std::size_t i = 0; i < count; ++i, ++next) {
            if (next == exchanges.end() || next->first != example.kind) {
                throw std::runtime_error("the page wants " + example.kind + " for " + example.text +
                                         ", but there came " +
                                         (next == exchanges.end() ? "nothing" : next->second));
            }
            text += (i == 0 ? "" : "\n") + next->second;
        }
        end = example.start + example.text.size();
    }
    if (next != exchanges.end())
        throw std::runtime_error("the page has no place for " + next->second);
    return text + page.substr(end);
}

}  // namespace vexim::testing
