#include "client/panel/tabletree.h"

#include "kit/sections.h"

#include <gtest/gtest.h>

namespace {

using namespace tessary::client;
using namespace tessary::panel;
using namespace tessary::test;

/// The first node of this name, depth first; null without.
Json find(const Json& nodes, const std::string& name)
{
    for (const Json& node : nodes) {
        if (node.at("name") == name)
            return node;
        Json below = find(node.at("children"), name);
        if (!below.is_null())
            return below;
    }
    return {};
}

/// Every node lies within what holds it.
void expectInside(const Json& nodes, std::size_t begin, std::size_t end)
{
    for (const Json& node : nodes) {
        const auto offset = node.at("offset").get<std::size_t>();
        const auto length = node.at("length").get<std::size_t>();
        EXPECT_GE(offset, begin) << node;
        EXPECT_LE(offset + length, end) << node;
        expectInside(node.at("children"), offset, offset + length);
    }
}

TEST(PanelTableTree, TakesAProgramMapApart)
{
    const Bytes pmt = makeSection(
        0x02, 2, {0xE1, 0x00, 0xF0, 0x00, 0x1B, 0xE1, 0x01, 0xF0, 0x06, 0x0A, 0x04, 'd', 'e', 'u', 0x00});
    const Json tree = treeOfSections(pmt);
    const Json& decoded = tree.at("decoded");
    EXPECT_EQ(find(decoded, "program_number").at("value"), "2 (0x2)");
    EXPECT_EQ(find(decoded, "PCR_PID").at("value"), "256 (0x100)");
    EXPECT_EQ(find(decoded, "elementary stream").at("value"), "257 (0x101)");
    const Json language = find(decoded, "ISO_639_language_code");
    EXPECT_EQ(language.at("value"), "deu");
    EXPECT_EQ(language.at("offset"), 19);
    EXPECT_EQ(language.at("length"), 3);
    EXPECT_EQ(find(decoded, "CRC_32").at("value"), "right");
    EXPECT_EQ(tree.at("hex").get<std::string>().size(), 2 * pmt.size());
    expectInside(decoded, 0, pmt.size());
}

TEST(PanelTableTree, TakesServicesApart)
{
    const Bytes sdt = makeSection(0x42, 1,
        {0xFF, 0x01, 0xFF, 0x00, 0x07, 0xFC, 0x80, 0x09, 0x48, 0x07, 0x01, 0x01, 'P', 0x03, 'B', 'B', 'C'});
    const Json decoded = treeOfSections(sdt).at("decoded");
    EXPECT_EQ(find(decoded, "service").at("value"), 7);
    EXPECT_EQ(find(decoded, "service_name").at("value"), "BBC");
    EXPECT_EQ(find(decoded, "running_status").at("value"), "running");
    expectInside(decoded, 0, sdt.size());
}

TEST(PanelTableTree, NoBytesLeadBeyondTheirEnd)
{
    Bytes bytes =
        makeSection(0x40, 1, {0xF0, 0xFF, 0x40, 0xFF, 'x', 0xF0, 0x06, 0x00, 0x01, 0xFF, 0x01, 0xF0, 0x00});
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        for (const int value : {0x00, 0x02, 0x42, 0x7F, 0xFF}) {
            Bytes damaged = bytes;
            damaged[at] = static_cast<std::uint8_t>(value);
            expectInside(treeOfSections(damaged).at("decoded"), 0, damaged.size());
            damaged.resize(at);
            expectInside(treeOfSections(damaged).at("decoded"), 0, damaged.size());
            expectInside(treeOfT2mi(damaged).at("decoded"), 0, damaged.size());
        }
    }
}

} // namespace
