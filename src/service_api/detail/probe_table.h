// A hash map for the two look-ups that every response needs. Part of the implementation; installed
// only because public headers inline through it.
#ifndef KORVAIN_DETAIL_PROBE_TABLE_H_
#define KORVAIN_DETAIL_PROBE_TABLE_H_

#include <cstddef>
#include <memory>

namespace KorvainService::detail {

// Open addressing with linear probing in one array: no node to chase and no division, as
// std::unordered_map has them. The array is a power of two, at least MIN_SLOTS and at least twice
// as large as the number of entries, so that a probe ends soon. ABSENT is a value that is never
// stored; it marks the free slots.
//
// Hash must spread keys over its low bits. MakeRoom throws std::bad_alloc when the table cannot
// grow and then leaves it as it was, and so does Insert; nothing else allocates.
template <class Key, class Value, class Hash, Value ABSENT>
class ProbeTable {
 public:
  ProbeTable() = default;
  ProbeTable(const ProbeTable&) = delete;
  ProbeTable& operator=(const ProbeTable&) = delete;

  // The value stored under `key`, or ABSENT.
  Value Find(const Key& key) const { return FindHashed(key, Hash()(key)); }

  // The same, for a caller that knows the hash of `key` already.
  Value FindHashed(const Key& key, size_t hash) const { return Locate(key, hash).value; }

  // Grows the table where one more entry needs it; the next Insert then does not throw.
  void MakeRoom() {
    if (2 * (m_size + 1) > m_mask + 1) Grow();
  }

  // False, and no change, when `key` is present or `value` is ABSENT.
  bool Insert(const Key& key, Value value) {
    if (value == ABSENT || Find(key) != ABSENT) return false;
    MakeRoom();
    Locate(key, Hash()(key)) = Slot{key, value};
    ++m_size;
    return true;
  }

  // False when `key` is absent.
  bool Erase(const Key& key) {
    Slot& slot = Locate(key, Hash()(key));
    if (slot.value == ABSENT) return false;
    CloseGap(static_cast<size_t>(&slot - m_slots));
    --m_size;
    return true;
  }

  template <class Visitor>
  void ForEachValue(Visitor visit) {
    for (size_t index = 0; index <= m_mask; ++index) {
      if (m_slots[index].value != ABSENT) visit(m_slots[index].value);
    }
  }

 private:
  struct Slot {
    Key key{};
    Value value = ABSENT;
  };

  static constexpr size_t MIN_SLOTS = 16;

  size_t HomeOf(const Key& key) const { return Hash()(key) & m_mask; }

  // The slot in which `key` stands or, when it is absent, the free one into which it would go. What
  // a free slot holds for a key does not matter: `key` cannot stand behind it.
  Slot& Locate(const Key& key, size_t hash) const {
    for (size_t index = hash & m_mask;; index = (index + 1) & m_mask) {
      Slot& slot = m_slots[index];
      if (slot.key == key || slot.value == ABSENT) return slot;
    }
  }

  void Grow() {
    const size_t old_count = m_mask + 1;
    const size_t new_count = old_count < MIN_SLOTS ? MIN_SLOTS : 2 * old_count;
    std::unique_ptr<Slot[]> old_storage(new Slot[new_count]);
    const Slot* old_slots = m_slots;
    m_storage.swap(old_storage);
    m_slots = m_storage.get();
    m_mask = new_count - 1;
    for (size_t index = 0; index < old_count; ++index) {
      if (old_slots[index].value != ABSENT) {
        const Key& key = old_slots[index].key;
        Locate(key, Hash()(key)) = old_slots[index];
      }
    }
  }

  // Moves back each follower that may stand in the gap, so that no tombstone is left.
  void CloseGap(size_t gap) {
    for (size_t next = (gap + 1) & m_mask; m_slots[next].value != ABSENT;
         next = (next + 1) & m_mask) {
      const size_t distance_from_home = (next - HomeOf(m_slots[next].key)) & m_mask;
      const size_t distance_from_gap = (next - gap) & m_mask;
      if (distance_from_home >= distance_from_gap) {
        m_slots[gap] = m_slots[next];
        gap = next;
      }
    }
    m_slots[gap].value = ABSENT;
  }

  std::unique_ptr<Slot[]> m_storage;
  Slot m_nothing{};  // the one free slot of a table that has not grown yet
  Slot* m_slots = &m_nothing;
  size_t m_mask = 0;
  size_t m_size = 0;
};

}  // namespace KorvainService::detail

#endif  // KORVAIN_DETAIL_PROBE_TABLE_H_
