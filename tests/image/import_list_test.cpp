// The lists about imports agree with each other and with the image.
#include "../../simulator/image/pe_file.h"
#include "import_list.h"

#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <sstream>

using namespace sim::image;

namespace {

/// The imports that a definition file offers, as keys of the list.
std::set<std::string> definitionKeys(const std::string &file) {
    std::ifstream stream(std::string(IMPORT_DEFINITIONS) + "/" + file);
    std::set<std::string> keys;
    std::string module;
    bool inExports = false;
    for (std::string line; std::getline(stream, line);) {
        std::istringstream words(line);
        std::string word;
        if (!(words >> word) || word.front() == ';') {
            continue;
        }
        if (word == "LIBRARY") {
            words >> module;
        } else if (word == "EXPORTS") {
            inExports = true;
        } else if (inExports) {
            keys.insert(importKey(module, word));
        }
    }
    return keys;
}

} // namespace

TEST(ImportList, HoldsWhatTheDefinitionFilesOffer) {
    std::set<std::string> offered = definitionKeys("ntoskrnl.def");
    offered.merge(definitionKeys("wdfldr.def"));
    std::set<std::string> known;
    for (const auto &[key, evidence] : readKnownImports(KNOWN_IMPORTS)) {
        known.insert(key);
    }
    EXPECT_EQ(offered, known);
    EXPECT_GT(known.size(), 100u);
}

TEST(ImportList, IsWhereEveryImportOfTheImageIsFound) {
    const auto known = readKnownImports(KNOWN_IMPORTS);
    for (const Import &import : PeFile{DRIVER_IMAGE}.imports()) {
        const std::string key = importKey(import.module, import.routine);
        EXPECT_TRUE(known.contains(key)) << key << " is not in known-imports.txt";
    }
}

TEST(ImportList, IsShownInTheDocumentForEveryImportOfTheImage) {
    const auto known = readKnownImports(KNOWN_IMPORTS);
    std::ifstream stream(IMPORT_DOCUMENT);
    ASSERT_TRUE(stream);
    std::set<std::string> rows;
    for (std::string line; std::getline(stream, line);) {
        rows.insert(line);
    }
    std::set<std::string> imported;
    for (const Import &import : PeFile{DRIVER_IMAGE}.imports()) {
        const auto entry = known.find(importKey(import.module, import.routine));
        ASSERT_NE(entry, known.end());
        const std::string row = "| " + import.routine + " | " + import.module + " | " + entry->second + " |";
        EXPECT_TRUE(rows.contains(row)) << "missing in the document: " << row;
        imported.insert(row);
    }
    for (const std::string &row : rows) {
        const bool isImportRow =
            row.ends_with(" measured |") || row.ends_with(" symbol |") || row.ends_with(" documented |");
        EXPECT_TRUE(!isImportRow || imported.contains(row)) << "no longer imported: " << row;
    }
}
