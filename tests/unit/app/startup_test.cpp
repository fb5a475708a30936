// The start-up steps, as the controller, the programs that run and the FPGA's files see them.
#include "workerfixture.h"

#include "measure/ethernetmeasurement.h"
#include "media/mpegts.h"
#include "support/steps.h"
#include "support/testfiles.h"
#include "system/mydata.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <QMetaMethod>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using Calls = std::vector<std::string>;

const std::string greeting = "HELLO !\r\n";

/// One start is over when a test begins.
class StartUp : public StartedWorker
{
protected:
    /// Starts again, on the machine as the test has made it meanwhile.
    static void startAgain()
    {
        delete ethMes; // each start makes its own
        ethMes = nullptr;
        Worker another;
    }
};

/// The first `count` bytes that come through the pipe; empty when none come within ten seconds.
std::string readPipe(int pipe, std::size_t count)
{
    std::string bytes(count, '\0');
    pollfd waiting{pipe, POLLIN, 0};
    const ssize_t got = poll(&waiting, 1, patienceMs) > 0 ? read(pipe, bytes.data(), count) : 0;
    bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return bytes;
}

} // namespace

TEST_F(StartUp, NetworkingIsSwitchedOnThenDhcpIsSetThenTheMixerThenTheFpgaHasItsTime)
{
    Steps steps(programs());
    startAgain();
    const Calls expected{"nmcli|networking|on", "nmcli|con|del|Wired connection 1",
        "nmcli|con|del|Wired connection 1_vlan",
        "nmcli|con|add|con-name|Wired connection 1|ifname|eth0|type|ethernet", "amixer|sset|PCM|80%",
        "amixer|sset|Headphone|92%", "wait 1", "wait 1", "wait 1", "wait 10000", "wait 5000"};
    EXPECT_EQ(steps.take(), expected);
}

TEST_F(StartUp, TheGreetingIsAllThatTheControllerGets)
{
    EXPECT_EQ(controller().readUntilQuiet(), greeting);
}

TEST_F(StartUp, TheGreetingIsSentBeforeTheFpgaIsTouched)
{
    ASSERT_EQ(controller().read(greeting.size()), greeting); // the first start's
    const char* const firstFile = "/sys/class/gpio/export";
    writeFile(firstFile, "");
    unlink(firstFile);
    ASSERT_EQ(mkfifo(firstFile, 0600), 0); // holds the start up there until somebody reads
    int pipe = -1;
    std::string arrived;
    std::string written;
    std::thread fpga([&] {
        arrived = controller().read(greeting.size());
        pipe = open(firstFile, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        written = readPipe(pipe, 2);
    });
    startAgain();
    fpga.join();
    close(pipe);
    EXPECT_EQ(arrived, greeting);
    EXPECT_EQ(written, "14"); // the done line: the FPGA's turn had not come before
}

TEST_F(StartUp, PciIsScannedAgainBehindAConfiguredFpgaOnly)
{
    for (const char* device : {"0000:00:00.0", "0000:01:00.0"})
        std::filesystem::create_directories(std::string("/sys/bus/pci/devices/") + device);
    startAgain(); // without any FPGA
    EXPECT_FALSE(std::filesystem::exists("/sys/bus/pci/rescan"));
    writeFile("/sys/class/gpio/gpio14/value", "1");
    startAgain();
    EXPECT_TRUE(log().contains("FPGA already programmed"));
    EXPECT_EQ(readFile("/sys/bus/pci/rescan"), "1\n");
}

TEST_F(StartUp, GStreamerAndItsMpegTsLibraryAreInitialised)
{
    EXPECT_TRUE(gst_is_initialized());
    EXPECT_NE(g_type_from_name("GstMpegtsSection"), 0U); // registered on first use, and nothing has used it
}

TEST_F(StartUp, EnumerationsOfTheMpegTsLibraryAreKept)
{
    for (const char* name :
        {"SectionType", "SectionTableID", "RunningStatus", "DescriptorType", "DVBDescriptorType",
            "ATSCDescriptorType", "ISDBDescriptorType", "MiscDescriptorType", "Iso639AudioType",
            "DVBServiceType", "DVBTeletextType", "StreamType", "SectionDVBTableID", "SectionATSCTableID",
            "SectionSCTETableID", "ModulationType", "DVBCodeRate", "CableOuterFECScheme",
            "TerrestrialTransmissionMode", "TerrestrialGuardInterval", "TerrestrialHierarchy",
            "DVBLinkageType", "DVBLinkageHandOverType", "ComponentStreamContent", "ContentNibbleHi"}) {
        const GType type = g_type_from_name((std::string("GstMpegts") + name).c_str());
        EXPECT_TRUE(type != 0 && g_type_class_peek(type) != nullptr) << name;
    }
}

TEST_F(StartUp, SettingsStartFromTheDefaultsWhateverTheyWere)
{
    data.serverAddress = "1.2.3.4";
    data.serverPort = "1";
    data.serverProtocol = protocolRtp;
    data.dhcp = false;
    data.vlan = true;
    data.vlanId = "7";
    data.programNumber = 9;
    startAgain();
    EXPECT_EQ(data.serverAddress, "239.0.0.1");
    EXPECT_EQ(data.serverPort, "1234");
    EXPECT_EQ(data.serverProtocol, protocolUdp);
    EXPECT_TRUE(data.dhcp);
    EXPECT_FALSE(data.vlan);
    EXPECT_EQ(data.vlanId, "100");
    EXPECT_EQ(data.programNumber, 0u);
}

TEST_F(StartUp, TheMetaObjectIsAWorkerWithOneSlot)
{
    const QMetaObject* meta = worker().metaObject();
    EXPECT_STREQ(meta->className(), "Worker");
    ASSERT_EQ(meta->methodCount() - meta->methodOffset(), 1);
    EXPECT_EQ(meta->method(meta->methodOffset()).methodSignature(), "doWork()");
}
