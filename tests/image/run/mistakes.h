// What the faulty driver can be told to do; read by the driver and by its tests.
#pragma once

enum class Mistake {
    none,
    nearNull,
    constant,
    discarded,
    stackOverrun,
    fastFail,
    unreachable,
    pastTable,
    callTarget,
    kernelPointer,
    unhandled,
    handled, ///< no mistake: an exception that the driver handles
    outsideOfBlock,
};
