#include "demo/common/wire_format.h"

#include <arpa/inet.h>

#include <cstring>

namespace demo {

std::string Encode(const Message& message) {
  const uint32_t words[] = {htonl(static_cast<uint32_t>(message.kind)),
                            htonl(static_cast<uint32_t>(message.id))};
  return {reinterpret_cast<const char*>(words), sizeof(words)};
}

std::optional<Message> Decode(std::string_view bytes) {
  uint32_t words[2];
  if (bytes.size() != sizeof(words)) return std::nullopt;
  std::memcpy(words, bytes.data(), sizeof(words));
  const auto kind = static_cast<MessageKind>(ntohl(words[0]));
  switch (kind) {
    case MessageKind::REQUEST:
    case MessageKind::RESPONSE:
    case MessageKind::SYSTEM_ERROR:
      return Message{kind, static_cast<int32_t>(ntohl(words[1]))};
  }
  return std::nullopt;
}

}  // namespace demo
