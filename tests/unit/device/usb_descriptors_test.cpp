#include "device/usb_descriptors.h"

#include "support/pool_memory.h"
#include "tests/unit/fixture/kernel_test.h"

#include <array>
#include <functional>

namespace unit {
namespace {

/// One request that the hub was sent.
struct HubRequest {
    ULONG code;
    std::vector<UCHAR> bytes; ///< as they came
    bool wholeBufferBothWays;
};

/// Answers requests in place of a hub: `answer(bytes)` changes the buffer and returns the status.
class HubStandIn {
  public:
    HubStandIn() : before_(WdfFunctions) {
        current = this;
        table_[WdfIoTargetSendIoctlSynchronouslyTableIndex] = reinterpret_cast<WDFFUNC>(send);
        WdfFunctions = table_.data();
    }
    ~HubStandIn() { WdfFunctions = before_; }

    WDFIOTARGET target() { return reinterpret_cast<WDFIOTARGET>(this); }

    std::function<NTSTATUS(ULONG code, UCHAR *bytes)> answer = [](ULONG, UCHAR *) { return STATUS_SUCCESS; };
    std::vector<HubRequest> requests;

  private:
    static NTSTATUS NTAPI send(PWDF_DRIVER_GLOBALS, WDFIOTARGET target, WDFREQUEST request, ULONG code,
                               PWDF_MEMORY_DESCRIPTOR input, PWDF_MEMORY_DESCRIPTOR output,
                               PWDF_REQUEST_SEND_OPTIONS options, PULONG_PTR) {
        EXPECT_EQ(target, current->target());
        EXPECT_EQ(request, nullptr);
        EXPECT_EQ(options, nullptr);
        auto *bytes = static_cast<UCHAR *>(input->u.BufferType.Buffer);
        const ULONG count = input->u.BufferType.Length;
        const bool bothWays = input->Type == WdfMemoryDescriptorTypeBuffer &&
                              output->Type == WdfMemoryDescriptorTypeBuffer && output->u.BufferType.Buffer == bytes &&
                              output->u.BufferType.Length == count;
        current->requests.push_back({code, {bytes, bytes + count}, bothWays});
        return current->answer(code, bytes);
    }

    static inline HubStandIn *current = nullptr;
    const WDFFUNC *before_;
    std::array<WDFFUNC, WDF_FUNCTION_TABLE_NUM_ENTRIES> table_{};
};

constexpr std::size_t headerBytes = 12;
constexpr ULONG port = 0x01020304;

class UsbDescriptors : public KernelTest {
  protected:
    /// Puts a string descriptor behind the request's header.
    static void putString(UCHAR *bytes, std::u16string_view text) {
        bytes[headerBytes] = static_cast<UCHAR>(2 + 2 * text.size());
        bytes[headerBytes + 1] = USB_STRING_DESCRIPTOR_TYPE;
        std::memcpy(bytes + headerBytes + 2, text.data(), 2 * text.size());
    }
    /// Answers the list of languages and, in the first of them, every other string.
    void answerStrings(std::u16string languages, std::u16string text) {
        hub.answer = [=](ULONG, UCHAR *bytes) {
            putString(bytes, bytes[6] == 0 ? languages : text); // the low byte of wValue is the index
            return STATUS_SUCCESS;
        };
    }
    std::string stringOf(UCHAR index) {
        KString text;
        getUsbStringDescriptor(hub.target(), port, index, text);
        return utf8(text);
    }

