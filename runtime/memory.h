// Objects come from here. Memory is collected; it is never given back by hand and always starts as zeros.
#pragma once

#include "runtime/object_layout.h"

namespace vesk::runtime {

// Once per process, before any object is made. Later calls do nothing.
void startMemory();
// Zeroed room that the collector scans; for `pointerFree` room it does not look inside. Panics when memory is out.
void* allocateBytes(std::size_t size, bool pointerFree);
// Writable memory outside the heap in which objects may be referenced.
void addRoots(void* begin, void* end);
unsigned widthOf(ValueKind kind);

extern "C" {
Object* vesk_rt_new(const ClassRecord* record);
// Panics when the length is negative.
Array* vesk_rt_new_array(const ClassRecord* record, std::int32_t length);
Object* vesk_rt_new_closure(const ClassRecord* record, void* code, std::int64_t captureBytes);
// Room of one captured variable.
void* vesk_rt_new_cell(bool pointerFree);
}

}  // namespace vesk::runtime
