#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "service_api/korvain/korvain_service_constant.h"
#include "service_api/private_log.h"
#include "service_api/private_text.h"
#include "service_api/private_url_check.h"

namespace KorvainService {

namespace {

constexpr char URL_PREFIX[] = "udp://";
constexpr size_t URL_PREFIX_LENGTH = sizeof(URL_PREFIX) - 1;
constexpr size_t MAX_PORT_LEN = 5;
constexpr size_t MAX_IP_PART_LEN = 3;

// Whether `text` is 1 to `max_length` decimal digits with a value of at most `max_value`.
bool IsNumber(const char* text, size_t max_length, long max_value) {
  const size_t length = strlen(text);
  return length > 0 && length <= max_length && strspn(text, "0123456789") == length &&
         strtol(text, nullptr, 10) <= max_value;
}

// Runs of dots count as one separator. The client's own parsing refuses what that lets pass.
bool CheckIP(const char* ip) {
  constexpr int PART_COUNT = 4;
  char text[256];
  CopyText(text, ip);
  char* rest = nullptr;
  const char* part = strtok_r(text, ".", &rest);
  for (int i = 0; i < PART_COUNT; ++i) {
    if (part == nullptr || !IsNumber(part, MAX_IP_PART_LEN, 255)) return false;
    part = strtok_r(nullptr, ".", &rest);
  }
  return part == nullptr;
}

bool CheckPort(const char* port) {
  return IsNumber(port, MAX_PORT_LEN, 65535);
}

}  // namespace

bool CheckURL(const char* url, Logger* logger) {
  if (url == nullptr) return false;
  if (strncmp(url, URL_PREFIX, URL_PREFIX_LENGTH) != 0) {
    return KORVAIN_FAIL(false, logger, KORVAIN_LOG_LEVEL_DEBUG,
                        "the url is invalid, not include \"udp://\", url:%s", url);
  }

  // A text that does not fit is refused rather than judged on a part of it.
  char text[MAX_URL_LENGTH_FOR_STATISTIC];
  if (strlen(url + URL_PREFIX_LENGTH) >= sizeof(text)) return false;
  CopyText(text, url + URL_PREFIX_LENGTH);

  constexpr char SEPARATOR[] = ":";
  char* rest = nullptr;
  const char* const ip = strtok_r(text, SEPARATOR, &rest);
  if (ip == nullptr) {
    return KORVAIN_FAIL(false, logger, KORVAIN_LOG_LEVEL_DEBUG, "strtok(%s, %s) failed, url:%s",
                        text, SEPARATOR, url);
  }
  const char* const port = strtok_r(nullptr, SEPARATOR, &rest);
  if (port == nullptr) {
    return KORVAIN_FAIL(false, logger, KORVAIN_LOG_LEVEL_DEBUG,
                        "the url is invalid, not include \"%s\", url:%s", SEPARATOR, url);
  }
  if (strtok_r(nullptr, SEPARATOR, &rest) != nullptr) {
    return KORVAIN_FAIL(false, logger, KORVAIN_LOG_LEVEL_DEBUG,
                        "the url is invalid, include \"%s\" more than one, url:%s", SEPARATOR, url);
  }

  if (!CheckIP(ip)) {
    return KORVAIN_FAIL(false, logger, KORVAIN_LOG_LEVEL_DEBUG, "the ip is invalid, ip:%s, url:%s",
                        ip, url);
  }
  if (!CheckPort(port)) {
    return KORVAIN_FAIL(false, logger, KORVAIN_LOG_LEVEL_DEBUG,
                        "the port is invalid, port:%s, url:%s", port, url);
  }
  return true;
}

}  // namespace KorvainService
