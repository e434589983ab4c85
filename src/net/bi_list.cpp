#include "net/bi_list.h"

bool CBidirList::Insert_Before(LIST_NODE* node, LIST_NODE* before) {
  if (node == nullptr || before == nullptr || node == before || IsEnd(node) || !IsLinked(before)) {
    return false;
  }
  node->pPrev = before->pPrev;
  node->pNext = before;
  LinkTo(before->pPrev) = node;
  before->pPrev = node;
  ++m_dwCount;
  return true;
}

void CBidirList::Reset() {
  m_pstHead = nullptr;
  m_pstTail = nullptr;
  m_dwCount = 0;
}

void CBidirList::Merge(CBidirList& other) {
  if (&other == this || other.IsEmpty()) return;
  other.m_pstHead->pPrev = m_pstTail;
  LinkTo(m_pstTail) = other.m_pstHead;
  m_pstTail = other.m_pstTail;
  m_dwCount += other.m_dwCount;
  other.Reset();
}
