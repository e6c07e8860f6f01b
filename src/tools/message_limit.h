#pragma once

// Keeps warnings from flooding the screen: of each code the first ten are told, with what
// to do about it under the first one only; the others are counted. Errors and notes pass.

#include <cstdint>
#include <map>

#include "tools/message.h"

class MessageLimit {
 public:
  explicit MessageLimit(MessageSink sink) : sink_(std::move(sink)) {}

  void tell(const Message& message);
  // A note for each code whose warnings weren't all told. At the end.
  void tellRest();

 private:
  MessageSink sink_;
  std::map<MessageCode, std::uint64_t> warnings_;
};
