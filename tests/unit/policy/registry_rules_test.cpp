#include "policy/registry_rules.h"

#include "support/framework_guards.h"
#include "tests/unit/fixture/framework_test.h"
#include "tests/unit/fixture/rule_set_fixture.h"

namespace unit {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr UNICODE_STRING valueName = literal(L"Rules");

/// One value of an open key, read into a set.
class RegistryRules : public FrameworkTest {
  protected:
    RegistryRules() {
        kernel.registry.makeKey(parametersKey);
        rules.initialize();
        takeLines();
    }
    ~RegistryRules() override { rules.clear(); }

    void put(ULONG type, std::vector<std::uint8_t> data) {
        kernel.registry.setValue(parametersKey, u"Rules", type, std::move(data));
    }
    void putText(std::u16string_view text) { kernel.registry.setString(parametersKey, u"Rules", text); }

    template<typename Read>
    NTSTATUS withKey(Read read) {
        RegistryKey key;
        const Text path(parametersKey);
        const UNICODE_STRING name = path;
        EXPECT_EQ(WdfRegistryOpenKey(nullptr, &name, KEY_READ, WDF_NO_OBJECT_ATTRIBUTES, key.receive()),
                  STATUS_SUCCESS);
        return read(key.get());
    }
    NTSTATUS readMultiString() {
        return withKey([this](WDFKEY key) { return queryMultiStringKey(valueName, key, rules); });
    }
    NTSTATUS readString(std::u16string_view defaultRules = {}, bool appendWildcard = false) {
        return withKey(
            [&](WDFKEY key) { return queryStringKey(valueName, key, rules, Text(defaultRules), appendWildcard); });
    }
    std::vector<std::string> texts() { return textsOf(rules); }

