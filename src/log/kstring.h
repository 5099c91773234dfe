#pragma once

#include <ntifs.h>

#include "support/text.h"

/// An owned counted UTF-16 string that can be passed wherever the kernel expects a UNICODE_STRING. Its buffer carries
/// the tag "US++". Not thread-safe. Paged by default: use at APC_LEVEL or below.
class [[nodiscard]] KString {
  public:
    KString() = default;
    explicit KString(POOL_FLAGS poolFlags) : poolFlags_(poolFlags) {}
    ~KString() { freeBuffer(); }
    KString(KString &&other) noexcept;
    KString &operator=(KString &&other) noexcept;
    KString(const KString &) = delete;
    KString &operator=(const KString &) = delete;

    /// Makes room for `maximumBytes`, keeping as much of an owned text as fits. Zero or less leaves an empty string
    /// without buffer. STATUS_INSUFFICIENT_RESOURCES leaves the string as it was.
    NTSTATUS resize(LONG maximumBytes);

    /// Frees the buffer and becomes an empty string in paged pool.
    void release();

    /// Becomes empty without freeing the buffer, which somebody else owns from now on.
    void forget();

    /// Replaces the text by a copy in a buffer of exactly its length. On failure the string is unchanged.
    NTSTATUS copyFrom(const UNICODE_STRING &text);

    /// Adds text at the end; grows to exactly the new length when the room does not suffice. On failure (no memory, or
    /// STATUS_BUFFER_TOO_SMALL when the result would pass 65,535 bytes) the string is unchanged.
    NTSTATUS append(const UNICODE_STRING &text);

    /// Drops trailing NUL characters.
    void dropTrailingNuls();

    void setLength(USHORT bytes) { text_.Length = bytes; }
    void setMaximumLength(USHORT bytes) { text_.MaximumLength = bytes; }

    PWSTR buffer() const { return text_.Buffer; }
    USHORT length() const { return text_.Length; }
    USHORT maximumLength() const { return text_.MaximumLength; }
    bool empty() const { return text_.Length == 0; }
    const UNICODE_STRING &view() const { return text_; }
    PUNICODE_STRING counted() { return &text_; }
    operator const UNICODE_STRING &() const { return text_; }

  private:
    void freeBuffer();

    UNICODE_STRING text_{};
    PWSTR owned_ = nullptr;
    POOL_FLAGS poolFlags_ = POOL_FLAG_PAGED;
};

static_assert(sizeof(KString) == 0x20);
