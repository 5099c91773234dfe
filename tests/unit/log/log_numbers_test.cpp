#include "log/log_stream.h"

#include "tests/unit/fixture/kernel_test.h"

#include <functional>

namespace unit {
namespace {

using Append = std::function<void(LogStream &)>;

struct NumberCase {
    const char *name;
    Append append;
    const char *decimal;
    const char *hexadecimal;
};

void PrintTo(const NumberCase &number, std::ostream *out) {
    *out << number.name;
}

class LogNumbers : public KernelTest, public testing::WithParamInterface<NumberCase> {};

TEST_P(LogNumbers, AreWrittenInDecimalAtFirst) {
    LogStream stream(POOL_FLAG_PAGED);
    GetParam().append(stream);
    EXPECT_EQ(utf8(stream.counted()), GetParam().decimal);
}

TEST_P(LogNumbers, AreWrittenInLowerCaseHexadecimalAfterSetHex) {
    LogStream stream(POOL_FLAG_PAGED);
    stream.setHex();
    GetParam().append(stream);
    EXPECT_EQ(utf8(stream.counted()), GetParam().hexadecimal);
}

template<typename Value>
Append with(LogStream &(LogStream::*append)(Value), std::remove_cvref_t<Value> value) {
    return [=](LogStream &stream) { (stream.*append)(value); };
}

INSTANTIATE_TEST_SUITE_P(Zero, LogNumbers,
                         testing::Values(NumberCase{"unsigned 64", with(&LogStream::appendUnsigned64, 0), "0", "0"},
                                         NumberCase{"unsigned 32", with(&LogStream::appendUnsigned32, 0), "0", "0"},
                                         NumberCase{"unsigned 16", with(&LogStream::appendUnsigned16, 0), "0", "0"},
                                         NumberCase{"signed 16", with(&LogStream::appendSigned16, 0), "0", "0"},
                                         NumberCase{"signed 32", with(&LogStream::appendSigned32, 0), "0", "0"},
                                         NumberCase{"status", with(&LogStream::appendStatus, 0), "0", "0"}));
INSTANTIATE_TEST_SUITE_P(
    Positive, LogNumbers,
    testing::Values(NumberCase{"one digit", with(&LogStream::appendUnsigned32, 9), "9", "9"},
                    NumberCase{"first letter", with(&LogStream::appendUnsigned32, 10), "10", "a"},
                    NumberCase{"last letter", with(&LogStream::appendUnsigned32, 15), "15", "f"},
                    NumberCase{"inner zeros", with(&LogStream::appendUnsigned32, 0x10020), "65568", "10020"},
                    NumberCase{"all letters", with(&LogStream::appendUnsigned32, 0xABCDEF), "11259375", "abcdef"},
                    NumberCase{"signed 16", with(&LogStream::appendSigned16, 32767), "32767", "7fff"},
                    NumberCase{"signed 32", with(&LogStream::appendSigned32, 2147483647), "2147483647", "7fffffff"},
                    NumberCase{"status", with(&LogStream::appendStatus, 0x40000000), "1073741824", "40000000"}));
INSTANTIATE_TEST_SUITE_P(
    Largest, LogNumbers,
    testing::Values(NumberCase{"unsigned 64", with(&LogStream::appendUnsigned64, ~0ull), "18446744073709551615",
                               "ffffffffffffffff"},
                    NumberCase{"unsigned 32", with(&LogStream::appendUnsigned32, ~0u), "4294967295", "ffffffff"},
                    NumberCase{"unsigned 16", with(&LogStream::appendUnsigned16, 0xFFFF), "65535", "ffff"},
                    NumberCase{"high half", with(&LogStream::appendUnsigned64, 1ull << 63), "9223372036854775808",
                               "8000000000000000"}));
INSTANTIATE_TEST_SUITE_P(
    Negative, LogNumbers,
    testing::Values(NumberCase{"signed 16", with(&LogStream::appendSigned16, -1), "-1", "ffff"},
                    NumberCase{"smallest signed 16", with(&LogStream::appendSigned16, -32768), "-32768", "8000"},
                    NumberCase{"status", with(&LogStream::appendStatus, -1), "-1", "ffffffff"},
                    NumberCase{"error status", with(&LogStream::appendStatus, static_cast<LONG>(0xC0000001)),
                               "-1073741823", "c0000001"},
                    NumberCase{"smallest status", with(&LogStream::appendStatus, static_cast<LONG>(0x80000000)),
                               "-2147483648", "80000000"}));

class LogRadix : public KernelTest {};

TEST_F(LogRadix, SignedFormByValueWritesNegativeNumbersInDecimal) {
    LogStream stream(POOL_FLAG_PAGED);
    stream.appendSigned32(-42).append(L" ").appendSigned32(static_cast<LONG>(0x80000000));
    EXPECT_EQ(utf8(stream.counted()), "-42 -2147483648");
}

TEST_F(LogRadix, HexadecimalHoldsForTheRestOfTheLine) {
    LogStream stream(POOL_FLAG_PAGED);
    stream.appendUnsigned32(16).append(L" ").setHex().appendUnsigned32(16).append(L" ").appendUnsigned64(20);
    stream.append(L" ").appendSigned16(30);
    EXPECT_EQ(utf8(stream.counted()), "16 10 14 1e");
}

} // namespace
} // namespace unit
