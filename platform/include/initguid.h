// Included before other headers by the one file of an image that is to hold the values of GUIDs and property keys.
#pragma once

#ifndef INITGUID
#define INITGUID
#endif
#include <guiddef.h>
