#pragma once

#include "object.h"

/// What IoDriverObjectType and its like point to.
struct _OBJECT_TYPE {
    sim::ObjectType type;
};
