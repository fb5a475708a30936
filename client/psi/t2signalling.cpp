#include "client/psi/t2signalling.h"

#include "client/psi/bitreader.h"
#include "client/psi/codedtext.h"
#include "client/psi/t2names.h"

namespace tessary::client {

namespace {

constexpr std::size_t preSize = 21; // bytes of L1-pre without its CRC
constexpr std::size_t beforePre = 2; // frame_idx and reserved bits

constexpr const char* preambles[] = {"T2, SISO", "T2, MISO", "not T2", "T2-Lite, SISO", "T2-Lite, MISO"};
constexpr const char* l1Modulations[] = {"BPSK", "QPSK", "16-QAM", "64-QAM"};
constexpr const char* plpTypes[] = {"common", "data, type 1", "data, type 2"};
constexpr const char* plpPayloads[] = {"GFPS", "GCS", "GSE", "TS"};
constexpr const char* plpCodeRates[] = {"1/2", "3/5", "2/3", "3/4", "4/5", "5/6", "1/3", "2/5"};
constexpr const char* plpModulations[] = {"QPSK", "16-QAM", "64-QAM", "256-QAM"};
constexpr const char* plpModes[] = {"", "normal", "high efficiency"};

int number(BitReader& bits, std::size_t width)
{
    return static_cast<int>(bits.take(width));
}

/// Returns NUM_RF.
std::uint64_t readPre(BitReader& bits, T2Signalling& l1)
{
    l1.type = number(bits, 8);
    l1.bandwidthExtended = bits.flag();
    l1.preamble = codedText(preambles, bits.take(3));
    l1.transmissionMode = codedText(t2TransmissionModes, bits.take(3));
    l1.futureExtensionFrames = bits.flag();
    bits.take(1); // L1_REPETITION_FLAG
    l1.guardInterval = codedText(t2GuardIntervals, bits.take(3));
    bits.take(4); // PAPR
    l1.l1Modulation = codedText(l1Modulations, bits.take(4));
    bits.take(2 + 2 + 18 + 18); // L1_COD, L1_FEC_TYPE, L1_POST_SIZE, L1_POST_INFO_SIZE
    const int pattern = number(bits, 4);
    l1.pilotPattern = pattern < 8 ? pattern + 1 : 0;
    bits.take(8); // TX_ID_AVAILABILITY
    l1.cellId = number(bits, 16);
    l1.networkId = number(bits, 16);
    l1.systemId = number(bits, 16);
    l1.framesPerSuperframe = number(bits, 8);
    l1.symbolsPerFrame = number(bits, 12);
    bits.take(3 + 1); // REGEN_FLAG, L1_POST_EXTENSION
    const std::uint64_t channels = bits.take(3);
    bits.take(3); // CURRENT_RF_IDX
    l1.version = number(bits, 4);
    bits.take(1 + 1 + 4); // L1_POST_SCRAMBLED, T2_BASE_LITE, RESERVED
    return channels;
}

T2Signalling::Plp readPlp(BitReader& bits)
{
    T2Signalling::Plp plp;
    plp.id = number(bits, 8);
    plp.type = codedText(plpTypes, bits.take(3));
    plp.payload = codedText(plpPayloads, bits.take(5));
    bits.take(1 + 3 + 8); // FF_FLAG, FIRST_RF_IDX, FIRST_FRAME_IDX
    plp.group = number(bits, 8);
    plp.codeRate = codedText(plpCodeRates, bits.take(3));
    plp.modulation = codedText(plpModulations, bits.take(3));
    plp.rotated = bits.flag();
    bits.take(2 + 10 + 8 + 8); // PLP_FEC_TYPE, PLP_NUM_BLOCKS_MAX, FRAME_INTERVAL, TIME_IL_LENGTH
    bits.take(1 + 1 + 1 + 11); // TIME_IL_TYPE, IN_BAND_A_FLAG, IN_BAND_B_FLAG, RESERVED_1
    plp.mode = codedText(plpModes, bits.take(2));
    bits.take(1 + 1); // STATIC_FLAG, STATIC_PADDING_FLAG
    return plp;
}

constexpr std::size_t headBits = 15 + 8 + 4 + 8; // up to AUX_CONFIG_RFU
constexpr std::size_t channelBits = 3 + 32;
constexpr std::size_t extensionBits = 4 + 22 + 8; // of future extension frames
constexpr std::size_t plpBits = 89;

/// False when `length` bits do not hold what they announce.
bool readConfigurable(BitReader& bits, std::size_t length, std::uint64_t channels, T2Signalling& l1)
{
    const std::size_t before =
        headBits + channels * channelBits + (l1.futureExtensionFrames ? extensionBits : 0);
    if (length > bits.left() || length < before)
        return false;
    bits.take(15); // SUB_SLICES_PER_FRAME
    const std::uint64_t plps = bits.take(8);
    if (length < before + plps * plpBits)
        return false;
    bits.take(4 + 8); // NUM_AUX, AUX_CONFIG_RFU
    for (std::uint64_t i = 0; i < channels; ++i) {
        bits.take(3); // RF_IDX
        l1.frequencies.push_back(static_cast<std::uint32_t>(bits.take(32)));
    }
    if (l1.futureExtensionFrames)
        bits.take(extensionBits);
    for (std::uint64_t i = 0; i < plps; ++i)
        l1.plps.push_back(readPlp(bits));
    return true;
}

} // namespace

std::optional<T2Signalling> decodeT2Signalling(const Bytes& payload)
{
    constexpr std::size_t lengthSize = 2;
    if (payload.size() < beforePre + preSize + lengthSize)
        return std::nullopt;
    T2Signalling l1;
    BitReader bits(payload, beforePre);
    const std::uint64_t channels = readPre(bits, l1);
    const auto length = static_cast<std::size_t>(bits.take(8 * lengthSize));
    if (!readConfigurable(bits, length, channels, l1))
        return std::nullopt;
    return l1;
}

std::string textOf(const T2Signalling::Plp& plp)
{
    std::string text = std::to_string(plp.id) + " (" + plp.type;
    for (const std::string& part : {plp.payload, plp.codeRate, plp.modulation})
        text += part.empty() ? "" : ", " + part;
    return text + ")";
}

} // namespace tessary::client
