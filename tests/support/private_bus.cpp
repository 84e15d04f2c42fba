#include "support/private_bus.h"

#include <gtest/gtest.h>

#include <csignal>

namespace support {

static std::string configuration(const std::string &address)
{
    return R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>custom</type>
  <listen>)" +
           address + R"(</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
  </policy>
</busconfig>
)";
}

void PrivateBus::start()
{
    busAddress = "unix:path=" + folder.file("bus").string();
    folder.write("bus.conf", configuration(busAddress));
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
