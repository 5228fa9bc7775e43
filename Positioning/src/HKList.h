// Minimal doubly linked list of heap nodes, newest at the head.
#ifndef POSITIONING_HK_LIST_H
#define POSITIONING_HK_LIST_H

#include <stdint.h>

#include "ReflectionInterface.h"

template <class T>
class CHKNode {
 public:
  HK_MALLOC_ALLOCATED

  explicit CHKNode(const T& aData) : iData(aData), iNext(NULL), iPrev(NULL) {}
  // Deleting a node does nothing to what its data refers to.
  virtual ~CHKNode() {}

  T iData;
  CHKNode* iNext;
  CHKNode* iPrev;
};

template <class T>
class CHKList {
 public:
  HK_MALLOC_ALLOCATED

  CHKList() : iHead(NULL), iCount(0) {}
  CHKList(const CHKList&) = delete;
  CHKList& operator=(const CHKList&) = delete;

  // Deletes every node: each node's predecessor while walking, then the last one.
  virtual ~CHKList() {
    if (iHead == NULL) return;
    CHKNode<T>* node = iHead->iNext;
    while (node != NULL) {
      delete node->iPrev;
      if (node->iNext == NULL) break;
      node = node->iNext;
    }
    delete (node != NULL ? node : iHead);
  }

  // Inserts aData as the new head; false when no node could be allocated.
  bool InsertHead(const T& aData) {
    CHKNode<T>* node = new CHKNode<T>(aData);
    if (node == NULL) return false;
    node->iNext = iHead;
    if (iHead != NULL) iHead->iPrev = node;
    iHead = node;
    ++iCount;
    return true;
  }

  // The node at aPosition counted from the head, or null past the end.
  CHKNode<T>* At(int32_t aPosition) const {
    CHKNode<T>* node = iHead;
    for (int32_t i = 0; node != NULL && i < aPosition; ++i) node = node->iNext;
    return node;
  }

  // Unlinks and deletes aNode, which must be in this list.
  void Remove(CHKNode<T>* aNode) {
    if (aNode == iHead) {
      iHead = aNode->iNext;
    } else {
      aNode->iPrev->iNext = aNode->iNext;
    }
    if (aNode->iNext != NULL) aNode->iNext->iPrev = aNode->iPrev;
    delete aNode;
    --iCount;
  }

  CHKNode<T>* iHead;
  int32_t iCount;
};

#endif  // POSITIONING_HK_LIST_H
