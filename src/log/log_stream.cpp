#include "log/log_stream.h"

#include "log/log_writer.h"
#include "support/placement_new.h"
#include "support/pool_memory.h"

namespace {

constexpr ULONG64 firstCapacity = 2048;
constexpr ULONG64 spareBytes = 2; // room for the NUL behind the text

} // namespace

LogStream::LogStream(LogLevel level) : poolFlags_(POOL_FLAG_NON_PAGED) {
    appendHeader(level);
}

LogStream::LogStream(POOL_FLAGS poolFlags) : poolFlags_(poolFlags) {}

LogStream::~LogStream() {
    freeText();
}

LogStream &LogStream::append(const WCHAR *characters, ULONG64 bytes) {
    if (characters == nullptr || bytes == 0 || failed()) {
        return *this;
    }
    const ULONG64 needed = bytes > width_ ? bytes : width_;
    if (!reserve(needed)) {
        return *this;
    }
    auto *end = reinterpret_cast<PUCHAR>(text_) + length_;
    if (width_ == 0) {
        RtlCopyMemory(end, characters, bytes);
        length_ += bytes;
        return *this;
    }
    for (ULONG64 padded = 0; padded + bytes < width_; padded += sizeof(WCHAR)) {
        text_[(length_ + padded) / sizeof(WCHAR)] = L'0';
    }
    // A value longer than the width ends where the field ends, over the end of what precedes it. On an empty stream
    // there is nothing before it to overwrite, so only what fits is placed.
    const ULONG64 fieldEnd = length_ + width_;
    const ULONG64 placed = bytes < fieldEnd ? bytes : fieldEnd;
    RtlCopyMemory(reinterpret_cast<PUCHAR>(text_) + fieldEnd - placed,
                  reinterpret_cast<const UCHAR *>(characters) + bytes - placed, placed);
    length_ = fieldEnd;
    width_ = 0;
    return *this;
}

LogStream &LogStream::append(const WCHAR *terminated) {
    if (terminated == nullptr) {
        return *this;
    }
    ULONG64 count = 0;
    while (terminated[count] != L'\0') {
        ++count;
    }
    return append(terminated, count * sizeof(WCHAR));
}

LogStream &LogStream::append(const UNICODE_STRING &text) {
    return append(text.Buffer, text.Length & ~ULONG64{1});
}

LogStream &LogStream::setWidth(ULONG64 characters) {
    width_ = characters * sizeof(WCHAR);
    return *this;
}

bool LogStream::reserve(ULONG64 bytes) {
    if (length_ + bytes + spareBytes <= capacity_) {
        return true;
    }
    const ULONG64 capacity =
        capacity_ == 0 && bytes + spareBytes < firstCapacity ? firstCapacity : (capacity_ + bytes + 1) * 2;
    const ULONG64 allocation = capacity > ~ULONG64{0} / 2 ? ~ULONG64{0} : capacity * 2;
    auto *grown = static_cast<PWSTR>(ExAllocatePool2(poolFlags_, allocation, generalPoolTag));
    if (grown == nullptr) {
        failed_ = 1;
        return false;
    }
    RtlZeroMemory(grown, capacity);
    if (text_ != nullptr) {
        RtlCopyMemory(grown, text_, length_);
        ExFreePoolWithTag(text_, generalPoolTag);
    }
    text_ = grown;
    capacity_ = capacity;
    return true;
}

void LogStream::appendHeader(LogLevel level) {
    LARGE_INTEGER systemTime;
    LARGE_INTEGER localTime;
    TIME_FIELDS fields;
    KeQuerySystemTimePrecise(&systemTime);
    ExSystemTimeToLocalTime(&systemTime, &localTime);
    RtlTimeToTimeFields(&localTime, &fields);

    appendSigned16(fields.Year).append(L"-");
    setWidth(2).appendSigned16(fields.Month).append(L"-");
    setWidth(2).appendSigned16(fields.Day).append(L" ");
    appendSigned16(fields.Hour).append(L":"); // on purpose without a width
    setWidth(2).appendSigned16(fields.Minute).append(L":");
    setWidth(2).appendSigned16(fields.Second).append(L".");
    setWidth(3).appendSigned16(fields.Milliseconds).append(L" ");
    append(logLevelName(level)).append(L" ");
}

void LogStream::submit() {
    append(L"\r\n");
    if (LogStream *record = moveToRecord(); record != nullptr) {
        queueLogRecord(record);
    }
    freeText(); // what a failed move left
    failed_ = 1;
}

void LogStream::freeText() {
    if (text_ != nullptr) {
        ExFreePoolWithTag(text_, generalPoolTag);
        text_ = nullptr;
    }
    capacity_ = 0;
    length_ = 0;
}

LogStream *LogStream::moveToRecord() {
    void *memory = ExAllocatePool2(POOL_FLAG_NON_PAGED, sizeof(LogStream), generalPoolTag);
    if (memory == nullptr) {
        return nullptr;
    }
    auto *record = new (InPlace{memory}) LogStream(poolFlags_);
    record->text_ = text_;
    record->capacity_ = capacity_;
    record->length_ = length_;
    record->radix_ = radix_;
    record->failed_ = failed_;
    record->width_ = width_;
    text_ = nullptr;
    capacity_ = 0;
    length_ = 0;
    width_ = 0;
    failed_ = 1;
    poolFlags_ = POOL_FLAG_PAGED;
    return record;
}

void LogStream::destroySubmitted(LogStream *record) {
    record->~LogStream();
    ExFreePoolWithTag(record, generalPoolTag);
}

UNICODE_STRING LogStream::counted() const {
    constexpr ULONG64 longest = 0xFFFE;
    const auto bytes = static_cast<USHORT>(length_ < longest ? length_ : longest);
    return UNICODE_STRING{bytes, bytes, text_};
}
