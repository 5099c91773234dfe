#include "control_flow.h"

#include <array>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>

namespace {

/// What is known of a register's value.
struct Value {
    enum class Kind { unknown, address, flag, logger, level } kind = Kind::unknown;
    std::uint32_t address = 0;
    bool operator==(const Value &) const = default;
};

/// What is known at one instruction.
struct State {
    std::array<Value, 32> registers{};
    std::optional<std::int32_t> comparedLevel; ///< the level was compared with this last
    bool operator==(const State &) const = default;

    /// Keeps what is known on both ways. True when this changed.
    bool meet(const State &other) {
        const State before = *this;
        for (std::size_t i = 0; i < registers.size(); ++i) {
            if (!(registers[i] == other.registers[i])) {
                registers[i] = {};
            }
        }
        if (comparedLevel != other.comparedLevel) {
            comparedLevel.reset();
        }
        return !(before == *this);
    }
};

std::int32_t signExtend(std::uint32_t value, unsigned bits) {
    const std::uint32_t sign = 1u << (bits - 1);
    return static_cast<std::int32_t>((value ^ sign) - sign);
}

/// One instruction, as far as it matters here.
class Instruction {
  public:
    Instruction(std::uint32_t address, std::uint32_t word) : address_(address), word_(word) {}

    bool isCall() const { return is(0xFC000000, 0x94000000) || is(0xFFFFFC1F, 0xD63F0000); }
    bool isJump() const { return is(0xFC000000, 0x14000000); }
    bool isEnd() const { // b, br, ret, brk
        return isJump() || is(0xFFFFFC1F, 0xD61F0000) || is(0xFFFFFC1F, 0xD65F0000) || is(0xFFE0001F, 0xD4200000);
    }
    bool isCompareAndBranch() const { return is(0x7E000000, 0x34000000); }
    bool isTestAndBranch() const { return is(0x7E000000, 0x36000000); }
    bool isConditionalBranch() const { return is(0xFF000010, 0x54000000); }
    bool branchesWhenSet() const { return (word_ >> 24 & 1) != 0; } ///< cbnz, tbnz
    unsigned condition() const { return word_ & 15; }
    unsigned target5() const { return word_ & 31; }

    std::optional<std::uint32_t> directTarget() const {
        if (is(0x7C000000, 0x14000000)) {
            return at(signExtend(word_ & 0x3FFFFFF, 26));
        }
        if (isCompareAndBranch() || isConditionalBranch()) {
            return at(signExtend(word_ >> 5 & 0x7FFFF, 19));
        }
        if (isTestAndBranch()) {
            return at(signExtend(word_ >> 5 & 0x3FFF, 14));
        }
        return std::nullopt;
    }

    void apply(State &state, const LogVariables &log) const {
        auto &registers = state.registers;
        if (isCall()) {
            for (unsigned i = 0; i <= 18; ++i) {
                registers[i] = {};
            }
            registers[30] = {};
            state.comparedLevel.reset();
            return;
        }
        if (isEnd() || isCompareAndBranch() || isTestAndBranch() || isConditionalBranch()) {
            return;
        }
        const unsigned destination = word_ & 31;
        const Value base = registers[word_ >> 5 & 31];
        const std::uint32_t immediate = word_ >> 10 & 0xFFF;
        if (is(0x7F80001F, 0x7100001F)) { // cmp w, #immediate
            state.comparedLevel.reset();
            if (base.kind == Value::Kind::level) {
                state.comparedLevel = static_cast<std::int32_t>(immediate);
            }
            return;
        }
        if (is(0x5F000000, 0x51000000) || is(0x1F200000, 0x0B000000) || is(0x7F800000, 0x72000000)) {
            if ((word_ >> 29 & 1) != 0) { // sets the flags
                state.comparedLevel.reset();
            }
        }
        Value result;
        if (is(0x9F000000, 0x90000000)) { // adrp
            const std::uint32_t pages = (word_ >> 29 & 3) | (word_ >> 5 & 0x7FFFF) << 2;
            result = {Value::Kind::address, (address_ & ~0xFFFu) + (pages << 12)};
        } else if (is(0xFFE0FFE0, 0xAA0003E0)) { // mov x, x
            result = registers[word_ >> 16 & 31];
        } else if (is(0xFFC00000, 0x91000000) && base.kind == Value::Kind::address) { // add x, x, #immediate
            result = {Value::Kind::address, base.address + immediate};
        } else if (is(0xFFC00000, 0x39400000) && base.kind == Value::Kind::address) { // ldrb
            result.kind = base.address + immediate == log.flag ? Value::Kind::flag : Value::Kind::unknown;
        } else if (is(0xFFC00000, 0xF9400000) && base.kind == Value::Kind::address) { // ldr x
            result.kind = base.address + immediate * 8 == log.logger ? Value::Kind::logger : Value::Kind::unknown;
        } else if (is(0xFFC00000, 0xB9400000) && base.kind == Value::Kind::logger) { // ldr w
            result.kind = immediate * 4 == log.levelOffset ? Value::Kind::level : Value::Kind::unknown;
        } else if (isStore()) {
            return;
        }
        registers[destination] = result;
        if (is(0x3A000000, 0x28000000)) { // a pair
            registers[word_ >> 10 & 31] = {};
        }
    }

