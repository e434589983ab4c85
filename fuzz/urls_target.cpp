// URLs through the client, and operations on the channel, beside a second statement of both. The
// input is a line of operations and then one URL a line, to which some good ones are added.
#include <arpa/inet.h>

#include <algorithm>
#include <cerrno>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "common/korvain_error_code.h"
#include "input.h"
#include "service_api/udp_client_mgr.h"
#include "support/fake_platform.h"
#include "support/recording_logger.h"

namespace {

using namespace std::string_literals;
using KorvainService::API_ERR_PARAMETER_INVALID;
using KorvainService::GEN_ERR_ERR;

// Where the client sends to; port 0 for a URL that it refuses.
sockaddr_in DestinationOf(const std::string& url) {
  const size_t colon = url.find(':', 6);
  sockaddr_in address{};
  if (colon == url.npos || colon - 6 >= 128) return address;
  if (inet_aton(url.substr(6, colon - 6).c_str(), &address.sin_addr) == 0) return address;
  const auto port = static_cast<int32_t>(strtol(url.c_str() + colon + 1, nullptr, 10));
  if (port >= 1 && port <= 65535) address.sin_port = htons(static_cast<uint16_t>(port));
  return address;
}

// Separators may be repeated, also in front and at the end.
bool IsTakenByChannel(const std::string& url) {
  static const std::regex form(
      R"(udp://:*\.*(\d{1,3})\.+(\d{1,3})\.+(\d{1,3})\.+(\d{1,3})\.*:+(\d{1,5}):*)");
  std::smatch parts;
  if (url.size() >= 6 + 128 || !std::regex_match(url, parts, form)) return false;
  const auto is_part = [](const auto& part) { return std::stoi(part) <= 255; };
  return std::all_of(parts.begin() + 1, parts.end() - 1, is_part) && std::stoi(parts[5]) <= 65535;
}

void ExpectSentTo(const test::FakePlatform& platform, const std::string& url, int length) {
  const sockaddr_in expected = DestinationOf(url);
  const auto& [fd, flags, sent_length, to] = platform.sent.back();
  FUZZ_CHECK(to.sin_family == AF_INET && to.sin_port == expected.sin_port);
  FUZZ_CHECK(to.sin_addr.s_addr == expected.sin_addr.s_addr);
  FUZZ_CHECK(flags == 0 && sent_length == static_cast<size_t>(length) &&
             fd == test::NextDescriptor() - 1);
}

void CheckClient(const std::string& url, test::FakePlatform& platform) {
  KorvainService::UDPClient client;
  const bool is_taken = client.Init(url.c_str(), nullptr) == 0;
  FUZZ_CHECK(is_taken == (DestinationOf(url).sin_port != 0));
  if (is_taken) FUZZ_CHECK(client.GetUrl() == url.substr(0, 127) && client.Send("x", 1) == 0);
  if (is_taken) ExpectSentTo(platform, url, 1);
}

class ChannelRun {
 public:
  ChannelRun(test::FakePlatform& platform, std::vector<std::string> lines)
      : m_platform(platform), m_lines(std::move(lines)) {
    Init(0);
    AddServers(0);
  }

  void Step(int choice) {
    constexpr void (ChannelRun::*OPERATIONS[])(int detail) = {
        &ChannelRun::AddServers, &ChannelRun::Send, &ChannelRun::Init,   &ChannelRun::SetNotice,
        &ChannelRun::Leave,      &ChannelRun::Send, &ChannelRun::Update, &ChannelRun::Update};
    const int operation = choice % 16;
    const int detail = choice / 16;
    if (operation <= test::PENDING) {
      constexpr int ERRORS[] = {ECONNREFUSED, EHOSTUNREACH, ENETUNREACH, EHOSTDOWN, EMSGSIZE, 0};
      m_platform.errors[static_cast<size_t>(operation)].push_back(ERRORS[detail % 6]);
    } else {
      m_errors = m_platform.errors;
      (this->*OPERATIONS[operation - test::PENDING - 1])(detail);
      ExpectSame();
    }
  }

 private:
  int Next(test::Call call) {
    if (m_errors[call].empty()) return 0;
    const int next = m_errors[call].front();
    m_errors[call].pop_front();
    return next;
  }

  void Init(int /*detail*/) {
    FUZZ_CHECK(m_channel.Init(&m_logger) == 0);
    m_is_open = m_has_socket = false;
    m_urls.clear();
  }

