#include "service_api/udp_client_mgr.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "common/korvain_error_code.h"
#include "support/fake_platform.h"
#include "support/recording_logger.h"

namespace KorvainService {
namespace {

using test::DEBUG;
using test::LogLine;
using test::LogLines;

constexpr char ADD[] = "AddCollectServerAddress";

class UDPClientMgrTest : public ::testing::Test {
 protected:
  UDPClientMgrTest() {
    platform.is_sending_faked = true;
    platform.rand_value = 0;
    EXPECT_EQ(mgr->Init(&logger), 0);
  }
  ~UDPClientMgrTest() override {
    mgr.reset();
    EXPECT_EQ(test::CountOpenDescriptors(), descriptors);
  }

  LogLines Add(const std::vector<std::string>& urls) {
    std::vector<const char*> pointers;
    for (const std::string& url : urls) pointers.push_back(url.c_str());
    mgr->AddCollectServerAddress(pointers.data(), static_cast<int32_t>(pointers.size()));
    return logger.Take();
  }

  // The port that a send goes to, or the failure.
  int SendsTo() {
    const int result = mgr->Send("x", 1);
    logger.Take();
    return result != 0 ? result : ntohs(platform.sent.back().to.sin_port);
  }

  void FailASend() {
    platform.sendto_errors = {EAGAIN};
    EXPECT_EQ(mgr->Send("x", 1), GEN_ERR_ERR);
    logger.Take();
  }

