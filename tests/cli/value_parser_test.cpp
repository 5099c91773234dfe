// Registry values and texts of every shape.

#include "cli/scenario/value_parser.h"

#include <gtest/gtest.h>

using namespace cli;

namespace {

struct Parsed {
    std::optional<ValueData> value;
    std::vector<std::string> problems;
};

Parsed parse(const std::string &yaml) {
    Problems problems;
    Parsed parsed;
    parsed.value = parseValue(YamlNode::fromText(yaml, "v.yaml", problems), "value");
    for (const Problem &problem : problems.list()) {
        parsed.problems.push_back(problem.text());
    }
    return parsed;
}

using Bytes = std::vector<std::uint8_t>;

} // namespace

TEST(ValueParser, numberTextAndListHaveTheirUsualTypes) {
    EXPECT_EQ(parse("4").value, (ValueData{4, {4, 0, 0, 0}}));
    EXPECT_EQ(parse("0xC0000001").value, (ValueData{4, {1, 0, 0, 0xC0}}));
    EXPECT_EQ(parse("ab").value, (ValueData{1, {'a', 0, 'b', 0, 0, 0}}));
    EXPECT_EQ(parse("'4'").value, (ValueData{1, {'4', 0, 0, 0}}));
    EXPECT_EQ(parse("[a, b]").value, (ValueData{7, {'a', 0, 0, 0, 'b', 0, 0, 0, 0, 0}}));
    EXPECT_EQ(parse("[]").value, (ValueData{7, {0, 0}}));
}

TEST(ValueParser, anyTypeAndAnyBytes) {
    EXPECT_EQ(parse("{type: REG_EXPAND_SZ, text: a}").value, (ValueData{2, {'a', 0, 0, 0}}));
    EXPECT_EQ(parse("{text: a, terminated: false}").value, (ValueData{1, {'a', 0}}));
    EXPECT_EQ(parse("{type: REG_SZ, bytes: ''}").value, (ValueData{1, {}}));
    EXPECT_EQ(parse("{type: REG_SZ, bytes: '41 00 42'}").value, (ValueData{1, {0x41, 0, 0x42}}));
    EXPECT_EQ(parse("{bytes: 'DEad'}").value, (ValueData{3, {0xDE, 0xAD}}));
    EXPECT_EQ(parse("{type: REG_QWORD, number: 0x100000000}").value, (ValueData{11, {0, 0, 0, 0, 1, 0, 0, 0}}));
    EXPECT_EQ(parse("{type: REG_DWORD_BIG_ENDIAN, number: 1}").value, (ValueData{5, {0, 0, 0, 1}}));
    EXPECT_EQ(parse("{type: 0x77, bytes: '01'}").value, (ValueData{0x77, {1}}));
    EXPECT_EQ(parse("{type: REG_BINARY, number: 2}").value, (ValueData{3, {2, 0, 0, 0}}));
}

TEST(ValueParser, textFromPartsHoldsNulsLoneSurrogatesAndRepetitions) {
    EXPECT_EQ(parse("{text: [a, {units: [0, 0xD800]}, {repeat: xy, times: 2}]}").value,
              (ValueData{1, {'a', 0, 0, 0, 0, 0xD8, 'x', 0, 'y', 0, 'x', 0, 'y', 0, 0, 0}}));
    EXPECT_EQ(parse("{text: [{repeat: a, times: 32768}]}").value->data.size(), 65538u);
}

TEST(ValueParser, saysWhatIsWrong) {
    EXPECT_EQ(parse("0x100000000").problems.front(),
              "v.yaml:1: value does not fit a REG_DWORD; write {type: REG_QWORD, number: N} or quote it");
    EXPECT_EQ(parse("{type: REG_SZ}").problems.front(),
              "v.yaml:1: value needs exactly one of text, strings, number and bytes");
    EXPECT_EQ(parse("{text: a, bytes: '00'}").problems.front(),
              "v.yaml:1: value needs exactly one of text, strings, number and bytes");
    EXPECT_EQ(parse("{bytes: '0'}").problems.front(),
              "v.yaml:1: value must be hexadecimal bytes such as '01 fe', found '0'");
    EXPECT_EQ(parse("{type: REG_SX, text: a}").problems.front().substr(0, 57),
              "v.yaml:1: value type 'REG_SX' is unknown (did you mean 'R");
    EXPECT_EQ(parse("{text: [{repeet: a}]}").problems.front(),
              "v.yaml:1: unknown key 'repeet' in a part of value (did you mean 'repeat'?)");
    EXPECT_EQ(parse("{text: [{repeat: a, times: 99999999}]}").problems.front(),
              "v.yaml:1: times must be a number from 0 to 16777216, found '99999999'");
}

TEST(ValueParser, describesValuesForPeople) {
    EXPECT_EQ(describeValue({4, {4, 0, 0, 0}}), "REG_DWORD 4");
    EXPECT_EQ(describeValue({4, {4, 0}}), "REG_DWORD bytes 04 00");
    EXPECT_EQ(describeValue({1, {'a', 0, 0, 0}}), "REG_SZ 'a'");
    EXPECT_EQ(describeValue({1, {'a', 0}}), "REG_SZ bytes 61 00");
    EXPECT_EQ(describeValue({1, {}}), "REG_SZ without data");
    EXPECT_EQ(describeValue({7, multiStringBytes({u"a", u"b"})}), "REG_MULTI_SZ [a, b]");
    EXPECT_EQ(describeValue({7, {0, 0, 0, 0}}), "REG_MULTI_SZ [] (two NULs)");
    EXPECT_EQ(describeValue({7, {0, 0}}), "REG_MULTI_SZ bytes 00 00");
    EXPECT_EQ(describeValue({0x77, {1}}), "type 0x77 bytes 01");
}
