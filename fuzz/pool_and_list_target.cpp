// The pool beside a map of what each slot holds, and two lists beside std::list.
#include <algorithm>
#include <array>
#include <cstring>
#include <list>
#include <map>
#include <vector>

#include "comm/objslab.h"
#include "input.h"
#include "net/bi_list.h"

namespace {

class PoolRun {
 public:
  explicit PoolRun(fuzz::Input& input)
      : m_slot_count(1 + input.Below(9)), m_slot_size(1 + static_cast<size_t>(input.Below(70))) {
    FUZZ_CHECK(objslab_new(&m_pool, m_slot_count, m_slot_size) == 0);
    FUZZ_CHECK(objslab_get_size(m_pool) >= static_cast<size_t>(m_slot_count) * m_slot_size);
  }

  void Step(fuzz::Input& input) {
    if (input.Below(2) == 0) {
      Take(static_cast<char>(input.Byte()));
    } else {
      GiveBack(PickId(input));
    }
    FUZZ_CHECK((objslab_is_full(m_pool) != 0) == (m_used.size() == CountAsSize()));
    for (const auto& [id, content] : m_used) ExpectContent(id, content);
  }

  void End() {
    objslab_destroy(&m_pool);
    FUZZ_CHECK(m_pool == nullptr);
  }

 private:
  size_t CountAsSize() const { return static_cast<size_t>(m_slot_count); }

  void Take(char content) {
    const int id = objslab_alloc(m_pool);
    if (m_used.size() == CountAsSize()) {
      FUZZ_CHECK(id == -1);
      return;
    }
    if (m_next_ids.empty()) {
      FUZZ_CHECK(id == m_touched++);
    } else {
      FUZZ_CHECK(id == m_next_ids.back());
      m_next_ids.pop_back();
    }
    void* const memory = objslab_get(m_pool, id);
    FUZZ_CHECK(memory != nullptr && reinterpret_cast<uintptr_t>(memory) % alignof(double) == 0);
    memset(memory, content, m_slot_size);
    m_used[id] = content;
  }

  // One in use, one that was, one that may come, or any.
  int PickId(fuzz::Input& input) const {
    const int base = input.Below(m_slot_count) + 131072 * input.Below(4);
    switch (input.Below(8)) {
      case 0:
        return input.Any<int32_t>();
      case 1:
        return base;
      case 2:
        return base | INT32_MIN;
      default:
        return m_used.empty()
                   ? base
                   : std::next(m_used.begin(), base % static_cast<int>(m_used.size()))->first;
    }
  }

  void GiveBack(int id) {
    const bool is_known = m_used.erase(id) > 0;
    FUZZ_CHECK((objslab_get(m_pool, id) != nullptr) == is_known);
    FUZZ_CHECK((objslab_free(m_pool, id) == 0) == is_known);
    FUZZ_CHECK(objslab_get(m_pool, id) == nullptr && objslab_free(m_pool, id) != 0);
    if (is_known) m_next_ids.push_back(id + 131072);
  }

  void ExpectContent(int id, char content) const {
    const char* const memory = static_cast<const char*>(objslab_get(m_pool, id));
    FUZZ_CHECK(memory != nullptr);
    for (size_t i = 0; i < m_slot_size; ++i) FUZZ_CHECK(memory[i] == content);
  }

  LPOBJSLAB m_pool = nullptr;
  int m_slot_count;
  size_t m_slot_size;
  int m_touched = 0;
  std::map<int, char> m_used;
  std::vector<int> m_next_ids;  // of released slots, the last released at the back
};

class ListRun {
 public:
  // Nodes that stand in the middle of a list are not linked again, and none is taken out of the
  // other list's middle: what that would damage is the caller's to avoid.
  void Step(fuzz::Input& input) {
    const auto one = static_cast<size_t>(input.Below(2));
    LIST_NODE* const node = &m_nodes[static_cast<size_t>(input.Below(NODES))];
    LIST_NODE* const before = &m_nodes[static_cast<size_t>(input.Below(NODES))];
    std::list<LIST_NODE*>& model = m_models[one];
    const bool is_free = !IsIn(model, node) && !IsIn(m_models[1 - one], node);
    const bool is_end = !model.empty() && (model.front() == node || model.back() == node);
    switch (input.Below(8)) {
      case 0:
      case 1:
      case 2:
        if (!is_free && !is_end) break;
        FUZZ_CHECK(m_lists[one].Insert(node) == is_free);
        if (is_free) model.push_back(node);
        break;
      case 3:
        if ((!is_free && !is_end) || IsIn(m_models[1 - one], before)) break;
        FUZZ_CHECK(m_lists[one].Insert_Before(node, before) == (is_free && IsIn(model, before)));
        if (is_free && IsIn(model, before)) {
          model.insert(std::find(model.begin(), model.end(), before), node);
        }
        break;
      case 4:
      case 5:
        if (IsIn(m_models[1 - one], node)) break;
        FUZZ_CHECK(m_lists[one].Remove(node) == IsIn(model, node));
        model.remove(node);
        FUZZ_CHECK(node->pPrev == nullptr && node->pNext == nullptr);
        break;
      case 6:
        m_lists[one].Merge(m_lists[1 - one]);
        model.splice(model.end(), m_models[1 - one]);
        break;
      default:
        m_lists[one].Reset();
        for (LIST_NODE* forgotten : model) *forgotten = LIST_NODE();
        model.clear();
    }
    for (size_t i = 0; i < 2; ++i) ExpectAgreement(m_lists[i], m_models[i]);
  }

 private:
  static constexpr int NODES = 9;

  static bool IsIn(const std::list<LIST_NODE*>& model, const LIST_NODE* node) {
    return std::find(model.begin(), model.end(), node) != model.end();
  }

  static void ExpectAgreement(const CBidirList& list, const std::list<LIST_NODE*>& model) {
    FUZZ_CHECK(list.Count() == model.size() && list.IsEmpty() == model.empty());
    const LIST_NODE* previous = nullptr;
    const LIST_NODE* node = list.Head();
    for (const LIST_NODE* expected : model) {
      FUZZ_CHECK(node == expected && node->pPrev == previous);
      previous = node;
      node = node->pNext;
    }
    FUZZ_CHECK(node == nullptr && list.Tail() == previous);
  }

  std::array<LIST_NODE, NODES> m_nodes{};
  std::array<CBidirList, 2> m_lists;
  std::array<std::list<LIST_NODE*>, 2> m_models;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  PoolRun pool(input);
  ListRun lists;
  while (!input.IsOver()) {
    if (input.Below(2) == 0) {
      pool.Step(input);
    } else {
      lists.Step(input);
    }
  }
  pool.End();
  return 0;
}
