// How an image is laid out in memory, and what is said of images that can't be.

#include "simulator/image/exports.h"
#include "simulator/image/mapped_image.h"
#include "simulator/image/unwind.h"

#include "arm64_code.h"
#include "driver_image.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>

#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

char somewhere[256]; // addresses to bind to

void *resolveAll(const std::string &, const std::string &) {
    return somewhere;
}

/// Protections of the pages that hold an address, as the system tells them: "r-xp".
std::string protectionOf(const void *address) {
    std::ifstream maps("/proc/self/maps");
    const auto wanted = reinterpret_cast<std::uintptr_t>(address);
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t start = 0;
        std::uintptr_t end = 0;
        char access[5] = {};
        if (std::sscanf(line.c_str(), "%lx-%lx %4s", &start, &end, access) == 3 && wanted >= start && wanted < end) {
            return access;
        }
    }
    return "none";
}

std::uint64_t numberAt(const MappedImage &image, std::uint32_t address) {
    std::uint64_t value = 0;
    std::memcpy(&value, image.base() + address, sizeof value);
    return value;
}

/// A copy of the image with other bytes in places.
class DamagedImage : public testing::Test {
  protected:
    DamagedImage() : bytes_(image().file().begin(), image().file().end()) {
        header_ = read32(bytes_, 0x3C);
        file_ = fs::temp_directory_path() / ("damaged-" + std::to_string(getpid()) + ".sys");
    }
    ~DamagedImage() override { fs::remove(file_); }

    template<typename Number>
    void put(std::size_t offset, Number value) {
        std::memcpy(&bytes_.at(offset), &value, sizeof value);
    }
    std::size_t optional(std::size_t offset) const { return header_ + 24 + offset; }
    /// Where the file keeps what lies at a relative address.
    static std::size_t offsetOf(std::uint32_t address) {
        const Section *section = image().sectionAt(address);
        return section->fileOffset + (address - section->range.address);
    }
    static std::size_t sectionEntry(std::size_t header, std::size_t index) { return header + 24 + 240 + index * 40; }

    /// Why it can't be loaded; empty when it can.
    std::string refusal() {
        std::ofstream(file_, std::ios::binary)
            .write(reinterpret_cast<const char *>(bytes_.data()), static_cast<std::streamsize>(bytes_.size()));
        try {
            const MappedImage mapped(file_, resolveAll, {});
            return "";
        } catch (const BadImage &bad) {
            return bad.what();
        }
    }

    std::vector<std::uint8_t> bytes_;
    std::size_t header_ = 0;
    fs::path file_;
};

} // namespace

TEST(Loader, GivesEverySectionItsProtectionAndNoneBothWriteAndExecute) {
    const MappedImage mapped(DRIVER_IMAGE, resolveAll, {});
    for (const Section &section : image().sections()) {
        const std::string expected = std::string(section.has(Section::read) ? "r" : "-") +
                                     (section.has(Section::write) ? "w" : "-") +
                                     (section.has(Section::execute) ? "x" : "-") + "p";
        EXPECT_EQ(protectionOf(mapped.base() + section.range.address), expected) << section.name;
    }
    EXPECT_EQ(protectionOf(mapped.base()), "r--p") << "the headers";
}

TEST(Loader, PutsTheImageElsewhereEachTimeAndCorrectsItsAddresses) {
    const MappedImage one(DRIVER_IMAGE, resolveAll, {});
    const MappedImage other(DRIVER_IMAGE, resolveAll, {});
    EXPECT_NE(one.base(), other.base());
    ASSERT_FALSE(image().relocations().empty());
    std::size_t corrected = 0;
    for (const auto &[address, kind] : image().relocations()) {
        const std::uint64_t inOne = numberAt(one, address) - reinterpret_cast<std::uint64_t>(one.base());
        const std::uint64_t inOther = numberAt(other, address) - reinterpret_cast<std::uint64_t>(other.base());
        corrected += inOne == inOther && inOne < one.size() ? 1 : 0;
    }
    EXPECT_GE(corrected + 1, image().relocations().size()) << "all but the guard's pointer, which the loader sets";
}

TEST(Loader, BindsEachImportByModuleAndName) {
    std::vector<std::string> asked;
    const MappedImage mapped(DRIVER_IMAGE,
                             [&](const std::string &module, const std::string &name) {
                                 asked.push_back(module + "!" + name);
                                 return somewhere + asked.size();
                             },
                             {});
    const std::vector<Import> imports = image().imports();
    ASSERT_EQ(asked.size(), imports.size());
    for (std::size_t i = 0; i < imports.size(); ++i) {
        EXPECT_EQ(asked[i], imports[i].module + "!" + imports[i].routine);
        EXPECT_EQ(numberAt(mapped, imports[i].slot), reinterpret_cast<std::uint64_t>(somewhere + i + 1)) << asked[i];
    }
}

