// The pool beside a map of what each slot holds, and two lists beside std::list.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <list>
#include <map>
#include <vector>

#include "comm/objslab.h"
#include "input.h"
#include "net/bi_list.h"

namespace {

class PoolRun {
 public:
  explicit PoolRun(fuzz::Input& input) {
    for (int id = input.Below(9); id >= 0; --id) m_next_ids.push_back(id);
    m_slot_size = 1 + input.Below(70);
    const auto slot_count = static_cast<int>(m_next_ids.size());
    FUZZ_CHECK(objslab_new(&m_pool, slot_count, static_cast<size_t>(m_slot_size)) == 0);
  }
  ~PoolRun() { objslab_destroy(&m_pool); }

  void Step(fuzz::Input& input) {
    input.Below(2) == 0 ? Take(static_cast<char>(input.Byte())) : GiveBack(PickId(input));
    FUZZ_CHECK((objslab_is_full(m_pool) != 0) == m_next_ids.empty());
    for (const auto& [id, content] : m_contents) {
      const auto* const memory = static_cast<const char*>(objslab_get(m_pool, id));
      FUZZ_CHECK(memory != nullptr);
      FUZZ_CHECK(std::count(memory, memory + m_slot_size, content) == m_slot_size);
    }
  }

 private:
  void Take(char content) {
    const int id = objslab_alloc(m_pool);
    FUZZ_CHECK(id == (m_next_ids.empty() ? -1 : m_next_ids.back()));
    if (m_next_ids.empty()) return;
    m_next_ids.pop_back();
    m_contents[id] = content;
    memset(objslab_get(m_pool, id), content, static_cast<size_t>(m_slot_size));
  }

  // Mostly one in use; else one that was, one that may come, or any.
  int PickId(fuzz::Input& input) const {
    const auto used = static_cast<int>(m_contents.size());
    const int base =
        input.Below(used + static_cast<int>(m_next_ids.size())) + (input.Below(4) << 17);
    const int choice = input.Below(8);
    if (choice == 0) return input.Any<int32_t>();
    if (choice == 2) return base | INT32_MIN;
    return choice == 1 || used == 0 ? base : std::next(m_contents.begin(), base % used)->first;
  }

  void GiveBack(int id) {
    const bool is_known = m_contents.erase(id) > 0;
    FUZZ_CHECK((objslab_get(m_pool, id) != nullptr) == is_known);
    FUZZ_CHECK((objslab_free(m_pool, id) == 0) == is_known);
    FUZZ_CHECK(objslab_get(m_pool, id) == nullptr && objslab_free(m_pool, id) != 0);
    if (is_known) m_next_ids.push_back(id + (1 << 17));
  }

  LPOBJSLAB m_pool = nullptr;
  std::ptrdiff_t m_slot_size;
  std::map<int, char> m_contents;  // of the slots in use
  std::vector<int> m_next_ids;     // of the others, the one to come first at the back
};

class ListRun {
 public:
  // Nodes that stand in the middle of a list are not linked again, and none is taken out of the
  // other list's middle: what that would damage is the caller's to avoid.
  void Step(fuzz::Input& input) {
    const int one = input.Below(2);
    CBidirList& list = m_lists[one];
    Model &model = m_models[one], &others = m_models[1 - one];
    LIST_NODE* const node = &m_nodes[input.Below(NODES)];
    LIST_NODE* const before = &m_nodes[input.Below(NODES)];
    const bool is_free = !IsIn(model, node) && !IsIn(others, node);
    const bool is_end = !model.empty() && (model.front() == node || model.back() == node);
    const bool is_placed = is_free && IsIn(model, before);
    const int choice = input.Below(8);
    if (choice < 3 && (is_free || is_end)) {
      if (is_free) node->pPrev = node->pNext = before;  // links as a pool leaves them
      FUZZ_CHECK(list.Insert(node) == is_free);
      if (is_free) model.push_back(node);
    } else if (choice == 3 && (is_free || is_end) && !IsIn(others, before)) {
      FUZZ_CHECK(list.Insert_Before(node, before) == is_placed);
      if (is_placed) model.insert(std::find(model.begin(), model.end(), before), node);
    } else if ((choice == 4 || choice == 5) && !IsIn(others, node)) {
      FUZZ_CHECK(list.Remove(node) == IsIn(model, node));
      FUZZ_CHECK(node->pPrev == nullptr && node->pNext == nullptr);
      model.remove(node);
    } else if (choice == 6) {
      list.Merge(m_lists[1 - one]);
      model.splice(model.end(), others);
    } else if (choice == 7) {
      list.Reset();
      for (LIST_NODE* forgotten : model) *forgotten = LIST_NODE();
      model.clear();
    }
    for (int i : {0, 1}) ExpectAgreement(m_lists[i], m_models[i]);
  }

 private:
  using Model = std::list<LIST_NODE*>;
  static constexpr int NODES = 9;

  static bool IsIn(const Model& model, const LIST_NODE* node) {
    return std::find(model.begin(), model.end(), node) != model.end();
  }

  static void ExpectAgreement(const CBidirList& list, const Model& model) {
    FUZZ_CHECK(list.Count() == model.size() && list.IsEmpty() == model.empty());
    const LIST_NODE* last = nullptr;
    for (const LIST_NODE* node : model) {
      FUZZ_CHECK((last == nullptr ? list.Head() : last->pNext) == node && node->pPrev == last);
      last = node;
    }
    FUZZ_CHECK(list.Tail() == last && (last == nullptr ? list.Head() : last->pNext) == nullptr);
  }

  LIST_NODE m_nodes[NODES] = {};
  CBidirList m_lists[2];
  Model m_models[2];
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  PoolRun pool(input);
  ListRun lists;
  while (!input.IsOver()) {
    input.Below(2) == 0 ? pool.Step(input) : lists.Step(input);
  }
  return 0;
}
