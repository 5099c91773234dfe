#include "problem.h"

#include "../text/display.h"

#include <map>
#include <set>
#include <tuple>

namespace cli {

std::string Problem::text() const {
    return visibleText(where.text() + ": " + message);
}

std::vector<Problem> Problems::sorted() const {
    std::multimap<std::pair<std::string, int>, const Problem *> byPlace; // keeps the order of those at one place
    std::set<std::tuple<std::string, int, std::string>> said;            // aliases bring the same place more than once
    for (const Problem &problem : list_) {
        if (said.insert({problem.where.file, problem.where.line, problem.message}).second) {
            byPlace.insert({{problem.where.file, problem.where.line}, &problem});
        }
    }
    std::vector<Problem> problems;
    for (const auto &[place, problem] : byPlace) {
        problems.push_back(*problem);
    }
    return problems;
}

} // namespace cli
