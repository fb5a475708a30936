#pragma once

#include "media/mpegts.h"

#include <cstdint>
#include <string>
#include <vector>

class gstImpl;

/// T2-MI selection (ETSI TS 102 773) of an IP source.
struct T2MI_Config_Struct
{
    std::int32_t pid; ///< PID of the transport stream packets that carry T2-MI
    std::int32_t plpid; ///< physical layer pipe to extract
};

/// A stream source: a bin "my_bin" with one ghost pad "src" that delivers an MPEG transport stream, and the
/// pipeline object around it. Made, used and deleted on the main thread. Building one starts nothing; it
/// lives as long as its pipeline. Polymorphic only through its destructor.
class gstsource
{
public:
    gstsource() = default;
    virtual ~gstsource();
    gstsource(const gstsource&) = delete;
    gstsource& operator=(const gstsource&) = delete;

    // Each forwards to the pipeline operation of the same meaning.
    int getProgramNumber(int index);
    int play(int programNumber);
    int scanStream();
    void recordStream(std::string path);
    void stop();
    int sendStream();
    void debugdotfile(std::string name);
    std::vector<std::uint8_t>* getPAT();
    std::vector<std::uint8_t>* getPMT();
    std::vector<std::uint8_t>* getNIT();
    void status(std::string* out);
    int getTotalNumberOfProgramsFound();
    int getVideoDecodedWidth();
    int getVideoDecodedHeight();
    GstCaps* getVideoDecodedCaps();
    GstCaps* getAudioDecodedCaps();

    /// "<SDT>" followed by the SDT sections, or null before the first one. Valid until the next call.
    std::vector<std::uint8_t>* getStreamInformation();
    /// False before the first SDT section.
    bool hasStreamInformation();

protected:
    gstImpl* impl = nullptr; ///< owned by the derived class, which makes and deletes it

private:
    std::vector<std::uint8_t> streamInformation;
};

/// The current source, on which every stream command acts; null when there is none. Main thread only.
extern gstsource* instance;
