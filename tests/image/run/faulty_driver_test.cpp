// An image's mistakes end the run with a message that names the place in its sources. Runs on ARM64 only.

#include "mistakes.h"
#include "simulator/kernel/kernel.h"
#include "simulator/machine/machine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>
#include <string>

using namespace sim;

namespace {

MachineOptions withFaultyDriver() {
    MachineOptions options;
    options.driver = FAULTY_IMAGE;
    return options;
}

/// A machine whose driver is told what to do.
class FaultyMachine {
  public:
    explicit FaultyMachine(Mistake mistake) {
        machine_.kernel().registry.setDword(Machine::serviceKey(), u"Mistake", static_cast<std::uint32_t>(mistake));
    }
    Machine &get() { return machine_; }

  private:
    Machine machine_{withFaultyDriver()};
};

void loadAndUnload(Mistake mistake) {
    FaultyMachine machine(mistake);
    machine.get().loadDriver();
    machine.get().unloadDriver();
}

void loadWithoutMemory(Mistake mistake) {
    FaultyMachine machine(mistake);
    machine.get().kernel().faults.failNamed("FsRtlIsNameInExpression", 1, std::nullopt, true);
    machine.get().kernel().faults.arm(true);
    machine.get().loadDriver();
}

/// "faulty_driver.cpp:17" for the line that ends in the comment "line of NAME".
std::string placeOf(const std::string &name) {
    std::ifstream source(FAULTY_SOURCE);
    std::string line;
    for (int number = 1; std::getline(source, line); ++number) {
        if (line.ends_with("// line of " + name)) {
            return "faulty_driver.cpp:" + std::to_string(number) + "\\)";
        }
    }
    throw std::logic_error("no line of " + name);
}

TEST(FaultyImage, RunsWhenItMakesNoMistake) {
    FaultyMachine machine(Mistake::none);
    EXPECT_EQ(machine.get().loadDriver(), STATUS_SUCCESS);
    EXPECT_TRUE(machine.get().unloadDriver());
}

TEST(FaultyImageDeathTest, BadPointersAreNamedWithTheirPlace) {
    EXPECT_DEATH(loadAndUnload(Mistake::nearNull),
                 "bad pointer.*address 0x8 was touched(.|\n)*readNear.*" + placeOf("nearNull"));
    EXPECT_DEATH(loadAndUnload(Mistake::kernelPointer),
                 "bad pointer.*address 0x10 was touched(.|\n)*" + placeOf("kernelPointer"))
        << "a routine of the kernel met it";
}

TEST(FaultyImageDeathTest, WritingToConstantsIsABadPointer) {
    EXPECT_DEATH(loadAndUnload(Mistake::constant),
                 "bad pointer.*section \\.rdata, which is read-only(.|\n)*" + placeOf("constant"));
}

TEST(FaultyImageDeathTest, CodeOfTheStartIsGoneAfterIt) {
    EXPECT_DEATH(loadAndUnload(Mistake::discarded), "bad pointer.*section INIT, which was discarded");
}

TEST(FaultyImageDeathTest, FastFailsAreNamed) {
    EXPECT_DEATH(loadAndUnload(Mistake::fastFail),
                 "fast fail.*code 3 \\(corrupt list entry\\), bug check 0x139(.|\n)*" + placeOf("fastFail"));
    EXPECT_DEATH(loadAndUnload(Mistake::stackOverrun), "fast fail.*code 2 \\(stack cookie\\)");
    EXPECT_DEATH(loadAndUnload(Mistake::unreachable), "trap.*unreachable(.|\n)*" + placeOf("unreachable"));
}

TEST(FaultyImageDeathTest, AnIndexPastTheFunctionTableIsNamed) {
    EXPECT_DEATH(loadAndUnload(Mistake::pastTable),
                 "bad pointer.*entry 451 of the framework's function table, which has 444(.|\n)*" +
                     placeOf("pastTable"));
}

TEST(FaultyImageDeathTest, ACallIntoTheMiddleOfAFunctionIsCaught) {
    EXPECT_DEATH(loadAndUnload(Mistake::callTarget), "control flow guard(.|\n)*" + placeOf("callTarget"));
}

TEST(FaultyImageDeathTest, AnExceptionThatNobodyHandlesIsABugCheck) {
    EXPECT_DEATH(loadWithoutMemory(Mistake::unhandled),
                 "unhandled exception.*0xc0000017.*bug check 0x1E(.|\n)*" + placeOf("unhandled"));
    EXPECT_DEATH(loadWithoutMemory(Mistake::outsideOfBlock), "unhandled exception.*0xc0000017");
}

TEST(FaultyImage, HandlesAnExceptionFromFurtherDown) {
    FaultyMachine machine(Mistake::handled);
    machine.get().kernel().faults.failNamed("FsRtlIsNameInExpression", 1, std::nullopt, true);
    machine.get().kernel().faults.arm(true);
    EXPECT_EQ(machine.get().loadDriver(), STATUS_NO_MEMORY) << "the code of the exception, registers kept";
}

} // namespace
