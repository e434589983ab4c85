#include "service_api/udp_client.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "common/korvain_error_code.h"
#include "support/fake_platform.h"
#include "support/recording_logger.h"

namespace KorvainService {
namespace {

using test::DEBUG;
using test::LogLines;

// An address of so many characters, the last of its numbers in octal with leading zeros.
std::string HostOf(size_t length) {
  const std::string begin = "10.0.0.";
  return begin + std::string(length - begin.size() - 1, '0') + '1';
}

class UDPClientTest : public ::testing::Test {
 protected:
  UDPClientTest() { platform.is_sending_faked = true; }
  ~UDPClientTest() override {
    EXPECT_EQ(test::CountOpenDescriptors(), descriptors);
    EXPECT_TRUE(logger.is_place_sound);
  }

  test::FakePlatform platform;
  test::RecordingLogger logger;
  int descriptors = test::CountOpenDescriptors();
};

TEST_F(UDPClientTest, AcceptsTheseUrls) {
  struct Case {
    std::string url;
    const char* ip;
    uint16_t port;
  };
  for (const Case& row :
       {Case{"udp://10.0.0.1:8080", "10.0.0.1", 8080},
        Case{"udp://10.0.0.1:8080abc", "10.0.0.1", 8080},
        Case{"tcp://10.0.0.1:8080", "10.0.0.1", 8080}, Case{"udp://10.0.0.1: +80", "10.0.0.1", 80},
        Case{"udp://10.0.0.1:80:90", "10.0.0.1", 80},
        Case{"udp://10.0.0.1:65535", "10.0.0.1", 65535}, Case{"udp://010.0.0.1:1", "8.0.0.1", 1},
        Case{"udp://10.1:4294967297", "10.0.0.1", 1},
        Case{"udp://1.2.3.4:5" + std::string(300, 'x'), "1.2.3.4", 5},
        Case{"udp://" + HostOf(127) + ":80", "10.0.0.1", 80}}) {
    UDPClient client;
    EXPECT_EQ(client.Init(row.url.c_str(), &logger), 0) << row.url;
    EXPECT_TRUE(logger.Take().empty());
    EXPECT_EQ(client.Send("x", 1), 0);
    EXPECT_EQ(platform.sent.back().flags, 0);
    const sockaddr_in to = platform.sent.back().to;
    EXPECT_EQ(to.sin_family, AF_INET);
    EXPECT_STREQ(inet_ntoa(to.sin_addr), row.ip) << row.url;
    EXPECT_EQ(ntohs(to.sin_port), row.port) << row.url;
    EXPECT_EQ(logger.Take(),
              (LogLines{{DEBUG, "Send",
                         "it send success. send buf len:1, url:" + row.url.substr(0, 127)}}));
  }
}

TEST_F(UDPClientTest, RefusesTheseUrls) {
  struct Case {
    std::string url, reason;
  };
  for (const Case& row :
       {Case{"", "url is too short"}, Case{"udp:/", "url is too short"},
        Case{"udp://", "no port in url"}, Case{"udp://10.0.0.1", "no port in url"},
        Case{"udp://:80", "aton(ip)"}, Case{"udp://localhost:80", "aton(ip)"},
        Case{"udp://10.0.0.256:80", "aton(ip)"}, Case{"udp://10..0.1:80", "aton(ip)"},
        Case{"udp://" + std::string(300, '1') + ":80", "aton(ip)"},
        Case{"udp://" + HostOf(128) + ":80", "aton(ip)"}, Case{"udp://10.0.0.1:", "atoi(port)"},
        Case{"udp://10.0.0.1:0", "atoi(port)"}, Case{"udp://10.0.0.1:-5", "atoi(port)"},
        Case{"udp://10.0.0.1::80", "atoi(port)"}, Case{"udp://10.0.0.1:65536", "atoi(port)"},
        Case{"udp://10.0.0.1:99999999999999999999", "atoi(port)"}}) {
    SCOPED_TRACE(row.url);
    const std::string iret = row.reason == "aton(ip)"                ? ", iret=0"
                             : row.url.find("-5") != row.url.npos    ? ", iret=-5"
                             : row.url.find("65536") != row.url.npos ? ", iret=65536"
                             : row.url.size() > 30                   ? ", iret=-1"
                             : row.reason == "atoi(port)"            ? ", iret=0"
                                                                     : "";
    UDPClient client;
    EXPECT_EQ(client.Init(row.url.c_str(), &logger), GEN_ERR_ERR);
    EXPECT_EQ(logger.Take(),
              (LogLines{{DEBUG, "ParseURL",
                         "parse url failed -- " + row.reason + ", url=" + row.url + iret + "\n"},
                        {DEBUG, "Init", "ParseURL() failed. url:" + row.url}}));
  }
  EXPECT_EQ(platform.sockets_opened, 0);
}

TEST_F(UDPClientTest, ANullUrlStillBringsTheLogger) {
  UDPClient client;
  EXPECT_EQ(client.Init(nullptr, &logger), API_ERR_PARAMETER_INVALID);
  EXPECT_EQ(client.Send(nullptr, 1), API_ERR_PARAMETER_INVALID);
  EXPECT_EQ(logger.Take(), (LogLines{{DEBUG, "Init", "NULL == url"},
                                     {DEBUG, "Send", "NULL == buf || buf_len(1) <= 0"}}));
  EXPECT_EQ(client.Init(nullptr, nullptr), API_ERR_PARAMETER_INVALID);
}

TEST_F(UDPClientTest, ReportsFailingSystemCalls) {
  const std::string url = "udp://10.0.0.1:80";
  UDPClient client;
  platform.socket_errors = {EMFILE};
  EXPECT_EQ(client.Init(url.c_str(), &logger), GEN_ERR_ERR);
  EXPECT_EQ(logger.Take(),
            (LogLines{{DEBUG, "Init",
                       "socket() failed. errno:24, errstr:Too many open files, url:" + url}}));
  EXPECT_EQ(test::CountOpenDescriptors(), descriptors);

  platform.setfl_errors = {EBADF};
  EXPECT_EQ(client.Init(url.c_str(), &logger), GEN_ERR_ERR);
  EXPECT_EQ(logger.Take(), (LogLines{{DEBUG, "Init",
                                      "set socket option -- nonblock failed! url=" + url +
                                          ", errno=9, errstr=Bad file descriptor"}}));
  EXPECT_EQ(test::CountOpenDescriptors(), descriptors + 1) << "kept until Fini or Init";
  EXPECT_EQ(client.Init(url.c_str(), &logger), 0);
  EXPECT_EQ(test::CountOpenDescriptors(), descriptors + 1);

  platform.sendto_errors = {EAGAIN};
  EXPECT_EQ(client.Send("abc", 3), GEN_ERR_ERR);
  const std::string fd = std::to_string(platform.sent.back().fd);
  EXPECT_EQ(
      logger.Take(),
      (LogLines{{DEBUG, "Send", "sendto() failed. buf_len:3, url:" + url + ", sock fd:" + fd}}));
  EXPECT_EQ(client.Send("abc", 3), 0) << "a failed send does not close";
  platform.sendto_result = 0;
  EXPECT_EQ(client.Send("abc", 3), 0) << "a partial result is not looked at";
}

TEST_F(UDPClientTest, SetsBothFlagsOnTopOfTheOldOnes) {
  UDPClient client;
  platform.getfl_result = O_APPEND;
  EXPECT_EQ(client.Init("udp://10.0.0.1:80", nullptr), 0);
  platform.getfl_result = -1;
  EXPECT_EQ(client.Init("udp://10.0.0.1:80", nullptr), 0);
  EXPECT_EQ(platform.flags_set, (std::vector<int>{O_APPEND | O_NONBLOCK | O_ASYNC, -1}));
}

TEST_F(UDPClientTest, ChecksTheLengthBeforeTheSystemDoes) {
  struct Case {
    int length, result;
    std::string text;
  };
  UDPClient client;
  const std::vector<char> buffer(65537, 'x');
  EXPECT_EQ(client.Init("udp://127.0.0.1:9", &logger), 0);
  platform.is_sending_faked = false;
  for (const Case& row :
       {Case{0, API_ERR_PARAMETER_INVALID, "NULL == buf || buf_len(0) <= 0"},
        Case{-7, API_ERR_PARAMETER_INVALID, "NULL == buf || buf_len(-7) <= 0"},
        Case{65537, GEN_ERR_ERR,
             "the send buf size(65537) is greater than MAX_PKG_SIZE_TO_SEND_THROUGH_UDP(65536)"}}) {
    EXPECT_EQ(client.Send(buffer.data(), row.length), row.result);
    EXPECT_EQ(logger.Take(), (LogLines{{DEBUG, "Send", row.text}}));
  }
  EXPECT_TRUE(platform.sent.empty());
  EXPECT_EQ(client.Send(buffer.data(), 65536), GEN_ERR_ERR) << "more than IPv4 carries";
  EXPECT_EQ(client.Send(buffer.data(), 65508), GEN_ERR_ERR);
  EXPECT_EQ(client.Send(buffer.data(), 65507), 0);
  EXPECT_EQ(platform.sent.size(), 3u);
}

TEST_F(UDPClientTest, IsHarmlessWithoutASocket) {
  UDPClient client;
  client.Fini();
  EXPECT_EQ(client.Init(nullptr, &logger), API_ERR_PARAMETER_INVALID);
  logger.Take();
  platform.is_sending_faked = false;
  EXPECT_EQ(client.Send("x", 1), GEN_ERR_ERR);
  EXPECT_EQ(logger.Take(),
            (LogLines{{DEBUG, "Send", "sendto() failed. buf_len:1, url:, sock fd:-1"}}));
  EXPECT_EQ(client.Init("udp://10.0.0.1:80", nullptr), 0);
  client.Fini();
  client.Fini();
  EXPECT_EQ(test::CountOpenDescriptors(), descriptors);
}

TEST_F(UDPClientTest, ClosesItsOwnDescriptorOnlyAlsoZero) {
  const int saved = dup(0);
  close(0);
  UDPClient client;
  EXPECT_EQ(client.Init("udp://10.0.0.1:80", nullptr), 0);
  EXPECT_EQ(client.Send("x", 1), 0);
  EXPECT_EQ(platform.sent.back().fd, 0);
  client.Fini();
  EXPECT_EQ(fcntl(0, F_GETFD), -1) << "closed";
  EXPECT_EQ(dup(saved), 0) << "now somebody else's";
  client.Fini();
  EXPECT_NE(fcntl(0, F_GETFD), -1);
  close(saved);
}

TEST_F(UDPClientTest, AnOpenSocketIsClosedOnceTheNewUrlIsParsed) {
  UDPClient client;
  EXPECT_EQ(client.Init("udp://10.0.0.1:80", nullptr), 0);
  EXPECT_EQ(client.Init("udp://10.0.0.1:0", nullptr), GEN_ERR_ERR);
  EXPECT_EQ(test::CountOpenDescriptors(), descriptors + 1);
  platform.socket_errors = {ENOMEM};
  EXPECT_EQ(client.Init("udp://10.0.0.1:80", nullptr), GEN_ERR_ERR);
  EXPECT_EQ(test::CountOpenDescriptors(), descriptors);
}

TEST_F(UDPClientTest, ADatagramArrivesAsItWasGiven) {
  const int receiver = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof(address);
  ASSERT_EQ(bind(receiver, reinterpret_cast<sockaddr*>(&address), length), 0);
  ASSERT_EQ(getsockname(receiver, reinterpret_cast<sockaddr*>(&address), &length), 0);
  const std::string report("re\0port\n", 8);
  platform.is_sending_faked = false;
  UDPClient client;
  const std::string url = "udp://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
  EXPECT_EQ(client.Init(url.c_str(), &logger), 0);
  EXPECT_EQ(client.Send(report.data(), static_cast<int>(report.size())), 0);
  char received[64];
  const ssize_t size = recv(receiver, received, sizeof(received), 0);
  close(receiver);
  ASSERT_EQ(size, 8);
  EXPECT_EQ(std::string(received, 8), report);
}

}  // namespace
}  // namespace KorvainService
