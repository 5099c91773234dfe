// Registry Editor exports in all their encodings.

#include "cli/reg/key_paths.h"
#include "cli/reg/reg_file.h"
#include "cli/scenario/problem.h"

#include <gtest/gtest.h>

using namespace cli;
using Kind = RegOperation::Kind;

namespace {

const std::string header5 = "Windows Registry Editor Version 5.00\r\n\r\n";
const std::string key = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Test]\r\n";

std::string utf16(const std::string &ascii) {
    std::string bytes = "\xFF\xFE";
    for (const char character : ascii) {
        bytes += character;
        bytes += '\0';
    }
    return bytes;
}

std::vector<std::string> problemsOfReg(const std::string &bytes) {
    std::vector<std::string> problems;
    try {
        parseRegFile(bytes, "r.reg");
    } catch (const UnusableFile &unusable) {
        for (const Problem &problem : unusable.problems()) {
            problems.push_back(problem.text());
        }
    }
    return problems;
}

using Lines = std::vector<std::string>;

/// The only value of an export that holds one value below one key.
ValueData valueOf(const std::string &line, const std::string &header = header5) {
    const auto operations = parseRegFile(header + key + line + "\r\n", "r.reg");
    EXPECT_EQ(operations.size(), 2u);
    return operations.size() == 2 ? operations[1].value : ValueData();
}

} // namespace

TEST(RegFile, readsEveryKindOfValue) {
    EXPECT_EQ(valueOf(R"("a"="C:\\x \"y\"")"), (ValueData{1, textBytes(u"C:\\x \"y\"", true)}));
    EXPECT_EQ(valueOf("\"a\"=dword:0000001f"), (ValueData{4, {0x1f, 0, 0, 0}}));
    EXPECT_EQ(valueOf("\"a\"=hex:01,fe"), (ValueData{3, {1, 0xfe}}));
    EXPECT_EQ(valueOf("\"a\"=hex:"), (ValueData{3, {}}));
    EXPECT_EQ(valueOf("\"a\"=hex(0):"), (ValueData{0, {}}));
    EXPECT_EQ(valueOf("\"a\"=hex(1):41,00"), (ValueData{1, {0x41, 0}}));
    EXPECT_EQ(valueOf("\"a\"=hex(2):41,00,00,00"), (ValueData{2, {0x41, 0, 0, 0}}));
    EXPECT_EQ(valueOf("\"a\"=hex(7):41,00,00,00,00,00"), (ValueData{7, {0x41, 0, 0, 0, 0, 0}}));
    EXPECT_EQ(valueOf("\"a\"=hex(b):01,00,00,00,00,00,00,00"), (ValueData{11, {1, 0, 0, 0, 0, 0, 0, 0}}));
    EXPECT_EQ(valueOf("\"a\"=hex(ffff0001):01"), (ValueData{0xffff0001, {1}}));
}

TEST(RegFile, bytesGoOnOverSeveralLines) {
    EXPECT_EQ(valueOf("\"a\"=hex(7):41,00,\\\r\n  00,00,\\\r\n  00,00"), (ValueData{7, {0x41, 0, 0, 0, 0, 0}}));
}

TEST(RegFile, textGoesOnOverSeveralLines) {
    EXPECT_EQ(valueOf("\"a\"=\"one\r\ntwo\""), (ValueData{1, textBytes(u"one\r\ntwo", true)}));
}

