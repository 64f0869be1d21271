// Walks a list: for (qos_rule &rule : rules_of(head)) visits the records in order. The body may unlink and free the
// current record, but not its successor.
#pragma once

#include <stddef.h>

#include "torvane/list.h"

namespace torvane {

// Returns the record that embeds `node` at byte `offset`.
template <typename Record>
Record *record_of(list_node *node, size_t offset) {
  return reinterpret_cast<Record *>(reinterpret_cast<char *>(node) - offset);
}

template <typename Record, size_t Offset>
class Records {
 public:
  class Iterator {
   public:
    explicit Iterator(list_node *node) : node_(node), next_(node->next) {}
    Record &operator*() const {
      return *record_of<Record>(node_, Offset);
    }
    Iterator &operator++() {
      node_ = next_;
      next_ = node_->next;
      return *this;
    }
    bool operator!=(const Iterator &other) const {
      return node_ != other.node_;
    }

   private:
    list_node *node_;
    list_node *next_; // read before the loop's body may free the current record
  };

  explicit Records(list_node *head) : head_(head) {}
  Iterator begin() const {
    return Iterator(head_->next);
  }
  Iterator end() const {
    return Iterator(head_);
  }

 private:
  list_node *head_;
};

inline void list_make_empty(list_node *head) {
  head->next = head;
  head->prev = head;
}

} // namespace torvane
