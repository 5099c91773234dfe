// Compile-time comparison of declarations with the values of 64-bit Windows. Every macro is one fact.
//
// Who compiles an assertion file proves its facts. Two other readings serve tools/check_headers.py: with CHECK_LIST the
// preprocessor tells where each fact stands, and with CHECK_FOLDED a fact is proved by what the optimiser makes of it,
// since the official headers store through functions that are not constexpr.
#pragma once

#if defined(CHECK_LIST)
#define CHECK(...) @fact __FILE__ __LINE__
#define CHECK_STORED(Structure, call, condition) CHECK()
#elif defined(CHECK_FOLDED)
#define CHECK(...) CHECK_NUMBERED(__COUNTER__, __VA_ARGS__)
#define CHECK_NUMBERED(number, ...) CHECK_NAMED(number, __VA_ARGS__)
#define CHECK_NAMED(number, ...)                                                                                       \
    __attribute__((used)) static void fact##number() {                                                                 \
        if (!(__VA_ARGS__)) {                                                                                          \
            factDiffers();                                                                                             \
        }                                                                                                              \
    }
#define CHECK_STORED(Structure, call, condition)                                                                       \
    CHECK([] {                                                                                                         \
        Structure it{};                                                                                                \
        call;                                                                                                          \
        return condition;                                                                                              \
    }())
__attribute__((error("the fact does not hold"))) void factDiffers();
#else
// Whatever the other macros can't say.
#define CHECK(...) static_assert(__VA_ARGS__)

// What `it`, a zeroed Structure, holds after a call.
#define CHECK_STORED(Structure, call, condition)                                                                       \
    static_assert([] {                                                                                                 \
        Structure it{};                                                                                                \
        call;                                                                                                          \
        return condition;                                                                                              \
    }())
#endif

// A structure of `bytes` bytes.
#define CHECK_SIZE(Type, bytes) CHECK(sizeof(Type) == (bytes))

// A member at byte `offset` that is `bytes` long; `member` may name a path.
#define CHECK_FIELD(Type, offset, bytes, member)                                                                       \
    CHECK(__builtin_offsetof(Type, member) == (offset) && sizeof(((Type *)nullptr)->member) == (bytes))

// A constant or enumerator, compared as 32 bits without sign.
#define CHECK_VALUE(name, value) CHECK(static_cast<unsigned>(name) == (value))

// The type of a function, a pointer to function or a variable.
#define CHECK_TYPE(entity, ...) CHECK(__is_same(decltype(entity), __VA_ARGS__))
#define CHECK_SAME(Type, ...) CHECK(__is_same(Type, __VA_ARGS__))
