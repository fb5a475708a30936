#pragma once

#include <optional>
#include <string>

#include "capture_flow.h"
#include "capture_reader.h"
#include "datagram_source.h"

namespace tessary::sender {

/// The datagrams of one flow of a capture, each as it was and when it was. From the second pass on they are
/// the same again.
class CaptureDatagrams : public DatagramSource
{
public:
    /// `passes` 0: without end. `keepVlan`: with the tags that they had. Throws StreamError.
    CaptureDatagrams(std::string path, const CaptureFlow& flow, std::uint64_t passes, bool keepVlan);

    std::int64_t nextTimeNs() override;
    std::optional<Datagram> take() override;
    double tsBitRate() const override { return m_flow.tsBitRate(); }
    std::size_t headerBytes() const override;
    std::uint64_t errorsMade() const override { return 0; }
    std::uint64_t passesBegun() const override { return m_pass; }

private:
    void readNext();
    bool belongs(const CapturedDatagram& datagram) const;

    std::string m_path;
    CaptureFlow m_flow;
    std::uint64_t m_passes;
    bool m_keepVlan;
    std::optional<CaptureReader> m_reader;
    std::uint64_t m_pass = 0;
    std::optional<CapturedDatagram> m_next;
    std::int64_t m_timeNs = 0; ///< of the next one
};

} // namespace tessary::sender
