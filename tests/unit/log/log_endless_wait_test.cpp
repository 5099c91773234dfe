#include "log/log_stream.h"

#include "tests/unit/fixture/kernel_test.h"

#include <csignal>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace unit {
namespace {

/// A copy of this process that runs one function. A pipe tells when it begins, and by its end when the process is gone.
class ChildProcess {
  public:
    template<typename Function>
    explicit ChildProcess(Function function) {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        id_ = fork();
        if (id_ == 0) {
            close(ends[0]);
            EXPECT_EQ(write(ends[1], "b", 1), 1);
            function();
            _exit(0);
        }
        close(ends[1]);
        readEnd_ = ends[0];
    }
    ~ChildProcess() {
        kill(id_, SIGKILL);
        waitpid(id_, nullptr, 0);
        close(readEnd_);
    }
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    /// Waits for the first sign of life.
    bool hasBegun() const {
        char sign = 0;
        return read(readEnd_, &sign, 1) == 1;
    }
    /// Waits for the end of the process, but no longer than that.
    bool endsWithin(int milliseconds) const {
        pollfd end{readEnd_, POLLIN, 0};
        return poll(&end, 1, milliseconds) == 1;
    }

  private:
    pid_t id_ = -1;
    int readEnd_ = -1;
};

class SignedFormByValue : public KernelTest {
  protected:
    static constexpr int boundedWait = 500;      // milliseconds that it is watched for
    static constexpr int longEnough = 60 * 1000; // for a process that ends
};

TEST_F(SignedFormByValue, NeverReturnsForANegativeValueInHexadecimal) {
    const ChildProcess child([] {
        LogStream stream(POOL_FLAG_PAGED);
        stream.setHex().appendSigned32(-1);
    });
    ASSERT_TRUE(child.hasBegun());
    EXPECT_FALSE(child.endsWithin(boundedWait));
}

TEST_F(SignedFormByValue, ReturnsForAnyOtherValueOrRadix) {
    const ChildProcess child([] {
        LogStream stream(POOL_FLAG_PAGED);
        stream.appendSigned32(-1).setHex().appendSigned32(0).appendSigned32(1);
    });
    ASSERT_TRUE(child.hasBegun());
    EXPECT_TRUE(child.endsWithin(longEnough));
}

TEST_F(SignedFormByValue, OtherSignedFormsReturnInHexadecimal) {
    const ChildProcess child([] {
        LogStream stream(POOL_FLAG_PAGED);
        stream.setHex().appendSigned16(-1).appendStatus(-1);
    });
    ASSERT_TRUE(child.hasBegun());
    EXPECT_TRUE(child.endsWithin(longEnough));
}

} // namespace
} // namespace unit
