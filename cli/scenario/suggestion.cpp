#include "suggestion.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <numeric>

namespace cli {
namespace {

bool sameLetter(char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
}

/// Letters to insert, delete or replace to turn one word into the other, letter case apart.
std::size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t replaced = diagonal + (sameLetter(a[i], b[j]) ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({row[j] + 1, row[j + 1] + 1, replaced});
        }
    }
    return row.back();
}

constexpr std::size_t longestWord = 64; ///< longer words are no slips of the pen
constexpr std::size_t mostWords = 500;  ///< among more, looking for the nearest takes too long

} // namespace

std::string nearestWord(std::string_view word, const std::vector<std::string> &known) {
    if (word.empty() || word.size() > longestWord || known.size() > mostWords) {
        return {};
    }
    std::size_t best = std::max<std::size_t>(2, word.size() / 3) + 1;
    std::string nearest;
    constexpr std::size_t shortestStem = 4;
    for (const std::string &candidate : known) {
        if (word.size() >= shortestStem && candidate.starts_with(word)) {
            return candidate; // the beginning of a word is meant for it
        }
        const std::size_t distance = editDistance(word, candidate);
        if (distance < best && distance < candidate.size()) {
            best = distance;
            nearest = candidate;
        }
    }
    return nearest;
}

std::string didYouMean(std::string_view word, const std::vector<std::string> &known) {
    const std::string nearest = nearestWord(word, known);
    return nearest.empty() ? std::string() : " (did you mean '" + nearest + "'?)";
}

} // namespace cli
