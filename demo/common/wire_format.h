// The datagrams between the service API and its proxies: kind and id, in network byte order.
#ifndef KORVAIN_DEMO_WIRE_FORMAT_H_
#define KORVAIN_DEMO_WIRE_FORMAT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace demo {

enum class MessageKind : uint32_t {
  REQUEST = 0x4B565251,       // "KVRQ"
  RESPONSE = 0x4B565253,      // "KVRS"
  SYSTEM_ERROR = 0x4B565245,  // "KVRE", a response
};

struct Message {
  MessageKind kind;
  int32_t id;  // of the request
};

std::string Encode(const Message& message);

// Nothing for bytes that are not exactly one message.
std::optional<Message> Decode(std::string_view bytes);

}  // namespace demo

#endif  // KORVAIN_DEMO_WIRE_FORMAT_H_
