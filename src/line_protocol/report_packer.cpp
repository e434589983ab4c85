#include "line_protocol/report_packer.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "line_protocol/detail/counter_fields.h"
#include "line_protocol/detail/line_writer.h"
#include "service_api/korvain/korvain_service_constant.h"

namespace KorvainService {

namespace detail {

namespace {

// A text without its NUL ends with its array.
template <size_t SIZE>
std::string_view TextIn(const char (&field)[SIZE]) {
  const std::string_view whole(field, SIZE);
  return whole.substr(0, whole.find('\0'));
}

bool IsGiven(const char* text) {
  return text != nullptr && *text != '\0';
}

std::string NameOrId(const char* name, int32_t id) {
  return IsGiven(name) ? std::string(name) : Decimal(id);
}

// A dash, since an address and a number joined by a colon read as a port.
std::string InstanceOf(const STATISTICPROCESSINFO& process) {
  std::string instance(TextIn(process.szIP));
  if (!instance.empty()) instance += '-';
  return instance + Decimal(process.iPid);
}

// A count written by the service API is not trusted to stay within its array.
int32_t SlotsInUse(int32_t count, int32_t limit) {
  return std::clamp(count, 0, limit);
}

// Writes the lines of one record.
class ReportLines {
 public:
  ReportLines(const SERVICEAPISTATISTIC& record, const ReportSettings& settings, std::string& text)
      : m_record(record), m_settings(settings), m_line(text) {
    LineWriter tags(m_common_tags);
    tags.Tag("set_name", NameOrId(settings.set_name, record.iSetID));
    tags.Tag("app", NameOrId(settings.app_name, record.iAppID));
    tags.Tag("zone", NameOrId(settings.zone_name, record.iZoneID));
    tags.Tag("instance",
             IsGiven(settings.instance) ? settings.instance : InstanceOf(record.stProcessInfo));
  }

  void AppendAll() {
    const int32_t tables = SlotsInUse(m_record.nTableCount, STATISTIC_MAX_TABLE_COUNT);
    const int32_t accesses = SlotsInUse(m_record.iAccessCount, STATISTIC_MAX_ACCESS_COUNT);
    AppendOverall(tables, accesses);
    for (int32_t slot = 0; slot < tables; ++slot) AppendTable(slot);
    const AddField add = [this](std::string_view name, int64_t value) {
      if (!name.empty()) m_line.NamedField(name, value);
    };
    for (int32_t slot = 0; slot < accesses; ++slot) AppendAccess(slot, add);
  }

 private:
  void AppendOverall(int32_t tables, int32_t accesses) {
    const OVERALLRUNSTATUS& overall = m_record.stOverallRunStatus;
    m_line.Begin("korvain_overall", m_common_tags);
    AddRates(overall, OVERALL_COUNTER_FIELDS);
    AddDelay(overall);
    m_line.Field("known_accesses", overall.nAccessCount);
    m_line.Field("max_update_interval", overall.dwMaxCallOnUpdateInterval);
    m_line.Field("table_lines", tables);
    m_line.Field("access_lines", accesses);
    m_line.Field("pid", m_record.stProcessInfo.iPid);
    const std::string_view user_text = TextIn(overall.szUserDefinedText);
    if (!user_text.empty()) m_line.TextField("user_text", user_text);
    EndLine();
  }

  void AppendTable(int32_t slot) {
    const TABLESTATISTIC& table = m_record.astTableStatistic[slot];
    m_line.Begin("korvain_table", m_common_tags);
    AddNameOrSlot("table", TextIn(table.szTableName), slot);
    AddRates(table.stTableRunStatus, TABLE_COUNTER_FIELDS);
    EndLine();
  }

  void AppendAccess(int32_t slot, const AddField& add) {
    const ACCESSSTATISTIC& access = m_record.astAccessStatistic[slot];
    m_line.Begin("korvain_access", m_common_tags);
    AddNameOrSlot("url", TextIn(access.stHostInfo.szUrl), slot);
    const std::string_view server = TextIn(access.stHostInfo.szSvrId);
    if (!server.empty()) m_line.Tag("server", server);
    AddRates(access.stAccessRunStatus, ACCESS_COUNTER_FIELDS);
    AddDelay(access.stAccessRunStatus);
    if (m_settings.access_fields) m_settings.access_fields(slot, add);
    EndLine();
  }

  void AddNameOrSlot(std::string_view key, std::string_view name, int32_t slot) {
    if (name.empty()) {
      m_line.Tag(key, '#' + Decimal(slot));
    } else {
      m_line.Tag(key, name);
    }
  }

  template <class Status, size_t COUNT>
  void AddRates(const Status& status, const CounterField (&fields)[COUNT]) {
    const char* const bytes = reinterpret_cast<const char*>(&status);
    for (const CounterField& field : fields) {
      uint32_t rate = 0;
      memcpy(&rate, bytes + field.offset, sizeof(rate));
      m_line.Field(field.key, rate);
    }
  }

  // Without a sample there is no delay: 0 would make a dead proxy the fastest.
  template <class Status>
  void AddDelay(const Status& status) {
    constexpr uint64_t MOST = std::numeric_limits<int64_t>::max();
    const uint32_t samples = status.dwCalculateAverageDelayResCount;
    const uint64_t mean = status.ullAverageDelay;
    m_line.Field("delay_samples", samples);
    if (samples != 0) m_line.Field("delay_ms", static_cast<int64_t>(std::min(mean, MOST)));
  }

  void EndLine() {
    if (m_settings.period_seconds > 0) m_line.Field("period_s", m_settings.period_seconds);
    m_line.End(m_settings.timestamp_ns);
  }

  const SERVICEAPISTATISTIC& m_record;
  const ReportSettings& m_settings;
  LineWriter m_line;
  std::string m_common_tags;
};

}  // namespace

}  // namespace detail

void AppendReport(const SERVICEAPISTATISTIC& record, const ReportSettings& settings,
                  std::string& text) {
  detail::ReportLines(record, settings, text).AppendAll();
}

std::string PackReport(const SERVICEAPISTATISTIC& record, const ReportSettings& settings) {
  std::string text;
  AppendReport(record, settings, text);
  return text;
}

}  // namespace KorvainService
