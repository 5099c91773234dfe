// What the driver image must be for the system to load it, and to load it well protected.
#include "../../simulator/image/pe_file.h"
#include "arm64_code.h"
#include "driver_image.h"
#include "import_list.h"
#include "version_resource.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>

namespace {

constexpr const char *imageName = "TarvenholtMyrtelhavenDriver";

/// The function with unwind data around `address`, if any.
std::optional<Range> functionAround(const std::vector<Range> &functions, std::uint32_t address) {
    const auto found = std::ranges::find_if(functions, [&](const Range &range) { return range.contains(address); });
    return found == functions.end() ? std::nullopt : std::optional(*found);
}

bool contains(Bytes haystack, Bytes needle) {
    return !std::ranges::search(haystack, needle).empty();
}

Bytes bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t *>(text.data()), text.size()};
}

// Members of the load configuration, by offset.
enum LoadConfig : std::uint32_t {
    cookie = 0x58,
    guardCheck = 0x70,
    guardDispatch = 0x78,
    guardTable = 0x80,
    guardCount = 0x88,
    guardFlags = 0x90,
};

std::uint32_t loadConfig() {
    return image().directory(Directory::loadConfig).address;
}

} // namespace

TEST(Image, IsAnArm64NativeImageForWindows10) {
    EXPECT_EQ(image().machine(), 0xAA64);
    EXPECT_EQ(image().subsystem(), 1);
    EXPECT_EQ(image().subsystemVersion(), std::pair(10, 0));
    EXPECT_EQ(image().operatingSystemVersion(), std::pair(10, 0));
    EXPECT_EQ(image().sectionAlignment(), 0x1000u);
    EXPECT_EQ(image().base() % 0x10000, 0u);
}

TEST(Image, StatesItsProtections) {
    enum : unsigned {
        highEntropy = 0x20,
        dynamicBase = 0x40,
        noExecute = 0x100,
        driver = 0x2000,
        guard = 0x4000,
    };
    EXPECT_EQ(image().dllCharacteristics(), highEntropy | dynamicBase | noExecute | driver | guard);
}

TEST(Image, HasTheChecksumThatTheSystemDemandsOfDrivers) {
    EXPECT_NE(image().storedChecksum(), 0u);
    EXPECT_EQ(image().storedChecksum(), image().computedChecksum());
}

TEST(Image, IsSmall) {
    EXPECT_LT(image().size(), 128u * 1024);
}

TEST(Image, NamesItsVersion) {
    ASSERT_FALSE(image().versionResource().empty());
    const VersionInformation version = parseVersionResource(image().versionResource());
    std::string text;
    for (const int number : version.fileVersion) {
        text += (text.empty() ? "" : ".") + std::to_string(number);
    }
    EXPECT_NE(text, "0.0.0.0");
    EXPECT_EQ(version.productVersion, version.fileVersion);
    EXPECT_EQ(version.fileType, 3u); // a driver
    EXPECT_EQ(version.strings.at("FileVersion"), text);
    EXPECT_EQ(version.strings.at("ProductVersion"), text);
    EXPECT_EQ(version.strings.at("ProductName"), "Tarvenholt Myrtelhaven");
    EXPECT_EQ(version.strings.at("CompanyName"), "Tarvenholt");
    EXPECT_EQ(version.strings.at("InternalName"), imageName);
    EXPECT_EQ(version.strings.at("OriginalFilename"), std::string(imageName) + ".sys");
    EXPECT_FALSE(version.strings.at("FileDescription").empty());
    EXPECT_EQ(image().imageVersion(), std::pair(version.fileVersion[0], version.fileVersion[1]));
}

TEST(Image, PointsToItsPdbByNameAlone) {
    const auto record = image().codeView();
    ASSERT_TRUE(record);
    EXPECT_EQ(record->pdb, std::string(imageName) + ".pdb");

    const auto pdb = readFile(DRIVER_IMAGE_PDB);
    EXPECT_TRUE(contains(Bytes(pdb).first(32), bytesOf("Microsoft C/C++ MSF 7.00")));
    EXPECT_TRUE(contains(pdb, record->guid)) << "the PDB is another image's";
}

TEST(Image, TellsNothingAboutTheBuildingMachine) {
    EXPECT_FALSE(contains(image().file(), bytesOf(SOURCE_ROOT)));
    EXPECT_FALSE(contains(readFile(DRIVER_IMAGE_PDB), bytesOf(SOURCE_ROOT)));
}

TEST(Image, HasUnwindDataForEveryFunctionThatCalls) {
    const std::vector<Range> functions = image().functions();
    ASSERT_FALSE(functions.empty());
    for (std::size_t i = 0; i < functions.size(); ++i) {
        EXPECT_TRUE(image().isCode(functions[i].address)) << std::hex << functions[i].address;
        EXPECT_GT(functions[i].size, 0u);
        if (i > 0) {
            EXPECT_GE(functions[i].address, functions[i - 1].address + functions[i - 1].size) << "not in order";
        }
    }
    const auto calls = callSites(image());
    ASSERT_FALSE(calls.empty());
    for (const std::uint32_t call : calls) {
        EXPECT_TRUE(functionAround(functions, call)) << "a call without unwind data at " << std::hex << call;
    }
    EXPECT_TRUE(functionAround(functions, image().entryPoint()));
}

TEST(Image, GivesTheLoaderAStackCookieToSeed) {
    ASSERT_EQ(read32(image().from(loadConfig()), 0), 0x140u);
    ASSERT_EQ(image().directory(Directory::loadConfig).size, 0x140u);
    const std::uint32_t place = image().pointerAt(loadConfig() + cookie);
    ASSERT_NE(image().sectionAt(place), nullptr);
    EXPECT_TRUE(image().sectionAt(place)->has(Section::write));
    EXPECT_EQ(read64(image().from(place), 0), 0x00002B992DDFA232u);
}

