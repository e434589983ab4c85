// All that a service API includes to use the statistics module.
#ifndef KORVAIN_SERVICE_STATISTIC_H_
#define KORVAIN_SERVICE_STATISTIC_H_

#include "common/korvain_error_code.h"
#include "service_api/access_index.h"
#include "service_api/judge_proxy.h"
#include "service_api/korvain/korvain_service_clock.h"
#include "service_api/korvain/korvain_service_constant.h"
#include "service_api/korvain/korvain_service_log.h"
#include "service_api/latency_data_mgr.h"
#include "service_api/service_api_statistic.h"
#include "service_api/statistic_key.h"
#include "service_api/statistic_mgr.h"
#include "service_api/udp_client.h"
#include "service_api/udp_client_mgr.h"

#endif  // KORVAIN_SERVICE_STATISTIC_H_
