// The datagrams between the service API and its proxies. Numbers are in network byte order.
#ifndef KORVAIN_DEMO_WIRE_FORMAT_H_
#define KORVAIN_DEMO_WIRE_FORMAT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace demo {

// Magic number (4 bytes), sequence (8), zone id (4), table id (4).
struct RequestMessage {
  uint64_t sequence;
  int32_t zone_id;
  uint32_t table_id;
};

enum class ResponseStatus : uint8_t { OK = 0, SYSTEM_ERROR = 1 };

// Magic number (4 bytes), sequence (8), status (1).
struct ResponseMessage {
  uint64_t sequence;
  ResponseStatus status;
};

std::string Encode(const RequestMessage& request);
std::string Encode(const ResponseMessage& response);

// Nothing for bytes that are not exactly one such message.
std::optional<RequestMessage> DecodeRequest(std::string_view bytes);
std::optional<ResponseMessage> DecodeResponse(std::string_view bytes);

}  // namespace demo

#endif  // KORVAIN_DEMO_WIRE_FORMAT_H_
