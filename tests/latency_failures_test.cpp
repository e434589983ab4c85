// What LatencyDataMgr does when a pool or its list fails it. The pool's functions are replaced when
// this program is linked (--wrap), and lists are damaged through the nodes that objslab_get gives.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "common/korvain_error_code.h"
#include "service_api/latency_data_mgr.h"

namespace {

using Events = std::vector<std::string>;

constexpr int NONE = 0;

// The pools' behaviour: which call, counted from 1 since Restart, fails; and what was seen.
struct Pools {
  void Restart() { *this = Pools(); }

  int failing_is_full = NONE;
  int failing_alloc = NONE;
  int failing_get = NONE;
  void* instead_of_null = nullptr;  // what a failing objslab_get gives
  bool is_free_failing = false;

  int is_full_calls = 0;
  int alloc_calls = 0;
  int get_calls = 0;
  void* last_memory = nullptr;
  Events events;  // slots given back, and log lines
};

Pools pools;

}  // namespace

extern "C" {

int __real_objslab_is_full(LPOBJSLAB slab);
int __real_objslab_alloc(LPOBJSLAB slab);
void* __real_objslab_get(LPOBJSLAB slab, int id);
int __real_objslab_free(LPOBJSLAB slab, int id);

int __wrap_objslab_is_full(LPOBJSLAB slab) {
  return ++pools.is_full_calls == pools.failing_is_full ? 1 : __real_objslab_is_full(slab);
}

int __wrap_objslab_alloc(LPOBJSLAB slab) {
  return ++pools.alloc_calls == pools.failing_alloc ? -1 : __real_objslab_alloc(slab);
}

void* __wrap_objslab_get(LPOBJSLAB slab, int id) {
  if (++pools.get_calls == pools.failing_get) return pools.instead_of_null;
  return pools.last_memory = __real_objslab_get(slab, id);
}

int __wrap_objslab_free(LPOBJSLAB slab, int id) {
  pools.events.push_back("free " + std::to_string(id));
  return pools.is_free_failing ? -1 : __real_objslab_free(slab, id);
}

}  // extern "C"

namespace KorvainService {

int64_t GetCurrentMilliseconds() {
  return 9000;
}

namespace {

class EventLogger : public Logger {
 public:
  void Log(LogLevel level, int, int, const char*, int, const char* func, const char* fmt,
           ...) override {
    char text[512];
    va_list arguments;
    va_start(arguments, fmt);
    vsnprintf(text, sizeof(text), fmt, arguments);
    va_end(arguments);
    pools.events.push_back(std::to_string(level) + ' ' + func + ": " + text);
  }
  bool IsPriorityEnabled(LogLevel) override { return false; }
  void* GetLoggerHandle() override { return nullptr; }
};

constexpr int APP = 7;
constexpr int ZONE = 3;
constexpr int PORT = 9000;
const auto IP = static_cast<int32_t>(inet_addr("10.0.0.1"));

// One manager with a first request in flight, of the ids 0 and 0; the next ones are 131073 and 1.
struct Scene {
  Scene() {
    mgr.CreateStatisticMap(1, APP, ZONE);
    EXPECT_EQ(latency.Init(APP, 3000, 100, &logger), 0);
    pools.Restart();
    first_id = Push();
    first_node = static_cast<LIST_NODE*>(pools.last_memory);
    pools.failing_is_full = pools.is_full_calls + 2;
    EXPECT_EQ(Push(), API_ERR_ALLOCATE_MEMORY);
    EXPECT_EQ(pools.events, Events{"free 1"});
    pools.Restart();
  }

  int Push() { return latency.PushBack(ZONE, 1000, IP, PORT); }
  int Complete(int id) { return latency.CalculateDelay(id, 1010, &mgr); }
  int Sweep() { return latency.TraverseForDeleteTimeOutNode(&mgr); }
  uint32_t TimeOuts() {
    return mgr.GetServiceApiStatistic(APP, ZONE)->stOverallRunStatus.dwTimeoutCountPerMin;
  }

