#include "kernel_fixture.h"

namespace sim::test {

namespace {

class RegistryTest : public KernelTest {
  protected:
    static constexpr std::u16string_view key = u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\Test";
    Registry &registry = kernel.registry;
};

TEST_F(RegistryTest, namesAreFoundWithoutRegardToCaseAndKeptAsSpelled) {
    registry.setDword(key, u"LogLevel", 3);
    EXPECT_EQ(registry.dword(u"\\REGISTRY\\machine\\SYSTEM\\currentcontrolset\\services\\TEST", u"LOGLEVEL"), 3u);
    EXPECT_EQ(registry.value(key, u"loglevel")->name, u"LogLevel");
    registry.setDword(key, u"LOGLEVEL", 4);
    EXPECT_EQ(registry.values(key).size(), 1u);
    EXPECT_EQ(registry.value(key, u"loglevel")->name, u"LogLevel");
    EXPECT_EQ(registry.dword(key, u"LogLevel"), 4u);
    EXPECT_EQ(registry.subkeys(u"\\registry\\machine"), std::vector<std::u16string>{u"System"});
}

TEST_F(RegistryTest, createKeyNeedsItsParent) {
    bool created = true;
    EXPECT_EQ(registry.createKey(key, created), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_FALSE(created);
    registry.makeKey(u"\\Registry\\Machine\\System\\CurrentControlSet\\Services");
    EXPECT_EQ(registry.createKey(key, created), STATUS_SUCCESS);
    EXPECT_TRUE(created);
    EXPECT_EQ(registry.createKey(key, created), STATUS_SUCCESS);
    EXPECT_FALSE(created);
    EXPECT_TRUE(registry.keyExists(key));
    registry.deleteKey(key);
    EXPECT_FALSE(registry.keyExists(key));
}

TEST_F(RegistryTest, stringsHaveTheirTerminators) {
    registry.setString(key, u"S", u"ab");
    EXPECT_EQ(registry.value(key, u"S")->data.size(), 6u);
    registry.setMultiString(key, u"M", {u"a", u"bc"});
    EXPECT_EQ(registry.value(key, u"M")->data.size(), 12u);
    EXPECT_EQ(registry.multiString(key, u"M"), (std::vector<std::u16string>{u"a", u"bc"}));
    registry.setMultiString(key, u"M", {});
    EXPECT_EQ(registry.value(key, u"M")->data.size(), 2u);
    EXPECT_EQ(registry.multiString(key, u"S"), std::nullopt);
}

TEST_F(RegistryTest, deletedValueIsGone) {
    registry.setDword(key, u"A", 1);
    registry.deleteValue(key, u"a");
    EXPECT_FALSE(registry.value(key, u"A").has_value());
    EXPECT_EQ(registry.dword(key, u"A"), std::nullopt);
}

} // namespace

} // namespace sim::test
