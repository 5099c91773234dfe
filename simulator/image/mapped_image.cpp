#include "mapped_image.h"

#include "../kernel/violation.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <sys/mman.h>
#include <unistd.h>

namespace sim::image {

namespace {

constexpr std::uint16_t arm64 = 0xAA64;
constexpr std::uint16_t nativeSubsystem = 1;
constexpr std::uint64_t baseAlignment = 0x10000;
constexpr int corrected64 = 10;

// learn.microsoft.com: "PE format", load configuration; IMAGE_LOAD_CONFIG_DIRECTORY64
constexpr std::uint32_t securityCookie = 0x58;
constexpr std::uint32_t guardCheckPointer = 0x70;
constexpr std::uint32_t guardTable = 0x80;
constexpr std::uint32_t guardCount = 0x88;
constexpr std::uint32_t guardFlags = 0x90;
constexpr std::uint32_t guardTablePresent = 0x400;
constexpr std::uint64_t unseededCookie = 0x00002B992DDFA232;

PeFile readImage(const std::filesystem::path &path) {
    try {
        return PeFile(path);
    } catch (const std::exception &error) {
        throw BadImage(path.string() + " is no driver image: " + error.what());
    }
}

std::uint64_t randomNumber() {
    std::random_device device;
    return static_cast<std::uint64_t>(device()) << 32 | device();
}

std::uint32_t wholePages(std::uint32_t bytes) {
    constexpr std::uint32_t page = 0x1000;
    return (bytes + page - 1) / page * page;
}

} // namespace

MappedImage::MappedImage(const std::filesystem::path &file, const Resolve &resolve, const Seeds &seeds)
    : path_(file), file_(readImage(file)), size_(wholePages(file_.sizeInMemory())) {
    check();
    reserve();
    try {
        copySections();
        correctAddresses();
        bindImports(resolve);
        seed(seeds);
        readCallTargets();
        protect();
    } catch (const std::out_of_range &error) { // a table of the image leads outside of it
        munmap(base_, size_);
        refuse(error.what());
    } catch (...) {
        munmap(base_, size_);
        throw;
    }
}

MappedImage::~MappedImage() {
    munmap(base_, size_);
}

void MappedImage::refuse(const std::string &why) const {
    throw BadImage(path_.string() + " cannot be loaded: " + why);
}

void MappedImage::check() const {
    if (file_.machine() != arm64) {
        refuse("it is for machine " + hex(file_.machine()) + ", not ARM64");
    }
    if (file_.subsystem() != nativeSubsystem) {
        refuse("its subsystem is " + std::to_string(file_.subsystem()) + ", not native");
    }
    std::uint64_t end = 0;
    for (const Section &section : file_.sections()) {
        const std::uint64_t sectionEnd = std::uint64_t{section.range.address} + section.range.size;
        if (section.range.address % 0x1000 != 0 || section.range.address < end || sectionEnd > size_) {
            refuse("section " + section.name + " lies outside of the image or in another section");
        }
        if (std::uint64_t{section.fileOffset} + section.fileSize > file_.size()) {
            refuse("section " + section.name + " is cut off: the file ends before it");
        }
        if (section.has(Section::write) && section.has(Section::execute)) {
            refuse("section " + section.name + " is both writable and executable");
        }
        end = sectionEnd;
    }
    const Section *entry = file_.sectionAt(file_.entryPoint());
    if (entry == nullptr || !entry->has(Section::execute)) {
        refuse("its entry point " + hex(file_.entryPoint()) + " is not in a section of code");
    }
}

/// Never where the image was linked for: a place that was not corrected shows.
void MappedImage::reserve() {
    const std::uint64_t preferred = file_.base();
    for (int attempt = 0; attempt < 64; ++attempt) {
        const std::uint64_t wanted =
            (0x2000'0000'0000 + randomNumber() % 0x2000'0000'0000) / baseAlignment * baseAlignment;
        if (wanted < preferred + size_ && preferred < wanted + size_) {
            continue;
        }
        void *place = mmap(reinterpret_cast<void *>(wanted), size_, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
        if (place == reinterpret_cast<void *>(wanted)) {
            base_ = static_cast<std::uint8_t *>(place);
            return;
        }
        if (place != MAP_FAILED) {
            munmap(place, size_);
        }
    }
    refuse("there is no room for its " + std::to_string(size_) + " bytes");
}

void MappedImage::copySections() {
    const Bytes file = file_.file();
    const std::size_t headers = std::min<std::size_t>(
        {file.size(), size_, file_.sections().empty() ? 0x1000 : file_.sections()[0].range.address});
    std::memcpy(base_, file.data(), headers);
    for (const Section &section : file_.sections()) {
        std::memcpy(base_ + section.range.address, file.data() + section.fileOffset,
                    std::min(section.fileSize, section.range.size));
    }
}

/// The eight bytes at a relative address, which must lie in one section.
std::uint64_t &MappedImage::number(std::uint32_t address, const char *what) {
    const Section *section = file_.sectionAt(address);
    if (section == nullptr || section->range.address + section->range.size - address < sizeof(std::uint64_t) ||
        address % alignof(std::uint64_t) != 0) {
        refuse(std::string(what) + " is at " + hex(address) + ", where no section has room for it");
    }
    return *reinterpret_cast<std::uint64_t *>(base_ + address);
}

// learn.microsoft.com: "PE format", .reloc
void MappedImage::correctAddresses() {
    const std::uint64_t moved = reinterpret_cast<std::uint64_t>(base_) - file_.base();
    for (const auto &[address, kind] : file_.relocations()) {
        if (kind != corrected64) {
            refuse("the correction at " + hex(address) + " is of kind " + std::to_string(kind));
        }
        std::uint64_t &value = number(address, "an address to correct");
        if (value - file_.base() >= size_) {
            refuse("the address to correct at " + hex(address) + " holds " + hex(value) +
                   ", which is no address of the image");
        }
        value += moved;
    }
}

void MappedImage::bindImports(const Resolve &resolve) {
    for (const Import &import : file_.imports()) {
        void *address = resolve(import.module, import.routine);
        if (address == nullptr) {
            refuse("it imports " + import.module + "!" + import.routine +
                   ", which the simulated machine does not have");
        }
        number(import.slot, "an import") = reinterpret_cast<std::uint64_t>(address);
    }
}

void MappedImage::seed(const Seeds &seeds) {
    const Range config = file_.directory(Directory::loadConfig);
    if (config.size == 0) {
        return;
    }
    const auto slotOf = [&](std::uint32_t offset, const char *what) {
        const std::uint64_t address = number(config.address + offset, what) - reinterpret_cast<std::uint64_t>(base_);
        return address < size_ ? &number(static_cast<std::uint32_t>(address), what) : nullptr;
    };
    if (std::uint64_t *cookie = slotOf(securityCookie, "the stack cookie")) {
        if (*cookie != unseededCookie) {
            refuse("its stack cookie has no initial value that the loader knows: " + hex(*cookie));
        }
        constexpr std::uint64_t lowBits = 0x0000FFFFFFFFFFFF;
        do {
            *cookie = (seeds.cookie != 0 ? seeds.cookie : randomNumber()) & lowBits;
        } while (*cookie == unseededCookie || *cookie == 0);
    }
    if (std::uint64_t *check = slotOf(guardCheckPointer, "control flow guard's pointer"); check && seeds.guardCheck) {
        *check = reinterpret_cast<std::uint64_t>(seeds.guardCheck);
    }
}

void MappedImage::readCallTargets() {
    const Range config = file_.directory(Directory::loadConfig);
    if (config.size == 0) {
        return;
    }
    const std::uint32_t flags = read32(file_.from(config.address), guardFlags);
    if ((flags & guardTablePresent) == 0) {
        return;
    }
    const std::uint32_t table = file_.pointerAt(config.address + guardTable);
    const std::uint64_t count = read64(file_.from(config.address), guardCount);
    const std::uint32_t entryBytes = 4 + (flags >> 28);
    for (std::uint64_t i = 0; i < count; ++i) {
        callTargets_.push_back(read32(file_.from(table), i * entryBytes));
    }
    std::sort(callTargets_.begin(), callTargets_.end());
}

void MappedImage::protect() {
    __builtin___clear_cache(reinterpret_cast<char *>(base_), reinterpret_cast<char *>(base_ + size_));
    mprotect(base_, size_, PROT_READ); // the headers
    for (const Section &section : file_.sections()) {
        const int access = (section.has(Section::read) ? PROT_READ : 0) |
                           (section.has(Section::write) ? PROT_WRITE : 0) |
                           (section.has(Section::execute) ? PROT_EXEC : 0);
        if (mprotect(base_ + section.range.address, wholePages(section.range.size), access) != 0) {
            refuse("section " + section.name + " cannot be protected");
        }
    }
}

void MappedImage::discard() {
    for (const Section &section : file_.sections()) {
        if (section.has(Section::discardable)) {
            void *start = base_ + section.range.address;
            madvise(start, wholePages(section.range.size), MADV_DONTNEED);
            mprotect(start, wholePages(section.range.size), PROT_NONE);
        }
    }
    discarded_ = true;
}

std::optional<std::uint32_t> MappedImage::relative(const void *address) const {
    const auto offset = static_cast<std::uint64_t>(static_cast<const std::uint8_t *>(address) - base_);
    return offset < size_ ? std::optional(static_cast<std::uint32_t>(offset)) : std::nullopt;
}

const Section *MappedImage::sectionAt(const void *address) const {
    const auto offset = relative(address);
    return offset ? file_.sectionAt(*offset) : nullptr;
}

bool MappedImage::isCallTarget(std::uint32_t address) const {
    return std::binary_search(callTargets_.begin(), callTargets_.end(), address);
}

} // namespace sim::image
