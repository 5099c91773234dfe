#include "policy/usb_mode.h"

#include <gtest/gtest.h>

namespace unit {
namespace {

TEST(UsbModes, HaveTheNumbersThatTheServiceKnows) {
    EXPECT_EQ(static_cast<ULONG>(UsbMode::Unknown), 0u);
    EXPECT_EQ(static_cast<ULONG>(UsbMode::Blocked), 1u);
    EXPECT_EQ(static_cast<ULONG>(UsbMode::Allowed), 2u);
    EXPECT_EQ(static_cast<ULONG>(UsbMode::ReadOnly), 3u);
}

TEST(RuleTypes, HaveTheNumbersThatTheServiceKnows) {
    EXPECT_EQ(static_cast<ULONG>(RuleType::Other), 0u);
    EXPECT_EQ(static_cast<ULONG>(RuleType::NotFilterable), 1u);
    EXPECT_EQ(static_cast<ULONG>(RuleType::Allowed), 2u);
    EXPECT_EQ(static_cast<ULONG>(RuleType::Blocked), 3u);
    EXPECT_EQ(static_cast<ULONG>(RuleType::ReadOnly), 4u);
    EXPECT_EQ(static_cast<ULONG>(RuleType::ReadOnlyUnlisted), 5u);
}

TEST(RuleTypes, FollowFromTheMode) {
    EXPECT_EQ(ruleTypeOf(UsbMode::Blocked), RuleType::Blocked);
    EXPECT_EQ(ruleTypeOf(UsbMode::Allowed), RuleType::Allowed);
    EXPECT_EQ(ruleTypeOf(UsbMode::ReadOnly), RuleType::ReadOnly);
    EXPECT_EQ(ruleTypeOf(UsbMode::Unknown), RuleType::Other);
    EXPECT_EQ(ruleTypeOf(static_cast<UsbMode>(77)), RuleType::Other) << "a service may answer anything";
}

} // namespace
} // namespace unit
