#include "support/private_bus.h"

#include <gtest/gtest.h>

#include <csignal>

namespace support {

static constexpr const char *EVERYTHING = R"(
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow send_requested_reply="false"/>
    <allow receive_requested_reply="false"/>
  </policy>)";

static std::string configuration(const std::string &type, const std::string &address,
                                 const std::string &rules)
{
    return R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>)" +
           type + R"(</type>
  <listen>)" +
           address + R"(</listen>
  <auth>EXTERNAL</auth>)" +
           rules + R"(
</busconfig>
)";
}

void PrivateBus::start()
{
    busAddress = "unix:path=" + folder.file("bus").string();
    startWith(configuration("custom", busAddress, EVERYTHING));
}

void PrivateBus::startAsSystemBus(const std::string &rules)
{
    busAddress = "unix:abstract=" + folder.file("bus").string();  // the folder is closed to others
    startWith(configuration("system", busAddress, rules));
}

void PrivateBus::startWith(const std::string &configuration)
{
    folder.write("bus.conf", configuration);
    broker.start({DBUS_DAEMON_BINARY, "--nofork", "--nopidfile", "--nosyslog", "--print-address=1",
                  "--config-file=" + folder.file("bus.conf").string()},
                 {});
    // The address is printed once the socket takes connections.
    ASSERT_TRUE(eventually([this] { return broker.outputHolds(busAddress); }))
        << "the bus did not start: " << broker.output();
}

void PrivateBus::stop()
{
    broker.signal(SIGKILL);
    ASSERT_TRUE(broker.waitForEnd(5s));
}

}  // namespace support
