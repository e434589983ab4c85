#include "demo/common/wire_format.h"

#include <cstddef>

namespace demo {

namespace {

constexpr uint32_t REQUEST_MAGIC = 0x4B565251;   // "KVRQ"
constexpr uint32_t RESPONSE_MAGIC = 0x4B565253;  // "KVRS"
constexpr size_t REQUEST_SIZE = 20;
constexpr size_t RESPONSE_SIZE = 13;

template <class Number>
void Put(Number number, std::string* bytes) {
  for (size_t shift = 8 * sizeof(Number); shift > 0; shift -= 8) {
    bytes->push_back(static_cast<char>(static_cast<uint64_t>(number) >> (shift - 8)));
  }
}

// The caller has checked that there are enough bytes.
template <class Number>
Number Take(std::string_view* bytes) {
  uint64_t number = 0;
  for (size_t i = 0; i < sizeof(Number); ++i) {
    number = number << 8 | static_cast<unsigned char>((*bytes)[i]);
  }
  bytes->remove_prefix(sizeof(Number));
  return static_cast<Number>(number);
}

}  // namespace

std::string Encode(const RequestMessage& request) {
  std::string bytes;
  Put(REQUEST_MAGIC, &bytes);
  Put(request.sequence, &bytes);
  Put(request.zone_id, &bytes);
  Put(request.table_id, &bytes);
  return bytes;
}

std::string Encode(const ResponseMessage& response) {
  std::string bytes;
  Put(RESPONSE_MAGIC, &bytes);
  Put(response.sequence, &bytes);
  Put(static_cast<uint8_t>(response.status), &bytes);
  return bytes;
}

std::optional<RequestMessage> DecodeRequest(std::string_view bytes) {
  if (bytes.size() != REQUEST_SIZE || Take<uint32_t>(&bytes) != REQUEST_MAGIC) return std::nullopt;
  RequestMessage request{};
  request.sequence = Take<uint64_t>(&bytes);
  request.zone_id = Take<int32_t>(&bytes);
  request.table_id = Take<uint32_t>(&bytes);
  return request;
}

std::optional<ResponseMessage> DecodeResponse(std::string_view bytes) {
  if (bytes.size() != RESPONSE_SIZE || Take<uint32_t>(&bytes) != RESPONSE_MAGIC) {
    return std::nullopt;
  }
  ResponseMessage response{};
  response.sequence = Take<uint64_t>(&bytes);
  const auto status = Take<uint8_t>(&bytes);
  if (status > static_cast<uint8_t>(ResponseStatus::SYSTEM_ERROR)) return std::nullopt;
  response.status = static_cast<ResponseStatus>(status);
  return response;
}

}  // namespace demo
