#include "client/psi/delivery.h"

#include "client/psi/bitreader.h"
#include "client/psi/codedtext.h"
#include "client/psi/t2names.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

namespace tessary::client {

namespace {

constexpr std::uint8_t satelliteTag = 0x43;
constexpr std::uint8_t cableTag = 0x44;
constexpr std::uint8_t terrestrialTag = 0x5A;
constexpr std::uint8_t privateDataSpecifierTag = 0x5F;
constexpr std::uint8_t frequencyListTag = 0x62;
constexpr std::uint8_t satellite2Tag = 0x79;
constexpr std::uint8_t extensionTag = 0x7F;
constexpr std::uint8_t terrestrial2Extension = 0x04;
constexpr std::uint8_t isdbTerrestrialTag = 0xFA;

constexpr const char* ofdmModulations[] = {"QPSK", "16-QAM", "64-QAM"};
constexpr const char* ofdmCodeRates[] = {"1/2", "2/3", "3/4", "5/6", "7/8"};
constexpr const char* ofdmGuards[] = {"1/32", "1/16", "1/8", "1/4"};
constexpr const char* ofdmModes[] = {"2k", "8k", "4k"};
constexpr const char* isdbModes[] = {"mode 1 (2k)", "mode 2 (4k)", "mode 3 (8k)"};
constexpr const char* polarizations[] = {"horizontal", "vertical", "left", "right"};
constexpr const char* satelliteModulations[] = {"", "QPSK", "8PSK", "16-QAM"};
constexpr const char* rollOffs[] = {"0.35", "0.25", "0.20"};
constexpr const char* cableModulations[] = {"", "16-QAM", "32-QAM", "64-QAM", "128-QAM", "256-QAM"};
constexpr const char* innerCodeRates[] = {
    "", "1/2", "2/3", "3/4", "5/6", "7/8", "8/9", "3/5", "4/5", "9/10", "", "", "", "", "", "none"};
constexpr std::uint64_t terrestrialBandwidths[] = {8000000, 7000000, 6000000, 5000000};
constexpr std::uint64_t terrestrial2Bandwidths[] = {8000000, 7000000, 6000000, 5000000, 10000000, 1712000};

template <std::size_t size> std::uint64_t bandwidthOf(const std::uint64_t (&table)[size], std::uint64_t code)
{
    return code < size ? table[code] : 0;
}

void addFrequency(Delivery& delivery, std::uint64_t hertz)
{
    auto& known = delivery.frequencies;
    if (hertz != 0 && std::find(known.begin(), known.end(), hertz) == known.end())
        known.push_back(hertz);
}

/// Binary coded decimal.
std::uint64_t decimal(BitReader& bits, int digits)
{
    std::uint64_t value = 0;
    for (int i = 0; i < digits; ++i)
        value = 10 * value + bits.take(4);
    return value;
}

constexpr std::uint64_t terrestrialUnit = 10; // Hz
constexpr std::uint64_t satelliteUnit = 10000;
constexpr std::uint64_t cableUnit = 100;
constexpr std::uint64_t symbolUnit = 100; // symbols per second

Delivery terrestrial(BitReader bits)
{
    Delivery delivery;
    delivery.system = "DVB-T";
    addFrequency(delivery, bits.take(32) * terrestrialUnit);
    delivery.bandwidth = bandwidthOf(terrestrialBandwidths, bits.take(3));
    bits.take(5); // priority, time slicing, MPE-FEC, reserved
    delivery.modulation = codedText(ofdmModulations, bits.take(2));
    const bool hierarchical = (bits.take(3) & 3U) != 0; // the upper bit tells the interleaver
    delivery.codeRate = codedText(ofdmCodeRates, bits.take(3));
    const std::string lowPriority = codedText(ofdmCodeRates, bits.take(3));
    if (hierarchical)
        delivery.codeRate += ", " + lowPriority;
    delivery.guardInterval = codedText(ofdmGuards, bits.take(2));
    delivery.transmissionMode = codedText(ofdmModes, bits.take(2));
    return delivery;
}

Delivery satellite(BitReader bits)
{
    Delivery delivery;
    addFrequency(delivery, decimal(bits, 8) * satelliteUnit);
    const std::uint64_t tenths = decimal(bits, 4);
    const bool east = bits.take(1) != 0;
    delivery.orbitalPosition =
        std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + "° " + (east ? "east" : "west");
    delivery.polarization = codedText(polarizations, bits.take(2));
    const std::string rollOff = codedText(rollOffs, bits.take(2));
    const bool second = bits.take(1) != 0;
    delivery.system = second ? "DVB-S2" : "DVB-S";
    delivery.rollOff = second ? rollOff : "";
    delivery.modulation = codedText(satelliteModulations, bits.take(2));
    delivery.symbolRate = decimal(bits, 7) * symbolUnit;
    delivery.codeRate = codedText(innerCodeRates, bits.take(4));
    return delivery;
}

Delivery cable(BitReader bits)
{
    Delivery delivery;
    delivery.system = "DVB-C";
    addFrequency(delivery, decimal(bits, 8) * cableUnit);
    bits.take(16); // reserved, outer code
    delivery.modulation = codedText(cableModulations, bits.take(8));
    delivery.symbolRate = decimal(bits, 7) * symbolUnit;
    delivery.codeRate = codedText(innerCodeRates, bits.take(4));
    return delivery;
}

void addCells(Delivery& delivery, BitReader& bits, bool frequencySlicing)
{
    constexpr std::size_t cellBits = 16;
    while (bits.left() > cellBits) {
        bits.take(cellBits);
        for (auto i = frequencySlicing ? bits.take(8) / 4 : 1; i > 0; --i)
            addFrequency(delivery, bits.take(32) * terrestrialUnit);
        constexpr std::uint64_t transposerBytes = 5; // cell_id_extension and frequency
        for (auto i = bits.take(8) / transposerBytes; i > 0; --i) {
            bits.take(8);
            addFrequency(delivery, bits.take(32) * terrestrialUnit);
        }
    }
}

Delivery terrestrial2(BitReader bits)
{
    Delivery delivery;
    delivery.system = "DVB-T2";
    bits.take(8); // descriptor_tag_extension
    delivery.plpId = static_cast<int>(bits.take(8));
    delivery.systemId = static_cast<int>(bits.take(16));
    if (bits.left() == 0)
        return delivery; // the rest stands with another PLP of the same system
    bits.take(2); // SISO or MISO
    delivery.bandwidth = bandwidthOf(terrestrial2Bandwidths, bits.take(4));
    bits.take(2);
    delivery.guardInterval = codedText(t2GuardIntervals, bits.take(3));
    delivery.transmissionMode = codedText(t2TransmissionModes, bits.take(3));
    bits.take(1); // other frequencies are in use
    const bool frequencySlicing = bits.take(1) != 0;
    addCells(delivery, bits, frequencySlicing);
    return delivery;
}

Delivery isdbTerrestrial(BitReader bits)
{
    Delivery delivery;
    delivery.system = "ISDB-T";
    bits.take(12); // area_code
    delivery.guardInterval = codedText(ofdmGuards, bits.take(2));
    delivery.transmissionMode = codedText(isdbModes, bits.take(2));
    constexpr std::uint64_t million = 1000000;
    while (bits.left() >= 16)
        addFrequency(delivery, bits.take(16) * million / 7); // counted in sevenths
    return delivery;
}

void addSatellite2(std::vector<Delivery>& deliveries, BitReader bits)
{
    const auto satellites = std::find_if(deliveries.begin(), deliveries.end(),
        [](const Delivery& delivery) { return !delivery.orbitalPosition.empty(); });
    if (satellites == deliveries.end())
        return;
    satellites->system = "DVB-S2";
    const bool scrambled = bits.take(1) != 0;
    const bool severalInputs = bits.take(1) != 0;
    bits.take(6);
    if (scrambled)
        bits.take(24);
    if (severalInputs && bits.left() >= 8)
        satellites->inputStream = static_cast<int>(bits.take(8));
}

void addFrequencyList(std::vector<Delivery>& deliveries, BitReader bits)
{
    if (deliveries.empty())
        return;
    bits.take(6);
    const auto coding = bits.take(2);
    while (bits.left() >= 32) {
        switch (coding) {
        case 1:
            addFrequency(deliveries.front(), decimal(bits, 8) * satelliteUnit);
            break;
        case 2:
            addFrequency(deliveries.front(), decimal(bits, 8) * cableUnit);
            break;
        case 3:
            addFrequency(deliveries.front(), bits.take(32) * terrestrialUnit);
            break;
        default:
            return;
        }
    }
}

std::optional<Delivery> deliveryOf(const Descriptor& descriptor, std::uint32_t specifier)
{
    constexpr std::size_t wholeSize = 11; // of the three of the first generation
    constexpr std::size_t shortTerrestrial2 = 4;
    constexpr std::size_t shortIsdb = 4; // with one frequency
    const Bytes& data = descriptor.data;
    const BitReader bits(data);
    if (descriptor.tag == terrestrialTag && data.size() >= wholeSize)
        return terrestrial(bits);
    if (descriptor.tag == satelliteTag && data.size() >= wholeSize)
        return satellite(bits);
    if (descriptor.tag == cableTag && data.size() >= wholeSize)
        return cable(bits);
    if (descriptor.tag == extensionTag && data.size() >= shortTerrestrial2
        && data[0] == terrestrial2Extension)
        return terrestrial2(bits);
    // In DVB the tag is anybody's, who says so before.
    if (descriptor.tag == isdbTerrestrialTag && specifier == 0 && data.size() >= shortIsdb
        && data.size() % 2 == 0)
        return isdbTerrestrial(bits);
    return std::nullopt;
}

/// Calls `take` with each descriptor and the private_data_specifier that holds for it, 0 for none.
template <typename Take> void eachWithSpecifier(const std::vector<Descriptor>& descriptors, Take take)
{
    std::uint32_t specifier = 0;
    for (const Descriptor& descriptor : descriptors) {
        if (descriptor.tag == privateDataSpecifierTag && descriptor.data.size() >= 4)
            specifier = static_cast<std::uint32_t>(BitReader(descriptor.data).take(32));
        else
            take(descriptor, specifier);
    }
}

constexpr std::uint32_t eacem = 0x28;
constexpr std::uint32_t nordig = 0x29;
constexpr std::uint32_t unitedKingdom = 0x233A;

/// Specifiers whose descriptor 0x83 has numbers of ten bits; many networks name none.
bool hasUsualNumbers(std::uint32_t specifier)
{
    const bool australian = specifier >= 0x3200 && specifier <= 0x320F;
    return specifier == 0 || specifier == eacem || specifier == unitedKingdom || australian;
}

void addChannels(std::vector<LogicalChannel>& channels, BitReader bits, std::size_t numberBits,
    bool simulcast, bool hasFlag = true)
{
    constexpr std::size_t entryBits = 32;
    while (bits.left() >= entryBits) {
        LogicalChannel channel;
        channel.serviceId = static_cast<std::uint16_t>(bits.take(16));
        channel.visible = bits.take(1) != 0 || !hasFlag;
        bits.take(15 - numberBits);
        channel.number = static_cast<int>(bits.take(numberBits));
        channel.simulcast = simulcast;
        channels.push_back(channel);
    }
}

/// Lists of channels for countries; a service that is in more than one keeps its first number.
void addNordigLists(std::vector<LogicalChannel>& channels, const Bytes& data)
{
    constexpr std::size_t usualBits = 10;
    std::size_t at = 0;
    while (at + 2 <= data.size()) {
        at += 2 + data[at + 1] + 3U; // channel_list_id, name with its length, country_code
        if (at >= data.size())
            return;
        const std::size_t length = std::min<std::size_t>(data[at], data.size() - at - 1);
        const auto first = data.begin() + static_cast<std::ptrdiff_t>(at) + 1;
        const Bytes list(first, first + static_cast<std::ptrdiff_t>(length));
        addChannels(channels, BitReader(list), usualBits, false);
        at += 1 + length;
    }
}

std::string number(double value, const char* unit)
{
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), "%.10g %s", value, unit);
    return text.data();
}