TEST(Image, ProtectsFunctionsWithTheCookie) {
    const std::vector<Range> functions = image().functions();
    std::set<std::uint32_t> calling;
    for (const std::uint32_t call : callSites(image())) {
        if (const auto function = functionAround(functions, call)) {
            calling.insert(function->address);
        }
    }
    std::size_t protectedFunctions = 0;
    for (const std::uint32_t load : loadsOf(image(), image().pointerAt(loadConfig() + cookie))) {
        const auto function = functionAround(functions, load);
        protectedFunctions += function && calling.contains(function->address) ? 1 : 0;
    }
    EXPECT_GT(protectedFunctions, 0u);
}

TEST(Image, CarriesControlFlowGuard) {
    constexpr std::uint32_t instrumented = 0x100;
    constexpr std::uint32_t tablePresent = 0x400;
    const Bytes config = image().from(loadConfig());
    const std::uint32_t flags = read32(config, guardFlags);
    EXPECT_EQ(flags & (instrumented | tablePresent), instrumented | tablePresent);

    // The two slots that the loader fills are read-only data that lead to code.
    for (const std::uint32_t member : {guardCheck, guardDispatch}) {
        const std::uint32_t slot = image().pointerAt(loadConfig() + member);
        ASSERT_NE(image().sectionAt(slot), nullptr);
        EXPECT_FALSE(image().sectionAt(slot)->has(Section::write));
        EXPECT_TRUE(image().isCode(image().pointerAt(slot)));
    }
    EXPECT_FALSE(loadsOf(image(), image().pointerAt(loadConfig() + guardCheck)).empty()) << "no call is checked";

    const std::uint64_t count = read64(config, guardCount);
    ASSERT_GT(count, 0u);
    const std::uint32_t entrySize = 4 + (flags >> 28);
    const Bytes table = image().from(image().pointerAt(loadConfig() + guardTable));
    std::set<std::uint32_t> targets;
    std::uint32_t previous = 0;
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint32_t target = read32(table, i * entrySize);
        EXPECT_GT(target, previous) << "not in order";
        EXPECT_TRUE(image().isCode(target)) << std::hex << target;
        targets.insert(previous = target);
    }
    EXPECT_TRUE(targets.contains(image().entryPoint()));
}

TEST(Image, ImportsFromTheKernelAndTheFrameworkLoaderAlone) {
    std::set<std::string> seen;
    for (const Import &import : image().imports()) {
        const std::string key = importKey(import.module, import.routine);
        EXPECT_TRUE(key.starts_with("ntoskrnl.exe ") || key.starts_with("wdfldr.sys ")) << key;
        EXPECT_TRUE(seen.insert(key).second) << key << " is imported twice";
    }
    EXPECT_TRUE(seen.contains("wdfldr.sys WdfVersionBind"));
    EXPECT_TRUE(seen.contains("wdfldr.sys WdfVersionUnbind"));
    EXPECT_EQ(image().directory(Directory::boundImports).size, 0u);
    EXPECT_EQ(image().directory(Directory::delayImports).size, 0u);
}

TEST(Image, ExportsNothing) {
    EXPECT_EQ(image().directory(Directory::exports).size, 0u);
}

TEST(Image, CanBeMoved) {
    const auto relocations = image().relocations();
    ASSERT_FALSE(relocations.empty());
    std::set<std::uint32_t> places;
    for (const auto &[place, kind] : relocations) {
        EXPECT_EQ(kind, 10) << "only whole 64-bit addresses are corrected";
        EXPECT_NE(image().sectionAt(place), nullptr);
        EXPECT_NE(image().sectionAt(image().pointerAt(place)), nullptr) << "an address outside the image";
        places.insert(place);
    }
    for (const std::uint32_t member : {cookie, guardCheck, guardDispatch, guardTable}) {
        EXPECT_TRUE(places.contains(loadConfig() + member)) << std::hex << member;
    }
}

TEST(Image, NeverMapsAPageWritableAndExecutable) {
    for (const Section &section : image().sections()) {
        EXPECT_FALSE(section.has(Section::write) && section.has(Section::execute)) << section.name;
        EXPECT_TRUE(section.has(Section::read)) << section.name;
        EXPECT_EQ(section.range.address % 0x1000, 0u) << section.name;
    }
}

TEST(Image, ThrowsItsStartUpCodeAwayAfterLoad) {
    const Section *start = image().sectionNamed("INIT");
    ASSERT_NE(start, nullptr);
    EXPECT_TRUE(start->has(Section::discardable));
    EXPECT_TRUE(start->has(Section::execute));
    EXPECT_TRUE(start->range.contains(image().entryPoint()));
    ASSERT_NE(image().sectionNamed(".reloc"), nullptr);
    EXPECT_TRUE(image().sectionNamed(".reloc")->has(Section::discardable));
    for (const char *name : {".text", ".rdata", ".data", ".pdata"}) {
        ASSERT_NE(image().sectionNamed(name), nullptr) << name;
        EXPECT_FALSE(image().sectionNamed(name)->has(Section::discardable)) << name;
    }
}

TEST(Image, NeedsNoRunTimeLibrary) {
    // Constructors of globals and thread-local data would wait for a run-time library that no driver has.
    EXPECT_EQ(image().sectionNamed(".CRT"), nullptr);
    EXPECT_EQ(image().directory(Directory::tls).size, 0u);
}
