#include "service_api/udp_client_mgr.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "common/korvain_error_code.h"
#include "support/fake_platform.h"
#include "support/recording_logger.h"

namespace KorvainService {
namespace {

struct UDPClientMgrTest : ::testing::Test {
  UDPClientMgrTest() {
    platform.is_sending_faked = true;
    platform.rand_value = 0;
    mgr.Init(&logger);
  }

  std::string Add(const std::vector<std::string>& urls) {
    std::vector<const char*> pointers;
    for (const std::string& url : urls) pointers.push_back(url.c_str());
    mgr.AddCollectServerAddress(pointers.data(), static_cast<int32_t>(pointers.size()));
    return logger.TakeText();
  }

  test::FakePlatform platform;
  test::RecordingLogger logger;
  UDPClientMgr mgr;
};

TEST_F(UDPClientMgrTest, RefusesTheseUrls) {
  const std::string nines(118, '9');
  using Case = std::pair<std::string, std::string>;
  for (const auto& [url, reason] :
       {Case{"UDP://10.0.0.1:80", "the url is invalid, not include \"udp://\""},
        Case{"udp://:::", "strtok(:::, :) failed"},
        Case{"udp://10.0.0.1", "the url is invalid, not include \":\""},
        Case{"udp://10.0.0.1:80:90", "the url is invalid, include \":\" more than one"},
        Case{"udp://10.0.0:80", "the ip is invalid, ip:10.0.0"},
        Case{"udp://10.0.0.1.5:80", "the ip is invalid, ip:10.0.0.1.5"},
        Case{"udp://10.0.0.256:80", "the ip is invalid, ip:10.0.0.256"},
        Case{"udp://10.0.0.0001:80", "the ip is invalid, ip:10.0.0.0001"},
        Case{"udp://10.0.0.1:65536", "the port is invalid, port:65536"},
        Case{"udp://10.0.0.1:000080", "the port is invalid, port:000080"},
        Case{"udp://10.0.0.1:80a", "the port is invalid, port:80a"},
        Case{"udp://10.0.0.1:" + nines, "the port is invalid, port:" + nines}}) {
    EXPECT_EQ(Add({url}), "700 CheckURL: " + reason + ", url:" + url +
                              "\n700 AddCollectServerAddress: the url is invalid. url:" + url +
                              "\n");
    EXPECT_STREQ(mgr.GetCurrentUrl(), nullptr);
  }
}

TEST_F(UDPClientMgrTest, KeepsTheFirst32ThatAreNotTooLong) {
  const std::string longest = "udp://10.0.0.255:65535" + std::string(111, ':');
  std::vector<std::string> urls(33, longest);
  urls[0] += ":";
  urls.insert(urls.end(), {"udp://10.0.0.1:33", "not looked at"});
  EXPECT_EQ(Add(urls), "700 AddCollectServerAddress: the url is invalid. url:" + urls[0] +
                           "\n700 AddCollectServerAddress: the collect server count(32) >= "
                           "STATISTIC_MAX_COLLECT_COUNT(32)\n"
                           "700 AddCollectServerAddress: m_udp_client.Init() success. url:" +
                           longest.substr(0, 127) + "\n");
  const char* null_url[] = {nullptr};
  mgr.AddCollectServerAddress(null_url, 0);
  EXPECT_EQ(mgr.GetCurrentUrl(), longest.substr(0, 127)) << "not changed";
  mgr.AddCollectServerAddress(null_url, 1);
  EXPECT_STREQ(mgr.GetCurrentUrl(), nullptr);
  EXPECT_EQ(logger.TakeText(),
            "700 AddCollectServerAddress: the collect server count is zero.\n"
            "700 AddCollectServerAddress: the url is invalid. url:(null)\n");
}

TEST_F(UDPClientMgrTest, GoesFromServerToServer) {
  platform.rand_value = 2 * 1000 + 1;
  Add({"udp://10.0.0.1:1", "udp://10.0.0.1:0"});
  EXPECT_STREQ(mgr.GetCurrentUrl(), "udp://10.0.0.1:1") << "the second cannot be opened";
  EXPECT_EQ(mgr.Send("", 0), API_ERR_PARAMETER_INVALID);
  EXPECT_EQ(mgr.Send("x", 1), GEN_ERR_ERR) << "closed";
  EXPECT_EQ(logger.TakeText(),
            "700 Send: NULL == buf || buf_len(0) <= 0\n"
            "700 Send: m_udp_client->Send() failed.\n");
  mgr.Update();
  EXPECT_STREQ(mgr.GetCurrentUrl(), "udp://10.0.0.1:1") << "the turn begins with the first";
  EXPECT_EQ(Add({"udp://10.0.0.1:0"}),
            "700 ParseURL: parse url failed -- atoi(port), url=udp://10.0.0.1:0, iret=0\n\n"
            "700 Init: ParseURL() failed. url:udp://10.0.0.1:0\n"
            "700 AddCollectServerAddress: m_udp_client.Init() failed. ret:-256, "
            "url:udp://10.0.0.1:0\n"
            "700 AddCollectServerAddress: all url for m_udp_client.Init() failed.\n");
}

TEST_F(UDPClientMgrTest, InitSeedsAndTakesTheLogger) {
  const auto before = static_cast<unsigned int>(time(nullptr));
  EXPECT_EQ(mgr.Init(nullptr), 0);
  EXPECT_GE(platform.seeds.at(1), before);
  EXPECT_LE(platform.seeds.at(1), static_cast<unsigned int>(time(nullptr)));
  EXPECT_EQ(Add({"bad"}), "");
}

TEST_F(UDPClientMgrTest, SaysWhatItNotices) {
  Add({"udp://10.0.0.1:1", "udp://10.0.0.1:2"});
  platform.errors[test::SETSOCKOPT] = {ENOPROTOOPT, ENOPROTOOPT};
  platform.errors[test::PENDING] = {EHOSTUNREACH};
  mgr.SetNoticeUnreachable(true);
  mgr.Update();
  EXPECT_STREQ(mgr.GetCurrentUrl(), "udp://10.0.0.1:2") << "used all the same";
  EXPECT_EQ(logger.TakeText(),
            "700 SetNoticeUnreachable: set socket option -- recverr failed! "
            "url=udp://10.0.0.1:1, errno=92, errstr=Protocol not available\n"
            "700 Update: the collect server is unreachable. "
            "url:udp://10.0.0.1:1, errno:113, errstr:No route to host\n"
            "700 Init: set socket option -- recverr failed! "
            "url=udp://10.0.0.1:2, errno=92, errstr=Protocol not available\n");
}

TEST_F(UDPClientMgrTest, LeavesAServerThatIsKilled) {
  const int first_sock = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof(address);
  ASSERT_EQ(bind(first_sock, reinterpret_cast<sockaddr*>(&address), length), 0);
  getsockname(first_sock, reinterpret_cast<sockaddr*>(&address), &length);
  const std::string port = std::to_string(ntohs(address.sin_port));
  const std::string first = "udp://127.0.0.1:" + port, second = "udp://127.0.0.2:" + port;
  platform.is_sending_faked = false;
  mgr.SetNoticeUnreachable(true);
  Add({first, second});
  EXPECT_EQ(mgr.Send("re\0port\n", 8), 0);
  char report[64];
  ASSERT_EQ(recv(first_sock, report, sizeof(report), MSG_DONTWAIT), 8);
  EXPECT_EQ(std::string(report, 8), std::string("re\0port\n", 8));

  close(first_sock);
  mgr.Update();
  EXPECT_EQ(mgr.GetCurrentUrl(), first) << "nothing was sent since";
  EXPECT_EQ(mgr.Send("b", 1), 0) << "the one that is lost";
  mgr.Update();
  EXPECT_EQ(mgr.GetCurrentUrl(), second);
  EXPECT_EQ(mgr.Send("c", 1), 0) << "where nobody listens";
  EXPECT_EQ(mgr.Send("d", 1), GEN_ERR_ERR) << "a Send may be the first to be told";
}

}  // namespace
}  // namespace KorvainService
