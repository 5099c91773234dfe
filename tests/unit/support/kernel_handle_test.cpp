#include "support/kernel_handle.h"

#include "support/text.h"
#include "tests/unit/fixture/kernel_test.h"

namespace unit {
namespace {

class KernelHandles : public KernelTest {
  protected:
    /// Opens the folder for temporary files; the test fails at its end when the handle stays open.
    static void openFolder(PHANDLE handle) {
        UNICODE_STRING path = literal(L"\\SystemRoot\\Temp");
        OBJECT_ATTRIBUTES attributes;
        InitializeObjectAttributes(&attributes, &path, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, nullptr, nullptr);
        IO_STATUS_BLOCK result{};
        ASSERT_EQ(ZwOpenFile(handle, GENERIC_READ, &attributes, &result, FILE_SHARE_READ, FILE_DIRECTORY_FILE),
                  STATUS_SUCCESS);
    }
};

TEST_F(KernelHandles, IsClosedAtTheEndOfItsScope) {
    HANDLE seen = nullptr;
    {
        KernelHandle handle;
        openFolder(handle.receive());
        seen = handle.get();
        EXPECT_NE(kernel.objects.bodyOf(seen), nullptr);
    }
    EXPECT_EQ(kernel.objects.bodyOf(seen), nullptr);
}

TEST_F(KernelHandles, DetachingLeavesTheHandleOpen) {
    HANDLE kept = nullptr;
    {
        KernelHandle handle;
        openFolder(handle.receive());
        kept = handle.detach();
        EXPECT_EQ(handle.get(), nullptr);
    }
    EXPECT_NE(kernel.objects.bodyOf(kept), nullptr);
    ZwClose(kept);
}

TEST_F(KernelHandles, NothingIsClosedWhenNothingWasOpened) {
    const KernelHandle handle;
    EXPECT_EQ(handle.get(), nullptr);
}

} // namespace
} // namespace unit
