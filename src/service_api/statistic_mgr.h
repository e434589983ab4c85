// The statistics registry: report records, report options, access index and names.
#ifndef KORVAIN_STATISTIC_MGR_H_
#define KORVAIN_STATISTIC_MGR_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>

#include "service_api/access_index.h"
#include "service_api/detail/probe_table.h"
#include "service_api/korvain/korvain_service_constant.h"
#include "service_api/korvain/korvain_service_log.h"
#include "service_api/service_api_statistic.h"
#include "service_api/statistic_key.h"

#pragma GCC visibility push(default)  // also where a project hides its own symbols

namespace KorvainService {

// Report settings of one application and zone. Times are seconds on the clock of
// GetCurrentMilliseconds.
struct StatisticOption {
  int32_t report_period;
  int64_t last_report_time;
  int32_t business_id;
  int32_t metalib_id;
  int32_t dynamic_error_code;
  char user_define_text[512];
};

// Spreads statistic keys over the low bits about as evenly as chance does, whichever bits of either
// id they differ in. One multiplication is not enough for that: it carries nothing down to the low
// bits. Constants and shift are those that did best of many, over ids spaced in many ways beside a
// fixed other id, 0 included.
struct StatisticKeyHash {
  size_t operator()(int64_t key) const {
    const uint64_t product = static_cast<uint64_t>(key) * 0xBF58476D1CE4E5B9u;
    return static_cast<size_t>((product ^ product >> 29) * 0x8EBC6AF09C88C6E3u >> 32);
  }
};

using StatisticHashMap =
    detail::ProbeTable<int64_t, SERVICEAPISTATISTIC*, StatisticKeyHash, nullptr>;
using StatisticOptionMap = std::unordered_map<int64_t, StatisticOption>;
using StatisticIdNameMap = std::unordered_map<int32_t, std::string>;

// Owns one report record and one set of report options per application and zone, the index of
// accesses and three tables of names.
//
// Not thread-safe: the caller serialises all calls, those of LatencyDataMgr and JudgeProxy that
// reach into the records included. Records are never moved or freed before the manager is
// destroyed, so pointers to records and to their parts stay valid for its whole life. Operations
// throw nothing but std::bad_alloc, when an entry of a map or a name cannot be allocated; nothing
// leaks then and the manager stays usable. Failures are logged at ERROR, a new record and a new
// access at DEBUG; a record that is cleared because a clock has gone back is not logged.
class KorvainServiceStatisticMgr {
 public:
  KorvainServiceStatisticMgr() = default;
  ~KorvainServiceStatisticMgr();
  KorvainServiceStatisticMgr(const KorvainServiceStatisticMgr&) = delete;
  KorvainServiceStatisticMgr& operator=(const KorvainServiceStatisticMgr&) = delete;

  // Takes the logger, which is borrowed and may be null (no logging). Returns 0. May be called at
  // any time, and need not be called at all.
  int Init(Logger* logger);

  // Makes sure that the record and the options of (app_id, zone_id) exist; comes before everything
  // else for the pair but setters, which may come earlier. For an existing record it refreshes set
  // id, local address and process id and keeps all counts. Returns 0, API_ERR_ALLOCATE_MEMORY when
  // the access index or the record cannot be allocated, or GEN_ERR_ERR when the record cannot be
  // entered.
  int CreateStatisticMap(int set_id, int app_id, int zone_id);

  // Registers a proxy endpoint: gives it the next slot of the record's access array and enters it
  // in the access index. The record keeps `url` without its first six characters, which are taken
  // for a scheme prefix and cut off from any text, at most 127 characters, and at most 31
  // characters of `svr_id`.
  //
  // API_ERR_PARAMETER_INVALID for a null text. Else 0 when the index holds the access already,
  // whichever application registered it: nothing changes then. Else GEN_ERR_ERR when the pair has
  // no record, the record holds 256 accesses, or its iAccessCount is negative; or else 0.
  //
  // All applications of a zone share the index. An access that one has registered is not added for
  // another, and its slot may be that of another access in the other's record, where delays and
  // time-outs then go. So applications that share a zone must not share endpoints.
  int AddAccess(int32_t app_id, int32_t zone_id, const char* url, int ip, int port,
                const char* svr_id);

  // The slot of an access, or -1. It belongs to the record of the application that registered the
  // access, and is valid there only while it is below the record's iAccessCount: Reset, and a clock
  // that goes back, empty the record's array and leave the index alone.
  int FindAccessIndex(int32_t zone_id, int32_t ip, int32_t port) const {
    return m_access_index_map == nullptr ? INVALID_ARRAY_INDEX
                                         : m_access_index_map->Find(zone_id, ip, port);
  }

  // Forgets the slots of all accesses of the zone, so that they can be added again after Reset.
  // Those of every application: where several share a zone, reset all their records first. Costs
  // what the accesses of this zone cost, however many others there are.
  void ClearAccess(int32_t zone_id);

  // Finds or enters a table in the record's array of tables, so that it can be counted in. The
  // first 127 characters of `name` count. Walks the array, so the index is to be kept; it is valid
  // until Reset, or a clock that goes back, empties the tables: add them again then, like the
  // accesses.
  //
  // Returns the index in astTableStatistic, 0 to 255; API_ERR_PARAMETER_INVALID for a null or empty
  // name; GEN_ERR_ERR when the pair has no record, when the name is new and 256 tables are in use,
  // and when the record's nTableCount is negative.
  int AddTable(int32_t app_id, int32_t zone_id, const char* name);

  // The record of the pair, owned by the manager, or null when there is none.
  SERVICEAPISTATISTIC* GetServiceApiStatistic(int app_id, int zone_id) {
    return m_statistic_map.Find(GetKey(app_id, zone_id));
  }

