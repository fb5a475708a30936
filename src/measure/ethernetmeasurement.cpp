#include "measure/ethernetmeasurement.h"

#include "system/network.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <QtDebug>
#include <unistd.h>

namespace {

constexpr std::size_t maxRecords = 1024;

/// Copies the name of the first capture device whose name contains "eth0." (with VLAN) or "eth0" into `name`,
/// which stays empty when there is none. The VLAN id is not compared, on purpose: the unit has one VLAN
/// interface at a time. False when the devices can not be listed.
bool chooseDevice(bool vlan, char* name, std::size_t size)
{
    char error[PCAP_ERRBUF_SIZE] = "";
    pcap_if_t* devices = nullptr;
    if (pcap_findalldevs(&devices, error) == -1) {
        qDebug("pcap_findalldevs error");
        return false;
    }
    for (const pcap_if_t* device = devices; device; device = device->next) {
        if (std::strstr(device->name, vlan ? "eth0." : "eth0")) {
            std::snprintf(name, size, "%s", device->name);
            qDebug("%s founded\r\n", name);
            break;
        }
    }
    pcap_freealldevs(devices);
    return true;
}

/// Settings of a capture that is not active yet. What the driver refuses shows in the log only.
void configure(pcap_t* handle)
{
    qDebug(
        "pcap_set_tstamp_type (0=success): %d", pcap_set_tstamp_type(handle, PCAP_TSTAMP_ADAPTER_UNSYNCED));
    qDebug("pcap_set_tstamp_precision (0=success): %d",
        pcap_set_tstamp_precision(handle, PCAP_TSTAMP_PRECISION_MICRO));
    qDebug("pcap_set_timeout (0=success): %d", pcap_set_timeout(handle, 100)); // ms
    qDebug("pcap_set_immediate_mode (0=success): %d", pcap_set_immediate_mode(handle, 1));
    qDebug("pcap_activate (0=success): %d", pcap_activate(handle));
    // Otherwise a routing daemon that is started meanwhile would keep the capture, and the kernel would fill
    // its ring, for as long as it runs.
    if (const int descriptor = pcap_fileno(handle); descriptor >= 0)
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

/// A store that other threads see in order is dear, and most frames change no result. The capture thread
/// alone writes them.
template <typename Value> void storeChanged(std::atomic<Value>& result, Value value)
{
    if (result.load(std::memory_order_relaxed) != value)
        result = value;
}

} // namespace

ETHERNETMeasurement::ETHERNETMeasurement()
    : handle(nullptr)
    , thread()
    , buffer(std::make_unique<std::vector<pcap_measured_value_struct>>())
    , delayFactorMs(0)
    , discontinuities(0)
    , lastBitrate(0)
    , tsPacketSize(0)
    , tsPacketsPerDatagram(0)
    , running(false)
    , filter("host 239.0.0.1 && port 1234")
    , protocol(protocolUdp)
    , oldestRecord(0)
    , handleOpen(false)
{
    qDebug("------------------pcap constr ------------------");
    buffer->reserve(maxRecords);
}

ETHERNETMeasurement::~ETHERNETMeasurement()
{
    if (running)
        stop();
    qDebug("------------------pcap destruct ------------------");
}

void ETHERNETMeasurement::load(::protocol p, std::string newFilter)
{
    if (running)
        stop();
    qDebug("------------------pcap load ------------------");
    protocol = p;
    filter = std::move(newFilter);
}

void ETHERNETMeasurement::start()
{
    if (running)
        stop();
    qDebug("------------------pcap start input ------------------");
    char device[256] = "";
    if (!chooseDevice(data.vlan, device, sizeof device) || !open(device))
        return;
    {
        const MutexLock lock(handleMutex);
        handleOpen = true;
    }
    if (pthread_create(&thread, nullptr, doWork, this) != 0) {
        qDebug("Couldn't start the capture thread: out of memory or threads");
        closeHandle();
        return;
    }
    running = true;
    qDebug("------------------pcap start output ------------------");
    net.joinRequested.store(true, std::memory_order_release);
}

/// Opens and activates `handle` and installs the filter. False when that failed; nothing stays open then.
bool ETHERNETMeasurement::open(const char* device)
{
    char error[PCAP_ERRBUF_SIZE] = "";
    bpf_u_int32 network = 0;
    bpf_u_int32 mask = 0;
    if (pcap_lookupnet(device, &network, &mask, error) == -1) {
        qDebug("Couldn't get netmask for device");
        return false;
    }
    handle = pcap_create(device, error);
    if (!handle) {
        qDebug("Couldn't open device !");
        return false;
    }
    configure(handle);
    usleep(50000);
    bool usable = pcap_datalink(handle) == DLT_EN10MB; // an error, too, when the activation failed
    if (!usable)
        qDebug("Not an Ethernet adapter\n");
    usable = usable && installFilter(network);
    if (!usable)
        pcap_close(handle);
    return usable;
}

/// The network number goes where the compiler wants a netmask, on purpose: filters of host and port never
/// depend on it.
bool ETHERNETMeasurement::installFilter(bpf_u_int32 network)
{
    bpf_program program{};
    if (pcap_compile(handle, &program, filter.c_str(), 0, network) == -1) {
        qDebug("Couldn't parse filter\n");
        return false;
    }
    const bool installed = pcap_setfilter(handle, &program) != -1;
    if (!installed)
        qDebug("Couldn't install filter\n");
    pcap_freecode(&program);
    return installed;
}

void ETHERNETMeasurement::closeHandle()
{
    const MutexLock lock(handleMutex);
    handleOpen = false;
    pcap_close(handle);
}

void ETHERNETMeasurement::stop()
{
    if (!running)
        return;
    qDebug("------------------pcap stop ------------------");
    {
        const MutexLock lock(handleMutex);
        if (handleOpen)
            pcap_breakloop(handle);
    }
    pthread_join(thread, nullptr);
    running = false;
    const MutexLock lock(bufferMutex);
    buffer->clear();
    oldestRecord = 0;
}

void* ETHERNETMeasurement::doWork(void* self)
{
    auto* const measurement = static_cast<ETHERNETMeasurement*>(self);
    qDebug("------------------pcap loop input ------------------");
    pcap_loop(measurement->handle, -1, onPacketReceived, static_cast<unsigned char*>(self));
    // The loop also ends by itself, when the interface disappears: a later stop must not touch the closed
    // handle.
    measurement->closeHandle();
    qDebug("------------------pcap loop output ------------------");
    return nullptr;
}

void ETHERNETMeasurement::onPacketReceived(
    unsigned char* self, const pcap_pkthdr* header, const unsigned char* frame)
{
    auto* const measurement = reinterpret_cast<ETHERNETMeasurement*>(self);
    const FrameMeasurement result = receptionStatistics.addFrame(measurement->protocol, *header, frame);
    storeChanged(measurement->tsPacketSize, result.layout.size);
    storeChanged(measurement->tsPacketsPerDatagram, result.layout.count);
    if (result.closedPeriod) {
        measurement->lastBitrate = result.closedPeriod->bitrate;
        measurement->delayFactorMs = result.closedPeriod->delayFactorMs;
        measurement->discontinuities = result.closedPeriod->discontinuities;
    }
    if (measurement->bufferMutex.try_lock()) {
        measurement->keep(result.record);
        measurement->bufferMutex.unlock();
    }
    storeChanged(receptionStatistics.LastReceivedPacketTime, std::time(nullptr));
}

/// Nothing is moved for a new record, and nothing allocated: the storage has room for all.
void ETHERNETMeasurement::keep(const pcap_measured_value_struct& record)
{
    if (buffer->size() < maxRecords) {
        buffer->push_back(record);
    } else {
        (*buffer)[oldestRecord] = record;
        oldestRecord = (oldestRecord + 1) % maxRecords;
    }
}

void ETHERNETMeasurement::getBuffer(std::vector<pcap_measured_value_struct>* out)
{
    out->reserve(maxRecords); // not under the lock: each frame that comes meanwhile loses its record
    const MutexLock lock(bufferMutex);
    const auto oldest = buffer->begin() + static_cast<std::ptrdiff_t>(oldestRecord);
    out->assign(oldest, buffer->end());
    out->insert(out->end(), buffer->begin(), oldest);
}

void ETHERNETMeasurement::getMeasure(std::vector<int>* out)
{
    const bool present = std::difftime(std::time(nullptr), receptionStatistics.LastReceivedPacketTime) <= 1.0;
    const auto ifPresent = [present](auto value) { return present ? static_cast<int>(value) : 0; };
    const std::vector<int> values{
        present ? 1 : 0, ifPresent(lastBitrate.load()), ifPresent(delayFactorMs.load()),
        ifPresent(discontinuities.load()), ifPresent(tsPacketSize.load()),
        ifPresent(tsPacketsPerDatagram.load()),
        10, // a constant of the reply
    };
    if (out)
        *out = values;
}
