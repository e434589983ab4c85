// The datagrams between the service API and its proxies: kind and id, in network byte order.
#ifndef KORVAIN_DEMO_WIRE_FORMAT_H_
#define KORVAIN_DEMO_WIRE_FORMAT_H_

#include <arpa/inet.h>

#include <cstdint>
#include <cstring>
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

inline std::string Encode(const Message& message) {
  const uint32_t words[] = {htonl(static_cast<uint32_t>(message.kind)),
                            htonl(static_cast<uint32_t>(message.id))};
  return {reinterpret_cast<const char*>(words), sizeof(words)};
}

// Nothing for bytes that are not exactly one message.
inline std::optional<Message> Decode(std::string_view bytes) {
  uint32_t words[2];
  if (bytes.size() != sizeof(words)) return std::nullopt;
  std::memcpy(words, bytes.data(), sizeof(words));
  const Message message{MessageKind{ntohl(words[0])}, static_cast<int32_t>(ntohl(words[1]))};
  const bool is_known = message.kind == MessageKind::REQUEST ||
                        message.kind == MessageKind::RESPONSE ||
                        message.kind == MessageKind::SYSTEM_ERROR;
  return is_known ? std::optional(message) : std::nullopt;
}

}  // namespace demo

#endif  // KORVAIN_DEMO_WIRE_FORMAT_H_
