#include <algorithm>

#include "line_protocol/report_packer.h"

namespace KorvainService {

DatagramSplit SplitIntoDatagrams(std::string_view text, size_t max_size) {
  const size_t limit = std::min(max_size, MAX_UDP_PAYLOAD);
  DatagramSplit split;
  size_t begin = 0;  // of the datagram that is being filled
  const auto finish_datagram = [&](size_t end) {
    if (end > begin) split.datagrams.push_back(text.substr(begin, end - begin));
  };
  for (size_t line = 0; line < text.size();) {
    const size_t line_end = std::min(text.find('\n', line), text.size() - 1) + 1;
    if (line_end - line > limit) {
      finish_datagram(line);
      ++split.lines_left_out;
      begin = line_end;
    } else if (line_end - begin > limit) {
      finish_datagram(line);
      begin = line;
    }
    line = line_end;
  }
  finish_datagram(text.size());
  return split;
}

}  // namespace KorvainService
