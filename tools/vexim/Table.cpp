#include "Table.h"

#include <algorithm>
#include <cctype>
#include <utility>
#include <vector>

#include "LocalTime.h"
#include "VexIMLib/VexIMLib.h"
#include "chat/Text.h"

namespace {

using vexim::Dictionary;
using vexim::Value;
using Row = std::vector<std::string>;

// in a record, a time in milliseconds
constexpr const char* kTimestamp = "ts";

std::string asJSON(const Value& value) {
    return vexim::writeJSON(value, vexim::JSONFragments::Allow).text;
}

/// A value as one line of text.
std::string cellOf(const Value& value) {
    std::string text;
    if (value.isNil() || value.isNull()) return "";
    if (value.isBoolean()) return value.boolValue() ? "yes" : "no";
    if (const auto* array = value.asArray()) {
        for (const auto& element : *array) text += (text.empty() ? "" : ", ") + cellOf(element);
        return text;
    }
    if (const auto* dictionary = value.asDictionary()) {
        for (const auto& [key, entry] : *dictionary)
            text += (text.empty() ? "" : ", ") + std::string(key) + "=" + cellOf(entry);
        return chat::harmlessLine(text);
    }
    return chat::harmlessLine(value.isString() ? *value.asString() : asJSON(value));
}

std::string cellOf(const std::string& key, const Value& value) {
    if (key == kTimestamp && value.isNumber()) return localTime(value.longLongValue());
    return cellOf(value);
}

std::string headingOf(const std::string& key) {
    std::string heading = key == kTimestamp ? "time" : key;
    std::ranges::transform(heading, heading.begin(),
                           [](unsigned char c) { return std::toupper(c); });
    return heading;
}

/// Pads all columns except the last to their widest text.
std::string aligned(const std::vector<Row>& rows) {
    std::vector<int> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()), 0);
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], chat::widthOf(chat::cellsOf(row[i])));
    }
    std::string text;
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            const int blanks = widths[i] - chat::widthOf(chat::cellsOf(row[i])) + 2;
            if (i + 1 < row.size()) line.append(static_cast<std::size_t>(blanks), ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

std::string tableOfRecords(const vexim::Array& records) {
    std::vector<std::string> keys;
    for (const auto& record : records) {
        for (const auto& [key, entry] : *record.asDictionary()) {
            if (std::ranges::find(keys, key) == keys.end()) keys.emplace_back(key);
        }
    }
    std::vector<Row> rows(1);
    for (const auto& key : keys) rows.front().push_back(headingOf(key));
    for (const auto& record : records) {
        Row row;
        for (const auto& key : keys) row.push_back(cellOf(key, record.get(key)));
        rows.push_back(std::move(row));
    }
    return aligned(rows);
}

}  // namespace

std::string tableOf(const Value& value) {
    std::vector<Row> rows;
    if (const auto* dictionary = value.asDictionary()) {
        for (const auto& [key, entry] : *dictionary)
            rows.push_back({chat::harmlessLine(key), cellOf(std::string(key), entry)});
    } else if (const auto* array = value.asArray()) {
        const auto isRecord = [](const Value& one) { return one.asDictionary() != nullptr; };
        if (std::ranges::all_of(*array, isRecord))
            return array->empty() ? "" : tableOfRecords(*array);
        for (const auto& element : *array) rows.push_back({cellOf(element)});
    } else if (!value.isNil()) {
        rows.push_back({cellOf(value)});
    }
    return aligned(rows);
}
