#pragma once

// "Did you mean": the nearest of the words that would have been right.

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>

// Letters to insert, delete, replace or swap to make one of the other.
int editDistance(std::string_view a, std::string_view b);
// The candidate nearest to `word`; empty when none is near.
std::string_view nearestWord(std::string_view word, std::span<const std::string_view> candidates);
// ", did you mean 'WORD'?" or nothing.
std::string didYouMean(std::string_view word, std::span<const std::string_view> candidates);
