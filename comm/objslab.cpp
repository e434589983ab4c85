#include "comm/objslab.h"

#include <limits>
#include <new>

#include "comm/objslab_inline.h"

namespace {

constexpr int FAILURE = -1;

}  // namespace

// The pool is one block: control block, slots, and the id words where they form an array.
int objslab_new(LPOBJSLAB* slab, int slot_count, size_t slot_size) {
  constexpr size_t MAX_SLOT_COUNT = OBJSLAB_SLOT_MASK + 1;
  constexpr size_t MAX_SLOT_SIZE = std::numeric_limits<size_t>::max() / MAX_SLOT_COUNT / 2;
  if (slab == nullptr || slot_count < 1 || static_cast<size_t>(slot_count) > MAX_SLOT_COUNT ||
      slot_size == 0 || slot_size > MAX_SLOT_SIZE) {
    return FAILURE;
  }

  const auto count = static_cast<size_t>(slot_count);
  const ObjSlabGeometry geometry = ObjSlabGeometryOf(slot_size);
  const size_t id_words_size = geometry.is_id_word_in_slot ? 0 : count * sizeof(uint32_t);
  const size_t size = OBJSLAB_CONTROL_SIZE + count * geometry.slot_stride + id_words_size;
  char* const block = static_cast<char*>(operator new(size, std::nothrow));
  if (block == nullptr) return FAILURE;

  char* const slots = block + OBJSLAB_CONTROL_SIZE;
  char* const id_words = geometry.is_id_word_in_slot ? slots + geometry.id_word_offset
                                                     : slots + count * geometry.slot_stride;
  *slab = new (block) tagObjSlab{OBJSLAB_NO_SLOT,
                                 0,
                                 id_words,
                                 geometry.slot_stride,
                                 geometry.id_word_stride,
                                 static_cast<uint32_t>(slot_count),
                                 size};
  return 0;
}

ObjSlabTaken ObjSlabTakeUntouched(LPOBJSLAB slab) {
  if (slab->touched == slab->slot_count) return {-1, nullptr};
  const uint32_t slot = slab->touched++;
  ObjSlabStoreWord(ObjSlabIdWord<0>(slab, slot), slot);
  return {static_cast<int>(slot), ObjSlabMemory<0>(slab, slot)};
}

int objslab_alloc(LPOBJSLAB slab) {
  return slab == nullptr ? -1 : ObjSlabTake<0>(slab).id;
}

void* objslab_get(LPOBJSLAB slab, int id) {
  return slab == nullptr ? nullptr : ObjSlabFind<0>(slab, id);
}

int objslab_free(LPOBJSLAB slab, int id) {
  return slab != nullptr && ObjSlabGiveBack<0>(slab, id) ? 0 : FAILURE;
}

int objslab_is_full(LPOBJSLAB slab) {
  const bool has_free_slot =
      slab != nullptr && (slab->first_free != OBJSLAB_NO_SLOT || slab->touched < slab->slot_count);
  return has_free_slot ? 0 : 1;
}

size_t objslab_get_size(LPOBJSLAB slab) {
  return slab == nullptr ? 0 : slab->size;
}

void objslab_destroy(LPOBJSLAB* slab) {
  if (slab == nullptr || *slab == nullptr) return;
  operator delete(*slab);
  *slab = nullptr;
}
