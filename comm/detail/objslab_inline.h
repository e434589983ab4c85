// The pool's layout and the bodies of its operations, for code on the request path that wants them
// inlined. Not installed; everybody else uses objslab.h.
//
// Layout of a slot id:
//
//   bit 31      0; set in the id word of a free slot only
//   bits 30-17  generation: how often the slot was handed out before, modulo 16384
//   bits 16-0   slot
//
// Each slot has an id word: while the slot is in use, the id that names it; while it is free, the
// id that it gets next, with bit 31 set. Free slots are chained through their first bytes. Slots
// from `touched` on were never handed out, and neither they nor their id words have been written.
#ifndef KORVAIN_COMM_DETAIL_OBJSLAB_INLINE_H_
#define KORVAIN_COMM_DETAIL_OBJSLAB_INLINE_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "comm/objslab.h"

struct tagObjSlab {
  int32_t first_free;     // slot given back last, or -1
  uint32_t touched;       // number of slots handed out at least once
  char* id_words;         // of slot 0
  size_t slot_stride;     // bytes from one slot to the next
  size_t id_word_stride;  // bytes from one id word to the next
  uint32_t slot_count;
  size_t size;  // bytes in all
};

namespace KorvainService::detail {

inline constexpr int32_t OBJSLAB_NO_SLOT = -1;
inline constexpr uint32_t OBJSLAB_SLOT_MASK = 0x1FFFF;
inline constexpr uint32_t OBJSLAB_NEXT_GENERATION = OBJSLAB_SLOT_MASK + 1;
inline constexpr uint32_t OBJSLAB_FREE_BIT = 0x80000000u;

// A slot just taken.
struct ObjSlabTaken {
  int id;
  void* memory;
};

// How slots of one size stand. When the padding behind a slot has room for the id word it lies
// there, in the cache line that is needed anyway; else the id words form an array of their own.
struct ObjSlabGeometry {
  size_t slot_stride;
  size_t id_word_stride;
  size_t id_word_offset;  // in the slot
  bool is_id_word_in_slot;
};

constexpr ObjSlabGeometry ObjSlabGeometryOf(size_t slot_size) {
  constexpr size_t ALIGNMENT = alignof(std::max_align_t);
  const size_t stride = (slot_size + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
  const bool fits = stride - slot_size >= sizeof(uint32_t);
  return {stride, fits ? stride : sizeof(uint32_t), stride - sizeof(uint32_t), fits};
}

// The slots follow right behind the control block, so that their place costs no load.
inline constexpr size_t OBJSLAB_CONTROL_SIZE = ObjSlabGeometryOf(sizeof(tagObjSlab)).slot_stride;

// The operations below take the slot size where the caller knows it when compiling, which turns
// multiplications into shifts, or 0 for what the pool says. The pool must not be null.

template <size_t SLOT_SIZE>
char* ObjSlabMemory(LPOBJSLAB slab, uint32_t slot) {
  char* const slots = reinterpret_cast<char*>(slab) + OBJSLAB_CONTROL_SIZE;
  return slots +
         slot * (SLOT_SIZE == 0 ? slab->slot_stride : ObjSlabGeometryOf(SLOT_SIZE).slot_stride);
}

template <size_t SLOT_SIZE>
char* ObjSlabIdWord(LPOBJSLAB slab, uint32_t slot) {
  if constexpr (SLOT_SIZE == 0) {
    return slab->id_words + slot * slab->id_word_stride;
  } else if constexpr (ObjSlabGeometryOf(SLOT_SIZE).is_id_word_in_slot) {
    return ObjSlabMemory<SLOT_SIZE>(slab, slot) + ObjSlabGeometryOf(SLOT_SIZE).id_word_offset;
  } else {
    return slab->id_words + slot * sizeof(uint32_t);
  }
}

inline uint32_t ObjSlabLoadWord(const char* address) {
  uint32_t word = 0;
  memcpy(&word, address, sizeof(word));
  return word;
}

inline void ObjSlabStoreWord(char* address, uint32_t word) {
  memcpy(address, &word, sizeof(word));
}

// The slot that `id` speaks of, in use or not. A negative id keeps its sign bit and so lies beyond
// every pool.
inline uint32_t ObjSlabSlotOf(int id) {
  return static_cast<uint32_t>(id) & (OBJSLAB_SLOT_MASK | OBJSLAB_FREE_BIT);
}

template <size_t SLOT_SIZE>
bool ObjSlabIsInUse(LPOBJSLAB slab, int id) {
  const uint32_t slot = ObjSlabSlotOf(id);
  return slot < slab->touched &&
         ObjSlabLoadWord(ObjSlabIdWord<SLOT_SIZE>(slab, slot)) == static_cast<uint32_t>(id);
}

// Whether a slot waits to be used again; there may still be others, never used.
inline bool ObjSlabHasReleased(LPOBJSLAB slab) {
  return slab->first_free != OBJSLAB_NO_SLOT;
}

// The same of two pools at once.
inline bool ObjSlabHaveBothReleased(LPOBJSLAB one, LPOBJSLAB other) {
  return (one->first_free | other->first_free) >= 0;
}

// Takes the slot given back last; there must be one.
template <size_t SLOT_SIZE>
ObjSlabTaken ObjSlabTakeReleased(LPOBJSLAB slab) {
  const auto slot = static_cast<uint32_t>(slab->first_free);
  char* const memory = ObjSlabMemory<SLOT_SIZE>(slab, slot);
  char* const id_word = ObjSlabIdWord<SLOT_SIZE>(slab, slot);
  slab->first_free = static_cast<int32_t>(ObjSlabLoadWord(memory));
  const uint32_t id = ObjSlabLoadWord(id_word) & ~OBJSLAB_FREE_BIT;
  ObjSlabStoreWord(id_word, id);
  return {static_cast<int>(id), memory};
}

// The memory of a slot that is known to be in use.
template <size_t SLOT_SIZE>
void* ObjSlabMemoryOf(LPOBJSLAB slab, int id) {
  return ObjSlabMemory<SLOT_SIZE>(slab, ObjSlabSlotOf(id));
}

// Gives back a slot that is known to be in use.
template <size_t SLOT_SIZE>
void ObjSlabGiveBackInUse(LPOBJSLAB slab, int id) {
  const uint32_t slot = ObjSlabSlotOf(id);
  const uint32_t next_id = static_cast<uint32_t>(id) + OBJSLAB_NEXT_GENERATION;
  ObjSlabStoreWord(ObjSlabIdWord<SLOT_SIZE>(slab, slot), next_id | OBJSLAB_FREE_BIT);
  ObjSlabStoreWord(ObjSlabMemory<SLOT_SIZE>(slab, slot), static_cast<uint32_t>(slab->first_free));
  slab->first_free = static_cast<int32_t>(slot);
}

// False, and no change, when `id` names no slot in use.
template <size_t SLOT_SIZE>
bool ObjSlabGiveBack(LPOBJSLAB slab, int id) {
  if (!ObjSlabIsInUse<SLOT_SIZE>(slab, id)) return false;
  ObjSlabGiveBackInUse<SLOT_SIZE>(slab, id);
  return true;
}

}  // namespace KorvainService::detail

#endif  // KORVAIN_COMM_DETAIL_OBJSLAB_INLINE_H_
