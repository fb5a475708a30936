#include "client/endmark.h"

#include "client/ebs.h"
#include "client/requests.h"

#include <atomic>
#include <random>

namespace tessary::client {

namespace {

constexpr unsigned lowest = 100;
constexpr unsigned highest = 255;

} // namespace

EndMark EndMark::next()
{
    static std::atomic<unsigned> taken{std::random_device{}()};
    return EndMark(static_cast<int>(lowest + taken++ % (highest - lowest + 1)));
}

std::string EndMark::question() const
{
    return std::string(1, '\0') + request::ebsServiceName.word + ebsIndex(m_number) + '\n';
}

std::string EndMark::answer() const
{
    return "Service" + std::to_string(m_number);
}

} // namespace tessary::client
