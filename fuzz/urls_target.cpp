// URLs through the client and the channel: what each takes beside a second statement of the rule,
// and which server the channel is at beside a model. The input is a line of choices and then one
// URL a line.
#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "common/korvain_error_code.h"
#include "input.h"
#include "service_api/udp_client_mgr.h"
#include "support/fake_platform.h"
#include "support/recording_logger.h"

namespace {

using KorvainService::API_ERR_PARAMETER_INVALID;
using KorvainService::GEN_ERR_ERR;

// Where the client sends to, for a URL that it takes.
std::optional<sockaddr_in> DestinationOf(const std::string& url) {
  const size_t colon = url.find(':', 6);
  if (url.size() < 6 || colon == url.npos || colon - 6 >= 128) return std::nullopt;
  sockaddr_in address{};
  if (inet_aton(url.substr(6, colon - 6).c_str(), &address.sin_addr) == 0) return std::nullopt;
  const auto port = static_cast<int32_t>(strtol(url.c_str() + colon + 1, nullptr, 10));
  if (port < 1 || port > 65535) return std::nullopt;
  address.sin_port = htons(static_cast<uint16_t>(port));
  return address;
}

// Separators may be repeated, also in front and at the end.
bool IsTakenByChannel(const std::string& url) {
  static const std::regex form(
      "udp://:*\\.*([0-9]{1,3})\\.+([0-9]{1,3})\\.+([0-9]{1,3})\\.+([0-9]{1,3})\\.*:+"
      "([0-9]{1,5}):*");
  std::smatch parts;
  if (url.size() >= 6 + 128 || !std::regex_match(url, parts, form)) return false;
  for (size_t i = 1; i <= 4; ++i) {
    if (std::stoi(parts[i]) > 255) return false;
  }
  return std::stoi(parts[5]) <= 65535;
}

void ExpectSentTo(const test::FakePlatform& platform, const std::string& url) {
  const std::optional<sockaddr_in> expected = DestinationOf(url);
  const sockaddr_in& to = platform.sent.back().to;
  FUZZ_CHECK(expected && to.sin_addr.s_addr == expected->sin_addr.s_addr);
  FUZZ_CHECK(to.sin_port == expected->sin_port && to.sin_family == AF_INET);
}

void CheckClient(const std::string& url, test::FakePlatform& platform) {
  KorvainService::UDPClient client;
  const bool is_taken = client.Init(url.c_str(), nullptr) == 0;
  FUZZ_CHECK(is_taken == DestinationOf(url).has_value());
  if (!is_taken) return;
  FUZZ_CHECK(client.GetUrl() == url.substr(0, 127));
  FUZZ_CHECK(client.Send("x", 1) == 0);
  ExpectSentTo(platform, url);
}

class ChannelRun {
 public:
  ChannelRun(test::FakePlatform& platform, std::vector<std::string> lines)
      : m_platform(platform), m_lines(std::move(lines)) {
    m_channel.Init(&m_logger);
  }

  void Step(int choice) {
    m_socket_errors = m_platform.socket_errors;
    m_setfl_errors = m_platform.setfl_errors;
    const int detail = choice / 16;
    switch (choice % 8) {
      case 0:
        AddServers(static_cast<size_t>(detail));
        break;
      case 1:
        (detail % 2 == 0 ? m_platform.socket_errors : m_platform.setfl_errors)
            .push_back(detail % 3);
        break;
      case 2:
        m_platform.pending_errors.push_back(detail % 2 == 0 ? ECONNREFUSED : EMSGSIZE);
        break;
      case 3:
        m_platform.sendto_errors.push_back(detail % 3);
        break;
      case 4:
        Send(detail == 0 ? 70000 : detail == 1 ? 0 : 10 * detail);
        break;
      case 5:
        m_is_noticing = detail % 2 == 0;
        m_channel.SetNoticeUnreachable(m_is_noticing);
        break;
      case 6:
        if (m_is_open) m_begin = m_current + 1;
        m_is_open = false;
        m_channel.LeaveCurrentServer();
        break;
      default:
        Update();
    }
    const char* const url = m_channel.GetCurrentUrl();
    FUZZ_CHECK((url != nullptr) == m_is_open);
    if (m_is_open) FUZZ_CHECK(url == m_urls[m_current]);
    FUZZ_CHECK(m_logger.is_place_sound);
  }

