#include "log/kstring.h"

#include "support/pool_memory.h"

namespace {

constexpr ULONG longestText = 0xFFFF; // what a UNICODE_STRING can count

} // namespace

KString::KString(KString &&other) noexcept : text_(other.text_), owned_(other.owned_), poolFlags_(other.poolFlags_) {
    other.forget();
}

KString &KString::operator=(KString &&other) noexcept {
    if (this != &other) {
        freeBuffer();
        text_ = other.text_;
        owned_ = other.owned_;
        poolFlags_ = other.poolFlags_;
        other.forget();
    }
    return *this;
}

NTSTATUS KString::resize(LONG maximumBytes) {
    PWSTR fresh = nullptr;
    if (maximumBytes > 0) {
        fresh = static_cast<PWSTR>(ExAllocatePool2(poolFlags_, static_cast<SIZE_T>(maximumBytes), stringPoolTag));
        if (fresh == nullptr) {
            return STATUS_INSUFFICIENT_RESOURCES;
        }
    }
    USHORT kept = 0;
    if (owned_ != nullptr) {
        if (fresh != nullptr) {
            kept = text_.Length < maximumBytes ? text_.Length : static_cast<USHORT>(maximumBytes);
            RtlCopyMemory(fresh, owned_, kept);
        }
        freeBuffer();
    }
    owned_ = fresh;
    text_.Buffer = fresh;
    text_.Length = kept;
    text_.MaximumLength = fresh != nullptr ? static_cast<USHORT>(maximumBytes) : 0;
    return STATUS_SUCCESS;
}

void KString::release() {
    freeBuffer();
    text_ = UNICODE_STRING{};
    poolFlags_ = POOL_FLAG_PAGED;
}

void KString::forget() {
    text_ = UNICODE_STRING{};
    owned_ = nullptr;
}

NTSTATUS KString::copyFrom(const UNICODE_STRING &text) {
    KString copy(poolFlags_);
    const NTSTATUS status = copy.resize(text.Length);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (text.Length > 0) {
        RtlCopyMemory(copy.text_.Buffer, text.Buffer, text.Length);
        copy.text_.Length = text.Length;
    }
    *this = static_cast<KString &&>(copy);
    return STATUS_SUCCESS;
}

NTSTATUS KString::append(const UNICODE_STRING &text) {
    if (text.Length == 0) {
        return STATUS_SUCCESS;
    }
    const ULONG total = ULONG{text_.Length} + text.Length;
    if (total > longestText) {
        return STATUS_BUFFER_TOO_SMALL;
    }
    if (total > text_.MaximumLength) {
        const NTSTATUS status = resize(static_cast<LONG>(total));
        if (!NT_SUCCESS(status)) {
            return status;
        }
    }
    RtlCopyMemory(reinterpret_cast<PUCHAR>(text_.Buffer) + text_.Length, text.Buffer, text.Length);
    text_.Length = static_cast<USHORT>(total);
    return STATUS_SUCCESS;
}

void KString::dropTrailingNuls() {
    text_.Length = withoutTrailingNuls(text_).Length;
}

void KString::freeBuffer() {
    if (owned_ != nullptr) {
        ExFreePoolWithTag(owned_, stringPoolTag);
        owned_ = nullptr;
    }
}
