// What the objects of vesk.math.NDArray begin with.
#pragma once

#include <cstdint>
#include <string_view>

#include "runtime/object_layout.h"

namespace vesk::runtime {

// Elements of their own width, row by row.
struct NDArrayObject : Object {
    std::int64_t count;  // product of the shape
    std::int64_t rank;
    std::int64_t* shape;
    char* data;
    const ClassRecord* element;
};

// sizeof(NDArrayObject) for its class, 0 for all others.
unsigned ndarrayInstanceSize(std::string_view qualifiedName);

}  // namespace vesk::runtime
