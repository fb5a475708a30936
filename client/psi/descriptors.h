#pragma once

#include "client/psi/tables.h"

#include <glib.h>
#include <string>
#include <vector>

namespace tessary::client {

/// Copies of the descriptors in a list of GstMpegtsDescriptor (borrowed; may be null).
std::vector<Descriptor> copyDescriptors(const GPtrArray* list);

/// The name in the network_name_descriptor of this network, UTF-8; empty without one.
std::string networkName(GPtrArray* list, std::uint16_t networkId);

/// The services of a service_list_descriptor; empty without one.
std::vector<NetworkInformation::ListedService> listedServices(GPtrArray* list);

/// Type, name and provider from a service_descriptor of this network; leaves `service` as it is without one.
void readServiceDescriptor(
    GPtrArray* list, std::uint16_t originalNetworkId, ServiceDescription::Service& service);

} // namespace tessary::client
