#include "demo/common/wire_format.h"

#include <cstddef>

namespace demo {

namespace {

constexpr uint32_t REQUEST_MAGIC = 0x4B565251;   // "KVRQ"
constexpr uint32_t RESPONSE_MAGIC = 0x4B565253;  // "KVRS"

std::string ToBytes(uint64_t number, size_t size) {
  std::string bytes;
  for (size_t i = size; i > 0; --i) bytes += static_cast<char>(number >> 8 * (i - 1));
  return bytes;
}

uint64_t ToNumber(std::string_view bytes) {
  uint64_t number = 0;
  for (const char byte : bytes) number = number << 8 | static_cast<unsigned char>(byte);
  return number;
}

}  // namespace

std::string Encode(const RequestMessage& request) {
  return ToBytes(REQUEST_MAGIC, 4) + ToBytes(request.sequence, 8) +
         ToBytes(static_cast<uint32_t>(request.zone_id), 4) + ToBytes(request.table_id, 4);
}

std::string Encode(const ResponseMessage& response) {
  return ToBytes(RESPONSE_MAGIC, 4) + ToBytes(response.sequence, 8) +
         ToBytes(static_cast<uint8_t>(response.status), 1);
}

std::optional<RequestMessage> DecodeRequest(std::string_view bytes) {
  if (bytes.size() != 20 || ToNumber(bytes.substr(0, 4)) != REQUEST_MAGIC) return std::nullopt;
  return RequestMessage{ToNumber(bytes.substr(4, 8)),
                        static_cast<int32_t>(ToNumber(bytes.substr(12, 4))),
                        static_cast<uint32_t>(ToNumber(bytes.substr(16, 4)))};
}

std::optional<ResponseMessage> DecodeResponse(std::string_view bytes) {
  if (bytes.size() != 13 || ToNumber(bytes.substr(0, 4)) != RESPONSE_MAGIC) return std::nullopt;
  const uint64_t status = ToNumber(bytes.substr(12, 1));
  if (status > static_cast<uint64_t>(ResponseStatus::SYSTEM_ERROR)) return std::nullopt;
  return ResponseMessage{ToNumber(bytes.substr(4, 8)), static_cast<ResponseStatus>(status)};
}

}  // namespace demo