TEST(RegFile, mapsKeysAndFollowsDeletions) {
    const auto operations = parseRegFile(header5 + "; a comment\r\n"
                                                   "[HKEY_LOCAL_MACHINE\\SYSTEM\\ControlSet001\\Services\\x]\r\n"
                                                   "@=\"default\"\r\n"
                                                   "\"gone\"=-\r\n\r\n"
                                                   "[-HKEY_LOCAL_MACHINE\\SOFTWARE\\old]\r\n"
                                                   "[HKEY_CLASSES_ROOT\\.txt]\r\n",
                                         "r.reg");
    ASSERT_EQ(operations.size(), 5u);
    EXPECT_EQ(operations[0].kind, Kind::makeKey);
    EXPECT_EQ(operations[0].key, u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\x");
    EXPECT_EQ(operations[1].name, u"");
    EXPECT_EQ(operations[1].line, 5);
    EXPECT_EQ(operations[2].kind, Kind::deleteValue);
    EXPECT_EQ(operations[3].kind, Kind::deleteKey);
    EXPECT_EQ(operations[3].key, u"\\Registry\\Machine\\SOFTWARE\\old");
    EXPECT_EQ(operations[4].key, u"\\Registry\\Machine\\Software\\Classes\\.txt");
}

TEST(RegFile, readsUtf16AndUtf8) {
    const std::string body = header5 + key + "\"a\"=\"b\"\r\n";
    EXPECT_EQ(parseRegFile(utf16(body), "r.reg").size(), 2u);
    EXPECT_EQ(parseRegFile("\xEF\xBB\xBF" + body, "r.reg").size(), 2u);
    EXPECT_EQ(valueOf("\"a\"=\"\xC3\xA4\""), (ValueData{1, textBytes(u"ä", true)}));
}

TEST(RegFile, version4IsInTheWesternCodePage) {
    EXPECT_EQ(valueOf("\"a\"=\"\x80\xE4\"", "REGEDIT4\r\n\r\n"), (ValueData{1, textBytes(u"€ä", true)}));
    EXPECT_EQ(valueOf("\"a\"=hex(7):e4,00,00", "REGEDIT4\r\n\r\n"), (ValueData{7, multiStringBytes({u"ä"})}));
    EXPECT_EQ(valueOf("\"a\"=hex:e4,00", "REGEDIT4\r\n\r\n"), (ValueData{3, {0xe4, 0}}));
}

TEST(RegFile, saysWhatIsWrongAndWhere) {
    EXPECT_EQ(problemsOfReg("[x]\r\n"), (Lines{"r.reg:1: is no Registry Editor export: its first line must be 'Windows "
                                               "Registry Editor Version 5.00' or 'REGEDIT4'"}));
    EXPECT_EQ(problemsOfReg(std::string("\xFE\xFF\0W", 4)),
              (Lines{"r.reg: is big-endian UTF-16; Registry Editor reads little-endian UTF-16 only"}));
    EXPECT_EQ(problemsOfReg(std::string("\xFF\xFEW", 3)), (Lines{"r.reg: is UTF-16 but has an odd number of bytes"}));
    EXPECT_EQ(problemsOfReg(header5 + "\"a\"=\"b\"\r\n"),
              (Lines{"r.reg:3: a value needs a key before it that is not deleted"}));
    EXPECT_EQ(problemsOfReg(header5 + "[HKEY_CURRENT_USER\\x]\r\n\"a\"=\"b\"\r\n"),
              (Lines{"r.reg:3: key 'HKEY_CURRENT_USER\\x' is below a root that this machine does not have; use "
                     "HKEY_LOCAL_MACHINE, HKEY_USERS or HKEY_CLASSES_ROOT"}));
    EXPECT_EQ(problemsOfReg(header5 + "[HKEY_LOCAL_MACHINE\\x\r\n"),
              (Lines{"r.reg:3: the key's closing ']' is missing"}));
    EXPECT_EQ(
        problemsOfReg(header5 + key +
                      "\"a\"=dword:123456789\r\n\"b\"=hex:1\r\n\"c\"=qword:1\r\nd=1\r\n\"e\" \"f\"\r\n"),
        (Lines{"r.reg:4: 'dword:' needs one to eight hexadecimal digits, found '123456789'",
               "r.reg:5: hexadecimal bytes must be two digits each, with commas between them",
               "r.reg:6: unknown kind of data 'qword'", "r.reg:7: expected a key, a value or a comment, found 'd=1'",
               "r.reg:8: expected '=' after the value's name"}));
    EXPECT_EQ(problemsOfReg(header5 + key + "\"a\"=\"b\r\n"), (Lines{"r.reg:4: a closing quote is missing"}));
    EXPECT_EQ(problemsOfReg(header5 + key + "\"a\"=\"b\" c\r\n"), (Lines{"r.reg:4: unexpected 'c' after the text"}));
}

TEST(KeyPaths, knowRootsControlSetsAndShorthands) {
    EXPECT_EQ(kernelKeyPath("hklm\\Software"), u"\\Registry\\Machine\\Software");
    EXPECT_EQ(kernelKeyPath("HKEY_USERS\\S-1"), u"\\Registry\\User\\S-1");
    EXPECT_EQ(kernelKeyPath("\\registry\\machine\\x"), u"\\registry\\machine\\x");
    EXPECT_EQ(kernelKeyPath("HKLMX\\a"), std::nullopt);
    EXPECT_EQ(kernelKeyPath("HKCU\\a"), std::nullopt);
    EXPECT_EQ(scenarioKeyPath("service"),
              u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\TarvenholtMyrtelhavenDriver");
    EXPECT_EQ(scenarioKeyPath("class\\{12345678-1234-1234-1234-1234567890ab}")->substr(0, 56),
              u"\\Registry\\Machine\\System\\CurrentControlSet\\Control\\Class");
    EXPECT_EQ(scenarioKeyPath("class\\Nonsense"), std::nullopt);
}
