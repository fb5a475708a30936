#pragma once

#include "frames.h"
#include "measure/ethernetmeasurement.h"
#include "support/eventually.h"
#include "support/ttyfixture.h"

#include <gtest/gtest.h>

/// Sends frames as they are out of an interface.
class FrameSender
{
public:
    explicit FrameSender(const char* interface);
    ~FrameSender();
    FrameSender(const FrameSender&) = delete;
    FrameSender& operator=(const FrameSender&) = delete;

    /// Sends the frame `count` times in a row; returns how many the interface took.
    unsigned send(const Bytes& frame, unsigned count = 1);

private:
    int m_fd;
};

/// A measurement in a private network namespace. "eth0" is one end of a veth pair; what is sent into the
/// other end, "uplink", arrives there.
class Capture : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    static bool addEth0();
    static void send(const char* interface, const Bytes& frame);
    std::vector<pcap_measured_value_struct> records();
    std::size_t recordCount() { return records().size(); }
    bool logHas(const char* line) { return log.contains(line); }
    std::ptrdiff_t logCount(const char* line);

    LogCapture log;
    ETHERNETMeasurement measurement;
    const Bytes sevenPackets = datagram(protocolUdp, Bytes(1316));
};
