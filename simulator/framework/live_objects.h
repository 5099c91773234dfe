#pragma once

#include "object.h"

namespace sim::framework::live {

// Every object and every context that exists, so that a handle can be judged without touching what it points to.
void addObject(Object &object);
void removeObject(Object &object);
/// Takes an object out of the books for good; its memory stays.
void bury(Object &object);
bool isObject(const Object *object);
std::vector<Object *> objects(); ///< in the order of their addresses

void addContext(const void *memory, Object &owner);
void removeContext(const void *memory);
Object *contextOwner(const void *memory);

} // namespace sim::framework::live
