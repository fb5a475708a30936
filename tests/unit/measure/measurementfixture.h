#pragma once

#include "frames.h"
#include "measure/ethernetmeasurement.h"
#include "support/ttyfixture.h"

#include <gtest/gtest.h>
#include <new>

/// The callback and the readers of its results, without an interface. Each test begins from the statistics of
/// a fresh process.
class Measurement : public ::testing::Test
{
protected:
    Measurement()
    {
        receptionStatistics.~ReceptionStatistics();
        new (&receptionStatistics) ReceptionStatistics;
    }

    void receive(const Bytes& frame, std::int64_t microseconds)
    {
        const pcap_pkthdr header = headerOf(frame, microseconds);
        ETHERNETMeasurement::onPacketReceived(
            reinterpret_cast<unsigned char*>(&measurement), &header, frame.data());
    }

    std::vector<int> values()
    {
        std::vector<int> out{99};
        measurement.getMeasure(&out);
        return out;
    }

    std::vector<pcap_measured_value_struct> records()
    {
        std::vector<pcap_measured_value_struct> out(3);
        measurement.getBuffer(&out);
        return out;
    }

    LogCapture log;
    ETHERNETMeasurement measurement;
    const Bytes sevenPackets = datagram(protocolUdp, Bytes(1316));
};
