#include "myrtelhaven_service.h"
#include "tests/behaviour/support/control_code.h"

namespace behaviour {
namespace {

class LogSettings : public DriverTest {
  protected:
    ControlAnswer reload() { return sendControlCode(*control_, IOCTL_RELOAD_LOG_SETTINGS); }
    sim::DeviceNode *control_ = nullptr;
};

TEST_F(LogSettings, AreLoggedAsTheyAreThen) {
    control_ = &start();
    setParameter(u"LogLevel", 5);
    const ControlAnswer answer = reload();
    EXPECT_EQ(answer.status, STATUS_SUCCESS);
    EXPECT_EQ(takeLog(),
              (Lines{"INFO onIoDeviceControl, ioctl code = 2269203",
                     "INFO Read log settings from registry, status = 0x0, logLevel = DEBUG, logMaxFileSize = 0xa00000, "
                     "logMaxFilesNumber = 0x3, logFileExtension = log, logFilePrefix = com.tarvenholt.myrtelhaven-, "
                     "logDir = \\SystemRoot\\Temp, logFileName = driver"}));
}

TEST_F(LogSettings, AMissingLevelTurnsTheLogOff) {
    control_ = &start();
    registry().deleteValue(sim::Machine::parametersKey(), u"LogLevel");
    EXPECT_EQ(reload().status, STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(takeLog(), Lines{"INFO onIoDeviceControl, ioctl code = 2269203"});
    reload();
    EXPECT_EQ(takeLog(), Lines{});
}

TEST_F(LogSettings, ALevelThatIsNoNumberTurnsTheLogOff) {
    control_ = &start();
    setParameter(u"LogLevel", REG_SZ, bytesOf(u"4"));
    EXPECT_NE(reload().status, STATUS_SUCCESS);
    takeLog();
    reload();
    EXPECT_EQ(takeLog(), Lines{});
}

TEST_F(LogSettings, ALowerLevelKeepsErrorsOnly) {
    control_ = &start();
    setParameter(u"LogLevel", 2);
    EXPECT_EQ(reload().status, STATUS_SUCCESS);
    EXPECT_EQ(takeLog(), Lines{"INFO onIoDeviceControl, ioctl code = 2269203"}) << "its own line is INFO too";
}

TEST_F(LogSettings, TurnALogOnThatWasOff) {
    setParameter(u"LogLevel", 0);
    control_ = &start();
    setParameter(u"LogLevel", 4);
    EXPECT_EQ(reload().status, STATUS_SUCCESS);
    const Lines log = takeLog();
    ASSERT_EQ(log.size(), 1U);
    EXPECT_TRUE(log[0].starts_with("INFO Read log settings from registry, status = 0x0, logLevel = INFO,"));
}

} // namespace
} // namespace behaviour
