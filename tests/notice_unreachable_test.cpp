// Leaving a collect server that has gone: told by the service API, or noticed.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "common/korvain_error_code.h"
#include "service_api/udp_client_mgr.h"
#include "support/fake_platform.h"
#include "support/recording_logger.h"

namespace KorvainService {
namespace {

using test::DEBUG;
using test::LogLine;
using test::LogLines;

using Ports = std::vector<int>;

// A channel on the second of four servers, with ports 1 to 4.
class LeavingTest : public ::testing::Test {
 protected:
  LeavingTest() {
    platform.is_sending_faked = true;
    platform.rand_value = 1;
    mgr.Init(&logger);
  }
  ~LeavingTest() override { EXPECT_TRUE(logger.is_place_sound); }

  void Open() {
    const char* urls[] = {"udp://10.0.0.1:1", "udp://10.0.0.1:2", "udp://10.0.0.1:3",
                          "udp://10.0.0.1:4"};
    mgr.AddCollectServerAddress(urls, 4);
    logger.Take();
  }

  // The port of the server in use, which a send confirms; 0 for none.
  int PortInUse() {
    const char* const url = mgr.GetCurrentUrl();
    const int result = mgr.Send("x", 1);
    logger.Take();
    EXPECT_EQ(result, url == nullptr ? GEN_ERR_ERR : 0);
    if (url == nullptr) return 0;
    const int port = ntohs(platform.sent.back().to.sin_port);
    EXPECT_EQ(url, "udp://10.0.0.1:" + std::to_string(port));
    return port;
  }

  void FailASend() {
    platform.sendto_errors = {ECONNREFUSED};
    EXPECT_EQ(mgr.Send("x", 1), GEN_ERR_ERR);
    EXPECT_EQ(mgr.GetCurrentUrl(), nullptr);
    logger.Take();
  }

  test::FakePlatform platform;
  test::RecordingLogger logger;
  UDPClientMgr mgr;
};

TEST_F(LeavingTest, WithoutNoticingTheNetworkIsNotAsked) {
  EXPECT_EQ(mgr.GetCurrentUrl(), nullptr);
  mgr.LeaveCurrentServer();
  mgr.SetNoticeUnreachable(false);
  Open();
  EXPECT_EQ(PortInUse(), 2);
  platform.pending_errors = {ECONNREFUSED};
  mgr.Update();
  EXPECT_EQ(PortInUse(), 2);
  FailASend();
  mgr.Update();
  EXPECT_EQ(PortInUse(), 1) << "the turn is that of the first, as ever";
  EXPECT_TRUE(platform.recverr_set.empty());
  EXPECT_EQ(platform.pending_error_queries, 0);
}

TEST_F(LeavingTest, AServerThatIsLeftIsFollowedByTheNext) {
  Open();
  for (const int port : {2, 3, 4, 1, 2}) {
    EXPECT_EQ(PortInUse(), port);
    mgr.LeaveCurrentServer();
    mgr.LeaveCurrentServer();
    EXPECT_EQ(mgr.GetCurrentUrl(), nullptr);
    EXPECT_EQ(mgr.Send("x", 1), GEN_ERR_ERR);
    mgr.Update();
  }
  EXPECT_TRUE(logger.Take().empty());
}

TEST_F(LeavingTest, TheseErrorsMeanThatTheServerIsGone) {
  struct Case {
    int error;
    bool is_gone;
  };
  mgr.SetNoticeUnreachable(true);
  for (const Case& row : {Case{ECONNREFUSED, true}, Case{EHOSTUNREACH, true},
                          Case{ENETUNREACH, true}, Case{EHOSTDOWN, true}, Case{EMSGSIZE, false},
                          Case{EPROTO, false}, Case{EAGAIN, false}, Case{0, false}}) {
    SCOPED_TRACE(row.error);
    Open();
    platform.pending_errors = {row.error};
    mgr.Update();
    const LogLine line{DEBUG, "Update",
                       "the collect server is unreachable. url:udp://10.0.0.1:2, errno:" +
                           std::to_string(row.error) + ", errstr:" + strerror(row.error)};
    EXPECT_EQ(logger.Take(), row.is_gone ? LogLines{line} : LogLines{});
    EXPECT_EQ(PortInUse(), row.is_gone ? 3 : 2) << "in the same call";
  }
  EXPECT_EQ(platform.pending_error_queries, 8) << "once for each Update of an open channel";
}

TEST_F(LeavingTest, AChannelThatDidNotOpenIsNotAsked) {
  mgr.SetNoticeUnreachable(true);
  platform.setfl_errors = {EINVAL, EINVAL, EINVAL, EINVAL};  // the last socket stays blocking
  Open();
  platform.pending_errors = {ECONNREFUSED};
  mgr.Update();
  EXPECT_EQ(platform.pending_error_queries, 0);
  EXPECT_EQ(PortInUse(), 1);
}

// However the server was lost, the others have their turns before it. Each attempt but the last
// finds no socket.
TEST_F(LeavingTest, TheLostServerComesLast) {
  const auto notice = [this] { platform.pending_errors = {ECONNREFUSED}; };  // by the first Update
  const auto fail_a_send = [this] { FailASend(); };
  const auto leave = [this] { mgr.LeaveCurrentServer(); };
  mgr.SetNoticeUnreachable(true);
  const std::function<void()> losses[] = {notice, fail_a_send, leave};
  for (const auto& lose : losses) {
    Open();
    lose();
    platform.socket_errors = {EMFILE, EMFILE, EMFILE};
    Ports tried;
    for (int attempt = 0; attempt < 4; ++attempt) {
      mgr.Update();
      for (const LogLine& line : logger.Take()) {
        if (line.func == "Init") tried.push_back(line.text.back() - '0');
      }
    }
    EXPECT_EQ(tried, (Ports{3, 4, 1}));
    EXPECT_EQ(PortInUse(), 2);
    EXPECT_EQ(platform.pending_errors.size(), 0u);
  }
}

TEST_F(LeavingTest, EverySocketIsToldAndTheOpenOneToo) {
  Open();
  mgr.SetNoticeUnreachable(true);
  mgr.SetNoticeUnreachable(true);
  EXPECT_EQ(platform.recverr_set, (std::vector<int>{1}));
  mgr.LeaveCurrentServer();
  mgr.Update();
  Open();
  EXPECT_EQ(mgr.Init(&logger), 0);
  Open();
  EXPECT_EQ(platform.recverr_set, (std::vector<int>{1, 1, 1, 1})) << "Init keeps the setting";
  mgr.SetNoticeUnreachable(false);
  EXPECT_EQ(platform.recverr_set.back(), 0);
  EXPECT_EQ(platform.pending_error_queries, 1) << "what is pending is dropped";
  Open();
  mgr.Update();
  FailASend();
  mgr.Update();
  EXPECT_EQ(platform.recverr_set.size(), 5u);
  EXPECT_EQ(platform.pending_error_queries, 1);
}

TEST_F(LeavingTest, ASocketThatCannotBeToldIsUsedAllTheSame) {
  const std::string text =
      "set socket option -- recverr failed! url=udp://10.0.0.1:2, errno=92, "
      "errstr=" +
      std::string(strerror(ENOPROTOOPT));
  static_assert(ENOPROTOOPT == 92);
  Open();
  platform.setsockopt_errors = {ENOPROTOOPT};
  mgr.SetNoticeUnreachable(true);
  EXPECT_EQ(logger.Take(), (LogLines{{DEBUG, "SetNoticeUnreachable", text}}));
  EXPECT_EQ(PortInUse(), 2);
  platform.setsockopt_errors = {ENOPROTOOPT};
  const char* urls[] = {"udp://10.0.0.1:2"};
  mgr.AddCollectServerAddress(urls, 1);
  EXPECT_EQ(logger.Take(), (LogLines{{DEBUG, "Init", text},
                                     {DEBUG, "AddCollectServerAddress",
                                      "m_udp_client.Init() success. url:udp://10.0.0.1:2"}}));
  EXPECT_EQ(PortInUse(), 2);
}

// A server on the loopback interface.
class Server {
 public:
  Server() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(m_sock, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    socklen_t length = sizeof(address);
    getsockname(m_sock, reinterpret_cast<sockaddr*>(&address), &length);
    m_url = "udp://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
  }
  ~Server() { Close(); }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  void Close() {
    if (m_sock >= 0) close(m_sock);
    m_sock = -1;
  }
  bool HasReceived(char expected) const {
    char byte = 0;
    return recv(m_sock, &byte, 1, MSG_DONTWAIT) == 1 && byte == expected;
  }
  const char* url() const { return m_url.c_str(); }

