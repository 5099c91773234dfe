// Steps and expectations about service processes: what is compared, and what is said of what can't be done.

#include "played.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace cli;
using namespace cli::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// A machine that asks a service about a flash drive, and these steps after the control device has come.
std::vector<std::string> problemsWithService(const std::string &steps) {
    return failureTexts(played(stickUnder("CallbackMode: 1, BlockedCompatibleIds: Class_08") +
                               "steps:\n  - load\n  - start-control-node\n" + steps));
}

} // namespace

TEST(ProcessSteps, meetWhatIsTrue) {
    EXPECT_THAT(problemsWithService(R"(
  - open: {process: 7, handle: own, access: read-write}
  - request: {code: 0x226008, output-bytes: 1073, as: question}
    expect: {status: STATUS_PENDING, requests: {question: {pending: true}}}
  - request: {code: IOCTL_WAIT_NOTIFICATION, handle: own, thread: 2, as: told}
  - plug: stick
    expect: {requests: {question: {pending: false, information: 1073, message: {serial: A1}}, told: {pending: true}}}
  - reply: {to: question, answer: allowed, as: answer}
    expect: {requests: {answer: {status: STATUS_SUCCESS}, told: {notification: {mode: 2}}}}
  - request: {code: IOCTL_WAIT_NOTIFICATION, as: taken back}
  - cancel: taken back
    expect: {requests: {taken back: {status: STATUS_CANCELLED, bytes: ''}}}
  - close: {process: 7, handle: own}
  - expect: {devices: {stick: {mode: allowed}}}
)"),
                IsEmpty());
}

TEST(ProcessSteps, tellWhatIsNotMet) {
    EXPECT_THAT(problemsWithService(R"(
  - open: 7
  - request: {code: IOCTL_WAIT_NOTIFICATION, as: told}
    expect:
      requests:
        told: {pending: false, status: STATUS_SUCCESS}
        never made: {pending: true}
  - cancel: told
    expect: {requests: {told: {status: STATUS_SUCCESS, information: 404}}}
)"),
                ElementsAre("told: pending: false | true", "told: status: a request that is back | it is pending",
                            "never made: pending: a request that was made | it never was",
                            "told: information: 404 (0x194) | 0",
                            "told: status: STATUS_SUCCESS (0x00000000) | STATUS_CANCELLED (0xC0000120)"));
}

TEST(ProcessSteps, tellWhatCannotBeDone) {
    EXPECT_THAT(problemsWithService(R"(
  - request: IOCTL_PING
  - close: 7
  - cancel: nothing
  - open: {process: 7, handle: own}
  - close: {process: 7, handle: other}
  - close: {process: 7, handle: own}
  - close: {process: 7, handle: own}
  - open: 7
  - request: {code: IOCTL_PING, as: done, process: 8}
  - request: {code: IOCTL_PING, as: done}
  - cancel: done
  - reply: {to: done, answer: allowed}
)"),
                ElementsAre("request IOCTL_PING: to be done | no process has the control device open",
                            "close 7: to be done | process 7 does not have the control device open",
                            "cancel nothing: to be done | there is no request 'nothing'",
                            "close process 7, handle other: to be done | process 7 has no handle 'other'",
                            "close process 7, handle own: to be done | handle 'own' is closed already",
                            "request code IOCTL_PING, as done, process 8: to be done | "
                            "process 8 does not have the control device open",
                            "cancel done: to be done | request 'done' was back before",
                            "reply to done, answer allowed: to be done | request 'done' was shown no question"));
}

TEST(ProcessSteps, letAnUnplugWaitForADeviceThatWaitsForItsAnswer) {
    EXPECT_THAT(problemsWithService(R"(
  - open: 7
  - request: {code: IOCTL_WAIT_CALLBACK, as: question}
  - request: {code: IOCTL_WAIT_NOTIFICATION, as: told}
  - plug: stick
  - unplug: stick
  - expect: {devices: {stick: {state: not-started}}, requests: {question: {pending: false}}}
  - reply: {to: question, answer: allowed}
    expect: {devices: {stick: {state: gone}}, requests: {told: {notification: {mode: 2}}}}
  - close: 7
)"),
                IsEmpty());
}

TEST(ProcessSteps, leaveNothingBehindWhenAScenarioEndsInTheMiddle) {
    EXPECT_THAT(problemsWithService(R"(
  - open: 7
  - request: {code: IOCTL_WAIT_CALLBACK, as: question}
  - plug: stick
)"),
                ElementsAre("plug stick: to end | it waits for a process"));
}
