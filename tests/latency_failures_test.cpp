// What LatencyDataMgr does when a pool or its list fails it. The pool's functions are replaced when
// this program is linked (--wrap), and lists are damaged through the nodes that objslab_get gives.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "common/korvain_error_code.h"
#include "service_api/latency_data_mgr.h"
#include "support/recording_logger.h"

namespace {

// What fails once, as soon as the calls before have succeeded.
struct Fault {
  std::string_view what;
  int calls_before;
} fault;

bool are_frees_denied = false;    // a slot given back is said not to be, and the other way round
LIST_NODE* first_node = nullptr;  // of the scene
void* last_memory = nullptr;      // that objslab_get gave

bool Fails(std::string_view what) {
  return what == fault.what && fault.calls_before-- == 0;
}

}  // namespace

extern "C" {

int __real_objslab_is_full(LPOBJSLAB slab);
int __real_objslab_alloc(LPOBJSLAB slab);
void* __real_objslab_get(LPOBJSLAB slab, int id);
int __real_objslab_free(LPOBJSLAB slab, int id);

int __wrap_objslab_is_full(LPOBJSLAB slab) {
  return Fails("is_full") ? 1 : __real_objslab_is_full(slab);
}
int __wrap_objslab_alloc(LPOBJSLAB slab) {
  return Fails("alloc") ? -1 : __real_objslab_alloc(slab);
}
void* __wrap_objslab_get(LPOBJSLAB slab, int id) {
  if (Fails("get a linked node")) return first_node;
  return last_memory = Fails("get") ? nullptr : __real_objslab_get(slab, id);
}
int __wrap_objslab_free(LPOBJSLAB slab, int id) {
  return (__real_objslab_free(slab, id) == 0) == are_frees_denied ? 1 : 0;
}

}  // extern "C"

namespace KorvainService {
namespace {

// One manager with a request in flight, of the ids 0 and 0; the next ones are 131073 and 1.
struct Scene {
  Scene() {
    mgr.CreateStatisticMap(1, 7, 3);
    EXPECT_EQ(latency.Init(7, 3000, 100, &logger), 0);
    EXPECT_EQ(Push(), 0);
    first_node = static_cast<LIST_NODE*>(last_memory);
    PushWhereNodesAreFull();
    logger.TakeText();
  }

  // Long ago, and so timed out.
  int Push() { return latency.PushBack(3, 1000, static_cast<int>(inet_addr("10.0.0.1")), 9000); }
  int Complete() { return latency.CalculateDelay(0, 1010, &mgr); }
  int Sweep() { return latency.TraverseForDeleteTimeOutNode(&mgr); }
  void PushWhereNodesAreFull() {
    fault = {"is_full", 1};
    EXPECT_EQ(Push(), API_ERR_ALLOCATE_MEMORY);
  }
  uint32_t TimeOuts() {
    return mgr.GetServiceApiStatistic(7, 3)->stOverallRunStatus.dwTimeoutCountPerMin;
  }

  test::RecordingLogger logger;
  KorvainServiceStatisticMgr mgr;
  LatencyDataMgr latency;
};

TEST(LatencyFailures, PushBackGivesBackWhatItHadTaken) {
  const std::string record = "300 PushBack: objslab_free failed. id:131073\n";
  const std::string node = "300 PushBack: objslab_free failed. id:1\n";
  const std::string no_slot = "300 PushBack: objslab_alloc failed. \n";
  const std::string no_record = "300 PushBack: objslab_get for latency data pool failed. \n";
  const std::string no_node = "300 PushBack: objslab_get for bidirection list pool failed. \n";
  const std::string not_linked =
      "300 PushBack: m_bidirection_list->Insert() failed. send time:1000, ip:10.0.0.1, port:9000, "
      "zone_id:3\n";
  struct Case {
    Fault fault;
    std::string text;
    int result = API_ERR_ALLOCATE_MEMORY;
  };
  for (const Case& row : {Case{{"is_full", 0}, ""},
                          {{"alloc", 0}, no_slot},
                          {{"get", 0}, record + no_record},
                          {{"is_full", 1}, record},
                          {{"alloc", 1}, no_slot + record},
                          {{"get", 1}, record + node + no_node},
                          {{"get a linked node", 1}, record + node + not_linked, GEN_ERR_ERR}}) {
    SCOPED_TRACE(std::string(row.fault.what) + ' ' + std::to_string(row.fault.calls_before));
    Scene scene;
    fault = row.fault;
    are_frees_denied = true;
    EXPECT_EQ(scene.Push(), row.result);
    are_frees_denied = false;
    EXPECT_EQ(scene.logger.TakeText(), row.text);
    EXPECT_GE(scene.Push(), 0) << "the next attempt succeeds";
    EXPECT_EQ(scene.Complete(), 0);
  }
}

TEST(LatencyFailures, EachFullPoolHasACounterOfItsOwn) {
  Scene scene;  // which has had one full pool
  for (int i = 1; i < MAX_LOG_FREQUENCY; ++i) scene.PushWhereNodesAreFull();
  fault = {"is_full", 0};
  EXPECT_EQ(scene.Push(), API_ERR_ALLOCATE_MEMORY);
  EXPECT_EQ(scene.latency.Withdraw(55), GEN_ERR_ERR) << "nor do unknown ids share it";
  EXPECT_EQ(scene.logger.TakeText(), "");
  scene.PushWhereNodesAreFull();
  EXPECT_EQ(scene.logger.TakeText(), "300 PushBack: objslab is full, frequency:100000\n");
}

TEST(LatencyFailures, ADamagedNodeIsNotUnlinked) {
  Scene scene;
  LIST_NODE stranger{};
  first_node->pPrev = &stranger;
  EXPECT_EQ(scene.Sweep(), GEN_ERR_ERR);
  EXPECT_EQ(scene.TimeOuts(), 1u);
  EXPECT_NE(scene.latency.Find(0), nullptr) << "still in flight";
  EXPECT_EQ(scene.Complete(), GEN_ERR_ERR);
  EXPECT_EQ(scene.latency.Find(0), nullptr) << "its record is gone all the same";
  const int second_id = scene.Push();
  first_node->pNext->pPrev = &stranger;
  EXPECT_EQ(scene.latency.Withdraw(second_id), GEN_ERR_ERR);
  EXPECT_EQ(scene.logger.TakeText(),
            "300 TraverseForDeleteTimeOutNode: m_bidirection_list->Remove() failed.\n"
            "300 CalculateDelay: m_bidirection_list->Remove() failed.\n"
            "300 Withdraw: m_bidirection_list->Remove() failed.\n");
}

TEST(LatencyFailures, TheSweepPassesOverDamageThatCountsTowardsTheLimit) {
  Scene scene;
  for (int i = 0; i < 2; ++i) scene.Push();
  auto* const last = static_cast<LatencyData*>(first_node->pNext->pNext->pData);
  last->id_for_latency_data = 55;
  last->id_for_list_node = 66;
  first_node->pData = nullptr;
  scene.latency.SetLimit(2);
  for (const uint32_t expired : {1u, 2u}) {
    EXPECT_EQ(scene.Sweep(), 0);
    EXPECT_EQ(scene.TimeOuts(), expired);
  }
  EXPECT_EQ(scene.logger.TakeText(),
            "300 TraverseForDeleteTimeOutNode: objslab_free failed. id:55\n"
            "300 TraverseForDeleteTimeOutNode: objslab_free failed. id:66\n");
}

}  // namespace
}  // namespace KorvainService