std::string megahertz(std::uint64_t hertz)
{
    return number(static_cast<double>(hertz) / 1e6, "MHz");
}

std::string frequenciesText(const Delivery& delivery)
{
    constexpr std::size_t mostShown = 4;
    std::string text;
    const std::size_t shown = std::min(delivery.frequencies.size(), mostShown);
    for (std::size_t i = 0; i < shown; ++i)
        text += (i == 0 ? "" : i == 1 ? ", also on " : " and ") + megahertz(delivery.frequencies[i]);
    if (shown < delivery.frequencies.size())
        text += " and " + std::to_string(delivery.frequencies.size() - shown) + " more";
    return text;
}

} // namespace

std::vector<Delivery> deliveriesOf(const std::vector<Descriptor>& descriptors)
{
    std::vector<Delivery> deliveries;
    eachWithSpecifier(descriptors, [&](const Descriptor& descriptor, std::uint32_t specifier) {
        if (auto delivery = deliveryOf(descriptor, specifier))
            deliveries.push_back(*std::move(delivery));
    });
    for (const Descriptor& descriptor : descriptors) { // they may stand before what they add to
        if (descriptor.tag == satellite2Tag && !descriptor.data.empty())
            addSatellite2(deliveries, BitReader(descriptor.data));
        if (descriptor.tag == frequencyListTag && !descriptor.data.empty())
            addFrequencyList(deliveries, BitReader(descriptor.data));
    }
    return deliveries;
}

