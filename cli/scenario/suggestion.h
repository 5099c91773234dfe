#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// The known word that a person most likely meant by `word`; empty when none is near.
std::string nearestWord(std::string_view word, const std::vector<std::string> &known);

/// " (did you mean 'NEAREST'?)", or nothing when no known word is near.
std::string didYouMean(std::string_view word, const std::vector<std::string> &known);

} // namespace cli
