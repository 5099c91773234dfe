#pragma once

#include "object.h"

#include <string>

namespace sim::framework {

/// A WDFSTRING: a NUL-terminated copy of a counted string, or no text at all.
class String : public Object {
  public:
    static constexpr ObjectType objectType = ObjectType::string;

    /// `empty`: made without a source, so that its buffer is null.
    String(Client &client, std::u16string text, bool empty, const void *callSite)
        : Object(client, objectType, callSite), text_(std::move(text)), empty_(empty) {}

    bool passiveDisposal() const override { return true; }
    const std::u16string &text() const { return text_; }
    UNICODE_STRING counted();

  private:
    std::u16string text_;
    bool empty_;
};

} // namespace sim::framework
