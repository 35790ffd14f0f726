#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vexim::store {

/// The text with spaces around each Chinese and Japanese character: these scripts put none between
/// words, so each is a word of its own in the index, and a run of them is found as a phrase.
std::string separateIdeographs(std::string_view text);

/// The word that stands for a conversation in the index.
std::string placeWord(std::int64_t conversation);

/// What the user wrote as the full-text index wants it: quoted words and phrases that must all
/// occur, "*" behind the beginnings of words. Nothing that he writes is an operator, nor an error.
/// Empty when there is no word in it.
std::string matchExpression(std::string_view text);

}  // namespace vexim::store
