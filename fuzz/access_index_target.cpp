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
    if (choice < 200) {
      const int slot = choice < 100 ? input.Byte() : input.Any<int32_t>();
      const bool is_taken = slot != INT32_MIN && model.try_emplace({zone, ip, port}, slot).second;
      FUZZ_CHECK(index.Insert(zone, ip, port, slot) ==
                 (is_taken ? 0 : KorvainService::GEN_ERR_ERR));
    } else {
      index.Clear(zone);
      model.erase(model.lower_bound({zone, INT32_MIN, INT32_MIN}),
                  model.upper_bound({zone, INT32_MAX, INT32_MAX}));
    }
    const auto found = model.find({zone, ip, port});
    FUZZ_CHECK(index.Find(zone, ip, port) == (found == model.end() ? -1 : found->second));
  }
  for (const auto& [key, slot] : model) {
    FUZZ_CHECK(std::apply([&](auto... part) { return index.Find(part...); }, key) == slot);
  }
  return 0;
}
