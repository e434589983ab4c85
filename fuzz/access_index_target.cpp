// The access index beside std::map.
#include <map>
#include <tuple>

#include "common/korvain_error_code.h"
#include "input.h"
#include "service_api/access_index.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  KorvainService::MapAccessIndex index;
  std::map<std::tuple<int, int, int>, int> model;
  while (!input.IsOver()) {
    const int choice = input.Byte();
    // Few values, so that accesses collide; now and then any, so that the table is mixed.
    const bool is_any = choice % 8 == 0;
    const int zone = is_any ? input.Any<int32_t>() : input.Below(4);
    const int ip = is_any ? input.Any<int32_t>() : input.Byte();
    const int port = is_any ? input.Any<int32_t>() : input.Below(2);
    const auto found = model.find({zone, ip, port});
    FUZZ_CHECK(index.Find(zone, ip, port) == (found == model.end() ? -1 : found->second));
    if (choice < 200) {
      const int slot = choice < 100 ? input.Byte() : input.Any<int32_t>();
      const bool is_refused = found != model.end() || slot == INT32_MIN;
      FUZZ_CHECK(index.Insert(zone, ip, port, slot) ==
                 (is_refused ? KorvainService::GEN_ERR_ERR : 0));
      if (!is_refused) model[{zone, ip, port}] = slot;
    } else {
      index.Clear(zone);
      for (auto entry = model.begin(); entry != model.end();) {
        entry = std::get<0>(entry->first) == zone ? model.erase(entry) : std::next(entry);
      }
    }
  }
  for (const auto& [key, slot] : model) {
    const auto [zone, ip, port] = key;
    FUZZ_CHECK(index.Find(zone, ip, port) == slot);
  }
  return 0;
}
