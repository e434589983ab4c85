// A doubly-linked list of nodes that the caller owns.
//
// How to use it: embed or allocate a LIST_NODE per object, point its pData at the object, and
// Insert it; Remove it before its memory goes. Linking and unlinking are a few pointer writes and
// never allocate, search or free. Nodes stay in the order of Insert, the earliest at the head:
//
//   CBidirList list;
//   LIST_NODE node{nullptr, nullptr, &object};
//   list.Insert(&node);                                   // last in line
//   for (LIST_NODE* n = list.Head(); n != nullptr; n = n->pNext) Use(n->pData);
//   list.Remove(&node);                                   // from wherever it stands
//
// A node is in at most one list at a time. The links of a node that is to be linked may hold
// anything; those of one given to Remove, or to be linked before, are followed and must be null or
// lead to nodes. Refused is only what a look at a node and its neighbours shows. So Insert of a
// node that stands in the middle of a list passes and damages both lists, and so does Remove of
// another list's node from its middle, or Insert_Before of one. The list touches no node when it is
// destroyed. Not thread-safe.
#ifndef KORVAIN_NET_BI_LIST_H_
#define KORVAIN_NET_BI_LIST_H_

#include <cstdint>

#pragma GCC visibility push(default)  // also where a project hides its own symbols

struct LIST_NODE {
  LIST_NODE* pPrev;  // null at the head
  LIST_NODE* pNext;  // null at the tail
  void* pData;       // the caller's; never read by the list
};

class CBidirList {
 public:
  CBidirList() = default;
  ~CBidirList() = default;
  CBidirList(const CBidirList&) = delete;
  CBidirList& operator=(const CBidirList&) = delete;

  // Appends `node` at the tail. False, and no change, for a null node or one that is the head or
  // the tail already.
  bool Insert(LIST_NODE* node);

  // Links `node` before the linked node `before`. False, and no change, for a null argument, when
  // both are the same, when `node` is the head or the tail already, and when the neighbours of
  // `before` (or the list's head and tail) do not point back at it.
  bool Insert_Before(LIST_NODE* node, LIST_NODE* before);

  // Unlinks `node` and sets its links to null. False, and no change, for a null node, an empty
  // list, and a node to which its neighbours (or the list's head and tail) do not point back.
  bool Remove(LIST_NODE* node);

  LIST_NODE* Head() const { return m_pstHead; }
  LIST_NODE* Tail() const { return m_pstTail; }
  bool IsEmpty() const { return m_pstHead == nullptr; }
  unsigned int Count() const { return m_dwCount; }

  // Forgets all nodes without touching them.
  void Reset();

  // Appends the nodes of `other` in their order and leaves it empty. Merging a list into itself
  // does nothing.
  void Merge(CBidirList& other);

 private:
  bool IsEnd(const LIST_NODE* node) const { return node == m_pstHead || node == m_pstTail; }

  // The pointer that leads forward from `previous`, or from the list's head when that is null.
  LIST_NODE*& LinkTo(LIST_NODE* previous) {
    return previous == nullptr ? m_pstHead : previous->pNext;
  }

  bool IsLinked(const LIST_NODE* node) {
    if (IsEmpty()) return false;
    if ((node->pPrev != nullptr ? node->pPrev->pNext : m_pstHead) != node) return false;
    return (node->pNext != nullptr ? node->pNext->pPrev : m_pstTail) == node;
  }

  LIST_NODE* m_pstHead = nullptr;
  LIST_NODE* m_pstTail = nullptr;
  uint32_t m_dwCount = 0;
};

// Inline, since every request is linked and unlinked once.

inline bool CBidirList::Insert(LIST_NODE* node) {
  if (node == nullptr || IsEnd(node)) return false;
  node->pPrev = m_pstTail;
  node->pNext = nullptr;
  if (m_pstTail != nullptr) {
    m_pstTail->pNext = node;
  } else {
    m_pstHead = node;
  }
  m_pstTail = node;
  ++m_dwCount;
  return true;
}

inline bool CBidirList::Remove(LIST_NODE* node) {
  if (node == nullptr || !IsLinked(node)) return false;
  LIST_NODE* const previous = node->pPrev;
  LIST_NODE* const next = node->pNext;
  if (previous != nullptr) {
    previous->pNext = next;
  } else {
    m_pstHead = next;
  }
  if (next != nullptr) {
    next->pPrev = previous;
  } else {
    m_pstTail = previous;
  }
  node->pPrev = nullptr;
  node->pNext = nullptr;
  --m_dwCount;
  return true;
}

#pragma GCC visibility pop

#endif  // KORVAIN_NET_BI_LIST_H_
