#pragma once

#include "simulator/kernel/io.h"
#include "simulator/kernel/kernel.h"
#include "simulator/kernel/strings.h"
#include "simulator/kernel/thread.h"
#include "simulator/kernel/violation.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <string_view>

namespace sim::test {

/// Thrown in place of a bug check, so that a test can look at it and go on.
struct Stopped : std::runtime_error {
    explicit Stopped(const Violation &stopping)
        : std::runtime_error("[" + stopping.rule + "] " + stopping.routine + ": " + stopping.message),
          violation(stopping) {}
    Violation violation;
};

/// A counted string over its own copy of the text.
class Text {
  public:
    explicit Text(std::u16string_view text) : units_(text) {
        const auto bytes = static_cast<USHORT>(units_.size() * sizeof(WCHAR));
        string_ = {bytes, static_cast<USHORT>(bytes + sizeof(WCHAR)), reinterpret_cast<PWCH>(units_.data())};
    }
    Text(const Text &) = delete;
    Text &operator=(const Text &) = delete;
    PUNICODE_STRING operator&() { return &string_; }
    UNICODE_STRING &get() { return string_; }
    PWSTR terminated() { return string_.Buffer; }

  private:
    std::u16string units_;
    UNICODE_STRING string_{};
};

inline PCWSTR wide(const char16_t *text) {
    return reinterpret_cast<PCWSTR>(text);
}

/// A kernel of its own for every test; bug checks become exceptions.
class KernelTest : public testing::Test {
  protected:
    KernelTest() {
        setBugCheckHandler([](const Violation &violation) { throw Stopped(violation); });
    }
    ~KernelTest() override {
        setBugCheckHandler({});
        currentThread() = KernelThread{};
    }

    /// The rule that `action` broke, "" when it broke none.
    template<typename Action>
    static std::string stoppedBy(Action action) {
        try {
            action();
        } catch (const Stopped &stopped) {
            return stopped.violation.rule;
        }
        return {};
    }

    /// The same while the thread runs at a raised IRQL.
    template<typename Action>
    static std::string stoppedAt(KIRQL irql, Action action) {
        const KIRQL before = currentThread().irql;
        currentThread().irql = irql;
        const std::string rule = stoppedBy(action);
        currentThread().irql = before;
        return rule;
    }

    Kernel kernel{{}, false};
};

} // namespace sim::test