    /// Whether the branch is taken; nothing when it may go both ways.
    std::optional<bool> decided(const State &state, LogState log) const {
        if (log == LogState::enabled) {
            return std::nullopt;
        }
        if ((isCompareAndBranch() || isTestAndBranch()) && state.registers[target5()].kind == Value::Kind::flag) {
            const bool set = log == LogState::lowLevel;
            return branchesWhenSet() == set;
        }
        if (isConditionalBranch() && state.comparedLevel && log == LogState::lowLevel) {
            const std::int32_t limit = *state.comparedLevel;
            switch (condition()) {
            case 10: // ge
                return 0 >= limit;
            case 11: // lt
                return 0 < limit;
            case 12: // gt
                return 0 > limit;
            case 13: // le
                return 0 <= limit;
            default:
                return std::nullopt;
            }
        }
        return std::nullopt;
    }

  private:
    bool is(std::uint32_t mask, std::uint32_t value) const { return (word_ & mask) == value; }
    std::uint32_t at(std::int32_t words) const { return address_ + static_cast<std::uint32_t>(words) * 4; }
    /// Stores of one register or a pair, whose lowest bits name a source.
    bool isStore() const {
        return is(0x3B400000, 0x39000000) || is(0x3B600000, 0x38000000) || is(0x3A400000, 0x28000000);
    }

    std::uint32_t address_;
    std::uint32_t word_;
};

Instruction instructionAt(const PeFile &image, std::uint32_t address) {
    return {address, read32(image.from(address), 0)};
}

} // namespace

std::map<std::string, std::uint32_t> readMap(const std::filesystem::path &path, std::uint64_t base) {
    std::ifstream file(path);
    std::map<std::string, std::uint32_t> symbols;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string place;
        std::string name;
        std::string address;
        // " 0001:0000c17c   name   000000014000d17c   object"
        if (words >> place >> name >> address && place.size() == 13 && place[4] == ':' && address.size() == 16) {
            const std::uint64_t absolute = std::stoull(address, nullptr, 16);
            if (absolute > base) {
                symbols[name] = static_cast<std::uint32_t>(absolute - base);
            }
        }
    }
    if (symbols.empty()) {
        throw std::runtime_error(path.string() + ": no symbols");
    }
    return symbols;
}

namespace {

/// What is known before each instruction that can run.
std::map<std::uint32_t, State> statesOf(const PeFile &image, Range range, const LogVariables &log, LogState logState) {
    std::map<std::uint32_t, State> states{{range.address, State{}}};
    std::vector<std::uint32_t> work{range.address};
    const auto flowTo = [&](std::uint32_t address, const State &state) {
        if (!range.contains(address)) {
            return; // another function
        }
        const auto [found, isNew] = states.try_emplace(address, state);
        if (isNew || found->second.meet(state)) {
            work.push_back(address);
        }
    };
    while (!work.empty()) {
        const std::uint32_t address = work.back();
        work.pop_back();
        State state = states.at(address);
        const Instruction instruction = instructionAt(image, address);
        const std::optional<bool> taken = instruction.decided(state, logState);
        instruction.apply(state, log);
        const std::optional<std::uint32_t> target = instruction.isCall() ? std::nullopt : instruction.directTarget();
        if (target && taken != false) {
            flowTo(*target, state);
        }
        if (!instruction.isEnd() && taken != true) {
            flowTo(address + 4, state);
        }
    }
    return states;
}

/// Walks from the branch that asks the flag to the one that asks the level, the flag being set.
LogGuard followGuard(const PeFile &image, const std::map<std::uint32_t, State> &states, std::uint32_t flagBranch) {
    constexpr std::size_t longest = 32;
    LogGuard guard;
    guard.flagBranch = flagBranch;
    std::uint32_t address = flagBranch;
    while (guard.instructions < longest && states.contains(address)) {
        const Instruction instruction = instructionAt(image, address);
        const std::optional<bool> taken = instruction.decided(states.at(address), LogState::lowLevel);
        ++guard.instructions;
        if (instruction.isConditionalBranch() && taken) {
            guard.levelBranch = address;
            if (*taken) {
                guard.skipsTo = instruction.directTarget();
            }
            return guard;
        }
        const bool isBranch =
            instruction.isConditionalBranch() || instruction.isCompareAndBranch() || instruction.isTestAndBranch();
        if (instruction.isCall() || (isBranch && !taken) || (instruction.isEnd() && !instruction.isJump())) {
            return guard;
        }
        address = instruction.isJump() || taken == true ? *instruction.directTarget() : address + 4;
    }
    return guard;
}

} // namespace

std::set<std::uint32_t> reachable(const PeFile &image, Range range, const LogVariables &log, LogState state) {
    std::set<std::uint32_t> reached;
    for (const auto &[address, known] : statesOf(image, range, log, state)) {
        reached.insert(address);
    }
    return reached;
}

std::vector<LogGuard> logGuards(const PeFile &image, Range range, const LogVariables &log) {
    const std::map<std::uint32_t, State> states = statesOf(image, range, log, LogState::lowLevel);
    std::vector<LogGuard> guards;
    for (const auto &[address, state] : states) {
        const Instruction instruction = instructionAt(image, address);
        if (!instruction.isConditionalBranch() && instruction.decided(state, LogState::lowLevel)) {
            guards.push_back(followGuard(image, states, address));
        }
    }
    return guards;
}

bool runsOn(const PeFile &image, std::uint32_t address) {
    return !instructionAt(image, address).isEnd();
}

std::vector<std::uint32_t> transfersTo(const PeFile &image, Range range, const std::set<std::uint32_t> &targets) {
    std::vector<std::uint32_t> found;
    for (std::uint32_t address = range.address; range.contains(address); address += 4) {
        const std::optional<std::uint32_t> target = instructionAt(image, address).directTarget();
        if (target && targets.contains(*target)) {
            found.push_back(address);
        }
    }
    return found;
}
