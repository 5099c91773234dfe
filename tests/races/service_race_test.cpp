// Service processes come and go while filters ask: each device gets the answer to its own question.

#include "simulator/kernel/strings.h"
#include "tests/races/support/race_test.h"
#include "tests/races/support/service.h"
#include "tests/races/support/ticker.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace races {
namespace {

constexpr unsigned askingThreads = 5;
constexpr unsigned serviceThreads = threadCount - askingThreads;
constexpr unsigned roundsOfQuestions = 8;

/// Serial numbers that end in an even digit are allowed by the service, the others blocked. The rules make every drive
/// read-only.
std::uint32_t answerFor(const std::u16string &serial) {
    return (serial.back() - u'0') % 2 == 0 ? modeAllowed : modeBlocked;
}

class ServiceRace : public RaceTest {
  protected:
    ServiceRace() {
        apply(behaviour::readOnly({u"*"}));
        setParameter(u"CallbackMode", 1);
        setParameter(u"CallbackTimeout", 5);
    }
    /// Some threads plug drives, the others are service processes, each living again and again, until all drives have
    /// been decided.
    void askAndServe(const std::function<void(unsigned process, std::atomic<bool> &asking)> &serve,
                     const std::function<void(unsigned thread, unsigned round)> &check) {
        std::atomic<unsigned> askers = askingThreads;
        std::atomic<bool> asking = true;
        together([&](unsigned thread) {
            if (thread >= askingThreads) {
                while (asking) {
                    serve(thread, asking);
                }
                return;
            }
            for (unsigned round = 0; round < roundsOfQuestions; ++round) {
                sim::DeviceNode &node = machine().plug(numberedDrive(thread, round));
                check(thread, round);
                machine().unplug(node);
            }
            if (--askers == 0) {
                asking = false;
            }
        });
    }
    std::uint32_t right(unsigned thread, unsigned round) { return answerFor(sim::toUtf16(serialOf(thread, round))); }

    void expectAnswerOrRules(const Decision &decision, unsigned thread, unsigned round) {
        if (decision.mode == modeUnknown) {
            ++undecided;
            return;
        }
        EXPECT_TRUE(decision.mode == right(thread, round) || decision.mode == modeReadOnly)
            << driveName(thread, round) << " has mode " << decision.mode;
    }
    /// A device stays undecided only when the service left between the two looks at whether it is there.
    void expectUndecidedOnesToldSo() {
        const std::string line = "INFO Send callback, m_apiRegistered = 0";
        EXPECT_EQ(countLines(line)[line], undecided);
    }

    std::atomic<unsigned> undecided = 0;
    std::atomic<unsigned> replies = 0;
};

TEST_F(ServiceRace, OneServiceAnswersAllQuestionsOutOfOrder) {
    start();
    std::atomic<bool> open = false;
    std::thread service([&] {
        Service only(100, 3, answerFor);
        open = true;
        while (open) {
            replies += only.work();
            std::this_thread::yield();
        }
    });
    while (!open) {
        std::this_thread::yield();
    }
    together([&](unsigned thread) {
        for (unsigned round = 0; round < roundsOfQuestions; ++round) {
            sim::DeviceNode &node = machine().plug(numberedDrive(thread, round));
            const Decision decision = decisionOf(driveName(thread, round));
            EXPECT_EQ(decision.returned, STATUS_SUCCESS);
            EXPECT_EQ(decision.mode, right(thread, round)) << driveName(thread, round);
            machine().unplug(node);
        }
    });
    open = false;
    service.join();
    EXPECT_EQ(replies, threadCount * roundsOfQuestions);
    EXPECT_THAT(countLines("ERROR"), testing::IsEmpty()) << "every pass found what the queues said they had";
}

TEST_F(ServiceRace, RegistrationsThatComeAndGoLeaveTheRulesTheirDecision) {
    setParameter(u"CallbackMode", 0); // a service is told, not asked
    start();
    const Ticker ticker(kernel().clock);
    askAndServe(
        [&](unsigned process, std::atomic<bool> &) {
            const Service life(100 + process, 0, answerFor);
            EXPECT_TRUE(life.isOpen() || life.openStatus() == STATUS_ACCESS_DENIED) << life.openStatus();
            std::this_thread::yield();
        },
        [&](unsigned thread, unsigned round) {
            const Decision decision = decisionOf(driveName(thread, round));
            EXPECT_EQ(decision.returned, STATUS_SUCCESS);
            EXPECT_EQ(decision.mode, modeReadOnly) << driveName(thread, round);
        });
    const Service last(200, 0, answerFor);
    EXPECT_TRUE(last.isOpen());
}

TEST_F(ServiceRace, ProcessesTakeTurnsAndAQuestionIsAnsweredByWhomeverItMeets) {
    start();
    askAndServe(
        [&](unsigned process, std::atomic<bool> &asking) {
            Service service(100 + process, 2, answerFor);
            if (!service.isOpen()) {
                EXPECT_EQ(service.openStatus(), STATUS_ACCESS_DENIED);
                std::this_thread::yield();
                return;
            }
            // Its life ends after a few answers. The last one stays as long as anybody asks.
            for (unsigned answered = 0; asking && answered < 3;) {
                answered += service.work();
                std::this_thread::yield();
            }
        },
        [&](unsigned thread, unsigned round) {
            const Decision decision = decisionOf(driveName(thread, round));
            EXPECT_EQ(decision.returned, STATUS_SUCCESS);
            expectAnswerOrRules(decision, thread, round);
        });
    expectUndecidedOnesToldSo();
    machine().settle(); // a file whose request came back late is closed late
    // Nobody is registered any more, whoever came and went.
    Service last(200, 1, answerFor);
    EXPECT_EQ(last.openStatus(), STATUS_SUCCESS);
    EXPECT_EQ(last.work(), 0U);
}

TEST_F(ServiceRace, QuestionsWithoutAnAnswerTimeOutAndLateRepliesHurtNobody) {
    driverMayForget = true; // a question may time out in the middle of a pass
    start();
    const Ticker ticker(kernel().clock);
    std::atomic<unsigned> lives = 0;
    askAndServe(
        [&](unsigned process, std::atomic<bool> &asking) {
            // Every third life never answers, and dies with what it was asked.
            const bool silent = lives++ % 3 == 2;
            Service service(100 + process, 2, [&](const std::u16string &serial) {
                return silent ? Service::noReply : answerFor(serial);
            });
            if (!service.isOpen()) {
                std::this_thread::yield();
                return;
            }
            for (unsigned turns = 0; asking && turns < 40; ++turns) {
                service.work();
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
            if (silent) {
                service.die();
            }
        },
        [&](unsigned thread, unsigned round) {
            const Decision decision = decisionOf(driveName(thread, round));
            if (decision.returned == STATUS_SUCCESS) {
                expectAnswerOrRules(decision, thread, round);
            } else {
                EXPECT_EQ(decision.returned, STATUS_IO_TIMEOUT);
                EXPECT_EQ(machine().find(driveName(thread, round))->problemCode(), 31U);
            }
        });
    expectUndecidedOnesToldSo();
}

} // namespace
} // namespace races
