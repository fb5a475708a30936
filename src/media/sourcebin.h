#pragma once

#include "media/gstsource.h"

#include <initializer_list>
#include <string>

// What the sources' constructors share. Main thread. Results of making and linking elements are not looked
// at.

/// Size of the blocks that a file or the FPGA delivers: one hundred transport stream packets.
constexpr guint tsBlockBytes = 18800;

/// A bin "my_bin" of the elements, linked in order, and behind them the T2-MI extractor if there is one, with
/// a ghost pad "src" from the last one. A null element of `chain`, one that could not be made, is used as it
/// is: GStreamer complains, and the chain is broken there, so that no stream gets out that nothing has
/// unpacked.
GstElement* makeSourceBin(std::initializer_list<GstElement*> chain, GstElement* extractor = nullptr);

/// The address and port of a stream as the controller sent them, made ready for a receiver.
struct StreamAddress
{
    /// Throws std::invalid_argument or std::out_of_range when address or port does not begin with a number.
    StreamAddress(std::string address, std::string port);

    std::string text; ///< the address without line ends
    bool multicast; ///< its first field is above 223
    int port;
};

/// The "udpsrc" element "udpsrc1" for a stream on the wired interface that the settings name.
GstElement* makeUdpReceiver(const StreamAddress& address);

/// The "t2mi" element behind `receiver`, whose buffers then carry arrival times; null when `config` is null.
GstElement* makeT2miExtractor(const T2MI_Config_Struct* config, GstElement* receiver);

/// Copies the extractor's last T2-MI frame to `buffer`, which must have room for a whole frame. Returns its
/// size in bytes, 0 without extractor or buffer.
int copyT2miFrame(GstElement* t2mi, unsigned char* buffer);
