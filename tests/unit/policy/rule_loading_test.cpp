#include "tests/unit/fixture/rule_storage_fixture.h"

#include <thread>

namespace unit {
namespace {

using testing::ElementsAre;

class RuleLoading : public RuleStorageTest<RuleStorage> {
  protected:
    bool isBlocked(const char16_t *compatibleId) { return storage.isFilterable(Text(compatibleId)); }
    bool isAllowed(const char16_t *hardwareId, const char16_t *serial = u"S") {
        return storage.isAllowed(Text(hardwareId), Text(serial));
    }
    bool isReadOnly(const char16_t *hardwareId, const char16_t *serial = u"S") {
        return storage.isReadOnly(Text(hardwareId), Text(serial));
    }
};

TEST_F(RuleLoading, ReadsEachValueAsAListAndFailingThatAsText) {
    putString(blockedValue, u"Class_08");
    putList(allowedValue, {u"VID_1"});
    putString(readOnlyValue, u"VID_2 VID_3");
    EXPECT_EQ(storage.reload(), STATUS_SUCCESS);
    EXPECT_THAT(
        takeLines(),
        ElementsAre(
            "INFO Release the rule storage resources", "INFO Query multistring key, parameter = BlockedCompatibleIds",
            "INFO Value type in registry is not multistring", "INFO Query string key, parameter = BlockedCompatibleIds",
            "INFO putIdToContainerWithSerial rule = Class_08",
            "INFO Query multistring key, parameter = AllowedHardwareIds",
            "INFO putIdToContainerWithSerial rule = VID_1",
            "INFO Query multistring key, parameter = ReadOnlyHardwareIds",
            "INFO Value type in registry is not multistring", "INFO Query string key, parameter = ReadOnlyHardwareIds",
            "INFO putIdToContainerWithSerial rule = VID_2", "INFO putIdToContainerWithSerial rule = VID_3"));
    EXPECT_TRUE(isBlocked(u"USB\\Class_08"));
    EXPECT_TRUE(isAllowed(u"USB\\VID_1"));
    EXPECT_TRUE(isReadOnly(u"USB\\VID_2"));
    EXPECT_TRUE(isReadOnly(u"USB\\VID_3"));
    EXPECT_FALSE(isReadOnly(u"USB\\VID_1"));
}

TEST_F(RuleLoading, BlockedTextGainsNoWildcardAndTheOthersDo) {
    putString(blockedValue, u"X");
    putString(allowedValue, u"X");
    putString(readOnlyValue, u"X");
    EXPECT_EQ(reloadSilently(), STATUS_SUCCESS);
    EXPECT_TRUE(isBlocked(u"USB\\X"));
    EXPECT_FALSE(isBlocked(u"USB\\X\\Y"));
    EXPECT_TRUE(isAllowed(u"USB\\X", u"any"));
    EXPECT_TRUE(isReadOnly(u"USB\\X", u"any"));
}

TEST_F(RuleLoading, BlockedTextWithoutDataIsTheDefaultList) {
    kernel.registry.setValue(parametersKey, blockedValue, REG_SZ, {});
    EXPECT_EQ(reloadSilently(), STATUS_OBJECT_NAME_NOT_FOUND) << "the other two are missing";
    for (const char16_t *id : {u"USB\\Class_e0", u"USB\\Class_ff", u"USB\\Class_0b", u"USB\\Class_06", u"USB\\Class_08",
                               u"USB\\MS_COMP_MTP", u"USB\\MS_COMP_PTP"}) {
        EXPECT_TRUE(isBlocked(id)) << sim::toUtf8(id);
    }
    EXPECT_FALSE(isBlocked(u"USB\\Class_03"));
}

TEST_F(RuleLoading, AllowedAndReadOnlyTextsHaveNoDefault) {
    putString(blockedValue, u"X");
    kernel.registry.setValue(parametersKey, allowedValue, REG_SZ, {});
    kernel.registry.setValue(parametersKey, readOnlyValue, REG_SZ, {});
    EXPECT_EQ(reloadSilently(), STATUS_SUCCESS);
    EXPECT_FALSE(isAllowed(u"USB\\Class_08"));
    EXPECT_FALSE(isReadOnly(u"USB\\Class_08"));
}

TEST_F(RuleLoading, ReplacesWhatWasLoadedBefore) {
    putString(blockedValue, u"X");
    putString(allowedValue, u"VID_1");
    putString(readOnlyValue, u"VID_2");
    (void)reloadSilently();
    putString(allowedValue, u"VID_3");
    EXPECT_EQ(reloadSilently(), STATUS_SUCCESS);
    EXPECT_FALSE(isAllowed(u"USB\\VID_1"));
    EXPECT_TRUE(isAllowed(u"USB\\VID_3"));
}

TEST_F(RuleLoading, WithoutTheKeyNothingIsLoadedAndWhatWasThereIsGone) {
    putString(blockedValue, u"X");
    (void)reloadSilently();
    kernel.registry.deleteKey(parametersKey);
    EXPECT_EQ(storage.reload(), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_THAT(takeLines(), ElementsAre("INFO Release the rule storage resources",
                                         "ERROR Failed to open key, status = 0xc0000034"));
    EXPECT_FALSE(isBlocked(u"USB\\X"));
}

TEST_F(RuleLoading, WithoutBlockedRulesTheOthersAreNotRead) {
    putString(allowedValue, u"VID_1");
    putString(readOnlyValue, u"VID_2");
    EXPECT_EQ(storage.reload(), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_THAT(takeLines(), ElementsAre("INFO Release the rule storage resources",
                                         "INFO Query multistring key, parameter = BlockedCompatibleIds",
                                         "ERROR Failed to query multistring, status = 0xc0000034",
                                         "INFO Query string key, parameter = BlockedCompatibleIds",
                                         "ERROR Failed to wdf query memory, status = 0xc0000034",
                                         "ERROR Failed to read blocked rules key, status = 0xc0000034"));
    EXPECT_FALSE(isAllowed(u"USB\\VID_1"));
    EXPECT_FALSE(isReadOnly(u"USB\\VID_2"));
}

TEST_F(RuleLoading, EmptyBlockedListIsEnoughForTheOthersToBeRead) {
    putList(blockedValue, {});
    putList(allowedValue, {u"VID_1"});
    putList(readOnlyValue, {u"VID_2"});
    EXPECT_EQ(reloadSilently(), STATUS_SUCCESS);
    EXPECT_TRUE(isAllowed(u"USB\\VID_1"));
    EXPECT_TRUE(isReadOnly(u"USB\\VID_2"));
}

TEST_F(RuleLoading, AllowedFailureIsToldAgainForReadOnlyWhenThatIsAList) {
    setLogLevel(static_cast<LONG>(LogLevel::error));
    putList(blockedValue, {u"X"});
    putList(readOnlyValue, {u"VID_2"});
    EXPECT_EQ(storage.reload(), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_THAT(takeLines(), ElementsAre("ERROR Failed to query multistring, status = 0xc0000034",
                                         "ERROR Failed to wdf query memory, status = 0xc0000034",
                                         "ERROR Failed to read allowed rules key, status = 0xc0000034",
                                         "ERROR Failed to read readonly rules key, status = 0xc0000034"));
    EXPECT_TRUE(isReadOnly(u"USB\\VID_2")) << "and is read all the same";
}

TEST_F(RuleLoading, AllowedFailureIsForgottenWhenReadOnlyIsText) {
    setLogLevel(static_cast<LONG>(LogLevel::error));
    putList(blockedValue, {u"X"});
    putString(readOnlyValue, u"VID_2");
    EXPECT_EQ(storage.reload(), STATUS_SUCCESS);
    EXPECT_THAT(takeLines(), ElementsAre("ERROR Failed to query multistring, status = 0xc0000034",
                                         "ERROR Failed to wdf query memory, status = 0xc0000034",
                                         "ERROR Failed to read allowed rules key, status = 0xc0000034"));
}

TEST_F(RuleLoading, ReadOnlyFailureIsReturned) {
    setLogLevel(static_cast<LONG>(LogLevel::error));
    putList(blockedValue, {u"X"});
    putList(allowedValue, {u"VID_1"});
    kernel.registry.setDword(parametersKey, readOnlyValue, 1);
    EXPECT_EQ(storage.reload(), STATUS_INVALID_PARAMETER);
    EXPECT_THAT(takeLines(), ElementsAre("ERROR Invalid parameter when wdf query memory",
                                         "ERROR Failed to read readonly rules key, status = 0xc000000d"));
    EXPECT_TRUE(isAllowed(u"USB\\VID_1"));
}

TEST_F(RuleLoading, BlockedListThatFailsHalfWayIsReadAsTextAndItsRulesStay) {
    putList(blockedValue, {u"X", std::u16string(32'766, u'x')});
    EXPECT_EQ(reloadSilently(), STATUS_INVALID_PARAMETER) << "it is no text";
    EXPECT_TRUE(isBlocked(u"USB\\X\\ANY"));
}

TEST_F(RuleLoading, KeepsEveryoneElseOutMeanwhile) {
    putString(blockedValue, u"X");
    putString(allowedValue, u"VID_1");
    putString(readOnlyValue, u"VID_2");
    auto *lock = reinterpret_cast<ERESOURCE *>(reinterpret_cast<char *>(&storage) + 3 * sizeof(RuleSet));
    int reads = 0;
    kernel.trace.setObserver([&](const sim::TraceEvent &event) {
        if (event.kind != sim::TraceEvent::Kind::registryValueRead) {
            return;
        }
        ++reads;
        EXPECT_EQ(sim::currentThread().criticalRegionDepth, 1u);
        std::thread([&] {
            KeEnterCriticalRegion();
            EXPECT_FALSE(ExAcquireResourceSharedLite(lock, FALSE));
            KeLeaveCriticalRegion();
        }).join();
    });
    (void)reloadSilently();
    kernel.trace.setObserver({});
    EXPECT_GE(reads, 6);
    EXPECT_EQ(sim::currentThread().criticalRegionDepth, 0u);
    EXPECT_EQ(sim::currentThread().resourcesHeld, 0u);
}

TEST_F(RuleLoading, LeavesNothingBehindWhateverFails) {
    putList(blockedValue, {u"X", u"Y"});
    putString(allowedValue, u"VID_1 VID_2");
    putList(readOnlyValue, {u"VID_3"});
    setLogLevel(0);
    failEachCall([&] { return storage.reload(); },
                 [&](NTSTATUS status, bool failed) {
                     EXPECT_EQ(sim::currentThread().resourcesHeld, 0u);
                     EXPECT_EQ(sim::currentThread().criticalRegionDepth, 0u);
                     EXPECT_TRUE(failed || NT_SUCCESS(status));
                     storage.clearRules();
                     EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
                 });
}

} // namespace
} // namespace unit