  int descriptors = test::CountOpenDescriptors();
  test::FakePlatform platform;
  test::RecordingLogger logger;
  std::unique_ptr<UDPClientMgr> mgr = std::make_unique<UDPClientMgr>();
};

TEST_F(UDPClientMgrTest, RefusesTheseUrlsWithTheirReason) {
  const std::string separator_once = "the url is invalid, not include \":\", url:";
  const std::string separator_twice = "the url is invalid, include \":\" more than one, url:";
  const std::string prefix = "the url is invalid, not include \"udp://\", url:";
  struct Case {
    std::string url, reason;
  };
  for (const Case& row : {Case{"", prefix},
                          Case{"udp:/", prefix},
                          Case{"UDP://10.0.0.1:8080", prefix},
                          Case{" udp://10.0.0.1:80", prefix},
                          Case{"udp://10.0.0.1", separator_once},
                          Case{"udp://10.0.0.1:", separator_once},
                          Case{"udp://:80", separator_once},
                          Case{"udp://:80::", separator_once},
                          Case{"udp://10.0.0.1:8080:9090", separator_twice},
                          Case{"udp://", "strtok(, :) failed, url:"},
                          Case{"udp://:::", "strtok(:::, :) failed, url:"},
                          Case{"udp://10.0.0.256:80", "the ip is invalid, ip:10.0.0.256, url:"},
                          Case{"udp://10.0.0:80", "the ip is invalid, ip:10.0.0, url:"},
                          Case{"udp://10.0.0.1.5:80", "the ip is invalid, ip:10.0.0.1.5, url:"},
                          Case{"udp://10.0.0.a:80", "the ip is invalid, ip:10.0.0.a, url:"},
                          Case{"udp://10.0.0.0001:80", "the ip is invalid, ip:10.0.0.0001, url:"},
                          Case{"udp://10.0.0.-1:80", "the ip is invalid, ip:10.0.0.-1, url:"},
                          Case{"udp://...:80", "the ip is invalid, ip:..., url:"},
                          Case{"udp://10.0.0.1:65536", "the port is invalid, port:65536, url:"},
                          Case{"udp://10.0.0.1:000080", "the port is invalid, port:000080, url:"},
                          Case{"udp://10.0.0.1:80a", "the port is invalid, port:80a, url:"},
                          Case{"udp://10.0.0.1: 80", "the port is invalid, port: 80, url:"},
                          Case{"udp://10.0.0.1:" + std::string(118, '9'),
                               "the port is invalid, port:" + std::string(118, '9') + ", url:"}}) {
    EXPECT_EQ(Add({row.url}), (LogLines{{DEBUG, "CheckURL", row.reason + row.url},
                                        {DEBUG, ADD, "the url is invalid. url:" + row.url}}));
    EXPECT_EQ(SendsTo(), GEN_ERR_ERR);
  }
}

TEST_F(UDPClientMgrTest, RefusesNullAndOverlongUrlsInOneLine) {
  const std::string too_long = "udp://10.0.0.1" + std::string(118, ':') + "8";
  ASSERT_EQ(too_long.size(), 6u + 127u);
  EXPECT_EQ(Add({too_long}).front().func, std::string("ParseURL")) << "127 fit, the client refuses";
  EXPECT_EQ(Add({too_long + "0"}),
            (LogLines{{DEBUG, ADD, "the url is invalid. url:" + too_long + "0"}}));
  const char* null_url[] = {nullptr};
  mgr->AddCollectServerAddress(null_url, 1);
  EXPECT_EQ(logger.Take(), (LogLines{{DEBUG, ADD, "the url is invalid. url:(null)"}}));
}

TEST_F(UDPClientMgrTest, OpensTheseUrls) {
  struct Case {
    std::string url;
    int port;
  };
  for (const Case& row :
       {Case{"udp://10.0.0.1:8080", 8080}, Case{"udp://10.0.0.1:8081:", 8081},
        Case{"udp://:10.0.0.1:00082", GEN_ERR_ERR}, Case{"udp://010.000.255.1:65535", 65535},
        Case{"udp://10.0.0.1:0", GEN_ERR_ERR}, Case{"udp://10.0.0.1::80", GEN_ERR_ERR},
        Case{"udp://10..0.0.1:80", GEN_ERR_ERR}}) {
    const LogLines lines = Add({row.url});
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back().text, row.port > 0 ? "m_udp_client.Init() success. url:" + row.url
                                              : "all url for m_udp_client.Init() failed.");
    EXPECT_EQ(SendsTo(), row.port) << row.url;
  }
}

TEST_F(UDPClientMgrTest, KeepsTheFirst32ValidUrls) {
  std::vector<std::string> urls{"bad"};
  for (int port = 1; port <= 32; ++port) urls.push_back("udp://10.0.0.1:" + std::to_string(port));
  platform.rand_value = 31;
  EXPECT_EQ(Add(urls).back().text, "m_udp_client.Init() success. url:udp://10.0.0.1:32");
  EXPECT_EQ(SendsTo(), 32);
  urls.insert(urls.end(), {"bad", "udp://10.0.0.1:33", "never looked at"});
  const LogLines lines = Add(urls);
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_EQ(lines[4], (LogLine{DEBUG, ADD,
                               "the collect server count(32) >= STATISTIC_MAX_COLLECT_COUNT(32)"}));
  EXPECT_EQ(SendsTo(), 32);
}

TEST_F(UDPClientMgrTest, TriesEachUrlOnceFromARandomStart) {
  platform.rand_value = 3 * 1000 + 1;
  platform.socket_errors = {EMFILE, EMFILE, EMFILE};
  const std::vector<std::string> urls{"udp://10.0.0.1:1", "udp://10.0.0.1:2", "udp://10.0.0.1:3"};
  LogLines failures;
  for (const LogLine& line : Add(urls)) {
    if (line.func == ADD) failures.push_back(line);
  }
  const std::string text = "m_udp_client.Init() failed. ret:-256, url:";
  EXPECT_EQ(failures, (LogLines{{DEBUG, ADD, text + urls[1]},
                                {DEBUG, ADD, text + urls[2]},
                                {DEBUG, ADD, text + urls[0]},
                                {DEBUG, ADD, "all url for m_udp_client.Init() failed."}}));
  EXPECT_EQ(SendsTo(), GEN_ERR_ERR);
  platform.socket_errors = {EMFILE};
  Add(urls);
  EXPECT_EQ(SendsTo(), 3);
}

TEST_F(UDPClientMgrTest, AnEmptyListClosesAndAMissingOneDoesNot) {
  Add({"udp://10.0.0.1:1"});
  const char* const unused = "udp://10.0.0.1:9";
  const char* urls[] = {unused};
  mgr->AddCollectServerAddress(urls, 0);
  EXPECT_EQ(logger.Take(), (LogLines{{DEBUG, ADD, "the collect server count is zero."}}));
  EXPECT_EQ(SendsTo(), 1);
  for (const int32_t count : {-1, INT32_MIN, 3}) {
    Add({"udp://10.0.0.1:1"});
    mgr->AddCollectServerAddress(count > 0 ? nullptr : urls, count);
    EXPECT_TRUE(logger.Take().empty());
    EXPECT_EQ(SendsTo(), GEN_ERR_ERR);
    EXPECT_EQ(test::CountOpenDescriptors(), descriptors);
    mgr->Update();
    EXPECT_EQ(SendsTo(), GEN_ERR_ERR) << "no server to open";
  }
}

TEST_F(UDPClientMgrTest, MovesOnAfterEachFailedSend) {
  Add({"udp://10.0.0.1:1", "udp://10.0.0.1:2", "udp://10.0.0.1:0", "udp://10.0.0.1:4"});
  EXPECT_EQ(SendsTo(), 1);
  platform.sendto_errors = {EAGAIN};
  EXPECT_EQ(mgr->Send("x", 1), GEN_ERR_ERR);
  const LogLines lines = logger.Take();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[1], (LogLine{DEBUG, "Send", "m_udp_client->Send() failed."}));
  EXPECT_EQ(test::CountOpenDescriptors(), descriptors);
  const size_t sends = platform.sent.size();
  EXPECT_EQ(mgr->Send("x", 1), GEN_ERR_ERR);
  EXPECT_TRUE(logger.Take().empty());
  EXPECT_EQ(platform.sent.size(), sends) << "no system call while closed";

