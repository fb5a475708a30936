#pragma once

#include "client/psi/bytes.h"
#include "client/psi/sections.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tessary::client {

/// One descriptor as carried: tag and the bytes after descriptor_length.
struct Descriptor
{
    std::uint8_t tag = 0;
    Bytes data;
};

/// program_association_section, ISO/IEC 13818-1, 2.4.4.3.
struct ProgramAssociation
{
    struct Program
    {
        std::uint16_t number = 0; ///< 0 names the network PID
        std::uint16_t pid = 0; ///< PID of the PMT (or of the NIT for number 0)
    };
    std::uint16_t transportStreamId = 0;
    std::vector<Program> programs; ///< in the order of the section
};

/// TS_program_map_section, ISO/IEC 13818-1, 2.4.4.8.
struct ProgramMap
{
    static constexpr std::uint16_t noPcr = 0x1FFF;

    struct Stream
    {
        std::uint8_t type = 0; ///< stream_type
        std::uint16_t pid = 0;
        std::vector<Descriptor> descriptors;
    };
    std::uint16_t programNumber = 0;
    std::uint16_t pcrPid = 0; ///< noPcr without one
    std::vector<Descriptor> descriptors;
    std::vector<Stream> streams;
};

/// network_information_section, ETSI EN 300 468, 5.2.1.
struct NetworkInformation
{
    struct ListedService
    {
        std::uint16_t serviceId = 0;
        std::uint8_t type = 0;
    };
    struct TransportStream
    {
        std::uint16_t transportStreamId = 0;
        std::uint16_t originalNetworkId = 0;
        std::vector<ListedService> services; ///< of the service_list_descriptor
        std::vector<Descriptor> descriptors;
    };
    std::uint16_t networkId = 0;
    std::string networkName; ///< UTF-8
    std::vector<TransportStream> transportStreams;
};

/// service_description_section, ETSI EN 300 468, 5.2.3.
struct ServiceDescription
{
    struct Service
    {
        std::uint16_t id = 0;
        std::uint8_t type = 0; ///< service_type of the service_descriptor; 0 without one
        std::uint8_t runningStatus = 0; ///< 4 = running
        bool scrambled = false; ///< free_CA_mode
        bool eitSchedule = false;
        bool eitPresentFollowing = false;
        std::string name; ///< UTF-8
        std::string provider; ///< UTF-8
    };
    std::uint16_t transportStreamId = 0;
    std::uint16_t originalNetworkId = 0;
    std::vector<Service> services;
};

/// Decoders. Each returns nothing when the section is of another table, its CRC_32 is wrong or its body does
/// not parse. Text is decoded as servicesText() does. Safe to call from one thread at a time; the first call
/// initialises GStreamer.
std::optional<ProgramAssociation> decodePat(const Section& section);
std::optional<ProgramMap> decodePmt(const Section& section);
std::optional<NetworkInformation> decodeNit(const Section& section);
std::optional<ServiceDescription> decodeSdt(const Section& section);

} // namespace tessary::client
