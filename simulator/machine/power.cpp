// Power transitions of the whole machine. learn.microsoft.com: "System Set-Power Requests".

#include "machine.h"

#include "../kernel/io.h"

#include <algorithm>

namespace sim {

namespace {

void setSystemPower(const std::vector<DeviceNode *> &nodes, SYSTEM_POWER_STATE state, POWER_ACTION action) {
    POWER_STATE system{};
    system.SystemState = state;
    for (const DeviceNode *node : nodes) {
        if (node->started()) {
            sendPowerIrp(node->physicalDevice(), IRP_MN_SET_POWER, SystemPowerState, system, action);
        }
    }
}

} // namespace

void Machine::sleep() {
    std::vector<DeviceNode *> order = nodes();
    std::reverse(order.begin(), order.end());
    setSystemPower(order, PowerSystemSleeping3, PowerActionSleep);
}

void Machine::wake() {
    setSystemPower(nodes(), PowerSystemWorking, PowerActionSleep);
}

void Machine::shutDown() {
    sendShutdown();
    std::vector<DeviceNode *> order = nodes();
    std::reverse(order.begin(), order.end());
    setSystemPower(order, PowerSystemShutdown, PowerActionShutdownOff);
}

} // namespace sim