    RuleSet rules;
};

class MultiStringRules : public RegistryRules {};

TEST_F(MultiStringRules, EachStringBecomesARuleWithTheSerialWildcard) {
    kernel.registry.setMultiString(parametersKey, u"Rules", {u"vid_1", u"VID_2\\abc", u"a b"});
    EXPECT_EQ(readMultiString(), STATUS_SUCCESS);
    EXPECT_THAT(texts(), ElementsAre("A B\\*", "VID_1\\*", "VID_2\\ABC"));
    EXPECT_THAT(takeLines(), ElementsAre("INFO Query multistring key, parameter = Rules",
                                         "INFO putIdToContainerWithSerial rule = vid_1",
                                         "INFO putIdToContainerWithSerial rule = VID_2\\abc",
                                         "INFO putIdToContainerWithSerial rule = a b"));
}

TEST_F(MultiStringRules, ListWithoutStringsIsSuccessHoweverItIsStored) {
    for (const std::size_t nuls : {0u, 1u, 2u}) {
        put(REG_MULTI_SZ, std::vector<std::uint8_t>(nuls * 2));
        EXPECT_EQ(readMultiString(), STATUS_SUCCESS) << nuls;
        EXPECT_THAT(texts(), IsEmpty());
        EXPECT_THAT(takeLines(), ElementsAre("INFO Query multistring key, parameter = Rules"));
    }
}

TEST_F(MultiStringRules, MissingValueFails) {
    EXPECT_EQ(readMultiString(), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_THAT(takeLines(), ElementsAre("INFO Query multistring key, parameter = Rules",
                                         "ERROR Failed to query multistring, status = 0xc0000034"));
}

TEST_F(MultiStringRules, OtherTypesAreNoListAndNoError) {
    for (const ULONG type : {REG_SZ, REG_EXPAND_SZ, REG_BINARY, REG_DWORD}) {
        put(type, bytesOf(std::u16string_view(u"A\0\0", 3)));
        EXPECT_EQ(readMultiString(), STATUS_OBJECT_TYPE_MISMATCH) << type;
        EXPECT_THAT(takeLines(), ElementsAre("INFO Query multistring key, parameter = Rules",
                                             "INFO Value type in registry is not multistring"));
    }
    EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(MultiStringRules, MalformedListsFailAsTheFrameworkFailsThem) {
    const std::vector<std::uint8_t> malformed[] = {
        {0}, {0, 0, 0}, bytesOf(u"A"), bytesOf(std::u16string_view(u"A\0", 2)), bytesOf(u"AB")};
    for (const auto &data : malformed) {
        put(REG_MULTI_SZ, data);
        EXPECT_EQ(readMultiString(), STATUS_OBJECT_TYPE_MISMATCH) << data.size();
        EXPECT_THAT(texts(), IsEmpty());
    }
}

TEST_F(MultiStringRules, FirstRuleThatFailsEndsTheReadingAndKeepsTheOnesBefore) {
    kernel.registry.setMultiString(parametersKey, u"Rules", {u"vid_1", std::u16string(32'766, u'x'), u"vid_2"});
    setLogLevel(static_cast<LONG>(LogLevel::error));
    EXPECT_EQ(readMultiString(), STATUS_BUFFER_TOO_SMALL);
    EXPECT_THAT(texts(), ElementsAre("VID_1\\*"));
    EXPECT_THAT(takeLines(), ElementsAre("ERROR Failed to append path for fullId, status = 0xc0000023",
                                         "ERROR forEachStringCallFunc failed callback, status = 0xc0000023"));
}

TEST_F(MultiStringRules, WithoutACollectionTheReadingFails) {
    kernel.registry.setMultiString(parametersKey, u"Rules", {u"vid_1"});
    setLogLevel(static_cast<LONG>(LogLevel::error));
    EXPECT_EQ(whileFailing("WdfCollectionCreate", 1, [&] { return readMultiString(); }), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_THAT(takeLines(), ElementsAre("ERROR Failed to create a collection, status = 0xc000009a"));
}

TEST_F(MultiStringRules, NothingIsLeftBehindWhateverFails) {
    kernel.registry.setMultiString(parametersKey, u"Rules", {u"vid_1", u"vid_2"});
    setLogLevel(0);
    const Text path(parametersKey);
    const UNICODE_STRING name = path;
    RegistryKey key;
    ASSERT_EQ(WdfRegistryOpenKey(nullptr, &name, KEY_READ, WDF_NO_OBJECT_ATTRIBUTES, key.receive()), STATUS_SUCCESS);
    failEachCall([&] { return queryMultiStringKey(valueName, key.get(), rules); },
                 [&](NTSTATUS status, bool failed) {
                     EXPECT_EQ(NT_SUCCESS(status), !failed);
                     EXPECT_EQ(texts().size() == 2, !failed);
                     rules.clear();
                 });
}

class StringRules : public RegistryRules {};

TEST_F(StringRules, AreSeparatedBySpaces) {
    putText(u"Class_08  MS_COMP_MTP ");
    EXPECT_EQ(readString(), STATUS_SUCCESS);
    EXPECT_THAT(texts(), ElementsAre("CLASS_08", "MS_COMP_MTP"));
    EXPECT_THAT(takeLines(), ElementsAre("INFO Query string key, parameter = Rules",
                                         "INFO putIdToContainerWithSerial rule = Class_08",
                                         "INFO putIdToContainerWithSerial rule = MS_COMP_MTP"));
}

TEST_F(StringRules, GainTheSerialWildcardWhenAskedFor) {
    putText(u" vid_1 vid_2\\x");
    EXPECT_EQ(readString({}, true), STATUS_SUCCESS);
    EXPECT_THAT(texts(), ElementsAre("VID_1\\*", "VID_2\\X"));
}

TEST_F(StringRules, OtherSeparatorsBelongToARule) {
    putText(u"a,b\tc;d\ne f");
    EXPECT_EQ(readString(), STATUS_SUCCESS);
    EXPECT_THAT(texts(), ElementsAre("A,B\tC;D\nE", "F"));
}

TEST_F(StringRules, NeedNoNulAtTheEnd) {
    put(REG_SZ, bytesOf(u"a b"));
    EXPECT_EQ(readString(), STATUS_SUCCESS);
    EXPECT_THAT(texts(), ElementsAre("A", "B"));
}

TEST_F(StringRules, EndAtANulUpToTheNextSpace) {
    put(REG_SZ, bytesOf(std::u16string_view(u"a\0x b\0y\0 c\0", 11)));
    EXPECT_EQ(readString(), STATUS_SUCCESS);
    EXPECT_THAT(texts(), ElementsAre("A", "B", "C"));
}

TEST_F(StringRules, OddLastByteDoesNotCount) {
    std::vector<std::uint8_t> data = bytesOf(u"a b");
    data.push_back('c');
    put(REG_SZ, data);
    EXPECT_EQ(readString(), STATUS_SUCCESS);
    EXPECT_THAT(texts(), ElementsAre("A", "B"));
}

TEST_F(StringRules, ValueWithoutDataTakesTheDefault) {
    put(REG_SZ, {});
    EXPECT_EQ(readString(u"A B"), STATUS_SUCCESS);
    EXPECT_THAT(texts(), ElementsAre("A", "B"));
    EXPECT_THAT(takeLines(),
                ElementsAre("INFO Query string key, parameter = Rules",
                            "INFO Rules in registry is empty, use default value = A B",
                            "INFO putIdToContainerWithSerial rule = A", "INFO putIdToContainerWithSerial rule = B"));
}

TEST_F(StringRules, ValueOfOneByteTakesTheDefaultToo) {
    put(REG_SZ, {'A'});
    EXPECT_EQ(readString(u"B", true), STATUS_SUCCESS);
    EXPECT_THAT(texts(), ElementsAre("B\\*"));
}

TEST_F(StringRules, ValueWithoutDataAndWithoutADefaultHasNoRules) {
    put(REG_SZ, {});
    EXPECT_EQ(readString(), STATUS_SUCCESS);
    EXPECT_THAT(texts(), IsEmpty());
    EXPECT_THAT(takeLines(), ElementsAre("INFO Query string key, parameter = Rules"));
}

TEST_F(StringRules, EmptyTextAndSpacesAreNoRulesAndNoDefault) {
    for (const std::u16string_view text : {u"", u" ", u"   "}) {
        putText(text);
        EXPECT_EQ(readString(u"A B"), STATUS_SUCCESS);
        EXPECT_THAT(texts(), IsEmpty());
        EXPECT_THAT(takeLines(), ElementsAre("INFO Query string key, parameter = Rules"));
    }
}

TEST_F(StringRules, MissingValueFailsWithoutADefault) {
    EXPECT_EQ(readString(u"A B"), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_THAT(texts(), IsEmpty());
    EXPECT_THAT(takeLines(), ElementsAre("INFO Query string key, parameter = Rules",
                                         "ERROR Failed to wdf query memory, status = 0xc0000034"));
}

TEST_F(StringRules, OtherTypesAreInvalid) {
    for (const ULONG type : {REG_EXPAND_SZ, REG_MULTI_SZ, REG_BINARY, REG_DWORD}) {
        put(type, bytesOf(std::u16string_view(u"A\0", 2)));
        EXPECT_EQ(readString(u"A B"), STATUS_INVALID_PARAMETER) << type;
        EXPECT_THAT(takeLines(), ElementsAre("INFO Query string key, parameter = Rules",
                                             "ERROR Invalid parameter when wdf query memory"));
    }
    EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(StringRules, EmptyValueOfAnotherTypeFailsAsTheFrameworkFailsIt) {
    put(REG_EXPAND_SZ, {});
    EXPECT_EQ(readString(u"A B"), STATUS_RESOURCE_DATA_NOT_FOUND);
    EXPECT_THAT(takeLines(), ElementsAre("INFO Query string key, parameter = Rules",
                                         "ERROR Failed to wdf query memory, status = 0xc0000089"));
}

TEST_F(StringRules, PieceOf32767CharactersIsTakenAndOneMoreIsSkipped) {
    setLogLevel(static_cast<LONG>(LogLevel::error));
    putText(u"a " + std::u16string(32'767, u'x') + u" " + std::u16string(32'768, u'y') + u" " +
            std::u16string(70'000, u'y') + u" b");
    EXPECT_EQ(readString(), STATUS_SUCCESS);
    EXPECT_THAT(texts(), ElementsAre("A", "B", std::string(32'767, 'X')));
    EXPECT_THAT(takeLines(), ElementsAre("ERROR Max rule size more then USHRT_MAX. The rule will be skipped",
                                         "ERROR Max rule size more then USHRT_MAX. The rule will be skipped"));
}

TEST_F(StringRules, LengthOfAPieceCountsBeforeItIsCutAtANul) {
    setLogLevel(static_cast<LONG>(LogLevel::error));
    std::u16string text = u"a" + std::u16string(1, u'\0') + std::u16string(32'766, u'x');
    put(REG_SZ, bytesOf(text));
    EXPECT_EQ(readString(), STATUS_SUCCESS);
    EXPECT_THAT(texts(), IsEmpty());
    EXPECT_THAT(takeLines(), ElementsAre("ERROR Max rule size more then USHRT_MAX. The rule will be skipped"));
}

TEST_F(StringRules, PieceThatTheWildcardMakesTooLongEndsTheReading) {
    setLogLevel(static_cast<LONG>(LogLevel::error));
    putText(u"a " + std::u16string(32'766, u'x') + u" b");
    EXPECT_EQ(readString({}, true), STATUS_BUFFER_TOO_SMALL);
    EXPECT_THAT(texts(), ElementsAre("A\\*"));
    EXPECT_THAT(takeLines(), ElementsAre("ERROR Failed to append path for fullId, status = 0xc0000023",
                                         "ERROR forEachStringCallFunc failed callback, status = 0xc0000023"));
}

TEST_F(StringRules, NothingIsLeftBehindWhateverFails) {
    putText(u"a b");
    setLogLevel(0);
    const Text path(parametersKey);
    const UNICODE_STRING name = path;
    RegistryKey key;
    ASSERT_EQ(WdfRegistryOpenKey(nullptr, &name, KEY_READ, WDF_NO_OBJECT_ATTRIBUTES, key.receive()), STATUS_SUCCESS);
    failEachCall([&] { return queryStringKey(valueName, key.get(), rules, UNICODE_STRING{}, true); },
                 [&](NTSTATUS status, bool failed) {
                     EXPECT_EQ(NT_SUCCESS(status), !failed);
                     EXPECT_EQ(texts().size() == 2, !failed);
                     rules.clear();
                 });
}

} // namespace
} // namespace unit
