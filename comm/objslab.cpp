#include "comm/objslab.h"

#include <limits>
#include <new>

#include "comm/detail/objslab_inline.h"

namespace detail = KorvainService::detail;

namespace {

constexpr int OBJSLAB_FAILURE = -1;

// Takes a slot that was never handed out.
int TakeUntouched(LPOBJSLAB slab) {
  if (slab->touched == slab->slot_count) return -1;
  const uint32_t slot = slab->touched++;
  detail::ObjSlabStoreWord(detail::ObjSlabIdWord<0>(slab, slot), slot);
  return static_cast<int>(slot);
}

}  // namespace

// The pool is one block: control block, slots, and the id words where they form an array.
int objslab_new(LPOBJSLAB* slab, int slot_count, size_t slot_size) {
  constexpr size_t MAX_SLOT_COUNT = detail::OBJSLAB_SLOT_MASK + 1;
  constexpr size_t MAX_SLOT_SIZE = std::numeric_limits<size_t>::max() / MAX_SLOT_COUNT / 2;
  if (slab == nullptr || slot_count < 1 || static_cast<size_t>(slot_count) > MAX_SLOT_COUNT ||
      slot_size == 0 || slot_size > MAX_SLOT_SIZE) {
    return OBJSLAB_FAILURE;
  }

  const auto count = static_cast<size_t>(slot_count);
  const detail::ObjSlabGeometry geometry = detail::ObjSlabGeometryOf(slot_size);
  const size_t id_words_size = geometry.is_id_word_in_slot ? 0 : count * sizeof(uint32_t);
  const size_t size = detail::OBJSLAB_CONTROL_SIZE + count * geometry.slot_stride + id_words_size;
  char* const block = static_cast<char*>(operator new(size, std::nothrow));
  if (block == nullptr) return OBJSLAB_FAILURE;

  char* const slots = block + detail::OBJSLAB_CONTROL_SIZE;
  char* const id_words = geometry.is_id_word_in_slot ? slots + geometry.id_word_offset
                                                     : slots + count * geometry.slot_stride;
  *slab = new (block) tagObjSlab{detail::OBJSLAB_NO_SLOT,
                                 0,
                                 id_words,
                                 geometry.slot_stride,
                                 geometry.id_word_stride,
                                 static_cast<uint32_t>(slot_count),
                                 size};
  return 0;
}

int objslab_alloc(LPOBJSLAB slab) {
  if (slab == nullptr) return -1;
  return detail::ObjSlabHasReleased(slab) ? detail::ObjSlabTakeReleased<0>(slab).id
                                          : TakeUntouched(slab);
}

void* objslab_get(LPOBJSLAB slab, int id) {
  if (slab == nullptr || !detail::ObjSlabIsInUse<0>(slab, id)) return nullptr;
  return detail::ObjSlabMemoryOf<0>(slab, id);
}

int objslab_free(LPOBJSLAB slab, int id) {
  return slab != nullptr && detail::ObjSlabGiveBack<0>(slab, id) ? 0 : OBJSLAB_FAILURE;
}

int objslab_is_full(LPOBJSLAB slab) {
  const bool has_free_slot =
      slab != nullptr && (detail::ObjSlabHasReleased(slab) || slab->touched < slab->slot_count);
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
