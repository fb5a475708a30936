#pragma once

#include "receiver.h"
#include "test_packets.h"

#include <cstddef>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>

namespace tessary::test {

/// A small stream, as bytes and in a file, and a receiver for it on this machine's loopback interface.
class Loopback : public testing::Test
{
protected:
    static constexpr std::size_t Packets = 1000; // no multiple of 7
    static constexpr double Rate = 8e6;

    const Bytes stream = smallStream(Packets, Rate);
    const std::string file = writeFile("loopback.ts", stream);
    Receiver receiver;

    void TearDown() override { std::remove(file.c_str()); }
};

} // namespace tessary::test
