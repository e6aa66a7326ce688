// Finding how a class answers an interface. Its record holds the interfaces that its super class does not have or answers
// differently; all others are its super class's, so that long chains of classes do not repeat them.
#pragma once

#include "runtime/object_layout.h"

namespace vesk::runtime {

// The nearest entry whose interface fits, null when the class has none.
template <class Fits>
const InterfaceEntry* nearestInterface(const ClassRecord* record, const Fits& fits) {
    for (; record; record = record->super) {
        for (std::uint32_t i = 0; i < record->interfaceCount; i++) {
            if (fits(*record->interfaces[i].interface)) return &record->interfaces[i];
        }
    }
    return nullptr;
}

}  // namespace vesk::runtime
