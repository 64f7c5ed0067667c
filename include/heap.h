/**
 * Records of `malloc` and `calloc` with one owner.
 */
#ifndef HEAP_H
#define HEAP_H

#include <cstdlib>
#include <memory>

struct HeapFree {
    void operator()(void *memory) const { free(memory); }
};

/** A plain record that is freed with its owner. */
template <typename T>
using Heap = std::unique_ptr<T, HeapFree>;

/** One zeroed record; null: out of memory. */
template <typename T>
Heap<T> heap_record() {
    return Heap<T>(static_cast<T *>(calloc(1, sizeof(T))));
}

#endif