 private:
  int m_sock = socket(AF_INET, SOCK_DGRAM, 0);
  std::string m_url;
};

TEST(LeavingOnLoopback, AKilledServerIsLeftByTheNextUpdate) {
  Server first;
  Server second;
  test::FakePlatform platform;
  platform.rand_value = 0;
  UDPClientMgr mgr;
  mgr.Init(nullptr);
  mgr.SetNoticeUnreachable(true);
  const char* urls[] = {first.url(), second.url()};
  mgr.AddCollectServerAddress(urls, 2);
  EXPECT_EQ(mgr.Send("a", 1), 0);
  EXPECT_TRUE(first.HasReceived('a'));

  first.Close();
  mgr.Update();
  EXPECT_STREQ(mgr.GetCurrentUrl(), first.url()) << "nothing was sent since";
  EXPECT_EQ(mgr.Send("b", 1), 0) << "the one that is lost";
  mgr.Update();
  EXPECT_STREQ(mgr.GetCurrentUrl(), second.url());
  EXPECT_EQ(mgr.Send("c", 1), 0);
  EXPECT_TRUE(second.HasReceived('c'));

  second.Close();
  EXPECT_EQ(mgr.Send("d", 1), 0);
  EXPECT_EQ(mgr.Send("e", 1), GEN_ERR_ERR) << "a Send may be the first to be told";
  EXPECT_EQ(mgr.GetCurrentUrl(), nullptr);
}

TEST(LeavingOnLoopback, SwitchedOffNothingIsNoticedAnyMore) {
  Server server;
  UDPClientMgr mgr;
  mgr.Init(nullptr);
  const char* urls[] = {server.url()};
  mgr.AddCollectServerAddress(urls, 1);
  mgr.SetNoticeUnreachable(true);
  server.Close();
  EXPECT_EQ(mgr.Send("a", 1), 0);
  mgr.SetNoticeUnreachable(false);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(mgr.Send("b", 1), 0);
}

}  // namespace
}  // namespace KorvainService