  // All servers, one to four of them, or none by a negative count or a missing list.
  void AddServers(int detail) {
    const auto rotation = static_cast<size_t>(detail);
    std::vector<const char*> given;
    m_urls.clear();
    const size_t lines = detail % 2 == 0 ? m_lines.size() : 1 + rotation / 4;
    for (size_t i = 0; i < lines; ++i) {
      const std::string& line = m_lines[(i + rotation) % m_lines.size()];
      given.push_back(line.c_str());
      const bool is_taken = detail < 14 && m_urls.size() < 32 && IsTakenByChannel(line);
      if (is_taken) m_urls.push_back(line.substr(0, 127));
    }
    given.push_back(nullptr);
    const int count = detail == 14 ? -1 : static_cast<int>(given.size());
    m_platform.rand_value = detail;
    m_channel.AddCollectServerAddress(detail == 15 ? nullptr : given.data(), count);
    Lose(false);
    for (size_t i = 0; i < m_urls.size() && !m_is_open; ++i) Open((rotation + i) % m_urls.size());
  }

  void Open(size_t index) {
    m_current = index;
    if (DestinationOf(m_urls[index]).sin_port == 0) return;
    m_has_socket = Next(test::SOCKET) == 0;
    m_is_open = m_has_socket && Next(test::SETFL) == 0;
    if (m_is_open && m_is_noticing) TellSocket();
  }

  void Leave(int /*detail*/) {
    m_channel.LeaveCurrentServer();
    Lose(true);
  }

  // The turn of Update may go on behind the server that is lost.
  void Lose(bool is_followed_by_next) {
    if (!m_is_open) return;
    if (is_followed_by_next) m_begin = m_current + 1;
    m_is_open = m_has_socket = false;
  }

  void TellSocket() {
    m_told.push_back(m_is_noticing);
    Next(test::SETSOCKOPT);
  }

  int PendingError() { return Next(test::GETSOCKOPT) != 0 ? 0 : Next(test::PENDING); }

  void SetNotice(int detail) {
    const bool is_on = detail % 4 != 0;
    m_channel.SetNoticeUnreachable(is_on);
    if (std::exchange(m_is_noticing, is_on) == is_on || !m_has_socket) return;
    TellSocket();
    if (!is_on) PendingError();
  }

  void Send(int detail) {
    static const std::string buffer(65537, 'x');
    constexpr int LENGTHS[] = {65536, 65537, 0, -1};
    const int length = detail < 4 ? LENGTHS[detail] : detail;
    const int expected = !m_is_open                                  ? GEN_ERR_ERR
                         : length <= 0                               ? API_ERR_PARAMETER_INVALID
                         : length > 65536 || Next(test::SENDTO) != 0 ? GEN_ERR_ERR
                                                                     : 0;
    FUZZ_CHECK(m_channel.Send(buffer.data(), length) == expected);
    if (expected == 0) return ExpectSentTo(m_platform, m_urls[m_current], length);
    Lose(m_is_noticing);
  }

  void Update(int /*detail*/) {
    const int error = m_is_noticing && m_is_open ? PendingError() : 0;
    if (error != 0 && error != EMSGSIZE) Lose(true);
    m_channel.Update();
    if (m_is_open || m_urls.empty()) return;
    m_begin = m_begin < m_urls.size() ? m_begin : 0;
    Open(m_begin++);
  }

  void ExpectSame() {
    const char* const url = m_channel.GetCurrentUrl();
    FUZZ_CHECK(m_is_open ? url == m_urls[m_current] : url == nullptr);
    FUZZ_CHECK(m_platform.errors == m_errors && m_platform.recverr_set == m_told);
    FUZZ_CHECK(test::NextDescriptor() == m_descriptor + (m_has_socket ? 1 : 0));
    FUZZ_CHECK(m_logger.is_debug_only && m_logger.is_place_sound);
  }

  test::FakePlatform& m_platform;
  const std::vector<std::string> m_lines;
  const int m_descriptor = test::NextDescriptor();
  test::RecordingLogger m_logger;
  KorvainService::UDPClientMgr m_channel;
  decltype(test::FakePlatform::errors) m_errors;  // as the step finds them, less those met
  std::vector<std::string> m_urls;
  std::vector<int> m_told;  // what IP_RECVERR was set to
  size_t m_begin = 0, m_current = 0;
  bool m_is_open = false, m_has_socket = false, m_is_noticing = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::istringstream text(fuzz::Input(data, size).Rest());
  std::vector<std::string> lines;
  std::string choices, line;
  std::getline(text, choices);
  while (lines.size() < 36 && std::getline(text, line)) lines.emplace_back(line.c_str());
  for (const char* const port : {"1", "2", "0", "4"}) lines.push_back("udp://10.0.0.1:"s + port);

  test::FakePlatform platform;
  platform.is_sending_faked = true;
  for (const std::string& url : lines) CheckClient(url, platform);
  const int descriptor = test::NextDescriptor();
  {
    ChannelRun run(platform, lines);
    for (const char choice : choices) run.Step(static_cast<unsigned char>(choice));
  }
  FUZZ_CHECK(test::NextDescriptor() == descriptor);
  return 0;
}
