#pragma once

#include <ntifs.h>
#include <wdf.h>

/// Owns an open framework registry key; closing it also disposes of every object parented to it. PASSIVE_LEVEL.
class [[nodiscard]] RegistryKey {
  public:
    RegistryKey() = default;
    ~RegistryKey() {
        if (key_ != nullptr) {
            WdfRegistryClose(key_);
        }
    }
    RegistryKey(const RegistryKey &) = delete;
    RegistryKey &operator=(const RegistryKey &) = delete;

    WDFKEY get() const { return key_; }
    WDFKEY *receive() { return &key_; }

  private:
    WDFKEY key_ = nullptr;
};

/// Owns an I/O target opened on an existing device object; closes and deletes it. PASSIVE_LEVEL.
class [[nodiscard]] DeviceIoTarget {
  public:
    DeviceIoTarget() = default;
    ~DeviceIoTarget() {
        if (target_ != nullptr) {
            WdfIoTargetClose(target_);
            WdfObjectDelete(target_);
        }
    }
    DeviceIoTarget(const DeviceIoTarget &) = delete;
    DeviceIoTarget &operator=(const DeviceIoTarget &) = delete;

    /// Creates the target as a child of `owner` and opens it on `device`, to which requests then go directly. The
    /// target holds no reference to `device`: the caller keeps one for the target's life.
    NTSTATUS open(WDFDEVICE owner, PDEVICE_OBJECT device) {
        NTSTATUS status = WdfIoTargetCreate(owner, WDF_NO_OBJECT_ATTRIBUTES, &target_);
        if (!NT_SUCCESS(status)) {
            target_ = nullptr;
            return status;
        }
        WDF_IO_TARGET_OPEN_PARAMS parameters;
        WDF_IO_TARGET_OPEN_PARAMS_INIT_EXISTING_DEVICE(&parameters, device);
        return WdfIoTargetOpen(target_, &parameters);
    }
    WDFIOTARGET get() const { return target_; }

  private:
    WDFIOTARGET target_ = nullptr;
};

/// Owns a framework request that the driver created; deletes it.
class [[nodiscard]] OwnedRequest {
  public:
    OwnedRequest() = default;
    ~OwnedRequest() {
        if (request_ != nullptr) {
            WdfObjectDelete(request_);
        }
    }
    OwnedRequest(const OwnedRequest &) = delete;
    OwnedRequest &operator=(const OwnedRequest &) = delete;

    WDFREQUEST get() const { return request_; }
    WDFREQUEST *receive() { return &request_; }

  private:
    WDFREQUEST request_ = nullptr;
};

/// Holds a framework wait lock. The lock is not recursive. PASSIVE_LEVEL.
class [[nodiscard]] WaitLockGuard {
  public:
    explicit WaitLockGuard(WDFWAITLOCK lock) : lock_(lock) { WdfWaitLockAcquire(lock_, nullptr); }
    ~WaitLockGuard() { WdfWaitLockRelease(lock_); }
    WaitLockGuard(const WaitLockGuard &) = delete;
    WaitLockGuard &operator=(const WaitLockGuard &) = delete;

  private:
    WDFWAITLOCK lock_;
};
