// A pool of equally sized slots, reserved when the pool is made and handed out by integer id.
//
// No operation but objslab_new and objslab_destroy touches the heap, and each of them takes
// constant time. Memory that no slot has needed yet is not touched, so a pool is resident only for
// as many slots as were ever in use at once; a slot given back last is handed out first.
//
// An id carries a generation beside the slot: it names its slot until that is given back, and then
// names nothing until the same slot has been handed out 16384 times more. A slot that is handed out
// for the first time has an id from 0 to N-1 in a pool of N slots; ids are never negative.
//
// Slots are raw memory, aligned for any scalar type; their contents are not cleared. Not
// thread-safe. A null handle stands for a pool without slots.
#ifndef KORVAIN_COMM_OBJSLAB_H_
#define KORVAIN_COMM_OBJSLAB_H_

#include <cstddef>

#pragma GCC visibility push(default)  // also where a project hides its own symbols

typedef struct tagObjSlab* LPOBJSLAB;

extern "C" {

// Makes a pool of `slot_count` slots (1 to 131072) of `slot_size` bytes (1 or more) and stores its
// handle, without looking at what was there. Returns 0, or non-zero with the handle unchanged when
// an argument is out of range, `slab` is null or there is no memory.
int objslab_new(LPOBJSLAB* slab, int slot_count, size_t slot_size);

// Takes a free slot and returns its id, or -1 when there is none.
int objslab_alloc(LPOBJSLAB slab);

// The memory of the slot that `id` names, valid until that slot is given back; null when `id` names
// no slot in use.
void* objslab_get(LPOBJSLAB slab, int id);

// Gives the slot back and returns 0; non-zero, and no change, when `id` names no slot in use.
int objslab_free(LPOBJSLAB slab, int id);

// Non-zero exactly when the next objslab_alloc would return -1.
int objslab_is_full(LPOBJSLAB slab);

// Bytes of address space that the pool occupies, its own bookkeeping included.
size_t objslab_get_size(LPOBJSLAB slab);

// Releases the pool and all its slots, in use or not, and sets the handle to null. A null address
// or handle is nothing to do.
void objslab_destroy(LPOBJSLAB* slab);

}  // extern "C"

#pragma GCC visibility pop

#endif  // KORVAIN_COMM_OBJSLAB_H_
