#pragma once

#include "measure/receptionstatistics.h"
#include "system/mutex.h"
#include "system/mydata.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <pcap/pcap.h>
#include <pthread.h>
#include <string>
#include <vector>

/// Captures the IP stream that the settings name on the wired interface and measures its reception. One
/// object lives for the whole process.
///
/// Threads: every operation is called on the main thread; doWork() and onPacketReceived() run on the capture
/// thread, which start() makes and stop() joins. Results are atomics; the records are guarded by
/// `bufferMutex`, for which the capture thread never waits. Failures are logged and leave the object idle.
class ETHERNETMeasurement
{
public:
    ETHERNETMeasurement();
    /// Stops a running capture.
    ~ETHERNETMeasurement();
    ETHERNETMeasurement(const ETHERNETMeasurement&) = delete;
    ETHERNETMeasurement& operator=(const ETHERNETMeasurement&) = delete;

    /// Stores transport and filter (pcap-filter(7)) of the stream for the next start; stops a running
    /// capture.
    void load(::protocol p, std::string filter);
    /// Opens the capture and starts its thread; restarts a running one. Success shows as `running`, and
    /// raises a join request of the stream's group. Blocks about 50 ms.
    void start();
    /// Ends the capture thread and empties the records; nothing, not even a log line, when idle.
    void stop();

    /// Replaces the contents of `out` by the records of the last 1024 frames, oldest first; they stay here,
    /// too. Waits for the record lock, which is held for microseconds at the most.
    void getBuffer(std::vector<pcap_measured_value_struct>* out);
    /// Replaces the contents of `out` by seven values: stream present (0 or 1), bit rate in bits per second,
    /// delay factor in ms, continuity errors, TS packet size in bytes, TS packets per datagram, 10. A stream
    /// without a frame for more than a second is not present, and all but the last value are 0. Null does
    /// nothing.
    void getMeasure(std::vector<int>* out);

    /// Takes a frame from libpcap; `self` is the ETHERNETMeasurement. Never blocks, never allocates.
    static void onPacketReceived(unsigned char* self, const pcap_pkthdr* header, const unsigned char* frame);
    /// Body of the capture thread; `self` is the ETHERNETMeasurement. Returns null.
    static void* doWork(void* self);

    pcap_t* handle; ///< owned by the capture thread, which closes it; stale from then on
    pthread_t thread; ///< valid while `running`
    /// At most 1024 records, in the storage of the start. Once they are so many, the newest one takes the
    /// place of the oldest: getBuffer() knows their order.
    std::unique_ptr<std::vector<pcap_measured_value_struct>> buffer PT_GUARDED_BY(bufferMutex);
    std::atomic<std::int64_t> delayFactorMs; ///< of the last closed period
    std::atomic<std::int64_t> discontinuities; ///< continuity errors of the last closed period
    std::atomic<std::int64_t> lastBitrate; ///< of the last closed period, bits per second
    std::atomic<std::int32_t> tsPacketSize; ///< of the last datagram, bytes: 188, 204 or 0
    std::atomic<std::int32_t> tsPacketsPerDatagram; ///< of the last datagram
    BriefMutex bufferMutex; ///< guards `buffer`
    /// From a successful start to the stop, even when the loop ends by an error meanwhile.
    std::atomic<bool> running;
    std::string filter; ///< pcap-filter(7) text
    ::protocol protocol; ///< transport of the stream

private:
    bool open(const char* device);
    bool installFilter(bpf_u_int32 net);
    void closeHandle();
    void keep(const pcap_measured_value_struct& record) REQUIRES(bufferMutex);

    /// Place of the oldest record in `buffer`, which the next one takes when that is full.
    std::size_t oldestRecord GUARDED_BY(bufferMutex);
    Mutex handleMutex; ///< keeps a stop from reaching for a handle that the capture thread is closing
    bool handleOpen GUARDED_BY(handleMutex); ///< false once the loop has ended, by a stop or by an error
};

extern ETHERNETMeasurement* ethMes;
