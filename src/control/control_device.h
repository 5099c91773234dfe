#pragma once

#include <ntifs.h>
#include <wdf.h>

/// State of the device rescan; its first field is the control device.
struct RescanContext {
    WDFDEVICE controlDevice;
};

/// Context of the control device, the driver's one endpoint towards the user-mode service. `m_deviceLock` guards
/// m_processId, m_openCount and m_apiRegistered; `m_lock` serialises the pairing of requests.
struct ControlDevice {
    WDFDEVICE device;
    BOOLEAN m_apiRegistered;       ///< a service process holds the device open
    WDFQUEUE m_ioctlQueue;         ///< manual: parked requests of the service
    WDFQUEUE m_internalIoctlQueue; ///< manual: questions and notifications of the filters
    WDFQUEUE m_pendingQueue;       ///< manual: questions that await the service's reply
    WDFIOTARGET m_ioTarget;        ///< opened on the control device itself
    WDFWAITLOCK m_lock;
    WDFWAITLOCK m_deviceLock;
    ULONG m_processId;   ///< registered service process; 0: none
    ULONG m_openCount;   ///< handles that it holds
    LONG m_passesWanted; ///< ready notifications of the two queues that no pairing pass has answered yet
    RescanContext m_rescanContext;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(ControlDevice, getControlDevice)

/// Whether a service process is registered; read without a lock.
inline bool isServiceRegistered(const ControlDevice &control) {
    return __atomic_load_n(&control.m_apiRegistered, __ATOMIC_ACQUIRE) != FALSE;
}

/// Makes the control device out of the device-init of the driver's own root node and publishes it in DriverContext.
/// Logs what fails and returns its status. PASSIVE_LEVEL, inside device add.
NTSTATUS createControlDevice(PWDFDEVICE_INIT deviceInit);
