#pragma once

#include "client/psi/tables.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tessary::client {

/// How a transport stream goes out, as the NIT describes it. Texts are those of a person, such as "64-QAM" or
/// "3/4"; empty, and numbers 0, when it is not told.
struct Delivery
{
    std::string system; ///< "DVB-T", "DVB-T2", "DVB-S", "DVB-S2", "DVB-C", "ISDB-T"
    std::vector<std::uint64_t> frequencies; ///< Hz; the main one first, each once
    std::string modulation;
    std::uint64_t bandwidth = 0; ///< Hz
    std::uint64_t symbolRate = 0; ///< symbols per second
    std::string codeRate; ///< of the inner code; "2/3, 1/2" of high and low priority with hierarchy
    std::string guardInterval;
    std::string transmissionMode; ///< "8k"
    std::string polarization; ///< "horizontal", "vertical", "left", "right"
    std::string orbitalPosition; ///< "19.2° east"
    std::string rollOff; ///< "0.35"
    std::optional<int> plpId; ///< physical layer pipe of DVB-T2
    std::optional<int> systemId; ///< T2_system_id
    std::optional<int> inputStream; ///< input_stream_identifier of DVB-S2
};

/// A logical channel number, which no standard of DVB knows, but several countries' rules.
struct LogicalChannel
{
    std::uint16_t serviceId = 0;
    int number = 0;
    bool visible = true; ///< visible_service_flag; where there is none, visible
    bool simulcast = false; ///< the number that receivers of high definition take instead
};

/// What the descriptors of a transport stream in the NIT tell of its delivery: terrestrial, satellite, S2,
/// cable, T2 and frequency list (ETSI EN 300 468, 6.2.13, 6.2.17 and 6.4), and the terrestrial one of ISDB
/// (ARIB STD-B10). Descriptors that are too short are passed over.
std::vector<Delivery> deliveriesOf(const std::vector<Descriptor>& descriptors);

/// The logical channel numbers: descriptor 0x83 as EACEM, the United Kingdom, Australia and NorDig have it,
/// 0x87 (NorDig, version 2) and 0x88 (EACEM, high definition), by the private_data_specifier before them.
std::vector<LogicalChannel> logicalChannelsOf(const std::vector<Descriptor>& descriptors);

/// One line, for example "DVB-T, 498 MHz, 64-QAM, bandwidth 8 MHz, code rate 3/4".
std::string textOf(const Delivery& delivery);

} // namespace tessary::client