    HubStandIn hub;
};

TEST_F(UsbDescriptors, DeviceDescriptorIsAskedForWith35BytesBothWays) {
    USB_DEVICE_DESCRIPTOR descriptor{};
    ASSERT_EQ(getUsbDeviceDescriptor(hub.target(), port, descriptor), STATUS_SUCCESS);
    ASSERT_EQ(hub.requests.size(), 1u);
    EXPECT_EQ(hub.requests[0].code, IOCTL_USB_GET_NODE_CONNECTION_INFORMATION);
    EXPECT_TRUE(hub.requests[0].wholeBufferBothWays);
    std::vector<UCHAR> expected(35);
    expected[0] = 4, expected[1] = 3, expected[2] = 2, expected[3] = 1;
    EXPECT_EQ(hub.requests[0].bytes, expected);
}

TEST_F(UsbDescriptors, DeviceDescriptorIsTakenFromBehindTheConnectionIndex) {
    hub.answer = [](ULONG, UCHAR *bytes) {
        for (UCHAR at = 0; at < 18; ++at) {
            bytes[4 + at] = static_cast<UCHAR>(0x10 + at);
        }
        return STATUS_SUCCESS;
    };
    USB_DEVICE_DESCRIPTOR descriptor{};
    ASSERT_EQ(getUsbDeviceDescriptor(hub.target(), port, descriptor), STATUS_SUCCESS);
    EXPECT_EQ(descriptor.bLength, 0x10);
    EXPECT_EQ(descriptor.idVendor, 0x1918);
    EXPECT_EQ(descriptor.iManufacturer, 0x1E);
    EXPECT_EQ(descriptor.iProduct, 0x1F);
    EXPECT_EQ(descriptor.iSerialNumber, 0x20);
    EXPECT_EQ(descriptor.bNumConfigurations, 0x21);
}

TEST_F(UsbDescriptors, DeviceDescriptorStaysAsItWasWhenTheHubRefuses) {
    hub.answer = [](ULONG, UCHAR *bytes) {
        bytes[4] = 0xFF;
        return STATUS_DEVICE_NOT_CONNECTED;
    };
    USB_DEVICE_DESCRIPTOR descriptor{};
    descriptor.bLength = 7;
    EXPECT_EQ(getUsbDeviceDescriptor(hub.target(), port, descriptor), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(descriptor.bLength, 7);
}

TEST_F(UsbDescriptors, StringIsAskedForWith269BytesZeroBehindTheHeader) {
    KString text;
    ASSERT_EQ(queryUsbStringDescriptor(hub.target(), port, 5, 0x0409, text), STATUS_SUCCESS);
    ASSERT_EQ(hub.requests.size(), 1u);
    EXPECT_EQ(hub.requests[0].code, IOCTL_USB_GET_DESCRIPTOR_FROM_NODE_CONNECTION);
    EXPECT_TRUE(hub.requests[0].wholeBufferBothWays);
    std::vector<UCHAR> expected(269);
    const UCHAR header[headerBytes] = {4, 3, 2, 1, 0, 0, 5, 3, 9, 4, 1, 1}; // length 257
    std::copy(std::begin(header), std::end(header), expected.begin());
    EXPECT_EQ(hub.requests[0].bytes, expected);
    EXPECT_TRUE(text.empty());
}

TEST_F(UsbDescriptors, StringEndsAtItsFirstNulNotAtItsLength) {
    hub.answer = [](ULONG, UCHAR *bytes) {
        putString(bytes, u"serial");
        bytes[headerBytes] = 4; // claims one character
        return STATUS_SUCCESS;
    };
    KString text;
    ASSERT_EQ(queryUsbStringDescriptor(hub.target(), port, 1, 0x0409, text), STATUS_SUCCESS);
    EXPECT_EQ(utf8(text), "serial");
    EXPECT_EQ(text.maximumLength(), 12);
}

TEST_F(UsbDescriptors, LongestStringHas127Characters) {
    hub.answer = [](ULONG, UCHAR *bytes) {
        std::memset(bytes + headerBytes, 'x', 257);
        return STATUS_SUCCESS;
    };
    KString text;
    ASSERT_EQ(queryUsbStringDescriptor(hub.target(), port, 1, 0x0409, text), STATUS_SUCCESS);
    EXPECT_EQ(text.length(), 254);
}

TEST_F(UsbDescriptors, RequestForAStringIsInNonPagedPoolAndGivenBack) {
    hub.answer = [this](ULONG, UCHAR *bytes) {
        const auto block = kernel.pool.blockAt(bytes);
        EXPECT_TRUE(block && !block->paged && block->tag == generalPoolTag && block->size == 269);
        return STATUS_DEVICE_NOT_CONNECTED;
    };
    KString text;
    EXPECT_EQ(queryUsbStringDescriptor(hub.target(), port, 1, 0, text), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
}

TEST_F(UsbDescriptors, StringWithoutMemoryForTheRequestOrTheTextFails) {
    answerStrings(u"\x0409", u"text");
    failEachCall(
        [&] {
            KString text;
            return queryUsbStringDescriptor(hub.target(), port, 1, 0x0409, text);
        },
        [](NTSTATUS status, bool failed) {
            EXPECT_EQ(status, failed ? STATUS_INSUFFICIENT_RESOURCES : STATUS_SUCCESS);
        });
}

class UsbStrings : public UsbDescriptors {};

TEST_F(UsbStrings, IndexZeroMeansNoString) {
    KString text;
    ASSERT_EQ(text.copyFrom(literal(L"before")), STATUS_SUCCESS);
    getUsbStringDescriptor(hub.target(), port, 0, text);
    EXPECT_TRUE(text.empty());
    EXPECT_TRUE(hub.requests.empty()) << "the hub is not asked";
}

TEST_F(UsbStrings, AreAskedForInTheFirstLanguageOfTheDevice) {
    answerStrings(u"\x0407\x0409", u"Seriennummer");
    EXPECT_EQ(stringOf(3), "Seriennummer");
    ASSERT_EQ(hub.requests.size(), 2u);
    EXPECT_EQ(hub.requests[0].bytes[6], 0);
    EXPECT_EQ(hub.requests[0].bytes[8] | hub.requests[0].bytes[9] << 8, 0);
    EXPECT_EQ(hub.requests[1].bytes[6], 3);
    EXPECT_EQ(hub.requests[1].bytes[8] | hub.requests[1].bytes[9] << 8, 0x0407);
}

TEST_F(UsbStrings, LoseTheirTrailingBlanks) {
    answerStrings(u"\x0409", u" a b  ");
    KString text;
    getUsbStringDescriptor(hub.target(), port, 1, text);
    EXPECT_EQ(utf8(text), " a b");
    EXPECT_EQ(text.maximumLength(), 12) << "the untrimmed length";
}

TEST_F(UsbStrings, KeepOtherWhiteSpace) {
    answerStrings(u"\x0409", u"a\t");
    EXPECT_EQ(stringOf(1), "a\t");
}

TEST_F(UsbStrings, OfBlanksOnlyAreEmptyWithoutABuffer) {
    answerStrings(u"\x0409", u"   ");
    KString text;
    getUsbStringDescriptor(hub.target(), port, 1, text);
    EXPECT_EQ(text.length(), 0);
    EXPECT_EQ(text.maximumLength(), 0);
    EXPECT_TRUE(text.buffer() == nullptr);
}

TEST_F(UsbStrings, AreEmptyWithoutALanguage) {
    answerStrings(u"", u"text");
    EXPECT_EQ(stringOf(1), "");
    EXPECT_EQ(hub.requests.size(), 1u);
}

TEST_F(UsbStrings, AreEmptyWhenTheHubRefuses) {
    for (const std::size_t refused : {1u, 2u}) {
        hub.requests.clear();
        hub.answer = [&](ULONG, UCHAR *bytes) {
            putString(bytes, u"\x0409");
            return hub.requests.size() == refused ? STATUS_DEVICE_NOT_CONNECTED : STATUS_SUCCESS;
        };
        EXPECT_EQ(stringOf(1), "");
        EXPECT_EQ(hub.requests.size(), refused);
    }
}

TEST_F(UsbStrings, AreEmptyWithoutMemory) {
    answerStrings(u"\x0409", u"text");
    failEachCall([&] { return stringOf(1); },
                 [](const std::string &text, bool failed) { EXPECT_EQ(text, failed ? "" : "text"); });
}

class ConfigurationDescriptor : public UsbDescriptors {};

TEST_F(ConfigurationDescriptor, IsAskedForAsDescriptorTwoWithNineBytes) {
    hub.answer = [](ULONG, UCHAR *bytes) {
        const UCHAR descriptor[9] = {9, 2, 0x40, 0, 3, 1, 0, 0x80, 50};
        std::memcpy(bytes + headerBytes, descriptor, sizeof descriptor);
        return STATUS_SUCCESS;
    };
    USB_CONFIGURATION_DESCRIPTOR descriptor{};
    ASSERT_EQ(getUsbConfigurationDescriptor(hub.target(), port, descriptor), STATUS_SUCCESS);
    const std::vector<UCHAR> expected = {4, 3, 2, 1, 0, 0, 0, 2, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(hub.requests.at(0).bytes, expected);
    EXPECT_EQ(descriptor.bNumInterfaces, 3);
}

TEST_F(ConfigurationDescriptor, StaysAsItWasOnFailure) {
    hub.answer = [](ULONG, UCHAR *) { return STATUS_DEVICE_NOT_CONNECTED; };
    USB_CONFIGURATION_DESCRIPTOR descriptor{};
    descriptor.bNumInterfaces = 7;
    EXPECT_EQ(getUsbConfigurationDescriptor(hub.target(), port, descriptor), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(descriptor.bNumInterfaces, 7);
}

} // namespace
} // namespace unit
