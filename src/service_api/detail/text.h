// Texts in fixed arrays. Not installed.
#ifndef KORVAIN_DETAIL_TEXT_H_
#define KORVAIN_DETAIL_TEXT_H_

#include <cstddef>
#include <cstring>

namespace KorvainService::detail {

// Copies as much of `text` as fits before the terminating NUL and fills the rest of `field` with
// zero bytes. A null text stands for the empty one. Reads no further than `size` bytes of `text`.
inline void CopyText(char* field, size_t size, const char* text) {
  const size_t length = text == nullptr ? 0 : strnlen(text, size - 1);
  if (length > 0) memmove(field, text, length);
  memset(field + length, 0, size - length);
}

template <size_t SIZE>
void CopyText(char (&field)[SIZE], const char* text) {
  CopyText(field, SIZE, text);
}

inline constexpr size_t SCHEME_LENGTH = 6;

// The text behind the scheme prefix, which is skipped unseen; the empty text when `url` is shorter
// than that.
inline const char* SkipScheme(const char* url) {
  return url + strnlen(url, SCHEME_LENGTH);
}

}  // namespace KorvainService::detail

#endif  // KORVAIN_DETAIL_TEXT_H_
