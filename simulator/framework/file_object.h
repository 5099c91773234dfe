#pragma once

#include "object.h"

#include <wdf.h>

namespace sim::framework {

class Device;

/// A WDFFILEOBJECT: what the framework keeps for one open of a device.
class FileObject : public Object {
  public:
    static constexpr ObjectType objectType = ObjectType::fileObject;

    FileObject(Device &device, PFILE_OBJECT wdmFile);

    const char *deletionRefusal() const override { return "a file object cannot be deleted by its driver"; }

    Device &device;
    const PFILE_OBJECT wdmFile;

    /// The create request is about to complete. After a failure the object is gone: no cleanup, no close will come.
    void opened(NTSTATUS status);
    void closed();
};

} // namespace sim::framework