  // Clears the record of the pair for a new period: tables, overall counts and text, accesses. Ids,
  // process information, options and access index are kept, so ClearAccess of the zone and
  // AddAccess of every access come next, and AddTable of every table. No effect when there is no
  // record.
  void Reset(int app_id, int zone_id);

  // The counters of an access of the record's zone, for the caller to count in, or null when the
  // index does not hold the access or its slot is not below the record's iAccessCount, as after
  // Reset or a clock that has gone back. Whether the slot is that access's in this record is not
  // looked at: see AddAccess for applications that share a zone. The second form finds the record
  // first.
  ACCESSRUNSTATUS* GetAccessRunStatus(SERVICEAPISTATISTIC& statistic, int32_t ip, int32_t port);
  ACCESSRUNSTATUS* GetAccessRunStatus(int app_id, int zone_id, int32_t ip, int32_t port);

  // Settings of the pair's reports, of which the ids are only stored. Each setter creates the
  // options of a pair that has none, with the defaults: period 60, last report at the last full
  // second of GetCurrentMilliseconds, ids 0, empty text. Getters give 0 for such a pair.

  // Seconds between two reports, 60 or more; anything below becomes 60.
  void SetReportPeriod(int32_t app_id, int32_t zone_id, int32_t period);
  // Seconds; to be set after each report, which stays due until then.
  void SetLastReportTime(int32_t app_id, int32_t zone_id, int64_t last_report_time);
  void SetBusinessId(int32_t app_id, int32_t zone_id, int32_t business_id);
  int32_t GetBusinessId(int32_t app_id, int32_t zone_id) const;
  void SetMetalibId(int32_t app_id, int32_t zone_id, int32_t metalib_id);
  int32_t GetMetalibId(int32_t app_id, int32_t zone_id) const;
  // Text that CalculateAverage copies into each report: the first 511 characters, copied here. A
  // null text stands for the empty one.
  void SetUserDefineText(int32_t app_id, int32_t zone_id, const char* user_define_text);

  // Whether a report is due at `cur_time` (seconds): a report period has passed since the last one.
  // False for a pair without options.
  // When the clock has gone back behind the last report, clears the record (as Reset does), takes
  // `cur_time` for the last report and answers false. The access array is empty then, which
  // iAccessCount == 0 shows: clear the zone and add its accesses again, or nothing is counted for
  // them and GetAccessRunStatus gives null.
  bool IsShouldReportStatisticNow(int32_t app_id, int32_t zone_id, int64_t cur_time);

  // Rewrites the record for its report: counts become events per minute since the last report,
  // delay sums become means, and the user-defined text is copied in. To be called once per report.
  // When no time has passed since the last report or the clock has gone back, clears the record and
  // takes `cur_time` for the last report instead, see IsShouldReportStatisticNow. No effect for a
  // pair without options or record.
  // Of tables and accesses at most the first 256 are rewritten, whatever the counts say.
  //
  // A rate is count * 60 modulo 2^32, divided by the seconds passed and rounded down: one event in
  // more than 60 seconds is a rate of 0, and counts above 71,582,788 wrap. Means are rounded down.
  void CalculateAverage(int32_t app_id, int32_t zone_id, int64_t cur_time);

  // Names for ids, copied; a null name stands for the empty one. A getter gives null for an id
  // without name, else a pointer that is valid until the next setter call for the same id.
  void SetSetIdAndName(int32_t set_id, const char* set_name);
  void SetAppIdAndName(int32_t app_id, const char* app_name);
  void SetZoneIdAndName(int32_t zone_id, const char* zone_name);
  const char* GetSetName(int32_t set_id) const;
  const char* GetAppName(int32_t app_id) const;
  const char* GetZoneName(int32_t zone_id) const;

  // One more id among the settings of the pair's reports.
  void SetDynamicErrorCode(int32_t app_id, int32_t zone_id, int32_t dynamic_error_code);
  int32_t GetDynamicErrorCode(int32_t app_id, int32_t zone_id) const;

 private:
  friend class LatencyDataMgr;

  // GetAccessRunStatus for a caller that knows the access's hash (StatisticAccessInfoHash) already.
  ACCESSRUNSTATUS* HashedAccess(SERVICEAPISTATISTIC& statistic, const StatisticAccessInfo& access,
                                size_t hash) const {
    if (m_access_index_map == nullptr) return nullptr;
    const int index = m_access_index_map->FindHashed(access, hash);
    if (index < 0 || index >= statistic.iAccessCount) return nullptr;
    return &statistic.astAccessStatistic[index].stAccessRunStatus;
  }

  StatisticOption* FindOption(int32_t app_id, int32_t zone_id);
  const StatisticOption* FindOption(int32_t app_id, int32_t zone_id) const;
  StatisticOption& FindOrMakeOption(int32_t app_id, int32_t zone_id);
  static StatisticOption MakeFreshOption();
  static void FillIdentity(SERVICEAPISTATISTIC& statistic, int set_id, int app_id, int zone_id);
  void RestartPeriod(StatisticOption& option, int32_t app_id, int32_t zone_id, int64_t cur_time);
  static void GetLocalIP(char* ip, int len);

  MapAccessIndex* m_access_index_map = nullptr;  // owned
  StatisticHashMap m_statistic_map;              // the records are owned
  StatisticIdNameMap m_set_map;
  StatisticIdNameMap m_app_map;
  StatisticIdNameMap m_zone_map;
  StatisticOptionMap m_option_map;
  Logger* m_logger = nullptr;  // borrowed
};

}  // namespace KorvainService

#pragma GCC visibility pop

#endif  // KORVAIN_STATISTIC_MGR_H_
