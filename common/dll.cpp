// Circular doubly linked lists with a counted head: every list of parsed text records (file
// lists, start-file tables, patch lists) is built with these, appending at the tail so that
// the records keep the order of the lines.
#include "bootinit/common.h"

namespace bootinit::dll {
namespace {

using Node = BOOT_INIT_DLL_NODE_S;
using Head = BOOT_INIT_DLL_HEAD_S;

void ResetHead(Head *head) {
  head->links.next = &head->links;
  head->links.prev = &head->links;
  head->count = 0;
}

bool IsLinked(const Node *node) {
  return node->next != nullptr && node->prev != nullptr && node->next->prev == node &&
         node->prev->next == node;
}

}  // namespace

void InsertInMiddle(Head *head, Node *prevNode, Node *newNode, Node *nextNode) {
  head->count++;
  newNode->next = nextNode;
  newNode->prev = prevNode;
  prevNode->next = newNode;
  nextNode->prev = newNode;
}

void DeleteInMiddle(Head *head, Node *prevNode, Node *node, Node *nextNode) {
  prevNode->next = nextNode;
  nextNode->prev = prevNode;
  node->next = nullptr;
  node->prev = nullptr;
  head->count--;
}

void Delete(Head *head, Node *node) {
  if (IsLinked(node)) {
    DeleteInMiddle(head, node->prev, node, node->next);
  }
}

// An empty head may never have been linked up: it is only reset, never walked.
void FreeAll(Head *head, BOOT_INIT_DLL_FREE_FUNC freeFn) {
  if (head->count != 0) {
    Node *element = head->links.next;
    while (element != &head->links) {
      Node *following = element->next;
      freeFn(element);
      element = following;
    }
  }
  ResetHead(head);
}

}  // namespace bootinit::dll

extern "C" {

void BOOT_InitDllInsertInMiddle(BOOT_INIT_DLL_HEAD_S *head, BOOT_INIT_DLL_NODE_S *prevNode,
                                BOOT_INIT_DLL_NODE_S *newNode, BOOT_INIT_DLL_NODE_S *nextNode) {
  if (head != nullptr && prevNode != nullptr && newNode != nullptr && nextNode != nullptr) {
    bootinit::dll::InsertInMiddle(head, prevNode, newNode, nextNode);
  }
}

void BOOT_InitDllDeleteInMiddle(BOOT_INIT_DLL_HEAD_S *head, BOOT_INIT_DLL_NODE_S *prevNode,
                                BOOT_INIT_DLL_NODE_S *node, BOOT_INIT_DLL_NODE_S *nextNode) {
  if (head != nullptr && prevNode != nullptr && node != nullptr && nextNode != nullptr) {
    bootinit::dll::DeleteInMiddle(head, prevNode, node, nextNode);
  }
}

void BOOT_InitDllDelete(BOOT_INIT_DLL_HEAD_S *head, BOOT_INIT_DLL_NODE_S *node) {
  if (head != nullptr && node != nullptr) {
    bootinit::dll::Delete(head, node);
  }
}

void BOOT_InitDllFreeAll(BOOT_INIT_DLL_HEAD_S *head, BOOT_INIT_DLL_FREE_FUNC freeFn) {
  if (head != nullptr && freeFn != nullptr) {
    bootinit::dll::FreeAll(head, freeFn);
  }
}

}  // extern "C"