 private:
  static int Next(std::deque<int>& script) {
    if (script.empty()) return 0;
    const int next = script.front();
    script.pop_front();
    return next;
  }

  bool Opens(const std::string& url) {
    return DestinationOf(url) && Next(m_socket_errors) == 0 && Next(m_setfl_errors) == 0;
  }

  void AddServers(size_t rotation) {
    std::vector<const char*> given;
    m_urls.clear();
    for (size_t i = 0; i < m_lines.size(); ++i) {
      const std::string& line = m_lines[(i + rotation) % m_lines.size()];
      given.push_back(line.c_str());
      if (m_urls.size() < 32 && IsTakenByChannel(line)) m_urls.push_back(line.substr(0, 127));
    }
    given.push_back(nullptr);
    m_platform.rand_value = static_cast<int>(rotation);
    m_channel.AddCollectServerAddress(given.data(), static_cast<int32_t>(given.size()));
    m_is_open = false;
    for (size_t i = 0; i < m_urls.size() && !m_is_open; ++i) {
      m_current = (rotation + i) % m_urls.size();
      m_is_open = Opens(m_urls[m_current]);
    }
  }

  void Send(int length) {
    static const std::string buffer(70000, 'x');
    std::deque<int> errors = m_platform.sendto_errors;
    const int expected = !m_is_open                            ? GEN_ERR_ERR
                         : length == 0                         ? API_ERR_PARAMETER_INVALID
                         : length > 65536 || Next(errors) != 0 ? GEN_ERR_ERR
                                                               : 0;
    FUZZ_CHECK(m_channel.Send(buffer.data(), length) == expected);
    if (expected == 0) ExpectSentTo(m_platform, m_urls[m_current]);
    if (expected == 0 || !m_is_open) return;
    m_is_open = false;
    if (m_is_noticing) m_begin = m_current + 1;
  }

  void Update() {
    std::deque<int> errors = m_platform.pending_errors;
    if (m_is_noticing && m_is_open && Next(errors) == ECONNREFUSED) {
      m_is_open = false;
      m_begin = m_current + 1;
    }
    m_channel.Update();
    if (m_is_open || m_urls.empty()) return;
    m_current = m_begin < m_urls.size() ? m_begin : 0;
    m_begin = m_current + 1;
    m_is_open = Opens(m_urls[m_current]);
  }

  test::FakePlatform& m_platform;
  const std::vector<std::string> m_lines;
  test::RecordingLogger m_logger;
  KorvainService::UDPClientMgr m_channel;
  std::deque<int> m_socket_errors, m_setfl_errors;  // before the step
  std::vector<std::string> m_urls;
  size_t m_begin = 0, m_current = 0;
  bool m_is_open = false, m_is_noticing = false;
};

// The number that the next descriptor will have, which is the lowest one free.
int NextDescriptor() {
  const int descriptor = dup(STDERR_FILENO);
  close(descriptor);
  return descriptor;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text = fuzz::Input(data, size).Rest();
  std::vector<std::string> lines;
  for (size_t begin = 0; begin <= text.size() && lines.size() < 40;) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    lines.emplace_back(text.substr(begin, end - begin).c_str());  // up to a NUL
    begin = end + 1;
  }
  const std::string choices = lines.front();
  lines.erase(lines.begin());
  if (lines.empty()) return 0;

  const int descriptor = NextDescriptor();
  {
    test::FakePlatform platform;
    platform.is_sending_faked = true;
    platform.getfl_result = 0;
    for (const std::string& url : lines) CheckClient(url, platform);
    ChannelRun run(platform, lines);
    run.Step(0);
    for (const char choice : choices) {
      run.Step(static_cast<unsigned char>(choice));
      FUZZ_CHECK(NextDescriptor() <= descriptor + 1);
    }
  }
  FUZZ_CHECK(NextDescriptor() == descriptor);
  return 0;
}
