#include "install/class_filters.h"

#include "tests/unit/fixture/text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace unit {
namespace {

TEST(ClassFilters, AreTheNineClassesInTheirOrderAndLetterCase) {
    std::vector<std::string> rows;
    for (const ClassFilter &filter : classFilters) {
        rows.push_back(utf8(filter.keyPath) + " " + utf8(filter.valueName));
    }
    const std::string classes = "\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Class\\";
    EXPECT_THAT(rows, testing::ElementsAre(classes + "{36FC9E60-C465-11CF-8056-444553540000} LowerFilters",
                                           classes + "{eec5ad98-8080-425f-922a-dabf3de3f69a} LowerFilters",
                                           classes + "{745a17a0-74d3-11d0-b6fe-00a0c90f57da} LowerFilters",
                                           classes + "{6bdd1fc6-810f-11d0-bec7-08002be2092f} LowerFilters",
                                           classes + "{4d36e97b-e325-11ce-bfc1-08002be10318} LowerFilters",
                                           classes + "{50dd5230-ba8a-11d1-bf5d-0000f805f530} LowerFilters",
                                           classes + "{88BAE032-5A81-49f0-BC3D-A4FF138216D6} LowerFilters",
                                           classes + "{4d36e972-e325-11ce-bfc1-08002be10318} LowerFilters",
                                           classes + "{4d36e967-e325-11ce-bfc1-08002be10318} UpperFilters"));
}

} // namespace
} // namespace unit