  // The first Update tries entry 0, whatever was in use; port 0 costs one Update.
  for (const int port : {1, 2, GEN_ERR_ERR, 4, 1}) {
    mgr->Update();
    EXPECT_EQ(SendsTo(), port);
    mgr->Update();
    if (port == GEN_ERR_ERR) {
      EXPECT_EQ(SendsTo(), 4) << "the next Update was the next attempt";
      FailASend();
      mgr->Update();
      EXPECT_EQ(SendsTo(), 1);
      break;
    }
    EXPECT_EQ(SendsTo(), port) << "an open channel is left alone";
    FailASend();
  }
  mgr->Update();
  EXPECT_TRUE(logger.Take().empty());
}

TEST_F(UDPClientMgrTest, TheTurnOfUpdateIsItsOwn) {
  std::make_unique<UDPClientMgr>()->Update();  // before Init
  platform.rand_value = 2;
  Add({"udp://10.0.0.1:1"});
  for (int i = 0; i < 3; ++i) {
    FailASend();
    mgr->Update();
    EXPECT_EQ(SendsTo(), 1) << "a lone server is opened again";
  }
  const std::vector<std::string> urls{"udp://10.0.0.1:1", "udp://10.0.0.1:2", "udp://10.0.0.1:3",
                                      "udp://10.0.0.1:4"};
  Add(urls);
  EXPECT_EQ(SendsTo(), 3);
  FailASend();
  mgr->Update();
  EXPECT_EQ(SendsTo(), 2) << "after the last turn, not after the server in use";
  Add(urls);
  EXPECT_EQ(SendsTo(), 3);
  FailASend();
  mgr->Update();
  EXPECT_EQ(SendsTo(), 3) << "kept by a new list";
  mgr->Init(&logger);
  Add(urls);
  FailASend();
  platform.socket_errors = {EMFILE};
  mgr->Update();
  EXPECT_EQ(logger.Take(), (LogLines{{DEBUG, "Init",
                                      "socket() failed. errno:24, errstr:Too many open files, "
                                      "url:udp://10.0.0.1:4"}}))
      << "kept by Init, and said by the client";
}

TEST_F(UDPClientMgrTest, EveryRefusedBufferCloses) {
  const std::vector<char> buffer(65537, 'x');
  struct Case {
    const char* buffer;
    int length, result;
  };
  for (const Case& row :
       {Case{buffer.data(), 0, API_ERR_PARAMETER_INVALID},
        Case{nullptr, 5, API_ERR_PARAMETER_INVALID}, Case{buffer.data(), 65537, GEN_ERR_ERR}}) {
    Add({"udp://10.0.0.1:1"});
    EXPECT_EQ(mgr->Send(row.buffer, row.length), row.result);
    EXPECT_EQ(test::CountOpenDescriptors(), descriptors);
    EXPECT_EQ(SendsTo(), GEN_ERR_ERR);
  }
}

TEST_F(UDPClientMgrTest, AShorterListTakesUpdateBackToItsStart) {
  Add({"udp://10.0.0.1:1", "udp://10.0.0.1:2", "udp://10.0.0.1:3"});
  for (const int port : {1, 2, 3}) {
    FailASend();
    mgr->Update();
    EXPECT_EQ(SendsTo(), port);
  }
  Add({"udp://10.0.0.1:8", "udp://10.0.0.1:9"});
  FailASend();
  mgr->Update();
  EXPECT_EQ(SendsTo(), 8);
}

TEST_F(UDPClientMgrTest, InitClosesForgetsAndSeeds) {
  Add({"udp://10.0.0.1:1"});
  platform.seeds.clear();
  const auto before = static_cast<unsigned int>(time(nullptr));
  EXPECT_EQ(mgr->Init(nullptr), 0);
  ASSERT_EQ(platform.seeds.size(), 1u);
  EXPECT_GE(platform.seeds[0], before);
  EXPECT_LE(platform.seeds[0], static_cast<unsigned int>(time(nullptr)));
  EXPECT_EQ(test::CountOpenDescriptors(), descriptors);
  mgr->Init(&logger);
  mgr->Update();
  EXPECT_TRUE(logger.Take().empty()) << "there is no server to try";
  EXPECT_EQ(SendsTo(), GEN_ERR_ERR);
  mgr->Init(nullptr);
  EXPECT_TRUE(Add({"udp://10.0.0.1:1", "bad"}).empty()) << "no logger now";
  EXPECT_EQ(SendsTo(), 1);
}

TEST_F(UDPClientMgrTest, LeaksNoDescriptorWhenTheSocketStaysBlocking) {
  platform.setfl_errors = {EINVAL, EINVAL, EINVAL};
  Add({"udp://10.0.0.1:1", "udp://10.0.0.1:2"});
  EXPECT_EQ(SendsTo(), GEN_ERR_ERR);
  EXPECT_EQ(test::CountOpenDescriptors(), descriptors + 1);
  mgr->Update();
  EXPECT_EQ(test::CountOpenDescriptors(), descriptors + 1);
  mgr->Update();
  EXPECT_EQ(SendsTo(), 2);
}

}  // namespace
}  // namespace KorvainService