std::vector<LogicalChannel> logicalChannelsOf(const std::vector<Descriptor>& descriptors)
{
    constexpr std::uint8_t channelTag = 0x83;
    constexpr std::uint8_t nordigListsTag = 0x87;
    constexpr std::uint8_t simulcastTag = 0x88;
    constexpr std::size_t usualBits = 10;
    constexpr std::size_t nordigBits = 14;
    std::vector<LogicalChannel> channels;
    eachWithSpecifier(descriptors, [&](const Descriptor& descriptor, std::uint32_t specifier) {
        const BitReader bits(descriptor.data);
        if (descriptor.tag == channelTag && specifier == nordig)
            addChannels(channels, bits, nordigBits, false);
        else if (descriptor.tag == channelTag && hasUsualNumbers(specifier))
            addChannels(channels, bits, usualBits, false, specifier != unitedKingdom);
        else if (descriptor.tag == nordigListsTag && specifier == nordig)
            addNordigLists(channels, descriptor.data);
        else if (descriptor.tag == simulcastTag && specifier == eacem)
            addChannels(channels, bits, usualBits, true);
    });
    return channels;
}

std::string textOf(const Delivery& delivery)
{
    std::string text = delivery.system;
    const auto add = [&text](const char* label, const std::string& value) {
        if (!value.empty())
            text += std::string(", ") + label + value;
    };
    add("", frequenciesText(delivery));
    add("", delivery.polarization);
    add("", delivery.orbitalPosition);
    add("", delivery.modulation);
    add("bandwidth ", delivery.bandwidth != 0 ? megahertz(delivery.bandwidth) : "");
    add("",
        delivery.symbolRate != 0 ? number(static_cast<double>(delivery.symbolRate) / 1e6, "Msymbol/s") : "");
    add("code rate ", delivery.codeRate);
    add("roll-off ", delivery.rollOff);
    add("guard interval ", delivery.guardInterval);
    add("", delivery.transmissionMode);
    add("PLP ", delivery.plpId.has_value() ? std::to_string(*delivery.plpId) : "");
    add("T2 system ", delivery.systemId.has_value() ? std::to_string(*delivery.systemId) : "");
    add("input stream ", delivery.inputStream.has_value() ? std::to_string(*delivery.inputStream) : "");
    return text;
}

} // namespace tessary::client
