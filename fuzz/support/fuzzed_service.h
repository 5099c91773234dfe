#pragma once

#include "errands.h"
#include "fuzzed_process.h"
#include "living_machine.h"

#include <map>
#include <set>
#include <string>

namespace fuzz {

/// The control device of a living machine and the processes that use it, with a model of what is asked and answered.
class FuzzedService {
  public:
    explicit FuzzedService(LivingMachine &machine);

    LivingMachine &machine() { return machine_; }
    Errands &errands() { return errands_; }
    FuzzedProcess &process(unsigned nth) { return *processes_[nth % processes_.size()]; }

    void open(unsigned nth, ACCESS_MASK access);
    /// The process dies; the next one of that number is another.
    void die(unsigned nth);
    void send(unsigned nth, FuzzedProcess::Handle handle, sim::process::ControlRequest request);
    /// Replies to the nth question that was shown, counted round from the latest, or to an id that nobody was shown.
    void reply(unsigned nth, FuzzedProcess::Handle handle, std::uint64_t id, std::uint32_t answer);
    std::uint64_t shownId(unsigned nth) const;
    void letTimePass();
    /// Does what the machine put off: files whose last request came back after their handles were closed, devices that
    /// are to be cycled. Those may ask the service.
    void settle();
    /// Of the control device only: a machine whose devices are being added does not sleep.
    void setPower(bool on);

    /// Waits for rest, looks at every answer and at what the driver has then.
    void check();
    /// Ends everything that is under way; nothing may be left of it.
    void finish();

    /// Whether the service ever answered so that the device with that serial number may run, or asked to be told of
    /// decisions in the same queue, where a question can get lost.
    bool mayHaveAllowed(const std::u16string &serial) const;
    const std::set<std::uint32_t> &served() const { return served_; } ///< codes that did what they are for
    /// How many devices a listing must tell; nothing while that changes.
    std::function<std::optional<std::size_t>()> listedDevices;
    /// What the registry holds; nothing when it is no number.
    std::optional<std::uint32_t> logLevel;

  private:
    ControlDevice &control() { return *machine_.driver().controlDevice; }
    void takeAnswers();
    void take(const Made &made);
    void takeQuestion(const Made &made);
    void takeListing(const Made &made);
    /// What the driver keeps for ever would keep its file, the device and the machine: it is taken from the driver.
    void completeForgotten();
    bool pairedAsFarAsPossible();

    LivingMachine &machine_;
    Errands errands_;
    std::vector<std::unique_ptr<FuzzedProcess>> processes_;
    std::vector<std::unique_ptr<FuzzedProcess>> dead_;
    unsigned lastProcessId_ = 100;
    bool powered_ = true;
    bool timePassed_ = false;
    bool waitsForNotifications_ = false;
    std::vector<std::uint64_t> shown_;             ///< ids of questions, in order
    std::map<std::uint64_t, std::u16string> open_; ///< questions that wait for a reply, and whom they are about
    std::map<std::u16string, std::set<std::uint32_t>> answers_;
    std::set<std::uint32_t> served_;
};

} // namespace fuzz