TEST(Loader, SeedsTheStackCookieAndTheGuardCheck) {
    const MappedImage chosen(DRIVER_IMAGE, resolveAll, {.cookie = 0xABCD'1234'5678'9ABC, .guardCheck = somewhere});
    const std::uint32_t config = image().directory(Directory::loadConfig).address;
    const std::uint32_t cookie = image().pointerAt(config + 0x58);
    EXPECT_EQ(numberAt(chosen, cookie), 0x1234'5678'9ABCu) << "the two highest bytes are zero, as on the real system";
    EXPECT_EQ(numberAt(chosen, image().pointerAt(config + 0x70)), reinterpret_cast<std::uint64_t>(somewhere));
    const MappedImage random(DRIVER_IMAGE, resolveAll, {});
    EXPECT_NE(numberAt(random, cookie), read64(image().from(cookie), 0));
}

TEST(Loader, TakesDiscardableSectionsAway) {
    MappedImage mapped(DRIVER_IMAGE, resolveAll, {});
    mapped.discard();
    std::size_t gone = 0;
    for (const Section &section : image().sections()) {
        const bool isGone = protectionOf(mapped.base() + section.range.address) == "---p";
        EXPECT_EQ(isGone, section.has(Section::discardable)) << section.name;
        gone += isGone ? 1 : 0;
    }
    EXPECT_GE(gone, 2u) << "INIT and .reloc at least";
}

TEST_F(DamagedImage, WholeItCanBeLoaded) {
    EXPECT_EQ(refusal(), "");
}

TEST_F(DamagedImage, IsRefusedForAnotherMachine) {
    put<std::uint16_t>(header_ + 4, 0x8664);
    EXPECT_THAT(refusal(), HasSubstr("it is for machine 0x8664, not ARM64"));
}

TEST_F(DamagedImage, IsRefusedForAnotherSubsystem) {
    put<std::uint16_t>(optional(68), 3);
    EXPECT_THAT(refusal(), HasSubstr("its subsystem is 3, not native"));
}

TEST_F(DamagedImage, IsRefusedWhenASectionIsWritableAndExecutable) {
    put<std::uint32_t>(sectionEntry(header_, 0) + 36, Section::read | Section::write | Section::execute);
    EXPECT_THAT(refusal(), HasSubstr("section " + image().sections()[0].name + " is both writable and executable"));
}

TEST_F(DamagedImage, IsRefusedWhenASectionLiesInAnother) {
    put<std::uint32_t>(sectionEntry(header_, 1) + 12, image().sections()[0].range.address);
    EXPECT_THAT(refusal(), HasSubstr("lies outside of the image or in another section"));
}

TEST_F(DamagedImage, IsRefusedWhenItIsCutOff) {
    bytes_.resize(bytes_.size() / 2);
    EXPECT_THAT(refusal(), HasSubstr("is cut off: the file ends before it"));
}

TEST_F(DamagedImage, IsRefusedWithoutCodeAtItsEntry) {
    put<std::uint32_t>(optional(16), 0x10);
    EXPECT_THAT(refusal(), HasSubstr("its entry point 0x10 is not in a section of code"));
}

TEST_F(DamagedImage, IsRefusedForACorrectionOfAnotherKind) {
    const std::size_t first = offsetOf(image().directory(Directory::relocations).address) + 8;
    put<std::uint16_t>(first, static_cast<std::uint16_t>((read16(bytes_, first) & 0xFFF) | 3 << 12));
    EXPECT_THAT(refusal(), HasSubstr("is of kind 3"));
}

TEST_F(DamagedImage, IsRefusedForACorrectionWhereThereIsNoAddress) {
    const std::uint32_t place = image().relocations()[0].first;
    put<std::uint64_t>(offsetOf(place), 0x1234);
    EXPECT_THAT(refusal(), HasSubstr("holds 0x1234, which is no address of the image"));
}

TEST_F(DamagedImage, IsRefusedForACorrectionOutsideOfIt) {
    put<std::uint32_t>(offsetOf(image().directory(Directory::relocations).address), 0x7FFF0000);
    EXPECT_THAT(refusal(), HasSubstr("where no section has room for it"));
}

TEST_F(DamagedImage, IsRefusedForABlockOfCorrectionsWithoutEnd) {
    put<std::uint32_t>(offsetOf(image().directory(Directory::relocations).address) + 4, 0);
    EXPECT_THAT(refusal(), HasSubstr("a block of corrections has 0 bytes"));
}

TEST_F(DamagedImage, IsRefusedWithAnotherStackCookie) {
    const std::uint32_t config = image().directory(Directory::loadConfig).address;
    put<std::uint64_t>(offsetOf(image().pointerAt(config + 0x58)), 77);
    EXPECT_THAT(refusal(), HasSubstr("its stack cookie has no initial value that the loader knows: 0x4d"));
}

TEST_F(DamagedImage, IsRefusedWhenItIsNoImage) {
    bytes_ = {'M', 'Z'};
    EXPECT_THAT(refusal(), HasSubstr("is no driver image"));
    bytes_.clear();
    EXPECT_THAT(refusal(), HasSubstr("is no driver image"));
}

TEST(Loader, RefusesAnImportThatNobodyHas) {
    const auto resolve = [](const std::string &module, const std::string &name) {
        return module == "ntoskrnl.exe" && name == "ZwClose" ? nullptr : static_cast<void *>(somewhere);
    };
    try {
        const MappedImage mapped(DRIVER_IMAGE, resolve, {});
        FAIL() << "it was loaded";
    } catch (const BadImage &bad) {
        EXPECT_THAT(bad.what(),
                    HasSubstr("it imports ntoskrnl.exe!ZwClose, which the simulated machine does not have"));
    }
}

TEST(Exports, AreThoseOfTheModule) {
    EXPECT_NE(exportOf("ntoskrnl.exe", "ZwClose"), nullptr);
    EXPECT_EQ(exportOf("NTOSKRNL.EXE", "ZwClose"), exportOf("ntoskrnl.exe", "ZwClose"));
    EXPECT_NE(exportOf("WDFLDR.SYS", "WdfVersionBind"), nullptr);
    EXPECT_EQ(exportOf("ntoskrnl.exe", "WdfVersionBind"), nullptr);
    EXPECT_EQ(exportOf("WDFLDR.SYS", "ZwClose"), nullptr);
    EXPECT_EQ(exportOf("hal.dll", "ZwClose"), nullptr);
    EXPECT_NE(exportOf("ntoskrnl.exe", "memcpy"), nullptr);
    EXPECT_EQ(exportOf("ntoskrnl.exe", "gethostid"), nullptr) << "the host's, not the kernel's";
    EXPECT_EQ(exportOf("ntoskrnl.exe", "NoSuchRoutine"), nullptr);
}

// The unwind data of the image lead from each of its calls to the caller: the link register comes from the stack, which
// grows back by whole 16 bytes.
TEST(UnwindData, LeadFromEveryCallToTheCaller) {
    const MappedImage mapped(DRIVER_IMAGE, resolveAll, {});
    constexpr std::uint64_t tag = 0x5A5A'0000'0000'0000;
    std::vector<std::uint64_t> stack(4096);
    for (std::size_t i = 0; i < stack.size(); ++i) {
        stack[i] = tag | i;
    }
    const std::vector<std::uint32_t> calls = callSites(image());
    ASSERT_GT(calls.size(), 1000u);
    for (const std::uint32_t call : calls) {
        bool aligned = false;
        for (const std::uint64_t above : {64, 72}) { // where in its frame the function keeps its frame pointer
            Registers registers;
            registers.sp = reinterpret_cast<std::uint64_t>(stack.data() + 512) / 16 * 16;
            registers.x[29] = registers.sp + above;
            registers.x[30] = 1;
            registers.pc = reinterpret_cast<std::uint64_t>(mapped.base()) + call + 4;
            const std::uint64_t before = registers.sp;
            UnwoundFunction function;
            ASSERT_NO_THROW(function = unwindFrame(mapped, registers)) << std::hex << call;
            EXPECT_TRUE(function.range.contains(call)) << std::hex << call;
            EXPECT_EQ(registers.pc >> 48, tag >> 48) << "no return address from the stack: " << std::hex << call;
            EXPECT_EQ(registers.x[29] >> 48, tag >> 48) << "no frame pointer from the stack: " << std::hex << call;
            EXPECT_GT(registers.sp, before) << std::hex << call;
            aligned = aligned || registers.sp % 16 == 0;
        }
        EXPECT_TRUE(aligned) << std::hex << call;
    }
}
