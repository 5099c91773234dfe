#include "code_address.h"

#include "elf_symbols.h"

#include <cstdlib>
#include <cxxabi.h>
#include <dlfcn.h>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>

namespace sim {

namespace {

struct Describer {
    std::mutex mutex;
    CodeDescriber function;
    std::map<std::string, std::unique_ptr<ElfSymbols>> modules; ///< symbol tables already read, by path
};

Describer &describer() {
    static Describer instance;
    return instance;
}

std::string fileName(const std::string &path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

/// The readable name of a mangled one, without its parameters.
std::string readable(const std::string &symbol) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void *)> text{abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status),
                                                       std::free};
    if (status != 0) {
        return symbol;
    }
    return withoutParameters(text.get());
}

} // namespace

std::string withoutParameters(std::string name) {
    constexpr std::string_view qualifier = " const";
    if (name.ends_with(qualifier)) {
        name.resize(name.size() - qualifier.size());
    }
    // The parameter list is the last balanced pair of parentheses; others can stand in the name itself.
    std::size_t at = name.size();
    for (int depth = 0; name.ends_with(')') && at != 0;) {
        --at;
        depth += name[at] == ')' ? 1 : name[at] == '(' ? -1 : 0;
        if (depth == 0) {
            break;
        }
    }
    name.resize(at);
    return name;
}

void setCodeDescriber(CodeDescriber function) {
    std::lock_guard lock(describer().mutex);
    describer().function = std::move(function);
}

std::string describeCodeAddress(const void *address) {
    if (address == nullptr) {
        return "unknown";
    }
    std::lock_guard lock(describer().mutex);
    if (describer().function) {
        if (auto text = describer().function(address)) {
            return *text;
        }
    }
    Dl_info info{};
    if (dladdr(address, &info) == 0 || info.dli_fname == nullptr) {
        return hex(reinterpret_cast<std::uintptr_t>(address));
    }
    const std::string module = fileName(info.dli_fname);
    const std::uint64_t offset = static_cast<const char *>(address) - static_cast<const char *>(info.dli_fbase);
    auto &symbols = describer().modules[info.dli_fname];
    if (!symbols) {
        symbols = std::make_unique<ElfSymbols>(info.dli_fname);
    }
    // The linker's preferred base of a position-independent module is 0, so that values are offsets already.
    if (const ElfSymbols::Function *function = symbols->find(offset)) {
        return module + "!" + readable(function->name) + "+" + hex(offset - function->address);
    }
    if (info.dli_sname != nullptr) {
        const std::uint64_t inside = static_cast<const char *>(address) - static_cast<const char *>(info.dli_saddr);
        return module + "!" + readable(info.dli_sname) + "+" + hex(inside);
    }
    return module + "+" + hex(offset);
}

} // namespace sim
