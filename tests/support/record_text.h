// Fills the texts of a record.
#ifndef KORVAIN_TESTS_RECORD_TEXT_H_
#define KORVAIN_TESTS_RECORD_TEXT_H_

#include <algorithm>
#include <cstring>
#include <string_view>

namespace KorvainService::test {

// A text as long as the field is not terminated.
template <size_t SIZE>
void SetText(char (&field)[SIZE], std::string_view text) {
  memset(field, 0, SIZE);
  memcpy(field, text.data(), std::min(SIZE, text.size()));
}

}  // namespace KorvainService::test

#endif  // KORVAIN_TESTS_RECORD_TEXT_H_
