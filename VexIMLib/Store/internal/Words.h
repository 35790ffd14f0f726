#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vexim::store {

/// The text with spaces around each Chinese and Japanese character. These scripts have no spaces
/// between words, so each character becomes a word in the index, and several are found as a phrase.
std::string separateIdeographs(std::string_view text);

/// The word for a conversation in the index.
std::string placeWord(std::int64_t conversation);

/// Converts the user's text to a query for the full-text index: quoted words and phrases that must
/// all occur, with "*" after the beginnings of words. Nothing that the user types is an operator or
/// an error. Empty if it has no word.
std::string matchExpression(std::string_view text);

}  // namespace vexim::store
