// Compile-time comparison of declarations with the values of 64-bit Windows.
#pragma once

// A structure of `bytes` bytes.
#define CHECK_SIZE(Type, bytes) static_assert(sizeof(Type) == (bytes))

// A member at byte `offset` that is `bytes` long; `member` may name a path.
#define CHECK_FIELD(Type, offset, bytes, member)                                                                       \
    static_assert(__builtin_offsetof(Type, member) == (offset));                                                       \
    static_assert(sizeof(((Type *)nullptr)->member) == (bytes))

// A constant or enumerator, compared as 32 bits without sign.
#define CHECK_VALUE(name, value) static_assert(static_cast<unsigned>(name) == (value))

// The type of a function, a pointer to function or a variable.
#define CHECK_TYPE(entity, ...) static_assert(__is_same(decltype(entity), __VA_ARGS__))
#define CHECK_SAME(Type, ...) static_assert(__is_same(Type, __VA_ARGS__))
