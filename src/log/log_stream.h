#pragma once

#include <ntifs.h>

#include "log/log_level.h"

/// One log line under construction, or a path: a growable UTF-16 buffer with appends that never report failure.
/// Out of memory, the stream goes dead and keeps the text it has. Belongs to one thread; IRQL <= DISPATCH_LEVEL with
/// non-paged flags.
class [[nodiscard]] LogStream {
  public:
    /// A line with its header: local time, level name, one blank.
    explicit LogStream(LogLevel level);
    /// An empty stream without header.
    explicit LogStream(POOL_FLAGS poolFlags);
    ~LogStream();
    LogStream(const LogStream &) = delete;
    LogStream &operator=(const LogStream &) = delete;

    /// The primitive on which every append rests. Nothing happens for a null pointer, no bytes, or a dead stream.
    LogStream &append(const WCHAR *characters, ULONG64 bytes);
    LogStream &append(const WCHAR *terminated);
    LogStream &append(const UNICODE_STRING &text);

    /// Numbers in the current radix. One name per type, so that a call means the same with every set of headers.
    LogStream &appendUnsigned64(ULONG64 value);
    LogStream &appendUnsigned32(ULONG value);
    LogStream &appendUnsigned16(USHORT value);
    LogStream &appendSigned16(SHORT value);
    /// Never returns for a negative value while the radix is 16: it waits for the radix to become 10. For decimal
    /// lines only.
    LogStream &appendSigned32(LONG value);
    /// The form for status codes: a negative value in radix 16 is written as unsigned 32-bit.
    LogStream &appendStatus(const LONG &value);

    /// Every later number of this stream is hexadecimal.
    LogStream &setHex();
    /// Field width of the next append only, in characters; shorter text is padded with zeros on the left.
    LogStream &setWidth(ULONG64 characters);

    /// Ends the line with CR LF and hands it to the log writer's worker thread. The stream is dead afterwards.
    void submit();

    bool failed() const { return failed_ != 0; }
    const WCHAR *text() const { return text_; }
    ULONG64 length() const { return length_; }     ///< bytes
    ULONG64 capacity() const { return capacity_; } ///< bytes
    /// The text as a counted string; it is followed by a NUL. Texts over 65,534 bytes are cut.
    UNICODE_STRING counted() const;

    /// Deletes a stream that submit() handed to the writer.
    static void destroySubmitted(LogStream *record);

  private:
    LogStream *moveToRecord();
    void freeText();
    bool reserve(ULONG64 bytes);
    LogStream &appendNumber(ULONG64 magnitude, bool negative);
    void appendHeader(LogLevel level);

    POOL_FLAGS poolFlags_;
    PWSTR text_ = nullptr;
    ULONG64 capacity_ = 0;
    ULONG64 length_ = 0;
    LONG radix_ = 10;
    UCHAR failed_ = 0;
    ULONG64 width_ = 0;
};
