#include "import_list.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>
#include <stdexcept>

std::string importKey(const std::string &module, const std::string &routine) {
    std::string key = module;
    std::ranges::transform(key, key.begin(), [](unsigned char character) { return std::tolower(character); });
    return key + " " + routine;
}

std::map<std::string, std::string> readKnownImports(const std::filesystem::path &path) {
    std::ifstream stream(path);
    std::map<std::string, std::string> known;
    for (std::string line; std::getline(stream, line);) {
        if (line.empty() || line.front() == '#') {
            continue;
        }
        std::istringstream words(line);
        std::string module;
        std::string routine;
        std::string evidence;
        if (!(words >> module >> routine >> evidence) ||
            (evidence != "measured" && evidence != "symbol" && evidence != "documented")) {
            throw std::runtime_error(path.string() + ": " + line);
        }
        known[importKey(module, routine)] = evidence;
    }
    return known;
}