  EventLogger logger;
  KorvainServiceStatisticMgr mgr;
  LatencyDataMgr latency;
  int first_id = -1;
  LIST_NODE* first_node = nullptr;
};

// What is seen when slots that are to be given back are refused: a line after each.
Events WithRefusedFrees(const Events& events) {
  Events with_lines;
  for (const std::string& event : events) {
    with_lines.push_back(event);
    if (event.rfind("free ", 0) == 0) {
      with_lines.push_back("300 PushBack: objslab_free failed. id:" + event.substr(5));
    }
  }
  return with_lines;
}

TEST(LatencyFailures, PushBackGivesBackWhatItHadTaken) {
  const std::string no_slot = "300 PushBack: objslab_alloc failed. ";
  const std::string no_record = "300 PushBack: objslab_get for latency data pool failed. ";
  const std::string no_node = "300 PushBack: objslab_get for bidirection list pool failed. ";
  const std::string not_linked =
      "300 PushBack: m_bidirection_list->Insert() failed. send time:1000, ip:10.0.0.1, port:9000, "
      "zone_id:3";
  const std::string record = "free 131073";
  const std::string node = "free 1";
  struct Case {
    const char* what;
    int failing_is_full, failing_alloc, failing_get;
    bool gets_linked_node;
    int result;
    Events events;
  };
  const Case cases[] = {
      {"records full", 1, 0, 0, false, API_ERR_ALLOCATE_MEMORY, {}},
      {"no record slot", 0, 1, 0, false, API_ERR_ALLOCATE_MEMORY, {no_slot}},
      {"no record", 0, 0, 1, false, API_ERR_ALLOCATE_MEMORY, {record, no_record}},
      {"nodes full", 2, 0, 0, false, API_ERR_ALLOCATE_MEMORY, {record}},
      {"no node slot", 0, 2, 0, false, API_ERR_ALLOCATE_MEMORY, {no_slot, record}},
      {"no node", 0, 0, 2, false, API_ERR_ALLOCATE_MEMORY, {record, node, no_node}},
      {"node is the tail", 0, 0, 2, true, GEN_ERR_ERR, {record, node, not_linked}},
  };
  for (const Case& row : cases) {
    for (const bool is_free_failing : {false, true}) {
      SCOPED_TRACE(std::string(row.what) + (is_free_failing ? ", frees refused" : ""));
      Scene scene;
      pools.failing_is_full = row.failing_is_full;
      pools.failing_alloc = row.failing_alloc;
      pools.failing_get = row.failing_get;
      pools.instead_of_null = row.gets_linked_node ? scene.first_node : nullptr;
      pools.is_free_failing = is_free_failing;
      EXPECT_EQ(scene.Push(), row.result);
      EXPECT_EQ(pools.events, is_free_failing ? WithRefusedFrees(row.events) : row.events);

      pools.Restart();
      EXPECT_GE(scene.Push(), 0) << "the next attempt succeeds";
      EXPECT_EQ(scene.Complete(scene.first_id), 0);
      EXPECT_EQ(pools.events, Events());
    }
  }
}

TEST(LatencyFailures, EachFullPoolHasACounterOfItsOwn) {
  Scene scene;
  const auto push_with_full_nodes = [&] {
    pools.Restart();
    pools.failing_is_full = 2;
    EXPECT_EQ(scene.Push(), API_ERR_ALLOCATE_MEMORY);
  };
  for (int i = 1; i < MAX_LOG_FREQUENCY; ++i) push_with_full_nodes();  // the scene had one
  pools.Restart();
  pools.failing_is_full = 1;
  EXPECT_EQ(scene.Push(), API_ERR_ALLOCATE_MEMORY);
  EXPECT_EQ(pools.events, Events());
  push_with_full_nodes();
  ASSERT_EQ(pools.events.size(), 2u);
  EXPECT_EQ(pools.events[0], "300 PushBack: objslab is full, frequency:100000");
  EXPECT_EQ(pools.events[1].rfind("free ", 0), 0u);
}

TEST(LatencyFailures, ADamagedNodeIsNotUnlinked) {
  Scene scene;
  LIST_NODE stranger{};
  scene.first_node->pPrev = &stranger;
  EXPECT_EQ(scene.Complete(scene.first_id), GEN_ERR_ERR);
  EXPECT_EQ(pools.events, Events{"300 CalculateDelay: m_bidirection_list->Remove() failed."});
  EXPECT_EQ(scene.Complete(scene.first_id), GEN_ERR_ERR) << "its record is gone all the same";

  Scene swept;
  swept.first_node->pPrev = &stranger;
  EXPECT_EQ(swept.Sweep(), GEN_ERR_ERR);
  EXPECT_EQ(pools.events,
            Events{"300 TraverseForDeleteTimeOutNode: m_bidirection_list->Remove() failed."});
  EXPECT_EQ(swept.TimeOuts(), 1u);
  EXPECT_EQ(swept.Complete(swept.first_id), GEN_ERR_ERR) << "still in flight, still not linked";
}

TEST(LatencyFailures, ANodeWithoutDataIsPassedOver) {
  Scene scene;
  scene.Push();
  scene.first_node->pData = nullptr;
  EXPECT_EQ(scene.Sweep(), 0);
  EXPECT_EQ(scene.TimeOuts(), 1u) << "only the request behind it";
  EXPECT_EQ(pools.events, Events());

  Scene limited;
  limited.latency.SetLimit(1);
  limited.Push();
  limited.first_node->pData = nullptr;
  EXPECT_EQ(limited.Sweep(), 0);
  EXPECT_EQ(limited.TimeOuts(), 0u) << "it counts towards the limit";
  EXPECT_EQ(limited.Sweep(), 0);
  EXPECT_EQ(limited.TimeOuts(), 1u);
}

TEST(LatencyFailures, TheSweepReportsSlotsThatAreNotGivenBack) {
  Scene scene;
  auto* const request = static_cast<LatencyData*>(scene.first_node->pData);
  request->id_for_latency_data = 55;
  request->id_for_list_node = 66;
  const int next = scene.Push();
  EXPECT_EQ(scene.Sweep(), 0);
  EXPECT_EQ(pools.events, (Events{"300 TraverseForDeleteTimeOutNode: objslab_free failed. id:55",
                                  "300 TraverseForDeleteTimeOutNode: objslab_free failed. id:66"}));
  EXPECT_EQ(scene.TimeOuts(), 2u) << "the steps go on";
  EXPECT_EQ(scene.Complete(next), GEN_ERR_ERR);
}

}  // namespace
}  // namespace KorvainService
